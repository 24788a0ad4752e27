#pragma once
#include "measure/profilepoints.h"

#include <cstddef>
#include <limits>
#include <vector>

namespace vxmeasure {

// The measures of one line in a region of interest along its horizontal
// axis y (the cut view's), from the points of the line whose y lies in the
// region (docs/measurements.md defines each measure with a drawing):
//
//   count                    points measured
//   zMin, zMax, zMean        lowest, highest and mean z
//   base, top                the region's two extreme surface levels, robust
//                            against noise and stray points: base the one
//                            away from the feature side, top the other
//   height                   the z extent between them, |top - base|
//   noise, threshold         the points' noise (standard deviation, from
//                            second differences) and how far a point must lie
//                            beyond the base to stand out
//   width, centre            extent and middle in y of the widest run of
//                            points that stand out of the base (the feature)
//   angle                    of the straight line fitted through the points
//   area                     between the profile and the base level
//
// "Up" is where the feature stands: Raised (the default) takes a smaller z
// as higher, as the cut view draws it (z points away from the scanner);
// Sunk looks for grooves and gaps in a surface instead.
//
// The working arrays are kept from call to call: once they have grown to a
// line's size a measurement allocates nothing.
//
// Ownership: owns its working arrays and the last result. Threads: one
// thread at a time; several objects may measure on several threads.
class ProfileMeasure
{
public:
    enum class Polarity
    {
        Raised, // features stand towards smaller z
        Sunk,   // features lie towards larger z
    };

    struct Settings
    {
        Polarity polarity = Polarity::Raised;
        // A point stands out when it lies beyond the base by more than
        // noiseFactor times the noise, and by at least minStep (metres).
        double noiseFactor = 6.0;
        double minStep = 0.0001;
    };

    static constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

    // Lengths in metres, the area in square metres, the angle in degrees;
    // NaN where a measure has no value (no points, no feature).
    struct Result
    {
        std::size_t count = 0;
        double zMin = kNaN, zMax = kNaN, zMean = kNaN;
        double base = kNaN, top = kNaN, height = kNaN;
        double noise = kNaN, threshold = kNaN;
        std::size_t featurePoints = 0; // 0: nothing stands out
        double width = kNaN, centre = kNaN;
        double angle = kNaN;
        double area = kNaN;
    };

    // Fewest points of a run that makes a feature: a stray point or two
    // is none.
    static constexpr std::size_t kMinFeaturePoints = 3;
    // Stray points beyond a surface that its level may ignore, at most.
    static constexpr std::size_t kLevelRankMax = 32;
    // A step in y this many times the region's mean point spacing is a gap
    // (a shadow, missing points) for the area.
    static constexpr double kGapFactor = 4.0;

    ProfileMeasure() = default;
    explicit ProfileMeasure(const Settings& s) : settings(s) {}

    void setSettings(const Settings& s) { settings = s; }
    const Settings& currentSettings() const { return settings; }

    // Measures the points whose y lies within [y0, y1] (either order, both
    // ends included). The result stays valid until the next call.
    const Result& measure(const ProfilePoints& points, double y0, double y1);

private:
    // The noise of the region's z from its second differences.
    double estimateNoise();
    // The region's two robust levels (of "up"): each seeded by the k-th
    // lowest or highest value, then the mean of the values within `window`
    // of it, twice re-centred.
    void levels(std::size_t k, double window, double& low, double& high);
    // The k-th lowest and the k-th highest of the region's "up" values.
    void extremeRanks(std::size_t k, double& low, double& high);
    void findFeature(double base, double threshold);
    double areaAboveBase(double base) const;

    Settings settings;
    Result result;
    std::vector<double> ry, ru; // the region's y and "up" (-z when raised)
    std::vector<double> work;
    std::vector<double> scratch;             // for selecting a rank's value
    std::vector<double> blockLow, blockHigh; // extremes of blocks of values
};

} // namespace vxmeasure
