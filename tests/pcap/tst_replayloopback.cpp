// The tools as programs over loopback UDP: their errors and exit codes; the
// foreign real-world capture replayed into the viewer's receiver (counted as
// malformed, nothing delivered, the receiver keeps running); the round trip
// simulator -> vxscanner-capture -> vxscanner-replay -> receiver delivering
// every line intact; and the Wireshark dissector decoding those captures.
#include "capturebuilder.h"
#include "check.h"
#include "childprocess.h"

#include "scanner/vxlinedatastream.h"
#include "scanner/wireencoder.h"
#include "tools/pcapio/datagramextractor.h"
#include "tools/pcapio/pcapwriter.h"

#include <arpa/inet.h>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <map>
#include <mutex>
#include <netinet/in.h>
#include <sstream>
#include <string>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace {

using Bytes = std::vector<uint8_t>;
using Message = std::vector<char>;

std::string dir;

std::string tempPath(const std::string& name)
{
    return dir + "/" + name;
}

bool exists(const std::string& path)
{
    struct stat st;
    return stat(path.c_str(), &st) == 0;
}

void sleepMs(int ms)
{
    const timespec t{ms / 1000, (ms % 1000) * 1000000L};
    nanosleep(&t, nullptr);
}

// A UDP port that is free right now (bound and released).
int freePort()
{
    const int fd = socket(AF_INET, SOCK_DGRAM, 0);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    bind(fd, reinterpret_cast<sockaddr*>(&a), sizeof a);
    socklen_t len = sizeof a;
    getsockname(fd, reinterpret_cast<sockaddr*>(&a), &len);
    close(fd);
    return ntohs(a.sin_port);
}

// The viewer's receiver, keeping a copy of every raw-line message.
class Receiver : public VxLinedataStream
{
public:
    void OnRAWData(const strmsocket::VxStreamDeviceInfo&, const char* packet,
                   const strmsocket::LineRawInfo&, const char*, const char*, int,
                   int length) override
    {
        std::lock_guard<std::mutex> lock(mutex);
        lines.emplace_back(packet, packet + length);
    }
    std::vector<Message> received()
    {
        std::lock_guard<std::mutex> lock(mutex);
        return lines;
    }
    // Waits until `datagrams` have arrived and nothing more came for a while.
    void settle(uint64_t datagrams, int timeoutMs)
    {
        uint64_t last = 0;
        for (int waited = 0, quiet = 0; waited < timeoutMs && quiet < 300; waited += 20) {
            const uint64_t now = counters().datagrams;
            quiet = now == last && now >= datagrams ? quiet + 20 : 0;
            last = now;
            sleepMs(20);
        }
    }

private:
    std::mutex mutex;
    std::vector<Message> lines;
};

// The raw-line messages of a capture file, reassembled from their
// datagrams in order (the simulator sends fragments in order).
std::vector<Message> rawLinesIn(const std::string& path, uint16_t port, int* fileHeaders)
{
    vxrec::DatagramExtractor x({port, -1});
    std::vector<Message> out;
    if (!x.open(path))
        return out;
    std::map<uint32_t, Message> partial;
    vxrec::UdpDatagram d;
    while (x.next(d) == vxrec::DatagramExtractor::Status::Datagram) {
        if (d.length < 16)
            continue;
        uint32_t h[4];
        std::memcpy(h, d.data, 16);
        Message& m = partial[h[1]];
        m.resize(h[2]);
        if (h[3] + d.length - 16 <= m.size())
            std::memcpy(m.data() + h[3], d.data + 16, d.length - 16);
        if (h[3] + d.length - 16 == h[2]) {
            uint32_t kind = 0;
            std::memcpy(&kind, m.data(), 4);
            if (kind == 1)
                out.push_back(m);
            else if (kind == 2 && fileHeaders)
                ++*fileHeaders;
            partial.erase(h[1]);
        }
    }
    return out;
}

bool contains(const std::string& text, const std::string& part)
{
    return text.find(part) != std::string::npos;
}

