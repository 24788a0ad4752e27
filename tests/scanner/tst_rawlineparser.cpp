// Column layouts (catalogue, agreement with the pixel decoding, statistics,
// text forms, stride guard) and the line header words.
#include "check.h"
#include "scanner/lineheader.h"
#include "scanner/rawlineparser.h"
#include "scanner/rawpixel.h"

#include <cmath>
#include <cstdint>
#include <cstring>
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
        int datatyp;
        int mode;
        bool extended;
        bool found;
        int bpp;
        const char* columns;
    };
    const Row rows[] = {
        {2, 5, false, true, 8, "status,quality,range,echo width,intensity"},
        {2, 5, true, true, 12, "status,quality,range,echo width,intensity,timestamp offset"},
        {3, 5, false, true, 5, "status,range,intensity"},
        {3, 5, true, true, 8, "status,range,intensity,quality,echo width"},
        {2, 0, false, true, 5, "range,intensity"},
        {2, 4, true, true, 8, "range,intensity,quality,echo width"},
        {4, 3, false, true, 8, "range,intensity,quality,echo width"},
        {4, 1, true, true, 12, "range,intensity,quality,echo width,deviation,flags"},
        {3, 0, false, false, 0, ""},
        {4, 5, false, false, 0, ""},
        {2, 6, false, false, 0, ""},
        {2, -1, false, false, 0, ""},
        {1, 0, false, false, 0, ""},
    };
    for (const Row& r : rows) {
        vxtest::row =
            std::to_string(r.datatyp) + "/" + std::to_string(r.mode) + (r.extended ? " ext" : "");
        RawLineParser p;
        p.detect(4, RawLineParser::MOD_PEAK, false); // a previous layout
        const std::string before = names(p);
        CHECK(p.detect(r.datatyp, static_cast<M>(r.mode), r.extended) == r.found);
        if (r.found) {
            CHECK(p.bytesPerPixel() == r.bpp);
            CHECK(names(p) == r.columns);
            CHECK(p.datatyp() == r.datatyp && p.mode() == r.mode);
            // Every column lies inside the record.
            for (int c = 0; c < p.colCount(); ++c)
                CHECK(p.getColDef(c).offset + p.getColDef(c).bits <= 8 * r.bpp);
        } else {
            CHECK(names(p) == before); // a failed detect changes nothing
        }
    }
    RawLineParser p;
    CHECK(p.getColDef(-1).bits == 0 && p.getColDef(99).bits == 0);
    p.detect(2, RawLineParser::MOD_PEAK, true);
    p.reset();
    CHECK(p.empty() && p.bytesPerPixel() == 0 && p.datatyp() == 2);
}

// The "range" and "intensity" columns must read exactly what the pixel
// decoding reads, or the table and the views disagree.
void agreesWithPixelDecoding()
{
    struct Row
    {
        int datatyp, mode;
        uint32_t sub;
        bool shortLayout;
    };
    const Row rows[] = {{2, 5, 1, false}, {3, 5, 1, true}, {2, 0, 2, false}, {4, 2, 3, false}};
    for (const Row& r : rows) {
        vxtest::row = "datatyp " + std::to_string(r.datatyp);
        RawLineParser p;
        CHECK(p.detect(r.datatyp, static_cast<M>(r.mode), true));
        const int bpp = p.bytesPerPixel();
        std::vector<char> line(static_cast<std::size_t>(bpp) * 3 + 8, 0);
        for (std::size_t i = 0; i < line.size() - 8; ++i)
            line[i] = static_cast<char>(i * 37 + 11); // lowest intensity bit varies
        vxs::RawPixel px;
        px.protocol = 1;
        px.subProtocol = r.sub;
        px.layoutFlag = r.shortLayout;
        px.bytes = line.data();
        px.bpp = bpp;
        int rc = -1, ic = -1;
        for (int c = 0; c < p.colCount(); ++c) {
            rc = std::string(p.getColDef(c).name) == "range" ? c : rc;
            ic = std::string(p.getColDef(c).name) == "intensity" ? c : ic;
        }
        for (int i = 0; i < 3; ++i) {
            const double range = double(p.value(line.data(), i, rc));
            CHECK(px.range(i) == (r.sub == 1 ? range : range / 10.0));
            const auto raw = uint32_t(p.value(line.data(), i, ic));
            CHECK(px.intensity(i) == (r.sub != 1 && (raw & 1u) ? raw << 8 : raw));
        }
    }
}

// Two pixels of the extended datatyp 4 layout.
std::vector<char> twoPixels()
{
    const unsigned char px[24] = {
        0x39, 0x30, 0x00, 0x01, 0x01, 0x07, 0x10, 0x00, 0xFE, 0xFF, 0x03, 0x00, // 12345 ..
        0xFF, 0xFF, 0xFF, 0x00, 0x00, 0xFF, 0x00, 0x00, 0x05, 0x00, 0x00, 0x80};
    return std::vector<char>(px, px + 24);
}

