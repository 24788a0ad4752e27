// Messages played without a socket: range-to-XYZ geometry with and without a
// file header, file header storage, and the dispatch rules (truncated lines,
// unknown protocols and kinds, pause).
#include "check.h"
#include "scanner/messageplayer.h"
#include "scanner/vxlinedatastream.h"
#include "scanner/wireencoder.h"

#include <cmath>
#include <cstring>
#include <vector>

using strmsocket::MessagePlayer;
using strmsocket::WireEncoder;

namespace {

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
        points.clear();
        for (int i = 0; i < count; ++i) {
            Point p;
            Set(device.device, i);
            XYZ0(device.device, p.x, p.y, p.z);
            points.push_back(p);
        }
    }
    void OnRAWFileHeader(const strmsocket::VxStreamDeviceInfo&, const char* name,
                         const VxSHeader& h) override
    {
        headerName = name;
        headerSize = h.Size();
    }
    std::vector<int> counts;
    std::vector<Point> points;
    std::string headerName;
    std::size_t headerSize = 0;
};

// A protocol 1.1 long-layout line (8 bytes per pixel, range u16 at +2 in mm).
std::vector<char> line11(const std::vector<uint16_t>& rangesMm, uint32_t device)
{
    std::vector<char> px(rangesMm.size() * 8, 0);
    for (std::size_t i = 0; i < rangesMm.size(); ++i)
        std::memcpy(px.data() + 8 * i + 2, &rangesMm[i], 2);
    WireEncoder::RawLine h;
    h.subProtocol = 1;
    h.device = device;
    h.bpp = 8;
    h.pixel = static_cast<uint32_t>(rangesMm.size());
    return WireEncoder::rawLine(h, px.data(), px.size());
}

std::vector<std::pair<uint32_t, double>> matrix(double tx, double ty, double tz)
{
    const double m[16] = {1, 0, 0, tx, 0, 1, 0, ty, 0, 0, 1, tz, 0, 0, 0, 1};
    std::vector<std::pair<uint32_t, double>> e;
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
        std::vector<std::pair<uint32_t, double>> header; // empty: none sent
        std::vector<uint16_t> ranges;
        std::vector<Point> expected;
    };
    auto withAngles = matrix(1, 2, 3);
    withAngles.emplace_back(100, 0.0);
    withAngles.emplace_back(101, 90.0);
    const Row rows[] = {
        {"default spread", {}, {1000, 2000, 1000}, {{0, -s30, c30}, {0, 0, 2}, {0, s30, c30}}},
        {"one pixel looks ahead", {}, {500}, {{0, 0, 0.5}}},
        {"identity header", matrix(0, 0, 0), {1000, 1000}, {{0, -s30, c30}, {0, s30, c30}}},
        {"translation and angle keys", withAngles, {1000, 1000}, {{1, 2, 4}, {1, 3, 3}}},
        {"only the angle of pixel 0", {{100, 30.0}}, {1000, 1000}, {{0, s30, c30}, {0, 1, 0}}},
    };
    for (const Row& r : rows) {
        vxtest::row = r.name;
        Recorder rec;
        MessagePlayer player;
        if (!r.header.empty())
            player.add("10.0.0.2", WireEncoder::fileHeader(4, "dev", r.header));
        player.add("10.0.0.2", line11(r.ranges, 4));
        player.add("10.0.0.2", line11(r.ranges, 4)); // cached tables give the same
        CHECK(player.play(rec) == (r.header.empty() ? 2u : 3u));
        CHECK(rec.points.size() == r.expected.size());
        for (std::size_t i = 0; i < rec.points.size() && i < r.expected.size(); ++i) {
            CHECK_NEAR(rec.points[i].x, r.expected[i].x, 1e-12);
            CHECK_NEAR(rec.points[i].y, r.expected[i].y, 1e-12);
            CHECK_NEAR(rec.points[i].z, r.expected[i].z, 1e-12);
        }
    }

    vxtest::row = "a new header replaces the transform";
    Recorder rec;
    MessagePlayer p;
    p.add("1.2.3.4", WireEncoder::fileHeader(0, "a", matrix(5, 0, 0)));
    p.add("1.2.3.4", line11({1000}, 0));
    p.add("1.2.3.4", WireEncoder::fileHeader(0, "b", matrix(0, 0, 7)));
    p.add("1.2.3.4", line11({1000}, 0));
    p.play(rec);
    CHECK_NEAR(rec.points.at(0).x, 0.0, 1e-12);
    CHECK_NEAR(rec.points.at(0).z, 8.0, 1e-12);
    CHECK(rec.headerName == "b" && rec.headerSize == 16);
    CHECK(rec.GetVxSHeader(0) && rec.GetVxSHeader(1) == nullptr);
}

