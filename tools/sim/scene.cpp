#include "tools/sim/scene.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace vxsim {

namespace {

constexpr double kPi = 3.14159265358979323846;

uint64_t splitmix64(uint64_t& state)
{
    uint64_t z = (state += 0x9E3779B97F4A7C15ull);
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
    return z ^ (z >> 31);
}

// Standard normal deviates, drawn once from a fixed seed; per-pixel noise
// indexes this table instead of evaluating logarithms for every pixel.
const std::array<float, 4096>& gaussTable()
{
    static const std::array<float, 4096> table = [] {
        std::array<float, 4096> t{};
        uint64_t s = 12345;
        for (std::size_t i = 0; i < t.size(); i += 2) {
            const double u1 = (static_cast<double>(splitmix64(s) >> 11) + 1.0) * 0x1.0p-53;
            const double u2 = static_cast<double>(splitmix64(s) >> 11) * 0x1.0p-53;
            const double r = std::sqrt(-2.0 * std::log(u1));
            t[i] = static_cast<float>(r * std::cos(2.0 * kPi * u2));
            t[i + 1] = static_cast<float>(r * std::sin(2.0 * kPi * u2));
        }
        return t;
    }();
    return table;
}

enum class Kind
{
    Box,
    Ramp,             // rises linearly along the belt from 0 to `height`
    LyingCylinder,    // axis along the belt, resting on it
    StandingCylinder, // axis vertical
};

// An object in belt coordinates: u along the belt (within one pattern
// length), y across it, heights above the belt; metres.
struct Object
{
    Kind kind;
    Scene::Material material;
    double u0, u1; // extent along the belt (cylinders: centre +- radius)
    double y0, y1; // extent across the belt
    double height; // top (ramp: top at u1)
};

const Object kObjects[] = {
    {Kind::Box, Scene::Cardboard, 0.30, 0.90, -0.45, -0.10, 0.20},
    {Kind::LyingCylinder, Scene::Metal, 0.60, 1.40, 0.15, 0.35, 0.20},
    {Kind::Box, Scene::Cardboard, 1.60, 1.90, -0.05, 0.20, 0.35},
    {Kind::StandingCylinder, Scene::Metal, 2.28, 2.52, -0.37, -0.13, 0.30},
    {Kind::Ramp, Scene::Plastic, 2.80, 3.60, 0.00, 0.40, 0.25},
};

constexpr double kBaseIntensity[] = {0.0, 700.0, 2600.0, 1800.0, 1400.0};

} // namespace

// A cross-section in the scan plane (y across, h up): a rectangle standing on
// the belt, or a circle.
struct Scene::Shape
{
    bool circle = false;
    double y0 = 0, y1 = 0, top = 0; // rectangle
    double yc = 0, hc = 0, r = 0;   // circle
    double sideScale = 1.0;         // cosine factor of the side faces' normals
    Material material = None;
};

Scene::Scene(int pixels)
{
    const int n = std::max(pixels, 1);
    if (n > 1) {
        angle0 = -kHalfFan;
        step = 2.0 * kHalfFan / (n - 1);
    }
    sines.resize(static_cast<std::size_t>(n));
    cosines.resize(static_cast<std::size_t>(n));
    beltRanges.resize(static_cast<std::size_t>(n));
    for (int i = 0; i < n; ++i) {
        const double t = (angle0 + i * step) * kPi / 180.0;
        sines[static_cast<std::size_t>(i)] = std::sin(t);
        cosines[static_cast<std::size_t>(i)] = std::cos(t);
        beltRanges[static_cast<std::size_t>(i)] = kScannerHeight / std::cos(t);
    }
    gaussTable();
}

const double* Scene::transform()
{
    // Rows of the matrix. The viewer's views take z as pointing away from the
    // scanner (down): the cut view and the 3D view draw a smaller z higher
    // up. A plain shift by the scanner height keeps that direction and puts
    // the belt at z = 0, so objects on the belt have negative z and stand
    // upright in both views.
    static const double m[16] = {
        1, 0, 0, 0,               // x' = x
        0, 1, 0, 0,               // y' = y
        0, 0, 1, -kScannerHeight, // z' = z - H: belt at 0, objects above it negative
        0, 0, 0, 1,
    };
    return m;
}

std::vector<std::pair<uint32_t, double>> Scene::fileHeaderEntries() const
{
    std::vector<std::pair<uint32_t, double>> e;
    e.reserve(18);
    e.emplace_back(100, angle0);
    e.emplace_back(101, step);
    for (uint32_t k = 0; k < 16; ++k)
        e.emplace_back(320 + k, transform()[k]);
    return e;
}

double Scene::beltPosition(uint64_t line)
{
    const uint64_t perPattern = static_cast<uint64_t>(std::llround(kPatternLength / kBeltStep));
    return static_cast<double>(line % perPattern) * kBeltStep;
}

void Scene::crossSection(double u, std::vector<Shape>& out) const
{
    out.clear();
    for (const Object& o : kObjects) {
        if (u < o.u0 || u > o.u1)
            continue;
        Shape s;
        s.material = o.material;
        switch (o.kind) {
        case Kind::Box:
            s.y0 = o.y0, s.y1 = o.y1, s.top = o.height;
            break;
        case Kind::Ramp:
            s.y0 = o.y0, s.y1 = o.y1, s.top = o.height * (u - o.u0) / (o.u1 - o.u0);
            if (s.top < 1e-6)
                continue;
            break;
        case Kind::LyingCylinder:
            s.circle = true;
            s.r = (o.y1 - o.y0) / 2;
            s.yc = (o.y0 + o.y1) / 2;
            s.hc = s.r;
            break;
        case Kind::StandingCylinder: {
            const double r = (o.u1 - o.u0) / 2;
            const double du = u - (o.u0 + o.u1) / 2;
            const double half = std::sqrt(std::max(0.0, r * r - du * du));
            if (half < 1e-6)
                continue;
            const double yc = (o.y0 + o.y1) / 2;
            s.y0 = yc - half, s.y1 = yc + half, s.top = o.height;
            s.sideScale = half / r;
            break;
        }
        }
        out.push_back(s);
    }
}

