#include "tools/sim/scene.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <iterator>
#include <string>

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
    Sphere,           // centre at `height`, radius (u1 - u0) / 2
};

// An object in scene coordinates: u along the belt or street (within one
// pattern length), y across it, heights above the floor; metres.
struct Object
{
    Kind kind;
    Scene::Material material;
    double u0, u1; // extent along (cylinders, spheres: centre +- radius)
    double y0, y1; // extent across
    double height; // top (ramp: top at u1; sphere: centre)
    double bottom; // boxes: lowest point
};

const Object kObjects[] = {
    {Kind::Box, Scene::Cardboard, 0.30, 0.90, -0.45, -0.10, 0.20, 0.0},
    {Kind::LyingCylinder, Scene::Metal, 0.60, 1.40, 0.15, 0.35, 0.20, 0.0},
    {Kind::Box, Scene::Cardboard, 1.60, 1.90, -0.05, 0.20, 0.35, 0.0},
    {Kind::StandingCylinder, Scene::Metal, 2.28, 2.52, -0.37, -0.13, 0.30, 0.0},
    {Kind::Ramp, Scene::Plastic, 2.80, 3.60, 0.00, 0.40, 0.25, 0.0},
};

// The street, seen from the scanner (y = 0, 1.5 m above the road): the near
// houses on the -y side, the road, the far side from y = 13.
const Object kStreet[] = {
    // Near side: the houses' walls 0.8 m away, with doorways 0.4 m deep, and
    // downpipes.
    {Kind::Box, Scene::Masonry, 0.0, 60.0, -4.0, -1.2, 9.0, 0.0},
    {Kind::Box, Scene::Masonry, 0.0, 4.0, -1.2, -0.8, 9.0, 0.0},
    {Kind::Box, Scene::Masonry, 5.2, 16.0, -1.2, -0.8, 9.0, 0.0},
    {Kind::Box, Scene::Masonry, 17.2, 28.5, -1.2, -0.8, 9.0, 0.0},
    {Kind::Box, Scene::Masonry, 29.7, 41.0, -1.2, -0.8, 9.0, 0.0},
    {Kind::Box, Scene::Masonry, 42.2, 52.5, -1.2, -0.8, 9.0, 0.0},
    {Kind::Box, Scene::Masonry, 53.7, 60.0, -1.2, -0.8, 9.0, 0.0},
    {Kind::StandingCylinder, Scene::Metal, 9.94, 10.06, -0.8, -0.68, 9.0, 0.0},
    {Kind::StandingCylinder, Scene::Metal, 34.94, 35.06, -0.8, -0.68, 9.0, 0.0},
    // Far side: pavement, parked cars (body and cabin), lamp posts, trees
    // (trunk and crown), the houses 20.5 m away with a side street between
    // them, and a footbridge across the street.
    {Kind::Box, Scene::Masonry, 0.0, 60.0, 15.0, 40.0, 0.15, 0.0},
    {Kind::Box, Scene::Metal, 1.5, 5.8, 13.2, 15.0, 1.0, 0.3},
    {Kind::Box, Scene::Metal, 2.4, 4.6, 13.5, 14.7, 1.45, 1.0},
    {Kind::Box, Scene::Metal, 7.0, 11.4, 13.2, 15.0, 1.0, 0.3},
    {Kind::Box, Scene::Metal, 7.9, 10.2, 13.5, 14.7, 1.45, 1.0},
    {Kind::Box, Scene::Metal, 19.0, 23.3, 13.2, 15.0, 1.0, 0.3},
    {Kind::Box, Scene::Metal, 19.9, 22.1, 13.5, 14.7, 1.45, 1.0},
    {Kind::Box, Scene::Metal, 47.0, 51.5, 13.2, 15.0, 1.0, 0.3},
    {Kind::Box, Scene::Metal, 47.9, 50.3, 13.5, 14.7, 1.45, 1.0},
    {Kind::StandingCylinder, Scene::Metal, 12.92, 13.08, 15.52, 15.68, 6.0, 0.0},
    {Kind::StandingCylinder, Scene::Metal, 32.92, 33.08, 15.52, 15.68, 6.0, 0.0},
    {Kind::StandingCylinder, Scene::Metal, 55.92, 56.08, 15.52, 15.68, 6.0, 0.0},
    {Kind::StandingCylinder, Scene::Foliage, 25.3, 25.7, 17.3, 17.7, 3.0, 0.0},
    {Kind::Sphere, Scene::Foliage, 23.3, 27.7, 17.5, 17.5, 5.0, 0.0},
    {Kind::StandingCylinder, Scene::Foliage, 44.3, 44.7, 17.3, 17.7, 3.0, 0.0},
    {Kind::Sphere, Scene::Foliage, 42.3, 46.7, 17.5, 17.5, 5.0, 0.0},
    {Kind::Box, Scene::Masonry, 0.0, 38.0, 20.5, 26.0, 12.0, 0.0},
    {Kind::Box, Scene::Masonry, 46.0, 60.0, 20.5, 26.0, 12.0, 0.0},
    {Kind::Box, Scene::Masonry, 38.0, 46.0, 34.0, 40.0, 9.0, 0.0},
    {Kind::Box, Scene::Masonry, 14.0, 17.0, -4.0, 26.0, 6.3, 5.5},
};

