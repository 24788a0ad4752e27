// vxscanner-replay as a program over loopback UDP: its errors and exit
// codes, a truncated capture sending what comes before the damage, and the
// foreign real-world capture of tests/data replayed into the viewer's
// receiver (counted as malformed, nothing delivered, the receiver keeps
// running).
#include "tests/check.h"
#include "tests/tools/linereceiver.h"
#include "tests/capture/capturebuilder.h"
#include "tests/tools/toolrun.h"

#include <csignal>
#include <sys/socket.h>
#include <unistd.h>

namespace {

using B = CaptureBuilder;
const std::string R = VX_REPLAY_BINARY;

void commandLineErrors()
{
    // A truncated capture: what comes before the damage is still sent.
    B b(false, true, 101);
    for (int i = 0; i < 4; ++i)
        b.add(10000000LL * (1 + i), B::ipv4(B::udp(6101, B::Bytes(40, 1))));
    const std::string cut = vxtest::tempPath("truncated.pcap");
    B::save(cut, B::Bytes(b.bytes().begin(), b.bytes().end() - 10));
    const std::string text = "not a capture, only some words of text in a file\n";
    B::save(vxtest::tempPath("text.pcap"), B::Bytes(text.begin(), text.end()));
    // A bound socket where the truncated replay lands.
    strmsocket::UdpSocket sink;
    const std::string sinkPort = ToolRun::bindFreePort(sink);

    ToolRun::check({
        {"help", R + " --help", 0, "Usage: vxscanner-replay"},
        {"no file", R, 2, "no capture file"},
        {"unknown option", R + " --bogus x", 2, "unknown option --bogus"},
        {"bad speed", R + " --speed 0 x", 2, "--speed"},
        {"bad port", R + " --port=70000 x", 2, "--port"},
        {"missing value", R + " x --start", 2, "--start needs a value"},
        {"missing file", R + " " + vxtest::tempPath("nope.pcap"), 1, "No such file"},
        {"not a capture", R + " " + vxtest::tempPath("text.pcap"), 1, "error"},
        {"no matching", R + " --port 6102 " + cut, 1, "no UDP datagram to UDP port 6102"},
        {"truncated", R + " --fast --to-port " + sinkPort + " " + cut, 1, "damaged"},
    });
    vxtest::row = "truncated sends what it read";
    int n = 0;
    char buf[100];
    while (recv(sink.fd(), buf, sizeof buf, MSG_DONTWAIT) > 0)
        ++n;
    CHECK_EQ(n, 3);
}

void foreignCapture()
{
    vxtest::row = "foreign capture";
    const std::string path = VX_TEST_DATA "/foreign-udp-tcp-mixed.pcapng";
    if (!CHECK(access(path.c_str(), R_OK) == 0))
        return;
    LineReceiver receiver;
    if (!CHECK(receiver.Connect(0, "127.0.0.1")))
        return;
    std::string out;
    // 21.8 s of capture in about half a second.
    CHECK_EQ(ToolRun::run(R + " --port 5010 --speed 40 --quiet --to-port " +
                              std::to_string(receiver.LocalPort()) + " " + path,
                          &out),
             0);
    CHECK(ToolRun::says(out, "sent 656 datagrams") && ToolRun::says(out, "1797 non-UDP"));
    receiver.settle(656);
    const strmsocket::StreamCounters c = receiver.counters();
    CHECK_EQ(c.datagrams, 656u);
    CHECK_EQ(c.malformedDatagrams, 656u);
    CHECK_EQ(c.rawLines + c.messages, 0u);
    CHECK(receiver.IsConnected());
    receiver.Disconnect(true);
    CHECK(receiver.lines.empty());
}

} // namespace

int main()
{
    signal(SIGPIPE, SIG_IGN);
    commandLineErrors();
    foreignCapture();
    return vxtest::result("tst_replayloopback");
}