namespace {

// Distance along the beam from the scanner at (0, H) in direction (s, -c) to
// where it enters `sh`, with the cosine of the angle of incidence there.
template <typename Shape>
bool enter(const Shape& sh, double H, double s, double c, double& t, double& cosInc)
{
    if (sh.circle) {
        const double oy = -sh.yc, oh = H - sh.hc;
        const double b = oy * s - oh * c;
        const double disc = b * b - (oy * oy + oh * oh - sh.r * sh.r);
        if (disc < 0)
            return false;
        t = -b - std::sqrt(disc);
        const double ny = (oy + t * s) / sh.r, nh = (oh - t * c) / sh.r;
        cosInc = -(s * ny - c * nh);
        return t > 0;
    }
    // Slab test: the beam enters through the top or through a side.
    double tIn = (H - sh.top) / c, tOut = H / c;
    bool side = false;
    if (s != 0.0) {
        const double ta = sh.y0 / s, tb = sh.y1 / s;
        const double lo = std::min(ta, tb), hi = std::max(ta, tb);
        if (lo > tIn) {
            tIn = lo;
            side = true;
        }
        tOut = std::min(tOut, hi);
    } else if (sh.y0 > 0.0 || sh.y1 < 0.0) {
        return false;
    }
    if (tIn >= tOut || tIn <= 0)
        return false;
    t = tIn;
    cosInc = side ? std::fabs(s) * sh.sideScale : c;
    return true;
}

} // namespace

void Scene::pixelSpan(double yLow, double yHigh, double top, int& first, int& last) const
{
    // Beams whose tangent lies between these bounds can meet the box
    // [yLow, yHigh] x [0, top]; one pixel of margin on either side.
    const double H = kScannerHeight;
    const double lo = std::min(yLow / H, yLow / (H - top));
    const double hi = std::max(yHigh / H, yHigh / (H - top));
    const int n = pixels();
    if (step <= 0.0) {
        first = 0, last = n - 1;
        return;
    }
    const double a = (std::atan(lo) * 180.0 / kPi - angle0) / step;
    const double b = (std::atan(hi) * 180.0 / kPi - angle0) / step;
    first = static_cast<int>(std::max(0.0, std::floor(a) - 1));
    last = static_cast<int>(std::min(static_cast<double>(n - 1), std::ceil(b) + 1));
}

void Scene::scan(uint64_t line, std::vector<Sample>& out) const
{
    const std::size_t n = sines.size();
    out.resize(n);
    const double H = kScannerHeight;
    // Every beam ends on the belt unless an object is in its way.
    for (std::size_t i = 0; i < n; ++i) {
        out[i].range = beltRanges[i];
        out[i].material = Belt;
        out[i].incidence = static_cast<float>(cosines[i]);
    }
    std::vector<Shape> shapes;
    crossSection(beltPosition(line), shapes);
    for (const Shape& sh : shapes) {
        int first = 0, last = -1;
        if (sh.circle)
            pixelSpan(sh.yc - sh.r, sh.yc + sh.r, sh.hc + sh.r, first, last);
        else
            pixelSpan(sh.y0, sh.y1, sh.top, first, last);
        for (int i = first; i <= last; ++i) {
            Sample& o = out[static_cast<std::size_t>(i)];
            double t = 0, cosInc = 0;
            if (enter(sh, H, sines[static_cast<std::size_t>(i)],
                      cosines[static_cast<std::size_t>(i)], t, cosInc) &&
                t < o.range) {
                o.range = t;
                o.material = sh.material;
                o.incidence = static_cast<float>(cosInc);
            }
        }
    }

    const auto& gauss = gaussTable();
    uint64_t rng = line * 0xD1B54A32D192ED03ull + 0x5DEECE66Dull;
    for (std::size_t i = 0; i < n; ++i) {
        Sample& o = out[i];
        const uint64_t r = splitmix64(rng);
        const float g1 = gauss[r & 4095];
        const float g2 = gauss[(r >> 12) & 4095];
        const double drop = static_cast<double>(r >> 44) * 0x1.0p-20;
        const double cosInc = o.incidence;
        const float minCos = o.material == Metal ? 0.3f : 0.1f;
        if (drop < kDropoutRate || o.incidence < minCos) {
            o = Sample();
            continue;
        }
        double v = kBaseIntensity[o.material] * (0.3 + 0.7 * cosInc);
        if (o.material == Metal) {
            // A bright specular stripe where the surface faces the scanner.
            const double c2 = cosInc * cosInc, c4 = c2 * c2, c8 = c4 * c4, c16 = c8 * c8;
            v += 20000.0 * c16 * c16;
        }
        const double near = H / o.range;
        v *= near * near * (1.0 + 0.05 * g2);
        o.range += kRangeNoise * g1;
        o.intensity = static_cast<uint16_t>(std::clamp(v, 1.0, 65534.0));
    }
}

} // namespace vxsim
