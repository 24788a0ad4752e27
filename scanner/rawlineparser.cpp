#include "scanner/rawlineparser.h"

#include <cinttypes>
#include <cmath>
#include <cstdio>
#include <cstring>

namespace vx {

namespace {

using ColDef = RawLineParser::ColDef;

constexpr int32_t kSigned = 1;

ColDef col(const char* name, int64_t offset, int32_t bits, int32_t flags = 0)
{
    ColDef c;
    c.bits = bits;
    c.flags = flags;
    c.offset = offset;
    c.name = name;
    return c;
}

// One catalogue entry: the basic form and the columns the extended form adds.
struct Layout
{
    int datatyp;
    bool classic; // mode 5 (protocol 1.1) rather than modes 0..4
    int basicBytes;
    int extendedBytes;
    std::vector<ColDef> basic;
    std::vector<ColDef> extension;
};

const std::vector<Layout>& catalogue()
{
    static const std::vector<Layout> layouts = {
        // Protocol 1.1, "classic long": range and intensity where the pixel
        // decoding of the long layout reads them.
        {2,
         true,
         8,
         12,
         {col("status", 0, 8), col("quality", 8, 8), col("range", 16, 16),
          col("echo width", 32, 16), col("intensity", 48, 16)},
         {col("timestamp offset", 64, 32)}},
        // Protocol 1.1, "classic short".
        {3,
         true,
         5,
         8,
         {col("status", 0, 8), col("range", 8, 16), col("intensity", 24, 16)},
         {col("quality", 40, 8), col("echo width", 48, 16)}},
        // Protocols 1.2/1.3: 24-bit range in 1/10 mm at the record's start.
        {2,
         false,
         5,
         8,
         {col("range", 0, 24), col("intensity", 24, 16)},
         {col("quality", 40, 8), col("echo width", 48, 16)}},
        {4,
         false,
         8,
         12,
         {col("range", 0, 24), col("intensity", 24, 16), col("quality", 40, 8),
          col("echo width", 48, 16)},
         {col("deviation", 64, 16, kSigned), col("flags", 80, 16)}},
    };
    return layouts;
}

// The columns' bits of a record of `stride` bytes; bytes beyond the stride
// read as 0 so that no read leaves the record.
uint64_t fieldBits(const unsigned char* rec, int stride, const ColDef& c)
{
    if (c.bits <= 0 || c.offset < 0)
        return 0;
    const int64_t first = c.offset / 8;
    const int64_t last = (c.offset + c.bits - 1) / 8;
    uint64_t acc = 0;
    for (int64_t b = last; b >= first; --b) {
        acc <<= 8;
        if (b < stride)
            acc |= rec[b];
    }
    acc >>= (c.offset % 8);
    const uint64_t mask = c.bits >= 64 ? ~uint64_t(0) : ((uint64_t(1) << c.bits) - 1);
    return acc & mask;
}

int64_t toValue(uint64_t raw, const ColDef& c)
{
    if (c.isSigned() && c.bits > 0 && c.bits < 64 && (raw >> (c.bits - 1)) & 1u)
        return static_cast<int64_t>(raw | ~((uint64_t(1) << c.bits) - 1));
    return static_cast<int64_t>(raw);
}

} // namespace

bool RawLineParser::detect(int datatyp, mod_t mode, bool extended)
{
    const bool classic = mode == MOD_CLASSIC;
    if (!classic && (mode < MOD_PEAK || mode > MOD_MULTI))
        return false;
    for (const Layout& l : catalogue()) {
        if (l.datatyp != datatyp || l.classic != classic)
            continue;
        std::vector<ColDef> c = l.basic;
        if (extended)
            c.insert(c.end(), l.extension.begin(), l.extension.end());
        cols = std::move(c);
        bpp = extended ? l.extendedBytes : l.basicBytes;
        dtyp = datatyp;
        mod = mode;
        return true;
    }
    return false;
}

void RawLineParser::reset()
{
    cols.clear();
    bpp = 0;
}

const char* RawLineParser::modAsString() const
{
    return modAsString(mod);
}

const char* RawLineParser::modAsString(int mode)
{
    switch (mode) {
    case MOD_PEAK:
        return "peak";
    case MOD_FIRST:
        return "first echo";
    case MOD_LAST:
        return "last echo";
    case MOD_STRONGEST:
        return "strongest echo";
    case MOD_MULTI:
        return "multi echo";
    case MOD_CLASSIC:
        return "classic";
    default:
        return nullptr;
    }
}

RawLineParser::ColDef RawLineParser::getColDef(int index) const
{
    if (index < 0 || index >= colCount())
        return ColDef();
    return cols[static_cast<std::size_t>(index)];
}

int64_t RawLineParser::value(const char* bytes, int row, int col) const
{
    const int s = stride();
    if (!bytes || row < 0 || col < 0 || col >= colCount() || s <= 0)
        return 0;
    const auto* rec = reinterpret_cast<const unsigned char*>(bytes) +
                      static_cast<std::ptrdiff_t>(row) * static_cast<std::ptrdiff_t>(s);
    const ColDef& c = cols[static_cast<std::size_t>(col)];
    return toValue(fieldBits(rec, s, c), c);
}

RawLineParser::AvrStd RawLineParser::calc(const char* bytes, int count) const
{
    AvrStd r;
    const std::size_t n = cols.size();
    r.avr.assign(n, 0.0);
    r.sdev.assign(n, 0.0);
    r.min.assign(n, 0.0);
    r.max.assign(n, 0.0);
    if (!bytes || count <= 0 || n == 0 || stride() <= 0)
        return r;
    const int s = stride();
    const auto* base = reinterpret_cast<const unsigned char*>(bytes);
    for (std::size_t c = 0; c < n; ++c) {
        const ColDef& cd = cols[c];
        // Welford's update: one pass, numerically stable.
        double mean = 0.0, m2 = 0.0;
        double lo = 0.0, hi = 0.0;
        const unsigned char* rec = base;
        for (int i = 0; i < count; ++i, rec += s) {
            const double v = static_cast<double>(toValue(fieldBits(rec, s, cd), cd));
            if (i == 0) {
                lo = hi = v;
            } else {
                lo = v < lo ? v : lo;
                hi = v > hi ? v : hi;
            }
            const double d = v - mean;
            mean += d / (i + 1);
            m2 += d * (v - mean);
        }
        r.avr[c] = mean;
        r.sdev[c] = std::sqrt(m2 / count); // population standard deviation
        r.min[c] = lo;
        r.max[c] = hi;
    }
    return r;
}

int RawLineParser::valueAsString(char* buffer, int size, const char* bytes, int row, int col,
                                 bool hex) const
{
    if (!buffer || size <= 0)
        return 0;
    const ColDef c = getColDef(col);
    int n;
    if (hex) {
        // The field's bit pattern (not sign-extended), one digit per 4 bits.
        const int digits = c.bits > 0 ? (c.bits + 3) / 4 : 1;
        uint64_t raw = static_cast<uint64_t>(value(bytes, row, col));
        if (c.bits > 0 && c.bits < 64)
            raw &= (uint64_t(1) << c.bits) - 1;
        n = std::snprintf(buffer, static_cast<std::size_t>(size), "%0*" PRIx64, digits, raw);
    } else if (c.isSigned()) {
        n = std::snprintf(buffer, static_cast<std::size_t>(size), "%" PRId64,
                          value(bytes, row, col));
    } else {
        n = std::snprintf(buffer, static_cast<std::size_t>(size), "%" PRIu64,
                          static_cast<uint64_t>(value(bytes, row, col)));
    }
    if (n < 0) {
        buffer[0] = '\0';
        return 0;
    }
    return n < size ? n : size - 1;
}

std::string RawLineParser::lineToString(const char* bytes, int count, int hex,
                                        const char* separator, const char* lineEnd) const
{
    const char* sep = separator ? separator : "\t";
    const char* end = lineEnd ? lineEnd : "\n";
    const std::size_t sepLen = std::strlen(sep), endLen = std::strlen(end);
    std::string out;
    const int nCols = colCount();
    const int rows = bytes && count > 0 ? count : 0;
    out.reserve(static_cast<std::size_t>(rows + 1) *
                (static_cast<std::size_t>(nCols) * (8 + sepLen) + endLen + 2));
    out += "# ";
    for (int c = 0; c < nCols; ++c) {
        if (c)
            out.append(sep, sepLen);
        out += cols[static_cast<std::size_t>(c)].name;
    }
    out.append(end, endLen);
    char buf[32];
    for (int r = 0; r < rows; ++r) {
        for (int c = 0; c < nCols; ++c) {
            if (c)
                out.append(sep, sepLen);
            out.append(buf, static_cast<std::size_t>(
                                valueAsString(buf, sizeof buf, bytes, r, c, hex != 0)));
        }
        out.append(end, endLen);
    }
    return out;
}

} // namespace vx
