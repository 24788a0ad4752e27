#include "tools/sim/linecomposer.h"

#include "scanner/rawlineparser.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <ctime>

namespace vxsim {

namespace {

const char* const kSimulatorName = "vxscanner-sim";

// Little-endian store of the low `bytes` (1..4) bytes of v.
inline void putLE(char* p, uint64_t v, int bytes)
{
    const auto w = static_cast<uint32_t>(v);
    switch (bytes) {
    case 1:
        p[0] = static_cast<char>(w);
        break;
    case 2: {
        const auto h = static_cast<uint16_t>(w);
        std::memcpy(p, &h, 2);
        break;
    }
    case 3: {
        const auto h = static_cast<uint16_t>(w);
        std::memcpy(p, &h, 2);
        p[2] = static_cast<char>(w >> 16);
        break;
    }
    default:
        std::memcpy(p, &w, 4);
        break;
    }
}

void putU32(char* p, uint32_t v)
{
    putLE(p, v, 4);
}

bool overlaps(int a, int an, int b, int bn)
{
    return a < b + bn && b < a + an;
}

} // namespace

LineComposer::LineComposer(const SimOptions& options) : opt(options), world(options.pixels, options.scene)
{
    const bool v11 = opt.subProtocol == 1;
    head.series = kSeries;
    head.protocol = 1;
    head.subProtocol = static_cast<uint32_t>(opt.subProtocol);
    head.device = opt.device;
    head.datatyp = static_cast<uint32_t>(opt.datatyp);
    head.mode = v11 ? 0 : opt.mode;
    head.layoutFlag = v11 && opt.shortLayout ? 1 : 0;
    head.lineheadersize = static_cast<uint32_t>(opt.lineheadersize);
    head.bpp = static_cast<uint32_t>(opt.bpp);
    head.pixel = static_cast<uint32_t>(opt.pixels);
    if (opt.subProtocol == 3)
        head.factor = 1;
    if (!v11)
        head.parameter = 1.0 / opt.rate; // the line period, seconds

    if (v11) {
        rangeByte = opt.shortLayout ? 1 : 2;
        intensityByte = opt.shortLayout ? 3 : 6;
    }
    findColumns();
    // The record header is the same for every line: build the message once
    // and compose each line in place behind it.
    const std::vector<char> zeros(static_cast<std::size_t>(opt.lineheadersize) +
                                      static_cast<std::size_t>(opt.pixels) *
                                          static_cast<std::size_t>(opt.bpp),
                                  0);
    message = strmsocket::WireEncoder::rawLine(head, zeros.data(), zeros.size());
    lineOffset = message.size() - zeros.size();
}

void LineComposer::findColumns()
{
    const bool v11 = opt.subProtocol == 1;
    const auto mode = v11 ? vx::RawLineParser::MOD_CLASSIC
                          : static_cast<vx::RawLineParser::mod_t>(static_cast<int32_t>(opt.mode));
    // The same choice a receiver makes: the basic form, or the extended one
    // when the records are larger than the basic form.
    vx::RawLineParser layout;
    if (!layout.detect(opt.datatyp, mode, false))
        return;
    if (opt.bpp > layout.bytesPerPixel())
        layout.detect(opt.datatyp, mode, true);

    const int rangeBits = v11 ? 16 : 24;
    bool rangeAgrees = false, intensityAgrees = false;
    for (int i = 0; i < layout.colCount(); ++i) {
        const auto c = layout.getColDef(i);
        if (std::strcmp(c.name, "range") == 0)
            rangeAgrees = c.offset == rangeByte * 8 && c.bits == rangeBits;
        else if (std::strcmp(c.name, "intensity") == 0)
            intensityAgrees = c.offset == intensityByte * 8 && c.bits == 16;
    }
    // A layout that reads range or intensity elsewhere does not describe
    // these records; fill nothing but range and intensity then.
    if (!rangeAgrees || !intensityAgrees)
        return;

    static const struct
    {
        const char* name;
        Field field;
    } kFields[] = {
        {"status", Field::Status},        {"quality", Field::Quality},
        {"echo width", Field::EchoWidth}, {"timestamp offset", Field::TimestampOffset},
        {"deviation", Field::Deviation},  {"flags", Field::Flags},
    };
    for (int i = 0; i < layout.colCount(); ++i) {
        const auto c = layout.getColDef(i);
        if (c.offset % 8 != 0 || c.bits % 8 != 0 || c.bits > 32)
            continue;
        const int byte = static_cast<int>(c.offset / 8), bytes = c.bits / 8;
        if (byte + bytes > opt.bpp || overlaps(byte, bytes, rangeByte, v11 ? 2 : 3) ||
            overlaps(byte, bytes, intensityByte, 2))
            continue;
        for (const auto& f : kFields)
            if (std::strcmp(c.name, f.name) == 0)
                columns.push_back({f.field, byte, bytes});
    }
}

inline uint32_t LineComposer::encodeRange(const Scene::Sample& s) const
{
    if (s.material == Scene::None || s.range <= 0.0)
        return 0;
    // Rounded to the nearest unit (ranges are positive).
    if (opt.subProtocol == 1)
        return static_cast<uint32_t>(std::min(s.range * 1000.0 + 0.5, 65535.0));
    return static_cast<uint32_t>(std::min(s.range * 10000.0 + 0.5, double(0xFFFFFF)));
}

inline uint16_t LineComposer::encodeIntensity(const Scene::Sample& s) const
{
    if (opt.subProtocol == 1)
        return s.intensity;
    // The viewer shifts an odd 1.2/1.3 intensity left by 8; even values
    // arrive as sent. Round up, so that an echo never reads as 0.
    return static_cast<uint16_t>((s.intensity + 1u) & ~1u);
}

uint64_t LineComposer::timestamp(uint64_t line) const
{
    return static_cast<uint64_t>(std::llround(static_cast<double>(line) * 1e6 / opt.rate));
}

uint32_t LineComposer::exposure() const
{
    // Half the line period, at most 1 ms, at least 2 us.
    return static_cast<uint32_t>(std::clamp(std::llround(0.5e6 / opt.rate), 2LL, 1000LL));
}

void LineComposer::writeHeader(uint64_t line, char* p) const
{
    constexpr double kPi = 3.14159265358979323846;
    const uint64_t t = timestamp(line);
    const double seconds = static_cast<double>(line) / opt.rate;
    // Housing temperature drifts slowly between 22.0 and 25.0 degrees.
    const auto temperature =
        static_cast<int32_t>(std::lround(235.0 + 15.0 * std::sin(2.0 * kPi * seconds / 600.0)));
    const uint32_t words[8] = {
        static_cast<uint32_t>(line),
        static_cast<uint32_t>(t),
        static_cast<uint32_t>(t >> 32),
        static_cast<uint32_t>(line * kEncoderTicksPerLine), // wraps like a 32-bit counter
        kStatusLaserOn | kStatusEncoderValid,
        exposure(),
        static_cast<uint32_t>(temperature),
        static_cast<uint32_t>(std::lround(opt.rate)),
    };
    const int n = std::min(opt.lineheadersize / 4, 8);
    for (int w = 0; w < n; ++w)
        putU32(p + 4 * w, words[w]);
}

const std::vector<char>& LineComposer::compose(uint64_t line)
{
    world.scan(line, sampled);
    char* const base = message.data() + lineOffset;
    writeHeader(line, base);

    const bool v11 = opt.subProtocol == 1;
    const int bpp = opt.bpp;
    const uint32_t exp = exposure();
    const int n = opt.pixels;
    uint32_t previousRange = 0;
    char* p = base + opt.lineheadersize;
    for (int i = 0; i < n; ++i, p += bpp) {
        const Scene::Sample& s = sampled[static_cast<std::size_t>(i)];
        const bool echo = s.material != Scene::None;
        const uint32_t range = encodeRange(s);
        putLE(p + rangeByte, range, v11 ? 2 : 3);
        putLE(p + intensityByte, encodeIntensity(s), 2);
        for (const Column& c : columns) {
            uint64_t v = 0;
            switch (c.field) {
            case Field::Status:
                v = echo ? 1 : 0;
                break;
            case Field::Quality:
                v = echo ? static_cast<uint64_t>(255.0f * s.incidence + 0.5f) : 0;
                break;
            case Field::EchoWidth:
                // Oblique surfaces spread the echo.
                v = echo ? static_cast<uint64_t>(40.5f + 60.0f * (1.0f - s.incidence)) : 0;
                break;
            case Field::TimestampOffset:
                v = static_cast<uint64_t>(i) * exp / static_cast<uint64_t>(n);
                break;
            case Field::Deviation: {
                // Step to the previous pixel's range, clamped to 16 bits:
                // large at the objects' edges.
                const int64_t d =
                    echo && previousRange ? static_cast<int64_t>(range) - previousRange : 0;
                v = static_cast<uint64_t>(std::clamp<int64_t>(d, -32768, 32767));
                break;
            }
            case Field::Flags:
                // Bit 0: echo; bits 8..11: the material.
                v = (echo ? 1u : 0u) | (static_cast<unsigned>(s.material) << 8);
                break;
            }
            putLE(p + c.byte, v, c.bytes);
        }
        if (echo)
            previousRange = range;
    }
    if (opt.stampSendTime && opt.lineheadersize >= 12) {
        timespec ts{};
        ::clock_gettime(CLOCK_MONOTONIC, &ts);
        const uint64_t us =
            static_cast<uint64_t>(ts.tv_sec) * 1000000u + static_cast<uint64_t>(ts.tv_nsec) / 1000u;
        putU32(base + 4, static_cast<uint32_t>(us));
        putU32(base + 8, static_cast<uint32_t>(us >> 32));
    }
    return message;
}

std::vector<char> LineComposer::fileHeader() const
{
    if (!opt.fileHeader)
        return {};
    return strmsocket::WireEncoder::fileHeader(opt.device, kSimulatorName,
                                               world.fileHeaderEntries());
}

} // namespace vxsim
