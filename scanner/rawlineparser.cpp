#include "scanner/rawlineparser.h"

#include <algorithm>
#include <cinttypes>
#include <climits>
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

// Where one column lies in a record, resolved once per calc(): a single
// little-endian load of `load` bytes (1, 2, 4 or 8) at `start` that covers
// the column's bytes inside the record and never leaves it, then a shift, a
// mask and a sign extension. `load` 0: the column lies wholly beyond the
// record; kByteWise: no such load fits (a record narrower than the load),
// the column's bytes are read one by one.
constexpr int kByteWise = 3;

struct ColumnSpan
{
    int load = 0;
    int64_t start = 0;
    int bytes = 0; // kByteWise: bytes read from `start`
    unsigned shift = 0;
    uint64_t mask = 0;
    uint64_t sign = 0; // the sign bit of a signed column, 0 otherwise
};

ColumnSpan spanOf(const ColDef& c, int stride)
{
    ColumnSpan span;
    // Columns are 1 to 32 bits wide (the catalogue has no other), so a
    // column's bytes and its shift fit one 64-bit load.
    if (c.bits <= 0 || c.bits > 32 || c.offset < 0)
        return span;
    const int64_t first = c.offset / 8;
    if (first >= stride)
        return span;
    // Bytes beyond the record read as 0: they are simply not loaded.
    const int64_t last = std::min<int64_t>((c.offset + c.bits - 1) / 8, stride - 1);
    const int bytes = static_cast<int>(last - first + 1);
    int width = 1;
    while (width < bytes)
        width *= 2;
    if (width <= stride) {
        span.load = width;
        span.start = std::min<int64_t>(first, stride - width);
    } else {
        span.load = kByteWise;
        span.start = first;
        span.bytes = bytes;
    }
    span.shift = static_cast<unsigned>((first - span.start) * 8 + c.offset % 8);
    span.mask = (uint64_t(1) << c.bits) - 1;
    span.sign = c.isSigned() ? uint64_t(1) << (c.bits - 1) : 0;
    return span;
}

template <int Load> uint64_t loadLE(const unsigned char* p, int bytes)
{
    uint64_t v = 0;
    if (Load == kByteWise) {
        for (int b = bytes - 1; b >= 0; --b)
            v = (v << 8) | p[b];
    } else {
        std::memcpy(&v, p, Load); // the host is little-endian, as the wire is
    }
    return v;
}

struct ColumnSums
{
    int64_t sum = 0;
    unsigned __int128 squares = 0;
    int64_t lo = 0, hi = 0;
};

// Exact integer sums of one column over `count` records, as four independent
// chains. With at most 32-bit values and an int count neither the sum (below
// 2^63) nor the sum of squares (below 2^95) can overflow. The squares are
// summed in 64 bits over as many records as cannot overflow there (all of
// them for columns of up to 16 bits), then carried into 128 bits.
template <int Load>
ColumnSums accumulate(const unsigned char* base, int count, int stride, const ColumnSpan& span,
                      int bits)
{
    // Squares of `bits`-bit values: 2^(64 - 2 bits) of them fit 64 bits.
    const int spare = 64 - 2 * bits; // bits is 1..32 here
    const int block = spare >= 31 ? count : 1 << spare;
    const unsigned char* p = base + span.start;
    int64_t sum = 0;
    unsigned __int128 squares = 0;
    int64_t lo = INT64_MAX, hi = INT64_MIN;
    for (int done = 0; done < count;) {
        const int end = count - done > block ? done + block : count;
        uint64_t blockSquares = 0;
        for (; done < end; ++done, p += stride) {
            const uint64_t raw = (loadLE<Load>(p, span.bytes) >> span.shift) & span.mask;
            const auto v = static_cast<int64_t>((raw ^ span.sign) - span.sign);
            // A negative value's square is the same modulo 2^64, and it fits.
            const auto u = static_cast<uint64_t>(v);
            sum += v;
            blockSquares += u * u;
            lo = v < lo ? v : lo;
            hi = v > hi ? v : hi;
        }
        squares += blockSquares;
    }
    return ColumnSums{sum, squares, lo, hi};
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

bool RawLineParser::sameLayout(const RawLineParser& other) const
{
    if (dtyp != other.dtyp || mod != other.mod || bpp != other.bpp ||
        cols.size() != other.cols.size())
        return false;
    for (std::size_t i = 0; i < cols.size(); ++i) {
        const ColDef &a = cols[i], &b = other.cols[i];
        if (a.bits != b.bits || a.flags != b.flags || a.offset != b.offset || a.name != b.name)
            return false;
    }
    return true;
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
    calc(bytes, count, r);
    return r;
}

void RawLineParser::calc(const char* bytes, int count, AvrStd& out) const
{
    const std::size_t n = cols.size();
    out.avr.assign(n, 0.0);
    out.sdev.assign(n, 0.0);
    out.min.assign(n, 0.0);
    out.max.assign(n, 0.0);
    const int s = stride();
    if (!bytes || count <= 0 || n == 0 || s <= 0)
        return;
    const auto* base = reinterpret_cast<const unsigned char*>(bytes);
    for (std::size_t c = 0; c < n; ++c) {
        const ColumnSpan span = spanOf(cols[c], s);
        ColumnSums sums;
        switch (span.load) {
        case 0:
            break; // every bit lies beyond the record: all values are 0
        case 1:
            sums = accumulate<1>(base, count, s, span, cols[c].bits);
            break;
        case 2:
            sums = accumulate<2>(base, count, s, span, cols[c].bits);
            break;
        case 4:
            sums = accumulate<4>(base, count, s, span, cols[c].bits);
            break;
        case 8:
            sums = accumulate<8>(base, count, s, span, cols[c].bits);
            break;
        default:
            sums = accumulate<kByteWise>(base, count, s, span, cols[c].bits);
            break;
        }
        // Exact: count * sum of squares - sum^2 is count^2 times the
        // population variance, computed without rounding.
        const auto magnitude = static_cast<unsigned __int128>(
            sums.sum < 0 ? -static_cast<uint64_t>(sums.sum) : static_cast<uint64_t>(sums.sum));
        const unsigned __int128 spread =
            static_cast<unsigned __int128>(count) * sums.squares - magnitude * magnitude;
        out.avr[c] = static_cast<double>(sums.sum) / count;
        out.sdev[c] = std::sqrt(static_cast<double>(spread)) / count;
        out.min[c] = static_cast<double>(sums.lo);
        out.max[c] = static_cast<double>(sums.hi);
    }
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
