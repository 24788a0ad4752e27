// vxscanner-capture as a program over loopback UDP: its errors and exit
// codes, the file it leaves when a limit ends the capture, and the round trip
// simulator -> vxscanner-capture -> vxscanner-replay -> the viewer's
// receiver, which delivers every line intact.
#include "capture/datagramextractor.h"
#include "tests/check.h"
#include "tests/tools/linereceiver.h"
#include "tests/tools/toolrun.h"

#include <csignal>
#include <cstring>
#include <filesystem>
#include <unistd.h>

namespace {

using Message = std::vector<char>;
const std::string C = VX_CAPTURE_BINARY, R = VX_REPLAY_BINARY;

void commandLineErrors()
{
    const std::string x = vxtest::tempPath("x.pcap");
    // A bound socket: its port is busy.
    strmsocket::UdpSocket busy;
    const std::string busyPort = ToolRun::bindFreePort(busy);

    ToolRun::check({
        {"help", C + " --help", 0, "Usage: vxscanner-capture"},
        {"no port", C + " --out " + x, 2, "--port is required"},
        {"no out", C + " --port 0", 2, "--out is required"},
        {"bad count", C + " --port 0 --out x --count -1", 2, "--count"},
        {"busy port", C + " --port " + busyPort + " --out " + x, 1, "cannot bind"},
        {"bad dir", C + " --port 0 --out " + x + "/no/dir.pcap", 1, "cannot create"},
    });
}

// The raw-line messages of a capture file, joined from their datagrams (the
// simulator sends a message's fragments in order, one message after the
// other); counts the file headers.
std::vector<Message> rawLinesIn(const std::string& path, uint16_t port, int& fileHeaders)
{
    vxrec::DatagramExtractor x({port, -1});
    std::vector<Message> out;
    vxrec::UdpDatagram d;
    Message m;
    CHECK(x.open(path));
    while (x.next(d) == vxrec::DatagramExtractor::Status::Datagram && d.length >= 16) {
        uint32_t length; // of the message, behind the magic and its number
        std::memcpy(&length, d.data + 8, 4);
        m.insert(m.end(), d.data + 16, d.data + d.length);
        if (m.size() < length)
            continue;
        const int kind = m.size() >= 4 ? m[0] : 0;
        fileHeaders += kind == 2;
        if (kind == 1)
            out.push_back(m);
        m.clear();
    }
    return out;
}

// Starts vxscanner-capture on a free port writing `out` (the file name and
// any further arguments), behind `prefix`; its output, its process id and
// port, or null when it does not listen.
std::FILE* startCapture(const std::string& prefix, const std::string& out, int& pid, int& port)
{
    // The shell gives the capture's process id (timeout passes SIGINT on).
    // --foreground: otherwise timeout follows the signal with a SIGCONT,
    // which can cancel the stop that the address sanitizer's leak check
    // waits for at exit, and the capture never ends.
    std::FILE* capture = popen(
        ("echo $$; exec " + prefix + "timeout --foreground 30 " + C + " --port 0 --out " + out)
            .c_str(),
        "r");
    std::fscanf(capture, "%d vxscanner-capture: listening on UDP port %d", &pid, &port);
    if (!CHECK(port > 0)) {
        pclose(capture);
        return nullptr;
    }
    return capture;
}

// A limit on the file ends the capture with a file that reads cleanly to its
// end and holds no more than the limit: --max-bytes, the tool's own (exit 0),
// and a file-size limit of the process, a write error (exit 1, the file
// keeps the datagrams written before it).
void fileLimits()
{
    const struct
    {
        const char* name;
        std::string prefix, options;
        uint64_t limit;
        int code;
        const char* says;
    } rows[] = {
        {"--max-bytes", "", "--max-bytes 30000", 30000, 0, "file size limit reached"},
        {"file-size limit", "prlimit --fsize=60000 ", "", 60000, 1,
         "error: write failed: File too large"},
    };
    for (const auto& row : rows) {
        vxtest::row = row.name;
        const std::string file = vxtest::tempPath("limited.pcap");
        int pid = 0, port = 0;
        std::FILE* capture =
            startCapture(row.prefix, file + " " + row.options + " 2>&1", pid, port);
        if (!capture)
            continue;
        // Some 120 kB of lines: past either limit.
        ToolRun::run(VX_SIM_BINARY " --rate 300 --count 60 --protocol 1.1 --layout short "
                                   "--pixels 500 --port " +
                     std::to_string(port));
        const std::string out = ToolRun::readAll(capture);
        const int status = pclose(capture);
        CHECK_EQ(WIFEXITED(status) ? WEXITSTATUS(status) : -1, row.code);
        if (!CHECK(ToolRun::says(out, row.says)))
            std::fprintf(stderr, "  output: %s\n", out.c_str());
        const uint64_t size = std::filesystem::file_size(file);
        CHECK(size > 24 && size <= row.limit);
        CHECK(ToolRun::says(out, "(" + std::to_string(size) + " bytes)"));
        vxrec::DatagramExtractor x({uint16_t(port), -1});
        vxrec::UdpDatagram d;
        vxrec::DatagramExtractor::Status end;
        int n = 0;
        CHECK(x.open(file));
        while ((end = x.next(d)) == vxrec::DatagramExtractor::Status::Datagram)
            ++n;
        CHECK(n > 0 && end == vxrec::DatagramExtractor::Status::End);
    }
}

// The simulator's stream captured, then replayed into the receiver, per row.
void roundTrip()
{
    const int count = 60;
    const struct
    {
        const char* name;
        std::string simArgs;
    } rows[] = {
        {"1.1 short, one datagram per line", "--protocol 1.1 --layout short --pixels 500"},
        {"1.3, lines in 3 fragments", "--protocol 1.3 --pixels 20000"},
    };
    for (const auto& row : rows) {
        vxtest::row = std::string("round trip ") + row.name;
        const std::string file = vxtest::tempPath("roundtrip.pcap");
        int pid = 0, port = 0;
        std::FILE* capture = startCapture("", file, pid, port);
        if (!capture)
            continue;
        CHECK_EQ(ToolRun::run(VX_SIM_BINARY " --rate 300 --count " + std::to_string(count) +
                              " --port " + std::to_string(port) + " " + row.simArgs),
                 0);
        usleep(200000);
        // Ctrl+C: everything received is in the file.
        kill(pid, SIGINT);
        CHECK(ToolRun::says(ToolRun::readAll(capture), "stopped"));
        CHECK_EQ(pclose(capture), 0);

        int fileHeaders = 0;
        const std::vector<Message> captured = rawLinesIn(file, uint16_t(port), fileHeaders);
        CHECK_EQ(captured.size(), std::size_t(count));
        CHECK(fileHeaders >= 1);

        LineReceiver receiver;
        if (!CHECK(receiver.Connect(0, "127.0.0.1")))
            continue;
        CHECK_EQ(ToolRun::run(R + " --speed 2 --quiet --port " + std::to_string(port) +
                              " --to-port " + std::to_string(receiver.LocalPort()) + " " + file),
                 0);
        receiver.settle(count);
        receiver.Disconnect(true);
        CHECK(receiver.lines == captured);
        const strmsocket::StreamCounters c = receiver.counters();
        CHECK_EQ(c.malformedDatagrams + c.incompleteMessages, 0u);
        CHECK_EQ(c.rawLines, std::size_t(count));
    }
}

} // namespace

int main()
{
    signal(SIGPIPE, SIG_IGN);
    commandLineErrors();
    fileLimits();
    roundTrip();
    return vxtest::result("tst_captureloopback");
}
