// vxscanner-capture: records the datagrams of a UDP port into a pcap file.
// See CaptureOptions::usage().
#include "tools/capture/captureoptions.h"
#include "tools/capture/udpcapture.h"

#include <csignal>
#include <cstdio>
#include <string>

namespace {

volatile std::sig_atomic_t stopRequested = 0;

void onSignal(int)
{
    stopRequested = 1;
}

} // namespace

int main(int argc, char** argv)
{
    using namespace vxrec;
    CaptureOptions options;
    std::string error;
    switch (options.parse(argc, argv, error)) {
    case CaptureOptions::Parse::Help:
        std::fputs(CaptureOptions::usage(), stdout);
        return 0;
    case CaptureOptions::Parse::Error:
        std::fprintf(stderr, "vxscanner-capture: %s\n(see vxscanner-capture --help)\n",
                     error.c_str());
        return 2;
    case CaptureOptions::Parse::Ok:
        break;
    }

    // Without SA_RESTART a signal ends the wait for data at once.
    struct sigaction sa = {};
    sa.sa_handler = onSignal;
    sigemptyset(&sa.sa_mask);
    sigaction(SIGINT, &sa, nullptr);
    sigaction(SIGTERM, &sa, nullptr);

    UdpCapture capture(options);
    if (!capture.open()) {
        std::fprintf(stderr, "vxscanner-capture: error: %s\n", capture.error().c_str());
        return 1;
    }
    std::printf("vxscanner-capture: listening on UDP port %d, writing %s (Ctrl+C stops)\n",
                capture.localPort(), options.out.c_str());
    std::fflush(stdout);

    const UdpCapture::StopReason reason = capture.run(&stopRequested);
    std::printf("vxscanner-capture: %llu datagrams (%llu bytes) from %zu sender%s written to "
                "%s (%llu bytes); %s\n",
                static_cast<unsigned long long>(capture.datagrams()),
                static_cast<unsigned long long>(capture.payloadBytes()), capture.senders(),
                capture.senders() == 1 ? "" : "s", options.out.c_str(),
                static_cast<unsigned long long>(capture.fileBytes()), UdpCapture::describe(reason));
    std::fflush(stdout);
    if (reason == UdpCapture::StopReason::Error) {
        std::fprintf(stderr, "vxscanner-capture: error: %s\n", capture.error().c_str());
        return 1;
    }
    return 0;
}
