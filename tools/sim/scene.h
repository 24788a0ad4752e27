#pragma once
#include <cstdint>
#include <utility>
#include <vector>

namespace vxsim {

// The simulated scene: a scanner 1 m above a conveyor belt looks straight
// down; its beam fan spans -30..+30 degrees across the belt. The belt carries
// boxes, cylinders and a ramp through the scan line, advancing a fixed
// distance per line, so that successive lines sample the objects' surfaces
// and build a 3D picture of them. The object pattern repeats every
// kPatternLength metres of belt.
//
// scan() gives, per pixel, the distance along the beam to the first surface
// hit, an intensity that depends on the material and the angle of incidence,
// noise, and a few dropouts. The result is a pure function of (pixel count,
// line number): the same line always looks the same, which lets tests
// recompute what the simulator sent.
//
// A scene is immutable after construction; const members may be called from
// any thread.
class Scene
{
public:
    enum Material : uint8_t
    {
        None, // dropout: no echo
        Belt,
        Cardboard,
        Metal,
        Plastic,
    };

    struct Sample
    {
        double range = 0.0;       // metres along the beam; 0 for a dropout
        uint16_t intensity = 0;   // 0 for a dropout, else 1..65534
        Material material = None; // what the beam hit
        float incidence = 0.0f;   // cosine of the angle of incidence, 0..1
    };

    static constexpr double kScannerHeight = 1.0;  // metres above the belt
    static constexpr double kHalfFan = 30.0;       // degrees either side
    static constexpr double kBeltStep = 0.001;     // belt advance per line, metres
    static constexpr double kPatternLength = 4.0;  // metres of belt until the objects repeat
    static constexpr double kRangeNoise = 0.00015; // standard deviation, metres
    static constexpr double kDropoutRate = 0.001;  // chance of a random dropout per pixel

    explicit Scene(int pixels);

    int pixels() const { return static_cast<int>(sines.size()); }
    // Beam angle of pixel 0 and the increment per pixel, degrees (file-header
    // keys 100 and 101).
    double firstAngle() const { return angle0; }
    double angleStep() const { return step; }
    // The transform from scanner to belt coordinates, 16 values row-major
    // (keys 320..335): a shift by kScannerHeight along z, so that the belt
    // lies at z = 0 and z keeps pointing down (an object of height h has
    // z = -h), y runs across the belt and x along it.
    static const double* transform();
    // Keys 100, 101 and 320..335 with their values, in key order.
    std::vector<std::pair<uint32_t, double>> fileHeaderEntries() const;

    // Position of line `line` along the belt's object pattern, metres.
    static double beltPosition(uint64_t line);
    // Samples every pixel of line `line` into `out` (resized to pixels()).
    void scan(uint64_t line, std::vector<Sample>& out) const;

private:
    struct Shape; // an object's cross-section in the scan plane
    void crossSection(double u, std::vector<Shape>& out) const;
    // Pixels whose beams may meet the box [yLow, yHigh] x [0, top].
    void pixelSpan(double yLow, double yHigh, double top, int& first, int& last) const;

    double angle0 = 0.0;
    double step = 0.0;
    std::vector<double> sines;
    std::vector<double> cosines;
    std::vector<double> beltRanges; // where each beam meets the empty belt
};

} // namespace vxsim
