#pragma once
#include <cstdint>
#include <utility>
#include <vector>

namespace vxsim {

// The simulated scene, one of six:
//
// Street (the default): a scanner on the back of a vehicle, 1.5 m above the
// road, drives along a street; its beam fan spans -100..+120 degrees from
// straight down. A row of houses runs 0.8 m beside it on the near side (-y);
// across the road stand parked cars, lamp posts and trees, and the houses of
// the far side about 20 m away; a footbridge spans the street. The vehicle
// advances kStreetStep per line; the street repeats every kStreetLength.
//
// Conveyor: a scanner 1 m above a conveyor belt looks straight down; its
// beam fan spans -30..+30 degrees across the belt. The belt carries boxes,
// cylinders and a ramp through the scan line, advancing kBeltStep per line;
// the object pattern repeats every kPatternLength metres of belt.
//
// Belt: the conveyor at close range, every length scaled by kBeltScale: the
// scanner 0.3 m above the belt.
//
// Wall: a flat wall kWallDistance ahead of the scanner, seen over 90
// degrees, with window recesses; no transform in its file header.
//
// Tunnel: the scanner in the middle of a large tunnel whose elliptic wall
// lies 40 m (up, down) to 60 m (to the sides) away, with ribs; its fan spans
// 270 degrees.
//
// Bowl: the scanner at the centre of a half-pipe (a bowl-shaped profile) of
// radius kBowlRadius, seen over 120 degrees, with grooves along it.
//
// Either way successive lines sample the objects' surfaces and build a 3D
// picture of them.
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
    enum Kind
    {
        Street,
        Conveyor,
        NearBelt, // the conveyor at close range ("belt")
        Wall,   // a flat wall 6 m ahead
        Tunnel, // a tunnel 40 to 60 m around the scanner
        Bowl,   // a half-pipe 1.5 m around the scanner
    };
    // The scene's name on the command line ("street", ...); null for none.
    static const char* name(Kind kind);
    // The kind named `name`; false when there is none.
    static bool fromName(const char* name, Kind& kind);

    enum Material : uint8_t
    {
        None, // dropout: no echo
        Belt,
        Cardboard,
        Metal,
        Plastic,
        Asphalt,
        Masonry,
        Foliage,
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

    static constexpr double kStreetScannerHeight = 1.5; // metres above the road
    static constexpr double kStreetFanLow = -100.0;     // degrees from straight down, pixel 0
    static constexpr double kStreetFanHigh = 120.0;     // degrees, the last pixel
    static constexpr double kStreetStep = 0.01;         // vehicle advance per line, metres
    static constexpr double kStreetLength = 60.0;       // metres until the street repeats
    static constexpr double kStreetRangeNoise = 0.001;  // standard deviation, metres

    static constexpr double kBeltScale = 0.3;     // the belt: the conveyor's lengths times this
    static constexpr double kWallDistance = 6.0;  // metres ahead of the scanner
    static constexpr double kWallStep = 0.01;     // scanner advance per line along the wall
    static constexpr double kTunnelAcross = 60.0; // half axes of the tunnel's ellipse, metres
    static constexpr double kTunnelUp = 40.0;
    static constexpr double kTunnelStep = 0.05; // advance per line along the tunnel
    static constexpr double kBowlRadius = 1.5;  // metres
    static constexpr double kBowlStep = 0.002;  // advance per line along the half-pipe

    explicit Scene(int pixels, Kind kind = Street);

    Kind kind() const { return sceneKind; }

    int pixels() const { return static_cast<int>(sines.size()); }
    // Beam angle of pixel 0 and the increment per pixel, degrees (file-header
    // keys 100 and 101).
    double firstAngle() const { return angle0; }
    double angleStep() const { return step; }
    // The transform from scanner to scene coordinates, 16 values row-major
    // (keys 320..335), a shift that keeps z pointing down (a smaller z is
    // higher up) and y across. Conveyor: by kScannerHeight along z, so that
    // the belt lies at z = 0 and an object of height h has z = -h. Street:
    // by -0.2 m along y and -1 m along z, so that the road lies at z = 0.5
    // and the near houses at y = -1. Belt: by its own scanner height. Tunnel:
    // by -40 m along z, its floor at z = 0. Wall: none (its file header
    // leaves the transform out). Bowl: the identity.
    const double* transform() const;
    // Scanner height above the floor (belt or road), metres; the wall's
    // distance, the tunnel's and bowl's radius straight down.
    double scannerHeight() const;
    // Keys 100, 101 and 320..335 with their values, in key order.
    std::vector<std::pair<uint32_t, double>> fileHeaderEntries() const;

    // Position of line `line` along the belt's object pattern, metres.
    static double beltPosition(uint64_t line);
    // Position of line `line` along the street, metres.
    static double streetPosition(uint64_t line);
    // Samples every pixel of line `line` into `out` (resized to pixels()).
    void scan(uint64_t line, std::vector<Sample>& out) const;

private:
    struct Shape; // an object's cross-section in the scan plane
    // The objects' cross-sections at position u along the belt or street.
    void crossSection(double u, std::vector<Shape>& out) const;
    // Where each beam first meets the scene's surfaces (range, material,
    // incidence), before noise; beams that meet nothing have material None.
    void trace(uint64_t line, std::vector<Sample>& out) const;
    // Pixels whose beams may meet `sh` (first > last: none).
    void pixelSpan(const Shape& sh, int& first, int& last) const;
    // Wall, tunnel and bowl: each beam's surface from a formula.
    void traceSurface(uint64_t line, std::vector<Sample>& out) const;

    Kind sceneKind = Street;
    double angle0 = 0.0;
    double step = 0.0;
    std::vector<double> sines;
    std::vector<double> cosines;
    std::vector<double> floorRanges; // where each beam meets the empty belt or road
};

} // namespace vxsim