// Echo strength of each material, before angle and distance.
constexpr double kBaseIntensity[] = {0.0, 700.0, 2600.0, 1800.0, 1400.0, 500.0, 2400.0, 1100.0};

} // namespace

// A cross-section in the scan plane (y across, h up): a rectangle, or a
// circle.
struct Scene::Shape
{
    bool circle = false;
    double y0 = 0, y1 = 0, top = 0, bottom = 0; // rectangle
    double yc = 0, hc = 0, r = 0;               // circle
    double sideScale = 1.0;                     // cosine factor of the side faces' normals
    Material material = None;
};

namespace {

struct KindInfo
{
    const char* name;
    double fanLow, fanHigh; // degrees from straight down, pixel 0 and the last
    double height;          // scannerHeight()
    double reference;       // distance at which the echo keeps its base strength
    double rangeNoise;      // standard deviation, metres
    Scene::Material surface; // wall, tunnel and bowl: what the beams meet
};

const KindInfo kKinds[] = {
    {"street", Scene::kStreetFanLow, Scene::kStreetFanHigh, Scene::kStreetScannerHeight, 3.0,
     Scene::kStreetRangeNoise, Scene::Asphalt},
    {"conveyor", -Scene::kHalfFan, Scene::kHalfFan, Scene::kScannerHeight, Scene::kScannerHeight,
     Scene::kRangeNoise, Scene::Belt},
    {"belt", -Scene::kHalfFan, Scene::kHalfFan, Scene::kScannerHeight * Scene::kBeltScale,
     Scene::kScannerHeight * Scene::kBeltScale, Scene::kRangeNoise * Scene::kBeltScale,
     Scene::Belt},
    {"wall", -45.0, 45.0, Scene::kWallDistance, Scene::kWallDistance, 0.002, Scene::Masonry},
    {"tunnel", -135.0, 135.0, Scene::kTunnelUp, 50.0, 0.01, Scene::Masonry},
    {"bowl", -60.0, 60.0, Scene::kBowlRadius, Scene::kBowlRadius, 0.0005, Scene::Plastic},
};

const KindInfo& info(Scene::Kind kind)
{
    return kKinds[static_cast<int>(kind)];
}

} // namespace

const char* Scene::name(Kind kind)
{
    const int k = static_cast<int>(kind);
    return k >= 0 && k < static_cast<int>(std::size(kKinds)) ? kKinds[k].name : nullptr;
}

bool Scene::fromName(const char* name, Kind& kind)
{
    for (std::size_t k = 0; k < std::size(kKinds); ++k) {
        if (std::string(kKinds[k].name) == name) {
            kind = static_cast<Kind>(k);
            return true;
        }
    }
    return false;
}