void commandLineErrors()
{
    // A truncated capture: what comes before the damage is still sent.
    CaptureBuilder b(CaptureBuilder::Format::Pcap, false, true, 101);
    for (int i = 0; i < 4; ++i)
        b.add(1000000000LL * (1 + i) / 100,
              CaptureBuilder::ipv4(1, 2, 17, CaptureBuilder::udp(1, 6101, Bytes(40, 1))));
    Bytes cut = b.bytes();
    cut.resize(cut.size() - 10);
    const std::string truncated = tempPath("truncated.pcap");
    std::FILE* f = std::fopen(truncated.c_str(), "wb");
    std::fwrite(cut.data(), 1, cut.size(), f);
    std::fclose(f);
    const std::string text = tempPath("text.pcap");
    f = std::fopen(text.c_str(), "wb");
    std::fputs("not a capture, only some words of text in a file\n", f);
    std::fclose(f);

    const int busy = socket(AF_INET, SOCK_DGRAM, 0);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    bind(busy, reinterpret_cast<sockaddr*>(&a), sizeof a);
    socklen_t len = sizeof a;
    getsockname(busy, reinterpret_cast<sockaddr*>(&a), &len);
    const std::string busyPort = std::to_string(ntohs(a.sin_port));
    const std::string sink = std::to_string(ntohs(a.sin_port)); // datagrams land on `busy`

    struct Row
    {
        const char* name;
        std::vector<std::string> argv;
        int code;
        const char* message; // in stdout or stderr
    };
    const std::string R = VX_REPLAY_BINARY, C = VX_CAPTURE_BINARY;
    const std::vector<Row> rows = {
        {"replay help", {R, "--help"}, 0, "Usage: vxscanner-replay"},
        {"replay no file", {R}, 2, "no capture file"},
        {"replay unknown option", {R, "--bogus", "x"}, 2, "unknown option --bogus"},
        {"replay bad speed", {R, "--speed", "0", "x"}, 2, "--speed"},
        {"replay bad port", {R, "--port=70000", "x"}, 2, "--port"},
        {"replay missing value", {R, "x", "--start"}, 2, "--start needs a value"},
        {"replay missing file", {R, tempPath("nope.pcap")}, 1, "No such file"},
        {"replay not a capture", {R, text}, 1, "error"},
        {"replay no matching",
         {R, "--port", "6102", truncated},
         1,
         "no UDP datagram to UDP port 6102"},
        {"replay truncated", {R, "--fast", "--to-port", sink, truncated}, 1, "damaged"},
        {"capture help", {C, "--help"}, 0, "Usage: vxscanner-capture"},
        {"capture no port", {C, "--out", tempPath("x.pcap")}, 2, "--port is required"},
        {"capture no out", {C, "--port", "0"}, 2, "--out is required"},
        {"capture bad count", {C, "--port", "0", "--out", "x", "--count", "-1"}, 2, "--count"},
        {"capture busy port",
         {C, "--port", busyPort, "--out", tempPath("x.pcap")},
         1,
         "cannot bind"},
        {"capture bad dir",
         {C, "--port", "0", "--out", tempPath("no/such/dir.pcap")},
         1,
         "cannot create"},
    };
    for (const Row& row : rows) {
        check::row() = row.name;
        std::string out, err;
        CHECK_EQ(ChildProcess::run(row.argv, 10000, &out, &err), row.code);
        if (!CHECK(contains(out + err, row.message)))
            std::fprintf(stderr, "  output: %s%s\n", out.c_str(), err.c_str());
    }
    // The three datagrams before the damage were sent.
    check::row() = "truncated sends what it read";
    int n = 0;
    char buf[100];
    while (recv(busy, buf, sizeof buf, MSG_DONTWAIT) > 0)
        ++n;
    CHECK_EQ(n, 3);
    close(busy);
}

void foreignCapture()
{
    check::row() = "foreign capture";
    const std::string path = std::string(VX_SHARED_CAPTURES) + "/foreign-udp-tcp-mixed.pcapng";
    if (!exists(path)) {
        std::fprintf(stderr, "SKIP foreign capture: %s is absent\n", path.c_str());
        return;
    }
    Receiver receiver;
    if (!CHECK(receiver.Connect(0, "127.0.0.1")))
        return;
    const std::string port = std::to_string(receiver.LocalPort());
    std::string out, err;
    // 21.8 s of capture in about half a second.
    CHECK_EQ(ChildProcess::run({VX_REPLAY_BINARY, "--port", "5010", "--to-port", port, "--speed",
                                "40", "--quiet", path},
                               20000, &out, &err),
             0);
    CHECK(contains(out, "sent 656 datagrams"));
    CHECK(contains(out, "1797 non-UDP"));
    receiver.settle(656, 5000);
    const strmsocket::StreamCounters c = receiver.counters();
    CHECK_EQ(c.datagrams, 656u);
    CHECK_EQ(c.malformedDatagrams, 656u);
    CHECK_EQ(c.rawLines, 0u);
    CHECK_EQ(c.messages, 0u);
    CHECK(receiver.received().empty());
    CHECK(receiver.IsConnected());
    receiver.Disconnect(true);
}

