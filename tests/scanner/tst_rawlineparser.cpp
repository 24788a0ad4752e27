// Column layouts (catalogue, statistics, text forms, stride guard) and the
// line header words.
#include "scanner/lineheader.h"
#include "scanner/rawlineparser.h"
#include "tests/check.h"

#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

using vx::RawLineParser;
using M = RawLineParser::mod_t;

namespace {

std::string names(const RawLineParser& p)
{
    std::string s;
    for (int c = 0; c < p.colCount(); ++c)
        s += std::string(c ? "," : "") + p.getColDef(c).name;
    return s;
}

void catalogue()
{
    struct Row
    {
        int datatyp, mode;
        bool extended;
        int bpp; // 0: not in the catalogue
        const char* columns;
    };
    const Row rows[] = {
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
    for (const Row& r : rows) {
        vxtest::row =
            std::to_string(r.datatyp) + "/" + std::to_string(r.mode) + (r.extended ? " ext" : "");
        RawLineParser p;
        p.detect(4, RawLineParser::MOD_PEAK, false); // a previous layout
        const std::string before = names(p);
        CHECK(p.detect(r.datatyp, static_cast<M>(r.mode), r.extended) == (r.bpp > 0));
        if (r.bpp == 0) {
            CHECK(names(p) == before); // a failed detect changes nothing
            continue;
        }
        CHECK(p.bytesPerPixel() == r.bpp && names(p) == r.columns && p.datatyp() == r.datatyp &&
              p.mode() == r.mode);
        for (int c = 0; c < p.colCount(); ++c) // every column lies inside the record
            CHECK(p.getColDef(c).offset + p.getColDef(c).bits <= 8 * r.bpp);
    }
    vxtest::row = "out of range";
    RawLineParser p;
    CHECK(p.getColDef(-1).bits == 0 && p.getColDef(99).bits == 0);
    CHECK(!RawLineParser::modAsString(6) && !RawLineParser::modAsString(-1));
}

// Two pixels of the extended datatyp 4 layout: range, intensity, quality,
// echo width, deviation (signed), flags.
const unsigned char kTwoPixels[24] = {
    0x39, 0x30, 0x00, 0x01, 0x01, 0x07, 0x10, 0x00, 0xFE, 0xFF, 0x03, 0x00, // 12345 ..
    0xFF, 0xFF, 0xFF, 0x00, 0x00, 0xFF, 0x00, 0x00, 0x05, 0x00, 0x00, 0x80};
const char* const twoPixels = reinterpret_cast<const char*>(kTwoPixels);

void statisticsAndText()
{
    vxtest::row = "calc";
    RawLineParser p;
    p.detect(4, RawLineParser::MOD_PEAK, true);
    const auto s = p.calc(twoPixels, 2);
    CHECK(s.avr.size() == 6 && s.sdev.size() == 6 && s.min.size() == 6 && s.max.size() == 6);
    CHECK_NEAR(s.avr[0], (12345 + 16777215) / 2.0, 1e-6);
    CHECK_NEAR(s.sdev[0], (16777215 - 12345) / 2.0, 1e-6); // population deviation
    CHECK(s.min[4] == -2 && s.max[4] == 5);                // signed column
    CHECK(s.min[5] == 3 && s.max[5] == 32768);
    const auto none = p.calc(twoPixels, 0);
    CHECK(none.avr.size() == 6 && none.max[0] == 0);

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
    struct Row
    {
        int datatyp, mode;
        bool extended;
        int stride, count;
        char fill; // 'm' mixed bytes, 'f' all 0xFF, 'a' records of 0x00 and 0xFF, 's' 0x80 and 0x7F
    };
    const Row rows[] = {
        {4, 1, true, 12, 1, 'm'},    {4, 1, true, 12, 2048, 'm'},   {4, 1, true, 12, 4096, 'f'},
        {4, 1, true, 12, 999, 's'},  {4, 1, true, 11, 500, 'a'},    {4, 1, true, 9, 300, 'm'},
        {2, 5, true, 12, 2048, 'f'}, {2, 5, true, 11, 777, 'm'},    {2, 5, true, 10, 64, 'a'},
        {2, 5, false, 8, 1, 'f'},    {3, 5, true, 8, 4200, 'm'},    {3, 5, false, 5, 3, 's'},
        {2, 0, false, 5, 2048, 'm'}, {2, 0, false, 4, 100, 'f'},    {2, 0, false, 3, 100, 'm'},
        {2, 0, false, 2, 17, 'a'},   {4, 0, false, 8, 199999, 'm'},
    };
    RawLineParser::AvrStd reused; // shrinks and grows from row to row
    uint32_t seed = 12345;
    for (const Row& r : rows) {
        vxtest::row = std::to_string(r.datatyp) + "/" + std::to_string(r.mode) +
                      (r.extended ? " ext" : "") + " stride " + std::to_string(r.stride) + " x" +
                      std::to_string(r.count) + " " + r.fill;
        RawLineParser p;
        CHECK(p.detect(r.datatyp, static_cast<M>(r.mode), r.extended));
        p.setStride(r.stride);
        // Exactly count x stride bytes: a read beyond shows under the address sanitizer.
        std::vector<char> bytes(std::size_t(r.count) * std::size_t(r.stride));
        for (std::size_t i = 0; i < bytes.size(); ++i) {
            seed = seed * 1664525u + 1013904223u;
            const bool odd = (i / std::size_t(r.stride)) % 2;
            bytes[i] = char(r.fill == 'm'   ? seed >> 24
                            : r.fill == 'f' ? 0xFF
                            : r.fill == 'a' ? (odd ? 0xFF : 0x00)
                                            : (odd ? 0x7F : 0x80));
        }
        const auto s = p.calc(bytes.data(), r.count);
        p.calc(bytes.data(), r.count, reused);
        CHECK(s.avr.size() == std::size_t(p.colCount()) && reused.avr == s.avr &&
              reused.sdev == s.sdev && reused.min == s.min && reused.max == s.max);
        for (int c = 0; c < p.colCount() && c < int(s.avr.size()); ++c) {
            std::vector<double> v(std::size_t(r.count));
            for (int i = 0; i < r.count; ++i)
                v[std::size_t(i)] = double(p.value(bytes.data(), i, c));
            double sum = 0, squares = 0;
            for (double x : v)
                sum += x;
            const double mean = sum / r.count;
            for (double x : v)
                squares += (x - mean) * (x - mean);
            const double sdev = std::sqrt(squares / r.count);
            CHECK_NEAR(s.avr[c], mean, 1e-9 * std::max(1.0, std::fabs(mean)));
            CHECK_NEAR(s.sdev[c], sdev, 1e-9 * std::max(1.0, sdev));
            CHECK(s.min[c] == *std::min_element(v.begin(), v.end()) &&
                  s.max[c] == *std::max_element(v.begin(), v.end()));
        }
    }
}

void strideGuard()
{
    RawLineParser p;
    p.detect(4, RawLineParser::MOD_PEAK, true); // 12-byte layout
    struct Row
    {
        int stride;
        int64_t deviation0, flags0, range1;
    };
    const Row rows[] = {
        {0, -2, 3, 16777215},  // layout size
        {9, 254, 0, 0x0003FF}, // deviation cut to its first byte, flags beyond
        {10, -2, 0, 0xFF0003},
        {8, 0, 0, 0x03FFFE}, // only the basic columns
    };
    for (const Row& r : rows) {
        vxtest::row = "stride " + std::to_string(r.stride);
        p.setStride(r.stride);
        CHECK(p.value(twoPixels, 0, 4) == r.deviation0);
        CHECK(p.value(twoPixels, 0, 5) == r.flags0);
        CHECK(p.value(twoPixels, 1, 0) == r.range1);
    }
}

void headerWords()
{
    const uint32_t w[9] = {
        42,    567890u, 1u, static_cast<uint32_t>(-17), 0x0000000Bu, 250, static_cast<uint32_t>(-5),
        10000, 77};
    struct Row
    {
        unsigned index;
        const char* name;
        const char* value;
        unsigned bytes = sizeof w;
    };
    const Row rows[] = {
        {1, "timestamp low", "4295.535186 s"}, // (1 << 32) + 567890 us
        {2, "timestamp high", "4295.535186 s"},
        {1, "timestamp low", "567890", 8}, // without its high word
        {3, "encoder position", "-17"},
        {4, "status flags", "0x0000000b laser on, encoder valid, sync lost"},
        {5, "exposure", "250 us"},
        {6, "temperature", "-0.5 C"},
        {8, "word 8", "77"},
        {9, "word 9", ""},
    };
    for (const Row& r : rows) {
        vxtest::row = r.name;
        CHECK(std::string(vxs::Lineheader2String(r.index)) == r.name);
        CHECK(vxs::LineheaderValue2String(vxs::LineHeader{w, r.bytes}, r.index) == r.value);
    }
    CHECK(vxs::LineheaderValue2String(vxs::LineHeader{nullptr, 28}, 0).empty());
}

} // namespace

int main()
{
    catalogue();
    statisticsAndText();
    statisticsMatchReference();
    strideGuard();
    headerWords();
    return vxtest::result("tst_rawlineparser");
}