Scene::Scene(int pixels, Kind kind) : sceneKind(kind)
{
    const int n = std::max(pixels, 1);
    if (n > 1) {
        const double low = info(kind).fanLow;
        const double high = info(kind).fanHigh;
        angle0 = low;
        step = (high - low) / (n - 1);
    }
    sines.resize(static_cast<std::size_t>(n));
    cosines.resize(static_cast<std::size_t>(n));
    floorRanges.resize(static_cast<std::size_t>(n));
    for (int i = 0; i < n; ++i) {
        const double t = (angle0 + i * step) * kPi / 180.0;
        sines[static_cast<std::size_t>(i)] = std::sin(t);
        cosines[static_cast<std::size_t>(i)] = std::cos(t);
        floorRanges[static_cast<std::size_t>(i)] = scannerHeight() / std::cos(t);
    }
    gaussTable();
}

double Scene::scannerHeight() const
{
    return info(sceneKind).height;
}

const double* Scene::transform() const
{
    // Rows of the matrix. The viewer's views take z as pointing away from the
    // scanner (down): the cut view and the 3D view draw a smaller z higher
    // up. A plain shift keeps that direction, so that objects stand upright
    // in both views.
    static const double belt[16] = {
        1, 0, 0, 0,               // x' = x
        0, 1, 0, 0,               // y' = y
        0, 0, 1, -kScannerHeight, // z' = z - H: belt at 0, objects above it negative
        0, 0, 0, 1,
    };
    // The street is placed for the 3D view, whose starting camera stands at
    // y = 2, z = 0 and looks towards -y: 0.5 m above the road and 3 m from
    // the near houses, which with the road in front of them make up most of
    // what it shows.
    static const double street[16] = {
        1, 0, 0, 0,                          // x' = x
        0, 1, 0, -0.2,                       // y' = y - 0.2: near houses at -1
        0, 0, 1, 0.5 - kStreetScannerHeight, // z' = z - 1: road at 0.5
        0, 0, 0, 1,
    };
    // The close-range belt: the same shift by its own scanner height.
    static const double closeBelt[16] = {
        1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, -kScannerHeight * kBeltScale, 0, 0, 0, 1,
    };
    // The tunnel: its floor (straight down) at z = 0, the scanner at -40 m.
    static const double tunnel[16] = {
        1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, -kTunnelUp, 0, 0, 0, 1,
    };
    static const double identity[16] = {
        1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1,
    };
    switch (sceneKind) {
    case Street:
        return street;
    case Conveyor:
        return belt;
    case NearBelt:
        return closeBelt;
    case Tunnel:
        return tunnel;
    default:
        return identity;
    }
}

std::vector<std::pair<uint32_t, double>> Scene::fileHeaderEntries() const
{
    std::vector<std::pair<uint32_t, double>> e;
    e.reserve(18);
    e.emplace_back(100, angle0);
    e.emplace_back(101, step);
    // The wall's header gives only its angles: the viewer takes the
    // identity transform.
    if (sceneKind != Wall)
        for (uint32_t k = 0; k < 16; ++k)
            e.emplace_back(320 + k, transform()[k]);
    return e;
}

namespace {

double patternPosition(uint64_t line, double length, double step)
{
    const uint64_t perPattern = static_cast<uint64_t>(std::llround(length / step));
    return static_cast<double>(line % perPattern) * step;
}

} // namespace

double Scene::beltPosition(uint64_t line)
{
    return patternPosition(line, kPatternLength, kBeltStep);
}

double Scene::streetPosition(uint64_t line)
{
    return patternPosition(line, kStreetLength, kStreetStep);
}

