// The rules of Vec3 that are easy to get wrong, and messages dispatched
// without a socket: range-to-XYZ geometry with and without file headers, and
// the dispatch rules (truncated lines, unknown protocols and kinds).
#include "scanner/vec3.h"
#include "scanner/vxlinedatastream.h"
#include "scanner/wireencoder.h"
#include "tests/check.h"

#include <cmath>
#include <limits>
#include <vector>

using strmsocket::WireEncoder;
using vxs::math::Vec3;
using Keys = std::vector<std::pair<uint32_t, double>>;

namespace {

template <typename T> void vec3Rules()
{
    vxtest::row = sizeof(T) == 4 ? "float" : "double";
    using V = Vec3<T>;
    const double nan = std::numeric_limits<double>::quiet_NaN();
    // Equal within 1e-8 per component, compared in double (float rounds 2e-8
    // away); NaN equals nothing.
    CHECK(V(1.0, 2.0, 3.0) == V(1.0, 2.0, 3.0 + 5e-9) && V(0.0, 0.0, 0.0) != V(0.0, 1e-7, 0.0));
    CHECK((V(1.0, 2.0, 3.0) == V(1.0, 2.0, 3.0 + 2e-8)) == (sizeof(T) == 4));
    CHECK(!(V(nan, 0.0, 0.0) == V(nan, 0.0, 0.0)) && V(nan, 0.0, 0.0) != V(nan, 0.0, 0.0));
    // isZero is exact: -0 is zero, a tiny or NaN component is not.
    CHECK(V(-0.0, 0.0, 0.0).isZero() && !V(0.0, 0.0, 1e-30).isZero() && !V(nan, 0.0, 0.0).isZero());
    // A zero vector stays zero instead of turning into NaNs.
    CHECK(V().normalize().isZero() && V().setLength(5).isZero());
    CHECK(V(3.0, 0.0, 4.0).setLength(10) == V(6.0, 0.0, 8.0));
    // Right-handed cross product; * is component-wise.
    CHECK(V(1.0, 2.0, 3.0).crossProd(V(4.0, 5.0, 6.0)) == V(-3.0, 6.0, -3.0));
    CHECK(V(1.0, 2.0, 3.0) * V(2.0, 3.0, 4.0) == V(2.0, 6.0, 12.0));
    CHECK_NEAR(V(1.0, 1.0, 1.0).dist2(V(2.0, 3.0, 4.0)), 14.0, 1e-9);
    // angle: only non-zero vectors are normalised; the dot product is not
    // clamped, so a zero vector gives acos(0) and parallels may give NaN.
    CHECK_NEAR(V(2.0, 0.0, 0.0).angle(V(0.0, 0.0, 5.0)), M_PI / 2, 1e-6);
    CHECK_NEAR(V().angle(V(1.0, 0.0, 0.0)), M_PI / 2, 1e-12);
    const double a = V(0.1, 0.2, 0.3).angle(V(0.1, 0.2, 0.3));
    CHECK(std::isnan(a) || std::fabs(a) < 1e-3);
}

struct Point
{
    double x, y, z;
};

class Recorder : public VxLinedataStream
{
public:
    void OnRawLine(const strmsocket::VxStreamDeviceInfo& device, const char*,
                   const strmsocket::LineRawInfo&, const char*, int count) override
    {
        counts.push_back(count);
        points.assign(std::size_t(count), Point{});
        for (int i = 0; i < count; ++i) {
            Set(device.device, i);
            XYZ0(device.device, points[i].x, points[i].y, points[i].z);
        }
    }
    void deliver(const std::vector<char>& m) { DeliverMessage({}, m.data(), m.size()); }
    std::vector<int> counts;
    std::vector<Point> points;
};

// A protocol 1.1 long-layout line of device 4 (8 bytes per pixel, range u16
// at +2 in mm).
std::vector<char> line11(const std::vector<uint16_t>& rangesMm)
{
    std::vector<char> px(rangesMm.size() * 8, 0);
    for (std::size_t i = 0; i < rangesMm.size(); ++i)
        std::memcpy(px.data() + 8 * i + 2, &rangesMm[i], 2);
    // series, protocol, sub-protocol, device, datatyp, mode, layout flag, then as named
    const WireEncoder::RawLine h{0, 1, 1, 4, 2, 0, 0, 0, 8, uint32_t(rangesMm.size())};
    return WireEncoder::rawLine(h, px.data(), px.size());
}

// Header keys 320..335: a translation matrix, row-major.
Keys matrix(double tx, double ty, double tz)
{
    const double m[16] = {1, 0, 0, tx, 0, 1, 0, ty, 0, 0, 1, tz, 0, 0, 0, 1};
    Keys e;
    for (uint32_t k = 0; k < 16; ++k)
        e.emplace_back(320 + k, m[k]);
    return e;
}

void geometry()
{
    const double s30 = 0.5, c30 = std::sqrt(3.0) / 2;
    struct Row
    {
        const char* name;
        std::vector<Keys> headers; // each followed by a line
        std::vector<uint16_t> ranges;
        std::vector<Point> expected; // of the last line
    };
    auto withAngles = matrix(1, 2, 3);
    withAngles.insert(withAngles.end(), {{100, 0.0}, {101, 90.0}});
    const Row rows[] = {
        {"default spread", {}, {1000, 2000, 1000}, {{0, -s30, c30}, {0, 0, 2}, {0, s30, c30}}},
        {"one pixel looks ahead", {}, {500}, {{0, 0, 0.5}}},
        {"identity header", {matrix(0, 0, 0)}, {1000, 1000}, {{0, -s30, c30}, {0, s30, c30}}},
        {"translation and angle keys", {withAngles}, {1000, 1000}, {{1, 2, 4}, {1, 3, 3}}},
        {"only the angle of pixel 0", {{{100, 30.0}}}, {1000, 1000}, {{0, s30, c30}, {0, 1, 0}}},
        {"a later header replaces", {matrix(5, 0, 0), {{100, 30.0}}}, {1000}, {{0, s30, c30}}},
    };
    for (const Row& r : rows) {
        vxtest::row = r.name;
        Recorder rec;
        for (const Keys& h : r.headers) {
            rec.deliver(WireEncoder::fileHeader(4, "dev", h));
            rec.deliver(line11(r.ranges));
        }
        rec.deliver(line11(r.ranges)); // again, from the cached tables
        CHECK(rec.points.size() == r.expected.size());
        for (std::size_t i = 0; i < rec.points.size() && i < r.expected.size(); ++i) {
            const Point &p = rec.points[i], &e = r.expected[i];
            CHECK(std::hypot(p.x - e.x, p.y - e.y, p.z - e.z) <= 1e-12);
        }
        const VxSHeader* stored = rec.GetVxSHeader(4);
        CHECK((stored != nullptr) == !r.headers.empty() && !rec.GetVxSHeader(0));
        if (stored)
            CHECK(stored->name == "dev" && stored->Size() == r.headers.back().size());
    }
}

void dispatchRules()
{
    WireEncoder::RawLine h; // protocol 1.2, 4 pixels of 8 bytes behind 8 header bytes
    h.pixel = 4;
    h.lineheadersize = 8;
    const std::vector<char> body(40, 1);
    const auto exact = WireEncoder::rawLine(h, body.data(), body.size());
    struct Row
    {
        const char* name;
        std::vector<char> message;
        int delivered; // -1: not delivered, else the count
        uint64_t truncated, unknown;
    };
    const Row rows[] = {
        {"exact", exact, 4, 0, 0},
        {"one byte short", std::vector<char>(exact.begin(), exact.end() - 1), -1, 1, 0},
        {"negative line header size", vxtest::patched(exact, 32, 0xFFFFFFF8u), -1, 1, 0},
        {"pixel x bpp overflows 32 bits", vxtest::patched(vxtest::patched(exact, 36, ~0u), 40, ~0u),
         -1, 1, 0},
        {"protocol 1.4 delivered with count 0", vxtest::patched(exact, 12, 4), 0, 0, 0},
        {"unknown kind", vxtest::patched(exact, 0, 3), -1, 0, 1},
        {"empty message", {}, -1, 0, 1},
        {"file header name beyond the message",
         vxtest::patched(WireEncoder::fileHeader(0, "abc", {}), 12, 100), -1, 1, 0},
    };
    for (const Row& r : rows) {
        vxtest::row = r.name;
        Recorder rec;
        rec.deliver(r.message);
        CHECK(rec.counts == (r.delivered < 0 ? std::vector<int>{} : std::vector<int>{r.delivered}));
        CHECK(rec.counters().truncatedMessages == r.truncated);
        CHECK(rec.counters().unknownKinds == r.unknown);
    }
}

} // namespace

int main()
{
    vec3Rules<float>();
    vec3Rules<double>();
    geometry();
    dispatchRules();
    return vxtest::result("tst_geometry");
}
