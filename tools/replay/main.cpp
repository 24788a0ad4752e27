// vxscanner-replay: sends the UDP datagrams of a capture file with the
// capture's timing. See ReplayOptions::usage().
#include "tools/replay/replayer.h"
#include "tools/replay/replayoptions.h"
#include "tools/replay/udpsender.h"

#include <csignal>
#include <cstdio>
#include <string>

namespace {

volatile std::sig_atomic_t stopRequested = 0;

void onSignal(int)
{
    stopRequested = 1;
}

void installSignals()
{
    struct sigaction sa = {};
    sa.sa_handler = onSignal;
    sigemptyset(&sa.sa_mask);
    sigaction(SIGINT, &sa, nullptr);
    sigaction(SIGTERM, &sa, nullptr);
}

} // namespace

int main(int argc, char** argv)
{
    using namespace vxrec;
    ReplayOptions options;
    std::string error;
    switch (options.parse(argc, argv, error)) {
    case ReplayOptions::Parse::Help:
        std::fputs(ReplayOptions::usage(), stdout);
        return 0;
    case ReplayOptions::Parse::Error:
        std::fprintf(stderr, "vxscanner-replay: %s\n(see vxscanner-replay --help)\n",
                     error.c_str());
        return 2;
    case ReplayOptions::Parse::Ok:
        break;
    }

    UdpSender sender;
    Replayer replayer(options, ReplayScheduler::systemClock(), sender);
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

    installSignals();
    replayer.run(&stopRequested, [&](const Replayer::Progress& p) {
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
                stopRequested ? " (interrupted)" : "", scan.skipped.summary().c_str());
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