namespace {

// The cross-section of `o` at position u, false when the scan plane misses it.
template <typename Shape> bool cut(const Object& o, double u, Shape& s)
{
    if (u < o.u0 || u > o.u1)
        return false;
    s.material = o.material;
    switch (o.kind) {
    case Kind::Box:
        s.y0 = o.y0, s.y1 = o.y1, s.top = o.height, s.bottom = o.bottom;
        return true;
    case Kind::Ramp:
        s.y0 = o.y0, s.y1 = o.y1, s.top = o.height * (u - o.u0) / (o.u1 - o.u0);
        return s.top >= 1e-6;
    case Kind::LyingCylinder:
        s.circle = true;
        s.r = (o.y1 - o.y0) / 2;
        s.yc = (o.y0 + o.y1) / 2;
        s.hc = s.r;
        return true;
    case Kind::StandingCylinder: {
        const double r = (o.u1 - o.u0) / 2;
        const double du = u - (o.u0 + o.u1) / 2;
        const double half = std::sqrt(std::max(0.0, r * r - du * du));
        if (half < 1e-6)
            return false;
        const double yc = (o.y0 + o.y1) / 2;
        s.y0 = yc - half, s.y1 = yc + half, s.top = o.height;
        s.sideScale = half / r;
        return true;
    }
    case Kind::Sphere: {
        const double r = (o.u1 - o.u0) / 2;
        const double du = u - (o.u0 + o.u1) / 2;
        s.circle = true;
        s.r = std::sqrt(std::max(0.0, r * r - du * du));
        s.yc = (o.y0 + o.y1) / 2;
        s.hc = o.height;
        return s.r >= 1e-6;
    }
    }
    return false;
}

} // namespace

void Scene::crossSection(double u, std::vector<Shape>& out) const
{
    out.clear();
    const bool street = sceneKind == Street;
    const Object* begin = street ? std::begin(kStreet) : std::begin(kObjects);
    const Object* end = street ? std::end(kStreet) : std::end(kObjects);
    // The close-range belt: the conveyor's cross-sections, scaled.
    const double f = sceneKind == NearBelt ? kBeltScale : 1.0;
    Shape s;
    for (const Object* o = begin; o != end; ++o) {
        if (!cut(*o, u, s = Shape()))
            continue;
        s.y0 *= f, s.y1 *= f, s.top *= f, s.bottom *= f;
        s.yc *= f, s.hc *= f, s.r *= f;
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
    // Slab test: the beam enters through the top, the bottom or a side.
    constexpr double kHuge = 1e300;
    double tIn = -kHuge, tOut = kHuge;
    if (c != 0.0) {
        const double ta = (H - sh.top) / c, tb = (H - sh.bottom) / c;
        tIn = std::min(ta, tb), tOut = std::max(ta, tb);
    } else if (H < sh.bottom || H > sh.top) {
        return false;
    }
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
    cosInc = side ? std::fabs(s) * sh.sideScale : std::fabs(c);
    return true;
}

} // namespace

void Scene::pixelSpan(const Shape& sh, int& first, int& last) const
{
    const int n = pixels();
    first = 0, last = n - 1;
    if (step <= 0.0)
        return;
    // The direction of a point (y, h) seen from the scanner, in degrees from
    // straight down towards +y.
    const double H = scannerHeight();
    const auto angle = [H](double y, double h) { return std::atan2(y, H - h) * 180.0 / kPi; };
    double lo = 0.0, hi = 0.0;
    if (sh.circle) {
        const double d = std::hypot(sh.yc, H - sh.hc);
        if (d <= sh.r)
            return;
        const double centre = angle(sh.yc, sh.hc);
        const double half = std::asin(sh.r / d) * 180.0 / kPi;
        lo = centre - half, hi = centre + half;
        if (lo < -180.0 || hi > 180.0)
            return; // round straight up: the angles wrap
    } else {
        if (sh.y0 <= 0.0 && sh.y1 >= 0.0 && sh.top >= H)
            return; // above (or around) the scanner: the angles wrap
        const double a[4] = {angle(sh.y0, sh.bottom), angle(sh.y0, sh.top), angle(sh.y1, sh.bottom),
                             angle(sh.y1, sh.top)};
        lo = *std::min_element(a, a + 4), hi = *std::max_element(a, a + 4);
    }
    // A box or circle lies within the angles of its corners or tangents; one
    // pixel of margin on either side.
    first = static_cast<int>(std::max(0.0, std::floor((lo - angle0) / step) - 1));
    last =
        static_cast<int>(std::min(static_cast<double>(n - 1), std::ceil((hi - angle0) / step) + 1));
}