// tshark's decoding of a capture: one line per frame, fields separated by
// '|'. Empty when tshark is missing.
std::vector<std::string> tshark(const std::string& file, const std::vector<std::string>& fields,
                                const std::string& decodeAs = {})
{
    std::vector<std::string> argv = {"/usr/bin/tshark",
                                     "-n",
                                     "-X",
                                     std::string("lua_script:") + VX_DISSECTOR,
                                     "-r",
                                     file,
                                     "-T",
                                     "fields",
                                     "-E",
                                     "separator=|",
                                     "-E",
                                     "occurrence=a",
                                     "-E",
                                     "aggregator=,"};
    if (!decodeAs.empty()) {
        argv.push_back("-d");
        argv.push_back(decodeAs);
    }
    for (const std::string& f : fields) {
        argv.push_back("-e");
        argv.push_back(f);
    }
    std::string out, err;
    const int code = ChildProcess::run(argv, 60000, &out, &err, {"HOME=" + dir});
    std::vector<std::string> lines;
    if (!CHECK_EQ(code, 0) || contains(err, "Lua Error")) {
        std::fprintf(stderr, "  tshark: %s\n", err.c_str());
        return lines;
    }
    std::istringstream in(out);
    for (std::string l; std::getline(in, l);)
        lines.push_back(l);
    return lines;
}

bool haveTshark()
{
    return exists("/usr/bin/tshark");
}

// Messages of every kind written straight to a pcap on port 6101: the
// dissector finds it without Decode As and decodes each field.
void dissectorFields()
{
    check::row() = "dissector fields";
    if (!haveTshark()) {
        std::fprintf(stderr, "SKIP dissector: tshark is not installed\n");
        return;
    }
    using strmsocket::WireEncoder;
    std::vector<Message> messages;
    WireEncoder::RawLine h;
    h.series = 77;
    h.device = 2;
    h.protocol = 1;
    h.subProtocol = 1;
    h.datatyp = 3;
    h.layoutFlag = 1;
    h.lineheadersize = 16;
    h.bpp = 5;
    h.pixel = 10;
    const Message line(16 + 50, 'x');
    messages.push_back(WireEncoder::rawLine(h, line.data(), line.size()));
    h.subProtocol = 3;
    h.mode = 4;
    h.datatyp = 1234;
    h.bpp = 8;
    h.pixel = 6;
    h.lineheadersize = 0;
    h.factor = 9;
    messages.push_back(WireEncoder::rawLine(h, line.data(), 48));
    messages.push_back(WireEncoder::fileHeader(5, "left head", {{100, -30.0}, {331, 1.25}}));
    vxrec::PcapWriter w;
    const std::string path = tempPath("fields.pcap");
    CHECK(w.open(path));
    uint32_t number = 1;
    for (const Message& m : messages) {
        const auto d = WireEncoder::fragment(number++, m.data(), m.size())[0];
        w.write(1000000000LL * number, 0x7f000001, 40000, 0x7f000001, 6101,
                reinterpret_cast<const uint8_t*>(d.data()), d.size());
    }
    // A fragment of a larger message and a foreign datagram on the port.
    const Message big(100000, 'b');
    const auto frags = WireEncoder::fragment(number, big.data(), big.size());
    w.write(9000000000LL, 0x7f000001, 40000, 0x7f000001, 6101,
            reinterpret_cast<const uint8_t*>(frags[1].data()), frags[1].size());
    const char junk[20] = "not our framing....";
    w.write(9100000000LL, 0x7f000001, 40000, 0x7f000001, 6101,
            reinterpret_cast<const uint8_t*>(junk), sizeof junk);
    w.close();
    const auto lines =
        tshark(path, {"vxlindral.magic",   "vxlindral.message",        "vxlindral.length",
                      "vxlindral.offset",  "vxlindral.kind",           "vxlindral.series",
                      "vxlindral.version", "vxlindral.device",         "vxlindral.word0",
                      "vxlindral.word1",   "vxlindral.datatyp",        "vxlindral.layout_flag",
                      "vxlindral.mode",    "vxlindral.lineheadersize", "vxlindral.bpp",
                      "vxlindral.pixels",  "vxlindral.factor",         "vxlindral.name",
                      "vxlindral.key",     "vxlindral.value",          "vxlindral.fragment"});
    const std::vector<std::string> expected = {
        "0x46535856|1|158|0|1|77|1.1|2|3|1|3|1||16|5|10|||||", // 92 + 16 + 50
        "0x46535856|2|176|0|1|77|1.3|2|4|0|1234||4|0|8|6|9||||",
        "0x46535856|3|49|0|2|||5||||||||||left head|100,331|-30,1.25|", // 16 + 9 + 2 * 12
        "0x46535856|4|100000|65491|||||||||||||||||1",
        "0x20746f6e|544372079|1835102822|778530409|||||||||||||||||", // "not ", ...
    };
    if (!CHECK_EQ(lines.size(), expected.size()))
        return;
    for (std::size_t i = 0; i < expected.size(); ++i)
        if (!CHECK(lines[i] == expected[i]))
            std::fprintf(stderr, "  got      %s\n  expected %s\n", lines[i].c_str(),
                         expected[i].c_str());
}

