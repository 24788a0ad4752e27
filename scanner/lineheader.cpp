#include "scanner/lineheader.h"

#include <cinttypes>
#include <cstdio>
#include <cstring>

namespace vxs {

namespace {

const char* const kNames[] = {"line counter", "timestamp low", "timestamp high", "encoder position",
                              "status flags", "exposure",      "temperature",    "line rate"};
constexpr unsigned kNamed = sizeof kNames / sizeof kNames[0];

const char* const kFlagNames[] = {"laser on", "encoder valid", "overtemperature", "sync lost"};

uint32_t word(const LineHeader& h, unsigned index)
{
    uint32_t v;
    std::memcpy(&v, static_cast<const unsigned char*>(h.data) + 4u * index, sizeof v);
    return v;
}

std::string timestamp(uint64_t us)
{
    char buf[48];
    std::snprintf(buf, sizeof buf, "%" PRIu64 ".%06" PRIu64 " s", us / 1000000u, us % 1000000u);
    return buf;
}

} // namespace

const char* Lineheader2String(unsigned index)
{
    if (index < kNamed)
        return kNames[index];
    thread_local char buf[24];
    std::snprintf(buf, sizeof buf, "word %u", index);
    return buf;
}

std::string LineheaderValue2String(const LineHeader& header, unsigned index)
{
    const unsigned words = header.data ? header.length / 4 : 0;
    if (index >= words)
        return std::string();
    const uint32_t v = word(header, index);
    char buf[96];
    switch (index) {
    case 1:
    case 2:
        // The timestamp spans words 1 (low) and 2 (high); without both, the
        // word is shown on its own.
        if (words > 2)
            return timestamp(uint64_t(word(header, 1)) | (uint64_t(word(header, 2)) << 32));
        break;
    case 3:
        return std::to_string(static_cast<int32_t>(v));
    case 4: {
        std::string s;
        std::snprintf(buf, sizeof buf, "0x%08x", v);
        s = buf;
        bool first = true;
        for (unsigned b = 0; b < 4; ++b) {
            if (v & (1u << b)) {
                s += first ? " " : ", ";
                s += kFlagNames[b];
                first = false;
            }
        }
        return s;
    }
    case 5:
        return std::to_string(v) + " us";
    case 6: {
        const int32_t t = static_cast<int32_t>(v);
        const int64_t a = t < 0 ? -int64_t(t) : int64_t(t);
        std::snprintf(buf, sizeof buf, "%s%" PRId64 ".%" PRId64 " C", t < 0 ? "-" : "", a / 10,
                      a % 10);
        return buf;
    }
    case 7:
        return std::to_string(v) + " lines/s";
    default:
        break;
    }
    return std::to_string(v);
}

} // namespace vxs