void dispatchRules()
{
    WireEncoder::RawLine h;
    h.subProtocol = 2;
    h.bpp = 8;
    h.pixel = 4;
    h.lineheadersize = 8;
    const std::vector<char> body(40, 1);
    struct Row
    {
        const char* name;
        std::vector<char> message;
        int delivered; // -1: not delivered, else the count
        uint64_t truncated, unknown;
    };
    auto cut = WireEncoder::rawLine(h, body.data(), body.size());
    cut.pop_back();
    auto negative = WireEncoder::rawLine(h, body.data(), body.size());
    const uint32_t minus = 0xFFFFFFF8u;
    std::memcpy(negative.data() + 32, &minus, 4);
    auto v14 = WireEncoder::rawLine(h, body.data(), body.size());
    v14[12] = 4;
    auto huge = WireEncoder::rawLine(h, body.data(), body.size());
    const uint32_t big = 0xFFFFFFFFu;
    std::memcpy(huge.data() + 36, &big, 4);
    std::memcpy(huge.data() + 40, &big, 4);
    auto kind3 = WireEncoder::rawLine(h, body.data(), body.size());
    kind3[0] = 3;
    auto badName = WireEncoder::fileHeader(0, "abc", {});
    badName[12] = 100;
    const Row rows[] = {
        {"exact", WireEncoder::rawLine(h, body.data(), body.size()), 4, 0, 0},
        {"one byte short", cut, -1, 1, 0},
        {"negative line header size", negative, -1, 1, 0},
        {"pixel x bpp overflows 32 bits", huge, -1, 1, 0},
        {"protocol 1.4 delivered with count 0", v14, 0, 0, 0},
        {"unknown kind", kind3, -1, 0, 1},
        {"empty message", {}, -1, 0, 1},
        {"file header name beyond the message", badName, -1, 1, 0},
    };
    for (const Row& r : rows) {
        vxtest::row = r.name;
        Recorder rec;
        MessagePlayer p;
        p.add("1.2.3.4", r.message);
        p.play(rec);
        CHECK(rec.counts.size() == (r.delivered >= 0 ? 1u : 0u));
        if (!rec.counts.empty())
            CHECK(rec.counts[0] == r.delivered);
        CHECK(rec.counters().truncatedMessages == r.truncated);
        CHECK(rec.counters().unknownKinds == r.unknown);
    }

    vxtest::row = "pause";
    Recorder rec;
    MessagePlayer p;
    p.add("1.2.3.4", WireEncoder::rawLine(h, body.data(), body.size()));
    p.add("1.2.3.4", WireEncoder::fileHeader(2, "kept", {{100, 1.0}}));
    rec.pause = true;
    p.play(rec);
    CHECK(rec.counts.empty() && rec.counters().pausedDiscards == 1);
    CHECK(rec.GetVxSHeader(2) != nullptr);
    rec.pause = false;
    p.play(rec);
    CHECK(rec.counts.size() == 1);
}

} // namespace

int main()
{
    RUN(geometry);
    RUN(dispatchRules);
    return vxtestResult("tst_geometry");
}
