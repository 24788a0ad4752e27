#include "tools/measure/capturemeasure.h"

#include "capture/captureports.h"
#include "capture/capturesource.h"
#include "measure/linemeasurer.h"

#include <chrono>
#include <memory>
#include <string>
#include <thread>

namespace vxmeasure {

namespace {

constexpr const char* kTool = "vxscanner-measure";

// The ports of the capture that carry lines, as text ("6101 (300 lines),
// ..."), or "none".
std::string portsWithLines(const std::string& file)
{
    vxrec::CapturePorts scan;
    if (!scan.scan(file) || scan.ports().empty())
        return "none";
    std::string text;
    for (const vxrec::CapturePorts::Port& p : scan.ports()) {
        if (!text.empty())
            text += ", ";
        text += std::to_string(p.port) + " (" + std::to_string(p.lines) + " lines)";
    }
    return text;
}

} // namespace

int CaptureMeasure::run(const MeasureOptions& options, std::FILE* out, std::FILE* log,
                        uint64_t* lines)
{
    using Clock = std::chrono::steady_clock;
    auto source = std::make_shared<vxrec::CaptureSource>(options.port);
    if (!source->open(options.file)) {
        std::fprintf(log, "%s: error: cannot read %s: %s\n", kTool, options.file.c_str(),
                     source->error().c_str());
        return 1;
    }
    source->setSpeed(0); // as fast as possible

    ProfileMeasure::Settings settings;
    settings.polarity =
        options.sunk ? ProfileMeasure::Polarity::Sunk : ProfileMeasure::Polarity::Raised;
    std::fputs(MeasureCsv::header(), out);
    LineMeasurer measurer(out, options.roi0, options.roi1, settings);
    measurer.Connect(vxrec::CaptureSource::shared(source));

    // The receive thread sets `ended` only after it has dispatched the
    // file's last datagram: every row is written once it is set.
    const auto start = Clock::now();
    auto nextReport = start + std::chrono::seconds(1);
    vxrec::CaptureSource::Status status;
    for (;;) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
        status = source->status();
        if (status.ended)
            break;
        if (!options.quiet && Clock::now() >= nextReport) {
            nextReport += std::chrono::seconds(1);
            const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
            std::fprintf(log, "%s: %llu lines, %.1f s of the capture, %.0f lines/s\n", kTool,
                         static_cast<unsigned long long>(measurer.lines()),
                         double(status.currentNs - status.firstNs) / 1e9,
                         double(measurer.lines()) / seconds);
        }
    }
    measurer.Disconnect(true);
    const uint64_t measured = measurer.lines();
    if (lines)
        *lines = measured;
    std::fflush(out);

    int exit = 0;
    if (!status.problem.empty()) {
        std::fprintf(log, "%s: error: %s is damaged after %llu lines: %s\n", kTool,
                     options.file.c_str(), static_cast<unsigned long long>(measured),
                     status.problem.c_str());
        exit = 1;
    } else if (measured == 0) {
        std::fprintf(log, "%s: error: no line on port %u in %s; ports with lines: %s\n", kTool,
                     unsigned(options.port), options.file.c_str(),
                     portsWithLines(options.file).c_str());
        exit = 1;
    } else if (!options.quiet) {
        const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
        std::fprintf(log, "%s: %llu lines measured in %.1f s (%.0f lines/s)\n", kTool,
                     static_cast<unsigned long long>(measured), seconds,
                     double(measured) / seconds);
    }
    if (std::ferror(out)) {
        std::fprintf(log, "%s: error: the measures could not all be written\n", kTool);
        exit = 1;
    }
    return exit;
}

} // namespace vxmeasure