// simulator -> vxscanner-capture -> vxscanner-replay -> receiver, per row,
// then the dissector on the simulator's capture.
void roundTrip()
{
#ifndef VX_SIM_BINARY
    std::fprintf(stderr, "SKIP round trip: the simulator is not built\n");
#else
    struct Row
    {
        const char* name;
        std::vector<std::string> simArgs;
        int pixels;
        std::size_t fragmentsPerLine;
    };
    const Row rows[] = {
        {"1.1 short, one datagram per line", {"--protocol", "1.1", "--layout", "short"}, 500, 1},
        {"1.3, lines in 3 fragments", {"--protocol", "1.3"}, 20000, 3},
    };
    const int count = 60;
    for (const Row& row : rows) {
        check::row() = std::string("round trip ") + row.name;
        const std::string capturePort = std::to_string(freePort());
        const std::string file = tempPath("roundtrip.pcap");
        ChildProcess capture;
        CHECK(capture.start({VX_CAPTURE_BINARY, "--port", capturePort, "--out", file}));
        if (!CHECK(capture.waitForOutput("listening", 5000)))
            continue;
        std::vector<std::string> sim = {VX_SIM_BINARY,
                                        "--port",
                                        capturePort,
                                        "--rate",
                                        "300",
                                        "--count",
                                        std::to_string(count),
                                        "--pixels",
                                        std::to_string(row.pixels)};
        sim.insert(sim.end(), row.simArgs.begin(), row.simArgs.end());
        CHECK_EQ(ChildProcess::run(sim, 20000), 0);
        sleepMs(200);
        // Ctrl+C: everything received is in the file.
        capture.signal(SIGINT);
        CHECK_EQ(capture.wait(5000), 0);
        CHECK(contains(capture.output(), "stopped"));

        int fileHeaders = 0;
        const std::vector<Message> captured =
            rawLinesIn(file, uint16_t(std::stoi(capturePort)), &fileHeaders);
        CHECK_EQ(captured.size(), std::size_t(count));
        CHECK(fileHeaders >= 1);

        Receiver receiver;
        if (!CHECK(receiver.Connect(0, "127.0.0.1")))
            continue;
        std::string out, err;
        CHECK_EQ(ChildProcess::run({VX_REPLAY_BINARY, "--port", capturePort, "--to-port",
                                    std::to_string(receiver.LocalPort()), "--speed", "2", "--quiet",
                                    file},
                                   20000, &out, &err),
                 0);
        receiver.settle(1, 3000);
        const std::vector<Message> got = receiver.received();
        CHECK_EQ(got.size(), captured.size());
        CHECK(got == captured);
        const strmsocket::StreamCounters c = receiver.counters();
        CHECK_EQ(c.malformedDatagrams, 0u);
        CHECK_EQ(c.incompleteMessages, 0u);
        CHECK_EQ(c.rawLines, std::size_t(count));
        receiver.Disconnect(true);

        if (!haveTshark())
            continue;
        // Decode As for the capture's port: raw lines in one datagram show
        // their fields, larger ones their fragments.
        const auto lines = tshark(
            file, {"vxlindral.kind", "vxlindral.pixels", "vxlindral.fragment", "vxlindral.name"},
            "udp.port==" + capturePort + ",vxlindral");
        std::size_t rawLines = 0, fragments = 0, headers = 0;
        for (const std::string& l : lines) {
            rawLines += l.rfind("1|" + std::to_string(row.pixels) + "||", 0) == 0;
            fragments += l == "||1|";
            headers += l == "2|||vxscanner-sim";
        }
        if (row.fragmentsPerLine == 1)
            CHECK_EQ(rawLines, std::size_t(count));
        else
            CHECK_EQ(fragments, count * row.fragmentsPerLine);
        CHECK_EQ(headers, std::size_t(fileHeaders));
    }
#endif
}

} // namespace

int main()
{
    signal(SIGPIPE, SIG_IGN);
    char t[] = "/tmp/tst_replayloopback.XXXXXX";
    dir = mkdtemp(t);
    commandLineErrors();
    foreignCapture();
    dissectorFields();
    roundTrip();
    const int result = check::result("tst_replayloopback");
    std::system(("rm -rf '" + dir + "'").c_str());
    return result;
}
