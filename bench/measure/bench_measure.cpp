// Measuring 2,048-pixel lines of the simulator's conveyor (boxes on a belt,
// noise, dropouts), and prints beside each figure its floor from the same
// run:
//
//   library   microseconds per line of ProfileMeasure::measure over the
//             whole line as region, beside a plain pass over the same
//             points (reading every y and z once)
//   tool      lines per second of vxscanner-measure's work
//             (CaptureMeasure::run, CSV to /dev/null) on a capture of such
//             lines, beside the plain decode: the same capture through the
//             same receive path, each line only accepted and turned into
//             points; with the CPU time per line of the whole process
//             (on a shared machine the wall clock also counts others' work)
//
// Each figure is the best of several runs taken in turn with its floor: on
// a shared machine the other runs also carry the neighbours' work.
//
// usage: build/bin/bench_measure [--lines 6000] [--file /tmp/bench_measure.pcap]
#include "capture/capturesource.h"
#include "capture/pcapwriter.h"
#include "measure/profilemeasure.h"
#include "measure/profilepoints.h"
#include "scanner/lineformat.h"
#include "scanner/vxlinedatastream.h"
#include "tools/measure/capturemeasure.h"
#include "tools/sim/linecomposer.h"
#include "tools/sim/linedatagrams.h"
#include "tools/sim/simoptions.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;
constexpr int kPixels = 2048;

