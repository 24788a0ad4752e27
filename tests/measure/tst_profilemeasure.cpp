// The measures against profiles whose answers are known by construction: a
// belt at z = 0 seen from above (z points down, so an object of height h has
// z = -h), sampled every 0.5 mm across y = -0.5 .. 0.5 m, with boxes, steps,
// slopes, grooves, noise, missing points and shadows. Each row states the
// scene and what a measurement of it must give; the tolerances are those
// the sampling allows (an edge lies between two samples).
#include "measure/measurecsv.h"
#include "measure/pointpair.h"
#include "measure/profilemeasure.h"
#include "measure/profilepoints.h"
#include "tests/check.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <random>
#include <string>
#include <vector>

using vxmeasure::MeasureCsv;
using vxmeasure::PointPair;
using vxmeasure::ProfileMeasure;
using vxmeasure::ProfilePoints;
using Polarity = ProfileMeasure::Polarity;

namespace {

constexpr double kNaN = ProfileMeasure::kNaN;
constexpr int kSamples = 2001;
constexpr double kSpacing = 1.0 / (kSamples - 1); // 0.5 mm

double sampleY(int i)
{
    return -0.5 + i * kSpacing;
}

// Heights above the belt.
std::function<double(double)> box(double from, double to, double h)
{
    return [=](double y) { return y >= from && y <= to ? h : 0.0; };
}

struct Scene
{
    std::function<double(double)> height = [](double) { return 0.0; };
    double noise = 0.0;                                           // deviation of z, metres
    std::function<bool(int)> missing = [](int) { return false; }; // no echo
};

ProfilePoints sample(const Scene& s)
{
    std::mt19937 rng(7);
    std::normal_distribution<double> gauss(0.0, 1.0);
    ProfilePoints p;
    for (int i = 0; i < kSamples; ++i) {
        const double y = sampleY(i);
        const double z = -s.height(y) + s.noise * gauss(rng);
        // Missing points carry no range; their coordinates are whatever the
        // conversion made of range 0 (the scanner's own place).
        p.add(s.missing(i) ? 0.0 : 1.0, s.missing(i) ? 0.0 : y, s.missing(i) ? 1.0 : z);
    }
    return p;
}

struct Expect
{
    double height = kNaN, width = kNaN, centre = kNaN, angle = kNaN, area = kNaN, base = kNaN;
    bool feature = true;
    double lengthTolerance = 1.5 * kSpacing; // width, centre
    double levelTolerance = 1e-5;            // height, base
    double areaTolerance = 1e-6;
    double angleTolerance = 1e-6; // degrees
};

struct Row
{
    const char* name;
    Scene scene;
    double roi0, roi1;
    Polarity polarity;
    Expect expect;
};

void checkNear(double actual, double expected, double tolerance, const char* what)
{
    if (std::isnan(expected))
        return;
    if (!(std::fabs(actual - expected) <= tolerance))
        vxtest::fail(__FILE__, __LINE__,
                     std::string(what) + " = " + std::to_string(actual) + ", expected " +
                         std::to_string(expected) + " +- " + std::to_string(tolerance));
}

void regionMeasures()
{
    Scene flat;
    Scene boxOnBelt;
    boxOnBelt.height = box(-0.10, 0.15, 0.2);
    Scene noisyBox = boxOnBelt;
    noisyBox.noise = 0.00015;
    Scene holes = boxOnBelt;
    // Every third point gone, and 60 in a row on the box's top.
    holes.missing = [](int i) { return i % 3 == 0 || (i >= 900 && i < 960); };
    Scene shadow = boxOnBelt;
    // The belt behind the box's right edge is hidden for 40 mm.
    shadow.missing = [](int i) { return sampleY(i) > 0.15 && sampleY(i) <= 0.19; };
    Scene step;
    step.height = [](double y) { return y < 0.1 ? 0.05 : 0.0; };
    Scene slope;
    slope.height = [](double y) { return -0.5 * y; }; // z = 0.5 y
    Scene groove;
    groove.height = [](double y) { return y > 0.2 && y < 0.23 ? -0.01 : 0.0; };
    groove.noise = 0.00005;
    Scene twoBoxes;
    twoBoxes.height = [](double y) {
        return (y >= -0.4 && y <= -0.3) ? 0.1 : (y >= 0.0 && y <= 0.3) ? 0.05 : 0.0;
    };
    Scene spikes;
    spikes.height = [](double y) {
        return std::fabs(y - 0.1) < 1e-6 || std::fabs(y + 0.2) < 1e-6 ? 0.3 : 0.0;
    };
    spikes.noise = 0.0001;
    Scene boxOnSlope; // a 30 mm box 100 mm wide on a belt tilted by 0.1
    boxOnSlope.height = [](double y) { return 0.1 * y + (y >= 0.2 && y <= 0.3 ? 0.03 : 0.0); };

    const auto e = [](auto&& set) {
        Expect x;
        set(x);
        return x;
    };
    const std::vector<Row> rows = {
        {"flat belt: nothing stands out", flat, -0.5, 0.5, Polarity::Raised, e([](Expect& x) {
             x.height = 0, x.width = 0, x.angle = 0, x.area = 0, x.base = 0, x.feature = false;
         })},
        {"box on the belt", boxOnBelt, -0.5, 0.5, Polarity::Raised, e([](Expect& x) {
             x.height = 0.2, x.width = 0.25, x.centre = 0.025, x.area = 0.2 * 0.25, x.base = 0;
             x.areaTolerance = 0.2 * kSpacing;
         })},
        {"region given right to left", boxOnBelt, 0.5, -0.5, Polarity::Raised,
         e([](Expect& x) { x.height = 0.2, x.width = 0.25, x.centre = 0.025; })},
        {"box with noise", noisyBox, -0.5, 0.5, Polarity::Raised, e([](Expect& x) {
             x.height = 0.2, x.width = 0.25, x.centre = 0.025, x.base = 0;
             x.levelTolerance = 0.0001, x.area = 0.05, x.areaTolerance = 0.2 * kSpacing;
         })},
        {"box with missing points", holes, -0.5, 0.5, Polarity::Raised, e([](Expect& x) {
             x.height = 0.2, x.width = 0.25, x.centre = 0.025, x.area = 0.05;
             x.lengthTolerance = 2.5 * kSpacing, x.areaTolerance = 0.2 * 2 * kSpacing;
         })},
        {"box casting a shadow: the hidden belt counts as belt", shadow, -0.5, 0.5,
         Polarity::Raised, e([](Expect& x) {
             x.height = 0.2, x.width = 0.25, x.area = 0.05, x.areaTolerance = 0.2 * kSpacing;
         })},
        {"region on the box's top only", boxOnBelt, -0.05, 0.1, Polarity::Raised, e([](Expect& x) {
             x.height = 0, x.width = 0, x.base = -0.2, x.area = 0, x.feature = false;
         })},
        {"region cutting the box: only its part", boxOnBelt, 0.0, 0.3, Polarity::Raised,
         e([](Expect& x) { x.height = 0.2, x.width = 0.15, x.centre = 0.075; })},
        {"step: the higher side is the feature", step, -0.5, 0.5, Polarity::Raised,
         e([](Expect& x) { x.height = 0.05, x.width = 0.6, x.centre = -0.2, x.base = 0; })},
        // The levels leave out the 1 % most extreme points at either end: on
        // a slope the height falls short of the z extent by their rise.
        {"slope of 0.5", slope, -0.2, 0.2, Polarity::Raised, e([](Expect& x) {
             x.angle = std::atan(0.5) * 180 / M_PI, x.height = 0.2, x.levelTolerance = 0.005;
         })},
        {"groove, measured sunk", groove, -0.5, 0.5, Polarity::Sunk, e([](Expect& x) {
             x.height = 0.01, x.width = 0.03, x.centre = 0.215, x.base = 0;
             // The base's small error counts over the whole region's width.
             x.levelTolerance = 0.00005, x.area = 0.01 * 0.03, x.areaTolerance = 0.00001;
         })},
        {"groove, measured raised: its floor is the base, the wider side stands up", groove, -0.5,
         0.5, Polarity::Raised, e([](Expect& x) {
             x.height = 0.01, x.width = 0.7, x.centre = -0.15, x.levelTolerance = 0.00005;
         })},
        {"two boxes: the wider one", twoBoxes, -0.5, 0.5, Polarity::Raised,
         e([](Expect& x) { x.height = 0.1, x.width = 0.3, x.centre = 0.15; })},
        {"stray points are no feature", spikes, -0.5, 0.5, Polarity::Raised,
         e([](Expect& x) { x.feature = false, x.width = 0, x.levelTolerance = 0.0001; })},
        {"box on a tilted belt: the line follows the belt", boxOnSlope, -0.5, 0.5, Polarity::Raised,
         e([](Expect& x) {
             // The box pulls the fit a little.
             x.angle = std::atan(-0.1) * 180 / M_PI, x.angleTolerance = 1.0;
         })},
    };
    ProfileMeasure measure;
    for (const Row& row : rows) {
        vxtest::row = row.name;
        const ProfilePoints points = sample(row.scene);
        ProfileMeasure::Settings settings;
        settings.polarity = row.polarity;
        measure.setSettings(settings);
        const ProfileMeasure::Result& r = measure.measure(points, row.roi0, row.roi1);
        const Expect& x = row.expect;
        CHECK(r.count > 0);
        CHECK_EQ(r.featurePoints > 0, x.feature);
        checkNear(r.height, x.height, x.levelTolerance, "height");
        checkNear(r.base, x.base, x.levelTolerance, "base");
        checkNear(r.width, x.width, x.lengthTolerance, "width");
        checkNear(r.centre, x.centre, x.lengthTolerance, "centre");
        checkNear(r.angle, x.angle, x.angleTolerance, "angle");
        checkNear(r.area, x.area, x.areaTolerance, "area");
        // The plain statistics agree with the points themselves.
        CHECK(r.zMin <= r.zMean + 1e-12 && r.zMean <= r.zMax + 1e-12);
        if (r.featurePoints > 0)
            CHECK(r.height >= r.threshold);
    }
}

void plainStatistics()
{
    vxtest::row = "lowest, highest, mean and count of a region";
    ProfilePoints p;
    const double ys[] = {-0.2, -0.1, 0.0, 0.1, 0.2, 0.3};
    const double zs[] = {0.5, 0.7, 0.2, 0.4, 0.9, 5.0};
    for (int i = 0; i < 6; ++i)
        p.add(1.0, ys[i], zs[i]);
    ProfileMeasure m;
    const ProfileMeasure::Result& r = m.measure(p, -0.15, 0.2); // 0.7 0.2 0.4 0.9
    CHECK_EQ(r.count, 4u);
    CHECK_NEAR(r.zMin, 0.2, 1e-12);
    CHECK_NEAR(r.zMax, 0.9, 1e-12);
    CHECK_NEAR(r.zMean, 0.55, 1e-12);

    vxtest::row = "an empty region has no values";
    const ProfileMeasure::Result& none = m.measure(p, 1.0, 2.0);
    CHECK_EQ(none.count, 0u);
    CHECK(std::isnan(none.zMin) && std::isnan(none.height) && std::isnan(none.width) &&
          std::isnan(none.angle) && std::isnan(none.area));

    vxtest::row = "one point: levels but no angle";
    const ProfileMeasure::Result& one = m.measure(p, 0.25, 0.35);
    CHECK_EQ(one.count, 1u);
    CHECK_NEAR(one.height, 0.0, 1e-12);
    CHECK(std::isnan(one.angle));

    vxtest::row = "points one above the other stand upright";
    ProfilePoints wall;
    for (int i = 0; i < 10; ++i)
        wall.add(1.0, 0.1, 0.01 * i);
    CHECK_NEAR(m.measure(wall, 0.0, 0.2).angle, 90.0, 1e-9);
}

// The noise is the median of the |second differences| over 1.6521, exactly
// as sorting them places it, whatever order and ties the values come in
// (1,000 points: every one of the 998 differences counts).
void noiseIsTheExactMedian()
{
    constexpr std::size_t n = 1000;
    std::mt19937 rng(11);
    std::normal_distribution<double> g(0.0, 1e-4);
    std::vector<double> gauss(n);
    for (double& v : gauss)
        v = g(rng);
    const auto cube = [](double x) { return 1e-9 * x * x * x; };
    const struct
    {
        const char* name;
        std::function<double(std::size_t)> z;
    } patterns[] = {
        {"noise", [&](std::size_t i) { return gauss[i]; }},
        {"noise in 0.1 mm steps: many ties",
         [&](std::size_t i) { return std::round(gauss[i] / 1e-4) * 1e-4; }},
        {"flat: every difference 0", [](std::size_t) { return 0.25; }},
        {"parabola: every difference alike", [](std::size_t i) { return 1e-6 * double(i * i); }},
        {"cubic: differences ascending", [&](std::size_t i) { return cube(double(i)); }},
        {"cubic: differences descending", [&](std::size_t i) { return cube(double(n - i)); }},
        {"two values in turn", [](std::size_t i) { return i % 2 ? 1e-4 : -1e-4; }},
        {"sawtooth", [](std::size_t i) { return double(i % 7) * 1e-4; }},
    };
    ProfileMeasure m;
    for (const auto& pattern : patterns) {
        vxtest::row = pattern.name;
        ProfilePoints p;
        std::vector<double> d;
        for (std::size_t i = 0; i < n; ++i)
            p.add(1.0, double(i) * 1e-3, pattern.z(i));
        for (std::size_t i = 0; i + 2 < n; ++i)
            d.push_back(std::fabs(pattern.z(i) - 2.0 * pattern.z(i + 1) + pattern.z(i + 2)));
        std::sort(d.begin(), d.end());
        CHECK_EQ(m.measure(p, -1.0, 2.0).noise, d[d.size() / 2] / 1.6521);
    }
}

void leftOut()
{
    vxtest::row = "no range, not a number: left out";
    ProfilePoints p;
    p.add(0.0, 0.1, 0.1);
    p.add(-1.0, 0.1, 0.1);
    p.add(1.0, std::nan(""), 0.1);
    p.add(1.0, 0.1, HUGE_VAL);
    p.add(0.5, 0.2, 0.3);
    CHECK_EQ(p.size(), 1u);

    vxtest::row = "from point records: invalid and rejected points left out";
    std::vector<vxs::VxPt> records(4);
    for (int i = 0; i < 4; ++i) {
        records[std::size_t(i)].range = 1.0;
        records[std::size_t(i)].y = 0.1 * i;
        records[std::size_t(i)].z = 0.5;
        records[std::size_t(i)].valid = 1;
    }
    records[1].valid = 0;
    records[2].reject = 1;
    records[3].range = 0.0;
    p.assign(records.data(), records.size());
    CHECK_EQ(p.size(), 1u);
    CHECK_NEAR(p.y()[0], 0.0, 1e-12);
}

void pointPairs()
{
    struct PairRow
    {
        const char* name;
        double y1, z1, y2, z2;
        double dy, dz, distance, angle;
    };
    const PairRow rows[] = {
        {"3-4-5", 0, 0, 0.3, 0.4, 0.3, 0.4, 0.5, 53.130102354},
        {"falling to the right", 0.1, 0.2, 0.2, 0.1, 0.1, -0.1, std::sqrt(0.02), -45},
        {"taken right to left: the same line", 0.2, 0.1, 0.1, 0.2, -0.1, 0.1, std::sqrt(0.02), -45},
        {"one above the other", 0.1, 0.0, 0.1, 0.25, 0.0, 0.25, 0.25, 90},
        {"the same point", 0.1, 0.2, 0.1, 0.2, 0, 0, 0, 0},
        {"level", -0.3, 1.0, 0.2, 1.0, 0.5, 0, 0.5, 0},
    };
    for (const PairRow& r : rows) {
        vxtest::row = r.name;
        const PointPair p = PointPair::between(r.y1, r.z1, r.y2, r.z2);
        CHECK_NEAR(p.dy, r.dy, 1e-12);
        CHECK_NEAR(p.dz, r.dz, 1e-12);
        CHECK_NEAR(p.distance, r.distance, 1e-12);
        CHECK_NEAR(p.angle, r.angle, 1e-6);
    }
}

void csvRows()
{
    vxtest::row = "header names the columns";
    const std::string header = MeasureCsv::header();
    CHECK(header.rfind("line,points,", 0) == 0);
    CHECK(header.find(",height_mm,") != std::string::npos);
    CHECK(header.find(",width_mm,") != std::string::npos);
    CHECK(header.back() == '\n');

    struct CsvRow
    {
        const char* name;
        ProfileMeasure::Result r;
        const char* expected;
    };
    ProfileMeasure::Result full;
    full.count = 2048;
    full.zMin = -0.2000004; // rounds to -200.000
    full.zMax = 0.0000004;
    full.zMean = -0.0123456;
    full.base = -0.0000004; // rounds to 0.000, not -0.000
    full.top = -0.2;
    full.height = 0.19999951; // rounds up
    full.featurePoints = 700;
    full.width = 0.35;
    full.centre = -0.275;
    full.angle = -12.3456;
    full.area = 0.07;
    full.noise = 0.00015;
    ProfileMeasure::Result noFeature = full;
    noFeature.featurePoints = 0;
    noFeature.width = 0.0;
    noFeature.centre = kNaN;
    const CsvRow rows[] = {
        {"every value", full,
         "17,2048,-200.000,0.000,-12.346,0.000,-200.000,200.000,350.000,-275.000,-12.346,"
         "70000.0,0.150\n"},
        {"no feature: no centre", noFeature,
         "17,2048,-200.000,0.000,-12.346,0.000,-200.000,200.000,0.000,,-12.346,70000.0,"
         "0.150\n"},
        {"no points: empty fields", ProfileMeasure::Result(), "17,0,,,,,,,,,,,\n"},
    };
    for (const CsvRow& row : rows) {
        vxtest::row = row.name;
        char out[MeasureCsv::kRowBytes];
        const std::string text(out, MeasureCsv::row(17, row.r, out));
        CHECK_EQ(text, std::string(row.expected));
        // As many fields as the header names.
        CHECK_EQ(std::count(text.begin(), text.end(), ','),
                 std::count(header.begin(), header.end(), ','));
    }
}

} // namespace

int main()
{
    regionMeasures();
    plainStatistics();
    noiseIsTheExactMedian();
    leftOut();
    pointPairs();
    csvRows();
    return vxtest::result("tst_profilemeasure");
}
