// vxscanner-capture: records the datagrams of a UDP port into a pcap file.
// See CaptureOptions::usage().
#include "tools/capture/captureoptions.h"
#include "tools/capture/udpcapture.h"
#include "tools/common/stopsignal.h"

#include <cstdio>
#include <string>

namespace {

using namespace vxrec;

// Records the port into the file as `options` say; the exit status.
int record(const CaptureOptions& options)
{
    // A signal ends the wait for data at once.
    vxcommon::StopSignal::install();
    UdpCapture capture(options);
    if (!capture.open()) {
        std::fprintf(stderr, "vxscanner-capture: error: %s\n", capture.error().c_str());
        return 1;
    }
    std::printf("vxscanner-capture: listening on UDP port %d, writing %s (Ctrl+C stops)\n",
                capture.localPort(), options.out.c_str());
    std::fflush(stdout);

    const UdpCapture::StopReason reason = capture.run(vxcommon::StopSignal::requested());
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

} // namespace

int main(int argc, char** argv)
{
    return vxcommon::CommandLine::run(argc, argv, "vxscanner-capture",
                                      "(see vxscanner-capture --help)", record);
}