void Scene::traceSurface(uint64_t line, std::vector<Sample>& out) const
{
    const std::size_t n = sines.size();
    const Material surface = info(sceneKind).surface;
    for (std::size_t i = 0; i < n; ++i) {
        const double s = sines[i], c = cosines[i];
        Sample& o = out[i];
        o.material = surface;
        switch (sceneKind) {
        case Wall: {
            // The wall faces the scanner kWallDistance ahead (its z axis);
            // windows 1.2 m wide, 0.25 m deep, every 3 m along it and
            // across it, on stretches of 1.5 m out of every 4 m.
            const double u = static_cast<double>(line % 2000) * kWallStep;
            double d = kWallDistance;
            const double y = d * s / c;
            const double across = std::fmod(y + 300.0, 3.0);
            if (std::fmod(u, 4.0) < 1.5 && across > 0.9 && across < 2.1) {
                d += 0.25;
                o.material = Metal;
            }
            o.range = d / c;
            o.incidence = static_cast<float>(c);
            break;
        }
        case Tunnel: {
            // An ellipse around the scanner, kTunnelAcross to the sides and
            // kTunnelUp up and down; a rib 1 m long every 10 m narrows it
            // by 4 %.
            const double u = static_cast<double>(line % 2000) * kTunnelStep;
            const double a = kTunnelAcross, b = kTunnelUp;
            const double k = std::fmod(u, 10.0) < 1.0 ? 0.96 : 1.0;
            const double t = k / std::sqrt((s / a) * (s / a) + (c / b) * (c / b));
            // The ellipse's normal at the point met: (y / a^2, h / b^2).
            const double ny = t * s / (a * a), nh = t * c / (b * b);
            o.range = t;
            o.incidence = static_cast<float>((s * ny + c * nh) / std::hypot(ny, nh));
            break;
        }
        default: {
            // Bowl: a half-pipe around the scanner, with grooves 5 cm deep
            // across every tenth of its length and along it every 15 degrees.
            const double u = static_cast<double>(line % 5000) * kBowlStep;
            const double angle = std::atan2(s, c) * 180.0 / kPi;
            const bool groove =
                std::fmod(u, 1.0) < 0.1 || std::fmod(angle + 360.0, 15.0) < 1.5;
            o.range = kBowlRadius + (groove ? 0.05 : 0.0);
            o.incidence = 1.0f;
            break;
        }
        }
    }
}

void Scene::trace(uint64_t line, std::vector<Sample>& out) const
{
    if (sceneKind == Wall || sceneKind == Tunnel || sceneKind == Bowl) {
        traceSurface(line, out);
        return;
    }
    const std::size_t n = sines.size();
    const double H = scannerHeight();
    const Material floor = sceneKind == Street ? Asphalt : Belt;
    // Beams pointing down end on the floor unless an object is in their way;
    // the others meet nothing (the sky) unless an object is there.
    for (std::size_t i = 0; i < n; ++i) {
        const bool down = cosines[i] > 1e-9;
        out[i].range = down ? floorRanges[i] : HUGE_VAL;
        out[i].material = down ? floor : None;
        out[i].incidence = static_cast<float>(cosines[i]);
    }
    std::vector<Shape> shapes;
    crossSection(sceneKind == Street ? streetPosition(line) : beltPosition(line), shapes);
    for (const Shape& sh : shapes) {
        int first = 0, last = -1;
        pixelSpan(sh, first, last);
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
}

void Scene::scan(uint64_t line, std::vector<Sample>& out) const
{
    const std::size_t n = sines.size();
    out.resize(n);
    trace(line, out);

    // Echoes weaken with the square of the distance, relative to this one.
    const double reference = info(sceneKind).reference;
    const double rangeNoise = info(sceneKind).rangeNoise;
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
        if (o.material == None || drop < kDropoutRate || o.incidence < minCos) {
            o = Sample();
            continue;
        }
        double v = kBaseIntensity[o.material] * (0.3 + 0.7 * cosInc);
        if (o.material == Metal) {
            // A bright specular stripe where the surface faces the scanner.
            const double c2 = cosInc * cosInc, c4 = c2 * c2, c8 = c4 * c4, c16 = c8 * c8;
            v += 20000.0 * c16 * c16;
        }
        const double near = reference / o.range;
        v *= near * near * (1.0 + 0.05 * g2);
        o.range += rangeNoise * g1;
        o.intensity = static_cast<uint16_t>(std::clamp(v, 1.0, 65534.0));
    }
}

} // namespace vxsim