void statistics()
{
    vxtest::row = "calc";
    RawLineParser p;
    p.detect(4, RawLineParser::MOD_PEAK, true);
    const auto line = twoPixels();
    const auto s = p.calc(line.data(), 2);
    CHECK(s.avr.size() == 6 && s.sdev.size() == 6 && s.min.size() == 6 && s.max.size() == 6);
    CHECK_NEAR(s.avr[0], (12345 + 16777215) / 2.0, 1e-6);
    CHECK_NEAR(s.sdev[0], (16777215 - 12345) / 2.0, 1e-6); // population deviation
    CHECK(s.min[4] == -2 && s.max[4] == 5);                // signed column
    CHECK(s.min[5] == 3 && s.max[5] == 32768);
    const auto none = p.calc(line.data(), 0);
    CHECK(none.avr.size() == 6 && none.max[0] == 0);
}

void text()
{
    RawLineParser p;
    p.detect(4, RawLineParser::MOD_PEAK, true);
    const auto line = twoPixels();
    struct Row
    {
        int row, col;
        bool hex;
        const char* text;
    };
    const Row rows[] = {
        {0, 0, false, "12345"}, {0, 0, true, "003039"}, {0, 2, true, "07"},
        {0, 4, false, "-2"},    {0, 4, true, "fffe"},   {1, 4, false, "5"},
        {1, 5, false, "32768"}, {1, 2, false, "255"},   {0, 9, false, "0"},
    };
    for (const Row& r : rows) {
        vxtest::row = r.text;
        char buf[32];
        const int n = p.valueAsString(buf, sizeof buf, line.data(), r.row, r.col, r.hex);
        CHECK(std::string(buf) == r.text);
        CHECK(n == int(std::strlen(r.text)));
    }
    vxtest::row = "small buffer";
    char small[3];
    CHECK(p.valueAsString(small, 3, line.data(), 0, 0, false) == 2 && std::string(small) == "12");

    vxtest::row = "lineToString";
    CHECK(p.lineToString(line.data(), 2, 0, ";", "\n") ==
          "# range;intensity;quality;echo width;deviation;flags\n"
          "12345;257;7;16;-2;3\n"
          "16777215;0;255;0;5;32768\n");
    CHECK(p.lineToString(line.data(), 1, 1, " ", "\r\n") ==
          "# range intensity quality echo width deviation flags\r\n"
          "003039 0101 07 0010 fffe 0003\r\n");
}

void strideGuard()
{
    RawLineParser p;
    p.detect(4, RawLineParser::MOD_PEAK, true); // 12-byte layout
    const auto line = twoPixels();
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
        CHECK(p.value(line.data(), 0, 4) == r.deviation0);
        CHECK(p.value(line.data(), 0, 5) == r.flags0);
        CHECK(p.value(line.data(), 1, 0) == (r.range1 & 0xFFFFFF));
    }
}

void modeNames()
{
    const char* expected[] = {"peak",           "first echo", "last echo",
                              "strongest echo", "multi echo", "classic"};
    for (int m = 0; m < 6; ++m)
        CHECK(std::string(RawLineParser::modAsString(m)) == expected[m]);
    CHECK(RawLineParser::modAsString(6) == nullptr && RawLineParser::modAsString(-1) == nullptr);
    RawLineParser p;
    CHECK(std::string(p.modAsString()) == "classic");
}

void headerWords()
{
    const uint32_t w[9] = {
        42,    567890u, 1u, static_cast<uint32_t>(-17), 0x0000000Bu, 250, static_cast<uint32_t>(-5),
        10000, 77};
    const vxs::LineHeader h{w, sizeof w};
    struct Row
    {
        unsigned index;
        const char* name;
        const char* value;
    };
    const Row rows[] = {
        {0, "line counter", "42"},
        {1, "timestamp low", "4295.535186 s"}, // (1 << 32) + 567890 us
        {2, "timestamp high", "4295.535186 s"},
        {3, "encoder position", "-17"},
        {4, "status flags", "0x0000000b laser on, encoder valid, sync lost"},
        {5, "exposure", "250 us"},
        {6, "temperature", "-0.5 C"},
        {7, "line rate", "10000 lines/s"},
        {8, "word 8", "77"},
        {9, "word 9", ""},
    };
    for (const Row& r : rows) {
        vxtest::row = r.name;
        CHECK(std::string(vxs::Lineheader2String(r.index)) == r.name);
        CHECK(vxs::LineheaderValue2String(h, r.index) == r.value);
    }
    vxtest::row = "timestamp without its high word";
    const vxs::LineHeader two{w, 8};
    CHECK(vxs::LineheaderValue2String(two, 1) == "567890");
    const uint32_t t = 235;
    const uint32_t words[7] = {0, 0, 0, 0, 0, 0, t};
    CHECK(vxs::LineheaderValue2String(vxs::LineHeader{words, 28}, 6) == "23.5 C");
    CHECK(vxs::LineheaderValue2String(vxs::LineHeader{nullptr, 28}, 0).empty());
}

} // namespace

int main()
{
    RUN(catalogue);
    RUN(agreesWithPixelDecoding);
    RUN(statistics);
    RUN(text);
    RUN(strideGuard);
    RUN(modeNames);
    RUN(headerWords);
    return vxtestResult("tst_rawlineparser");
}
