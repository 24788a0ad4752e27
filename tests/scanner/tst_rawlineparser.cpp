// Column layouts (catalogue, statistics, text forms, stride guard) and the
// line header words.
#include "scanner/lineheader.h"
#include "scanner/rawlineparser.h"
#include "tests/check.h"

#include <algorithm>
#include <cmath>
#include <numeric>
#include <string>
#include <tuple>
#include <vector>

using vx::RawLineParser;
using M = RawLineParser::mod_t;

namespace {

// Each (datatyp, mode) in its basic and extended form: bytes per pixel (0:
// not in the catalogue, and the previous layout stays) and column names.
void catalogue()
{
    const std::tuple<int, int, bool, int, const char*> rows[] = {
        {2, 5, false, 8, "status,quality,range,echo width,intensity"},
        {2, 5, true, 12, "status,quality,range,echo width,intensity,timestamp offset"},
        {3, 5, false, 5, "status,range,intensity"},
        {3, 5, true, 8, "status,range,intensity,quality,echo width"},
        {2, 0, false, 5, "range,intensity"},
        {2, 4, true, 8, "range,intensity,quality,echo width"},
        {4, 3, false, 8, "range,intensity,quality,echo width"},
        {4, 1, true, 12, "range,intensity,quality,echo width,deviation,flags"},
        {3, 0, false, 0, ""},
        {2, 6, false, 0, ""},
        {2, -1, false, 0, ""},
        {1, 0, false, 0, ""},
    };
    for (const auto& [datatyp, mode, extended, bpp, columns] : rows) {
        vxtest::row =
            std::to_string(datatyp) + "/" + std::to_string(mode) + (extended ? " ext" : "");
        RawLineParser p;
        p.detect(4, RawLineParser::MOD_PEAK, false); // a previous layout
        const bool found = p.detect(datatyp, static_cast<M>(mode), extended);
        CHECK_EQ(found, bpp > 0);
        // The names as the header line of the text form gives them.
        CHECK_EQ(p.lineToString(nullptr, 0, 0, ",", ""),
                 "# " + std::string(found ? columns : "range,intensity,quality,echo width"));
        CHECK_EQ(p.bytesPerPixel(), found ? bpp : 8);
        for (int c = 0; c < p.colCount(); ++c) // every column lies inside the record
            CHECK(p.getColDef(c).offset + p.getColDef(c).bits <= 8 * p.bytesPerPixel());
    }
}

// Two pixels of the extended datatyp 4 layout: range, intensity, quality,
// echo width, deviation (signed), flags.
const unsigned char kTwoPixels[24] = {
    0x39, 0x30, 0x00, 0x01, 0x01, 0x07, 0x10, 0x00, 0xFE, 0xFF, 0x03, 0x00, // 12345 ..
    0xFF, 0xFF, 0xFF, 0x00, 0x00, 0xFF, 0x00, 0x00, 0x05, 0x00, 0x00, 0x80};
const char* const twoPixels = reinterpret_cast<const char*>(kTwoPixels);

void text()
{
    vxtest::row = "calc of no pixels";
    RawLineParser p;
    p.detect(4, RawLineParser::MOD_PEAK, true);
    const auto none = p.calc(twoPixels, 0);
    CHECK(none.avr.size() == 6 && none.max[0] == 0 && none.min[4] == 0);

    // Decimal (signed only where the column is), hex as the field's bit
    // pattern zero-padded to its width.
    vxtest::row = "lineToString";
    CHECK(p.lineToString(twoPixels, 2, 0, ";", "\n") ==
          "# range;intensity;quality;echo width;deviation;flags\n"
          "12345;257;7;16;-2;3\n"
          "16777215;0;255;0;5;32768\n");
    CHECK(p.lineToString(twoPixels, 1, 1, " ", "\r\n") ==
          "# range intensity quality echo width deviation flags\r\n"
          "003039 0101 07 0010 fffe 0003\r\n");

    vxtest::row = "valueAsString";
    char buf[3];
    CHECK(p.valueAsString(buf, 3, twoPixels, 0, 0, false) == 2 && std::string(buf) == "12");
    CHECK(p.valueAsString(buf, 3, twoPixels, 0, 9, false) == 1 && std::string(buf) == "0");
}

// calc against a plain two-pass reference over value(): every layout with
// records of its own size and narrower ones (columns cut at the record's end
// or wholly beyond it), one and many records, extreme and mixed values.
void statisticsMatchReference()
{
    // fill: 'm' mixed bytes, 'f' all 0xFF, 'a' records of 0x00 and 0xFF, 's' 0x80 and 0x7F
    const std::tuple<int, int, bool, int, int, char> rows[] = {
        {4, 1, true, 12, 1, 'm'},    {4, 1, true, 12, 2048, 'm'},   {4, 1, true, 12, 4096, 'f'},
        {4, 1, true, 12, 999, 's'},  {4, 1, true, 11, 500, 'a'},    {4, 1, true, 9, 300, 'm'},
        {2, 5, true, 12, 2048, 'f'}, {2, 5, true, 11, 777, 'm'},    {2, 5, true, 10, 64, 'a'},
        {2, 5, false, 8, 1, 'f'},    {3, 5, true, 8, 4200, 'm'},    {3, 5, false, 5, 3, 's'},
        {2, 0, false, 5, 2048, 'm'}, {2, 0, false, 4, 100, 'f'},    {2, 0, false, 3, 100, 'm'},
        {2, 0, false, 2, 17, 'a'},   {4, 0, false, 8, 199999, 'm'},
    };
    RawLineParser::AvrStd reused; // shrinks and grows from row to row
    uint32_t seed = 12345;
    for (const auto& [datatyp, mode, extended, stride, count, fill] : rows) {
        vxtest::row = std::to_string(datatyp) + "/" + std::to_string(mode) +
                      (extended ? " ext" : "") + " stride " + std::to_string(stride) + " x" +
                      std::to_string(count) + " " + fill;
        RawLineParser p;
        CHECK(p.detect(datatyp, static_cast<M>(mode), extended));
        p.setStride(stride);
        // Exactly count x stride bytes: a read beyond shows under the address sanitizer.
        std::vector<char> bytes(std::size_t(count) * std::size_t(stride));
        for (std::size_t i = 0; i < bytes.size(); ++i) {
            seed = seed * 1664525u + 1013904223u;
            const bool odd = (i / std::size_t(stride)) % 2;
            bytes[i] = char(fill == 'm'   ? seed >> 24
                            : fill == 'f' ? 0xFF
                            : fill == 'a' ? (odd ? 0xFF : 0x00)
                                          : (odd ? 0x7F : 0x80));
        }
        const auto s = p.calc(bytes.data(), count);
        p.calc(bytes.data(), count, reused);
        CHECK(s.avr.size() == std::size_t(p.colCount()) && reused.avr == s.avr &&
              reused.sdev == s.sdev && reused.min == s.min && reused.max == s.max);
        for (int c = 0; c < p.colCount() && c < int(s.avr.size()); ++c) {
            std::vector<double> v;
            for (int i = 0; i < count; ++i)
                v.push_back(double(p.value(bytes.data(), i, c)));
            const double mean = std::accumulate(v.begin(), v.end(), 0.0) / count;
            double squares = 0;
            for (double x : v)
                squares += (x - mean) * (x - mean);
            const double sdev = std::sqrt(squares / count); // population deviation
            CHECK_NEAR(s.avr[c], mean, 1e-9 * std::max(1.0, std::fabs(mean)));
            CHECK_NEAR(s.sdev[c], sdev, 1e-9 * std::max(1.0, sdev));
            const auto [lo, hi] = std::minmax_element(v.begin(), v.end());
            CHECK(s.min[c] == *lo && s.max[c] == *hi);
        }
    }
}

void strideGuard()
{
    RawLineParser p;
    p.detect(4, RawLineParser::MOD_PEAK, true); // 12-byte layout
    // Stride, then deviation and flags of pixel 0 and range of pixel 1.
    const std::tuple<int, int64_t, int64_t, int64_t> rows[] = {
        {0, -2, 3, 16777215},  // layout size
        {9, 254, 0, 0x0003FF}, // deviation cut to its first byte, flags beyond
        {10, -2, 0, 0xFF0003},
        {8, 0, 0, 0x03FFFE}, // only the basic columns
    };
    for (const auto& [stride, deviation0, flags0, range1] : rows) {
        vxtest::row = "stride " + std::to_string(stride);
        p.setStride(stride);
        CHECK(p.value(twoPixels, 0, 4) == deviation0 && p.value(twoPixels, 0, 5) == flags0 &&
              p.value(twoPixels, 1, 0) == range1);
    }
}

// The text of each header word, from a header of nine words or, for the
// timestamp without its high word, of two.
void headerWords()
{
    const uint32_t w[9] = {
        42,    567890u, 1u, static_cast<uint32_t>(-17), 0x0000000Bu, 250, static_cast<uint32_t>(-5),
        10000, 77};
    const std::tuple<unsigned, const char*, unsigned> rows[] = {
        {1, "4295.535186 s", 9}, // (1 << 32) + 567890 us
        {2, "4295.535186 s", 9},
        {1, "567890", 2},
        {3, "-17", 9},
        {4, "0x0000000b laser on, encoder valid, sync lost", 9},
        {5, "250 us", 9},
        {6, "-0.5 C", 9},
        {8, "77", 9},
        {9, "", 9},
    };
    for (const auto& [index, value, words] : rows) {
        vxtest::row = "word " + std::to_string(index) + " of " + std::to_string(words);
        CHECK_EQ(vxs::LineheaderValue2String(vxs::LineHeader{w, 4 * words}, index),
                 std::string(value));
    }
    vxtest::row = "unnamed word, no header";
    CHECK(std::string(vxs::Lineheader2String(8)) == "word 8");
    CHECK(vxs::LineheaderValue2String(vxs::LineHeader{nullptr, 28}, 0).empty());
}

} // namespace

int main()
{
    catalogue();
    text();
    statisticsMatchReference();
    strideGuard();
    headerWords();
    return vxtest::result("tst_rawlineparser");
}
