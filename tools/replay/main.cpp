// vxscanner-replay: sends the UDP datagrams of a capture file with the
// capture's timing. See ReplayOptions::usage().
#include "tools/common/stopsignal.h"
#include "tools/replay/datagramsender.h"
#include "tools/replay/replayer.h"
#include "tools/replay/replayoptions.h"

#include <cstdio>
#include <string>

namespace {

using namespace vxrec;

// Replays the capture as `options` say; the exit status.
int replay(const ReplayOptions& options)
{
    DatagramSender sender;
    Replayer replayer(options, ReplayScheduler::systemClock(), sender);
    std::string error;
    if (!replayer.scan(error)) {
        std::fprintf(stderr, "vxscanner-replay: error: %s\n", error.c_str());
        return 1;
    }
    const Replayer::Scan& scan = replayer.scanned();
    if (!scan.damage.empty())
        std::fprintf(stderr,
                     "vxscanner-replay: warning: %s is damaged after %llu frames (%s); "
                     "replaying the datagrams before the damage\n",
                     options.file.c_str(), static_cast<unsigned long long>(scan.frames),
                     scan.damage.c_str());
    if (!sender.open(options.host, options.destinationPort())) {
        std::fprintf(stderr, "vxscanner-replay: error: %s\n", sender.error().c_str());
        return 1;
    }
    std::fprintf(stderr, "vxscanner-replay: %llu datagrams (%.1f s) from %s to %s%s\n",
                 static_cast<unsigned long long>(scan.datagrams),
                 double(scan.lastNs - scan.firstNs) / 1e9, options.file.c_str(),
                 sender.destination().c_str(), options.loop ? ", looping until Ctrl+C" : "");

    vxcommon::StopSignal::install();
    const std::atomic<bool>& stopped = vxcommon::StopSignal::requested();
    replayer.run(stopped, [&](const Replayer::Progress& p) {
        if (!options.quiet)
            std::fprintf(stderr, "%.1f / %.1f s, %llu datagrams sent, %.0f datagrams/s\n",
                         p.positionS, p.totalS, static_cast<unsigned long long>(p.sent),
                         p.ratePerS);
    });

    std::printf("vxscanner-replay: sent %llu datagrams (%llu bytes) in %llu pass%s to %s%s; "
                "skipped frames per pass: %s\n",
                static_cast<unsigned long long>(replayer.sent()),
                static_cast<unsigned long long>(replayer.sentBytes()),
                static_cast<unsigned long long>(replayer.passes()),
                replayer.passes() == 1 ? "" : "es", sender.destination().c_str(),
                stopped ? " (interrupted)" : "", scan.skipped.summary().c_str());
    int status = 0;
    if (replayer.sendErrors()) {
        std::fprintf(stderr, "vxscanner-replay: error: %llu datagrams not sent, last: %s\n",
                     static_cast<unsigned long long>(replayer.sendErrors()),
                     replayer.lastSendError().c_str());
        status = 1;
    }
    if (!scan.damage.empty()) {
        std::fprintf(stderr, "vxscanner-replay: error: %s is damaged: %s\n", options.file.c_str(),
                     scan.damage.c_str());
        status = 1;
    }
    std::fflush(stdout);
    return status;
}

} // namespace

int main(int argc, char** argv)
{
    return vxcommon::CommandLine::run(argc, argv, "vxscanner-replay",
                                      "(see vxscanner-replay --help)", replay);
}
