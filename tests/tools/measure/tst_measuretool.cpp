// vxscanner-measure as a program, on a capture of the simulator's conveyor
// (2,048-pixel lines, sent as the simulator sends them, with its file
// headers): the two boxes' heights and widths within 1 mm of the scene's
// own sizes, one row per line numbered from 0, empty measures for a line
// the viewer gives up; and clear errors with a non-zero exit on bad input.
#include "capture/pcapwriter.h"
#include "scanner/wireformat.h"
#include "tests/capture/capturebuilder.h"
#include "tests/check.h"
#include "tests/tools/toolrun.h"
#include "tools/sim/linecomposer.h"
#include "tools/sim/linedatagrams.h"
#include "tools/sim/simoptions.h"

#include <cmath>
#include <sstream>
#include <string>
#include <vector>

namespace {

const std::string M = VX_MEASURE_BINARY;
constexpr uint16_t kPort = 6101;

// Lines 0 .. count-1 of the conveyor as the simulator sends them, into a
// pcap file; with `spoilLine`, that line's protocol version is made 9 (the
// viewer gives such a line up: "unknown data").
bool writeConveyor(const std::string& path, uint64_t count, int64_t spoilLine = -1)
{
    vxrec::PcapWriter out;
    if (!out.open(path))
        return false;
    vxsim::SimOptions options;
    options.scene = vxsim::Scene::Conveyor;
    options.pixels = 2048;
    vxsim::LineComposer composer(options);
    int64_t line = -1;
    std::vector<char> bytes;
    vxsim::LineDatagrams stream(
        [&](int64_t t, const char* d, std::size_t n) {
            bytes.assign(d, d + n);
            if (strmsocket::WireFormat::beginsRawLine(d, n) && ++line == spoilLine)
                bytes[strmsocket::WireFormat::kDatagramHeader + 8] = 9; // protocol version
            out.write(t, 0x7f000001, 40000, 0x7f000001, kPort,
                      reinterpret_cast<const uint8_t*>(bytes.data()), n);
        },
        1'700'000'000'000'000'000, 200'000);
    stream.lines(composer, count);
    return out.close();
}

struct Row
{
    uint64_t line = 0;
    std::size_t points = 0;
    double height = NAN, width = NAN, centre = NAN;
};

// The CSV's rows by the named columns; false when the header lacks one.
bool parseCsv(const std::string& text, std::vector<Row>& rows)
{
    std::istringstream in(text);
    std::string line;
    if (!std::getline(in, line))
        return false;
    std::vector<std::string> names;
    std::istringstream h(line);
    for (std::string f; std::getline(h, f, ',');)
        names.push_back(f);
    const auto column = [&](const char* name) {
        for (std::size_t i = 0; i < names.size(); ++i)
            if (names[i] == name)
                return int(i);
        return -1;
    };
    const int cLine = column("line"), cPoints = column("points"), cHeight = column("height_mm"),
              cWidth = column("width_mm"), cCentre = column("centre_mm");
    if (cLine < 0 || cPoints < 0 || cHeight < 0 || cWidth < 0 || cCentre < 0)
        return false;
    while (std::getline(in, line)) {
        std::vector<std::string> f;
        std::istringstream s(line + ",");
        for (std::string v; std::getline(s, v, ',');)
            f.push_back(v);
        if (f.size() != names.size())
            return false;
        const auto num = [&](int c) { return f[std::size_t(c)].empty() ? NAN : std::stod(f[std::size_t(c)]); };
        Row r;
        r.line = std::stoull(f[std::size_t(cLine)]);
        r.points = std::stoul(f[std::size_t(cPoints)]);
        r.height = num(cHeight);
        r.width = num(cWidth);
        r.centre = num(cCentre);
        rows.push_back(r);
    }
    return true;
}

void conveyorBoxes()
{
    // The belt's first 2,000 lines: the boxes lie on it at lines 300..900
    // (0.35 m across, 0.20 m high, y -0.45 .. -0.10) and 1600..1900 (0.25 m
    // across, 0.35 m high, y -0.05 .. 0.20): tools/sim/scene.cpp.
    const std::string capture = vxtest::tempPath("conveyor.pcap");
    vxtest::row = "writing the capture";
    if (!CHECK(writeConveyor(capture, 2000)))
        return;

    struct Box
    {
        const char* name;
        const char* roi;
        uint64_t first, last; // lines that cut the box through its top
        double height, width, centre; // mm
    };
    const Box boxes[] = {
        {"first box", "-0.6:0.05", 305, 895, 200, 350, -275},
        {"second box", "-0.2:0.45", 1605, 1895, 350, 250, 75},
    };
    for (const Box& box : boxes) {
        vxtest::row = box.name;
        std::string out;
        const int code = ToolRun::run(M + " --quiet --roi " + box.roi + " " + capture, &out,
                                      " 2>/dev/null");
        CHECK_EQ(code, 0);
        std::vector<Row> rows;
        if (!CHECK(parseCsv(out, rows)))
            continue;
        // One row per line, numbered from 0.
        CHECK_EQ(rows.size(), std::size_t(2000));
        bool numbered = true;
        for (std::size_t i = 0; i < rows.size(); ++i)
            numbered = numbered && rows[i].line == i;
        CHECK(numbered);
        double worstHeight = 0, worstWidth = 0, worstCentre = 0;
        for (uint64_t l = box.first; l <= box.last && l < rows.size(); ++l) {
            const Row& r = rows[l];
            worstHeight = std::max(worstHeight, std::fabs(r.height - box.height));
            worstWidth = std::max(worstWidth, std::fabs(r.width - box.width));
            worstCentre = std::max(worstCentre, std::fabs(r.centre - box.centre));
        }
        std::fprintf(stderr, "%s: worst errors: height %.3f mm, width %.3f mm, centre %.3f mm\n",
                     box.name, worstHeight, worstWidth, worstCentre);
        CHECK(worstHeight <= 1.0);
        CHECK(worstWidth <= 1.0);
        CHECK(worstCentre <= 1.0);
        // The empty belt before the boxes: nothing stands out.
        CHECK_NEAR(rows[100].width, 0.0, 1e-9);
        CHECK(std::isnan(rows[100].centre));
        CHECK(rows[100].height < 1.0);
    }
}

void badInput()
{
    const std::string text = "not a capture, only some words of text in a file\n";
    CaptureBuilder::save(vxtest::tempPath("text.pcap"),
                         CaptureBuilder::Bytes(text.begin(), text.end()));
    const std::string small = vxtest::tempPath("small.pcap");
    writeConveyor(small, 5, 2);
    const std::string noLines =
        "no line on port 6102 in " + small + "; ports with lines: 6101 (5 lines)";
    ToolRun::check({
        {"help", M + " --help", 0, "Usage: vxscanner-measure"},
        {"no file", M + " --roi 0:1", 2, "no capture file given"},
        {"no region", M + " " + small, 2, "no region given: --roi Y0:Y1"},
        {"region without colon", M + " --roi 0.5 " + small, 2, "--roi: '0.5' is not Y0:Y1"},
        {"region of words", M + " --roi a:b " + small, 2, "is not Y0:Y1"},
        {"region without width", M + " --roi 0.2:0.2 " + small, 2, "is not Y0:Y1"},
        {"bad port", M + " --port 70000 --roi 0:1 " + small, 2, "--port"},
        {"unknown option", M + " --bogus --roi 0:1 " + small, 2, "unknown option --bogus"},
        {"missing file", M + " --roi 0:1 " + vxtest::tempPath("nope.pcap"), 1,
         "cannot read"},
        {"not a capture", M + " --roi 0:1 " + vxtest::tempPath("text.pcap"), 1, "cannot read"},
        {"port without lines", M + " --port 6102 --roi 0:1 " + small, 1,
         noLines.c_str()},
    });
    vxtest::row = "a line given up keeps its row, without measures";
    std::string out;
    CHECK_EQ(ToolRun::run(M + " --quiet --roi -0.6:0.6 " + small, &out, " 2>/dev/null"), 0);
    std::vector<Row> rows;
    if (CHECK(parseCsv(out, rows)) && CHECK_EQ(rows.size(), std::size_t(5))) {
        CHECK(rows[1].points > 2000 && rows[3].points > 2000);
        CHECK_EQ(rows[2].line, uint64_t(2));
        CHECK_EQ(rows[2].points, std::size_t(0));
        CHECK(std::isnan(rows[2].height) && std::isnan(rows[2].width));
    }

    vxtest::row = "a region given right to left";
    std::string a, b;
    CHECK_EQ(ToolRun::run(M + " --quiet --roi=0.3:-0.3 " + small, &a, " 2>/dev/null"), 0);
    CHECK_EQ(ToolRun::run(M + " --quiet --roi -0.3:0.3 " + small, &b, " 2>/dev/null"), 0);
    CHECK_EQ(a, b);
}

} // namespace

int main()
{
    conveyorBoxes();
    badInput();
    return vxtest::result("tst_measuretool");
}