double cpuSeconds()
{
    timespec t{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
    return double(t.tv_sec) + double(t.tv_nsec) / 1e9;
}

vxsim::SimOptions conveyor()
{
    vxsim::SimOptions options;
    options.scene = vxsim::Scene::Conveyor;
    options.pixels = kPixels;
    return options;
}

// Accepts and decodes lines as the viewer's receiver does, and keeps their
// points (all of them, or only the newest: the decode floor).
class Decoder : public VxLinedataStream
{
public:
    explicit Decoder(bool keepAll) : keep(keepAll) {}
    ~Decoder() override { Disconnect(true); }
    void OnRawLine(const strmsocket::VxStreamDeviceInfo& device, const char*,
                   const strmsocket::LineRawInfo& info, const char*, int) override
    {
        if (format.decode(&info) && format.lineheadersize >= 0) {
            if (keep)
                kept.emplace_back();
            vxmeasure::ProfilePoints& p = keep ? kept.back() : newest;
            p.clear();
            p.reserve(std::size_t(format.pixel));
            ForEachPoint(
                device.device, format.pixels(), format.pixel,
                [&p](int, double range, double, double y, double z) { p.add(range, y, z); });
        }
        lines.fetch_add(1, std::memory_order_relaxed);
    }
    std::vector<vxmeasure::ProfilePoints> kept;
    std::atomic<uint64_t> lines{0};

private:
    const bool keep;
    vxlindral::LineFormat format;
    vxmeasure::ProfilePoints newest;
};

// The points of `count` conveyor lines spread over its objects.
std::vector<vxmeasure::ProfilePoints> conveyorLines(int count)
{
    vxsim::LineComposer composer(conveyor());
    Decoder decoder(true);
    strmsocket::VxStreamDeviceInfo sender{};
    const std::vector<char> header = composer.fileHeader();
    decoder.DeliverMessage(sender, header.data(), header.size());
    for (int i = 0; i < count; ++i) {
        const std::vector<char>& m = composer.compose(uint64_t(i) * 4000 / uint64_t(count));
        decoder.DeliverMessage(sender, m.data(), m.size());
    }
    return std::move(decoder.kept);
}

void library()
{
    const std::vector<vxmeasure::ProfilePoints> lines = conveyorLines(400);
    vxmeasure::ProfileMeasure measure;
    constexpr int kRounds = 25;
    double sink = 0.0;
    // Round by round, the floor (every point read once) and the measuring,
    // each a pass over all lines; the best round of each counts (on a
    // shared machine the others carry its neighbours' work too).
    std::vector<double> floorUs, us;
    for (int r = 0; r < kRounds; ++r) {
        auto t = Clock::now();
        for (const auto& p : lines) {
            double s = 0.0;
            for (std::size_t i = 0; i < p.size(); ++i)
                s += p.y()[i] * p.z()[i];
            sink += s;
        }
        floorUs.push_back(std::chrono::duration<double, std::micro>(Clock::now() - t).count() /
                          double(lines.size()));
        t = Clock::now();
        for (const auto& p : lines)
            sink += measure.measure(p, -0.6, 0.6).width;
        us.push_back(std::chrono::duration<double, std::micro>(Clock::now() - t).count() /
                     double(lines.size()));
    }
    std::sort(floorUs.begin(), floorUs.end());
    std::sort(us.begin(), us.end());
    std::printf("library  %6.2f us per %d-pixel line, best of %d rounds of %zu lines (median "
                "%.2f us; the floor, one pass over its points: %.2f us)%s\n",
                us.front(), kPixels, kRounds, lines.size(), us[us.size() / 2], floorUs.front(),
                sink == 12345.0 ? " " : "");
}

bool writeCapture(const std::string& path, uint64_t count)
{
    vxrec::PcapWriter out;
    if (!out.open(path))
        return false;
    vxsim::LineComposer composer(conveyor());
    vxsim::LineDatagrams stream(
        [&out](int64_t t, const char* d, std::size_t n) {
            out.write(t, 0x7f000001, 40000, 0x7f000001, 6101, reinterpret_cast<const uint8_t*>(d),
                      n);
        },
        1'700'000'000'000'000'000, 200'000);
    stream.lines(composer, count);
    return out.close();
}

struct Rate
{
    uint64_t lines = 0;
    double perSecond = 0.0;
    double cpuUsPerLine = 0.0;
};

Rate decodeFloor(const std::string& path)
{
    auto source = std::make_shared<vxrec::CaptureSource>(6101);
    if (!source->open(path))
        return {};
    source->setSpeed(0);
    Decoder decoder(false);
    const auto t = Clock::now();
    const double cpu0 = cpuSeconds();
    decoder.Connect(vxrec::CaptureSource::shared(source));
    while (!source->status().ended)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    decoder.Disconnect(true);
    const double s = std::chrono::duration<double>(Clock::now() - t).count();
    const uint64_t n = decoder.lines.load();
    return {n, double(n) / s, (cpuSeconds() - cpu0) * 1e6 / double(n)};
}

Rate tool(const std::string& path)
{
    vxmeasure::MeasureOptions options;
    options.file = path;
    options.roi0 = -0.6;
    options.roi1 = 0.6;
    options.quiet = true;
    std::FILE* out = std::fopen("/dev/null", "w");
    std::FILE* log = std::fopen("/dev/null", "w");
    uint64_t n = 0;
    const auto t = Clock::now();
    const double cpu0 = cpuSeconds();
    vxmeasure::CaptureMeasure::run(options, out, log, &n);
    const double s = std::chrono::duration<double>(Clock::now() - t).count();
    std::fclose(out);
    std::fclose(log);
    return {n, double(n) / s, (cpuSeconds() - cpu0) * 1e6 / double(n)};
}

} // namespace

int main(int argc, char** argv)
{
    uint64_t lines = 6000;
    std::string path = "/tmp/bench_measure.pcap";
    for (int i = 1; i + 1 < argc; i += 2) {
        const std::string key = argv[i];
        if (key == "--lines")
            lines = std::stoull(argv[i + 1]);
        else if (key == "--file")
            path = argv[i + 1];
    }
    library();

    std::printf("writing %llu conveyor lines of %d pixels to %s ...\n",
                static_cast<unsigned long long>(lines), kPixels, path.c_str());
    if (!writeCapture(path, lines))
        return 1;
    decodeFloor(path); // warms the page cache
    // Three runs of each, alternating; the best of each counts.
    Rate floor, measured;
    for (int run = 0; run < 3; ++run) {
        const Rate f = decodeFloor(path);
        const Rate m = tool(path);
        floor = f.perSecond > floor.perSecond ? f : floor;
        measured = m.perSecond > measured.perSecond ? m : measured;
    }
    std::printf("decode   %8.0f lines/s, %.1f us CPU per line, best of 3 (the floor: %llu lines "
                "accepted and turned into points)\n",
                floor.perSecond, floor.cpuUsPerLine, static_cast<unsigned long long>(floor.lines));
    std::printf("tool     %8.0f lines/s, %.1f us CPU per line, best of 3 (%llu lines measured, "
                "CSV to /dev/null)\n",
                measured.perSecond, measured.cpuUsPerLine,
                static_cast<unsigned long long>(measured.lines));
    std::remove(path.c_str());
    return 0;
}
