// The tools as programs over loopback UDP: their errors and exit codes; the
// foreign real-world capture replayed into the viewer's receiver (counted as
// malformed, nothing delivered, the receiver keeps running); the round trip
// simulator -> vxscanner-capture -> vxscanner-replay -> receiver delivering
// every line intact; and the Wireshark dissector decoding those captures.
#include "capturebuilder.h"
#include "check.h"

#include "scanner/vxlinedatastream.h"
#include "scanner/wireencoder.h"
#include "tools/pcapio/datagramextractor.h"
#include "tools/pcapio/pcapwriter.h"

#include <arpa/inet.h>
#include <csignal>
#include <cstring>
#include <fstream>
#include <sstream>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using B = CaptureBuilder;
using Message = std::vector<char>;
const std::string R = VX_REPLAY_BINARY, C = VX_CAPTURE_BINARY;

bool contains(const std::string& text, const std::string& part)
{
    return text.find(part) != std::string::npos;
}

std::string readAll(std::FILE* f)
{
    std::string text;
    for (int c; (c = std::fgetc(f)) != EOF;)
        text += char(c);
    return text;
}

// Runs a shell command line under a time limit; returns the exit code and
// its output (standard error too, unless `errors` sends it elsewhere).
int run(const std::string& command, std::string* out = nullptr, const std::string& errors = " 2>&1")
{
    std::FILE* p = popen(("timeout -s KILL 60 " + command + errors).c_str(), "r");
    const std::string text = readAll(p);
    const int status = pclose(p);
    if (out)
        *out = text;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// The viewer's receiver, keeping a copy of every raw-line message; read
// `lines` after Disconnect (which joins the receive thread).
struct Receiver : VxLinedataStream
{
    std::vector<Message> lines;
    void OnRAWData(const strmsocket::VxStreamDeviceInfo&, const char* packet,
                   const strmsocket::LineRawInfo&, const char*, const char*, int,
                   int length) override
    {
        lines.emplace_back(packet, packet + length);
    }
    // Waits for `datagrams` (5 s at most), then 300 ms for any more.
    void settle(uint64_t datagrams)
    {
        for (int i = 0; i < 250 && counters().datagrams < datagrams; ++i)
            usleep(20000);
        usleep(300000);
    }
};

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

void commandLineErrors()
{
    // A truncated capture: what comes before the damage is still sent.
    B b(B::Format::Pcap, false, true, 101);
    for (int i = 0; i < 4; ++i)
        b.add(10000000LL * (1 + i), B::ipv4(B::udp(6101, B::Bytes(40, 1))));
    const std::string cut = check::tempPath("truncated.pcap"), x = check::tempPath("x.pcap");
    B::save(cut, B::Bytes(b.bytes().begin(), b.bytes().end() - 10));
    const std::string text = "not a capture, only some words of text in a file\n";
    B::save(check::tempPath("text.pcap"), B::Bytes(text.begin(), text.end()));
    // A bound socket: its port is busy, and the truncated replay lands there.
    const int busy = socket(AF_INET, SOCK_DGRAM, 0);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    socklen_t len = sizeof a;
    bind(busy, reinterpret_cast<sockaddr*>(&a), sizeof a);
    getsockname(busy, reinterpret_cast<sockaddr*>(&a), &len);
    const std::string busyPort = std::to_string(ntohs(a.sin_port));

    struct Row
    {
        const char* name;
        std::string command;
        int code;
        const char* message; // in stdout or stderr
    };
    const Row rows[] = {
        {"replay help", R + " --help", 0, "Usage: vxscanner-replay"},
        {"replay no file", R, 2, "no capture file"},
        {"replay unknown option", R + " --bogus x", 2, "unknown option --bogus"},
        {"replay bad speed", R + " --speed 0 x", 2, "--speed"},
        {"replay bad port", R + " --port=70000 x", 2, "--port"},
        {"replay missing value", R + " x --start", 2, "--start needs a value"},
        {"replay missing file", R + " " + check::tempPath("nope.pcap"), 1, "No such file"},
        {"replay not a capture", R + " " + check::tempPath("text.pcap"), 1, "error"},
        {"replay no matching", R + " --port 6102 " + cut, 1, "no UDP datagram to UDP port 6102"},
        {"replay truncated", R + " --fast --to-port " + busyPort + " " + cut, 1, "damaged"},
        {"capture help", C + " --help", 0, "Usage: vxscanner-capture"},
        {"capture no port", C + " --out " + x, 2, "--port is required"},
        {"capture no out", C + " --port 0", 2, "--out is required"},
        {"capture bad count", C + " --port 0 --out x --count -1", 2, "--count"},
        {"capture busy port", C + " --port " + busyPort + " --out " + x, 1, "cannot bind"},
        {"capture bad dir", C + " --port 0 --out " + x + "/no/dir.pcap", 1, "cannot create"},
    };
    for (const Row& row : rows) {
        check::row = row.name;
        std::string out;
        CHECK_EQ(run(row.command, &out), row.code);
        if (!CHECK(contains(out, row.message)))
            std::fprintf(stderr, "  output: %s\n", out.c_str());
    }
    check::row = "truncated sends what it read";
    int n = 0;
    char buf[100];
    while (recv(busy, buf, sizeof buf, MSG_DONTWAIT) > 0)
        ++n;
    CHECK_EQ(n, 3);
    close(busy);
}

void foreignCapture()
{
    check::row = "foreign capture";
    const std::string path = std::string(VX_SHARED_CAPTURES) + "/foreign-udp-tcp-mixed.pcapng";
    if (access(path.c_str(), R_OK) != 0) {
        std::fprintf(stderr, "SKIP foreign capture: %s is absent\n", path.c_str());
        return;
    }
    Receiver receiver;
    if (!CHECK(receiver.Connect(0, "127.0.0.1")))
        return;
    std::string out;
    // 21.8 s of capture in about half a second.
    CHECK_EQ(run(R + " --port 5010 --speed 40 --quiet --to-port " +
                     std::to_string(receiver.LocalPort()) + " " + path,
                 &out),
             0);
    CHECK(contains(out, "sent 656 datagrams") && contains(out, "1797 non-UDP"));
    receiver.settle(656);
    const strmsocket::StreamCounters c = receiver.counters();
    CHECK_EQ(c.datagrams, 656u);
    CHECK_EQ(c.malformedDatagrams, 656u);
    CHECK_EQ(c.rawLines + c.messages, 0u);
    CHECK(receiver.IsConnected());
    receiver.Disconnect(true);
    CHECK(receiver.lines.empty());
}

// tshark's decoding of a capture with the dissector (`options` add -d and
// the -e fields): one line per frame, fields separated by '|'.
std::vector<std::string> tshark(const std::string& file, const std::string& options)
{
    std::string out;
    const std::string errors = check::tempPath("tshark.err");
    const int code =
        run("tshark -n -X lua_script:" VX_DISSECTOR " -r " + file +
                " -T fields -E 'separator=|' -E occurrence=a -E aggregator=, " + options,
            &out, " 2>" + errors);
    std::ifstream f(errors);
    const std::string err(std::istreambuf_iterator<char>(f), {});
    std::vector<std::string> lines;
    if (!CHECK_EQ(code, 0) || !CHECK(!contains(err, "Lua Error")))
        std::fprintf(stderr, "  tshark: %s\n", err.c_str());
    std::istringstream in(out);
    for (std::string l; std::getline(in, l);)
        lines.push_back(l);
    return lines;
}

// Messages of every kind written straight to a pcap on port 6101: the
// dissector finds it without Decode As and decodes each field.
void dissectorFields()
{
    check::row = "dissector fields";
    using strmsocket::WireEncoder;
    // series, protocol, sub-protocol, device, datatyp, mode, layout flag,
    // line header size, bpp, pixels, extra 1 and 2, factor
    const WireEncoder::RawLine h11{77, 1, 1, 2, 3, 0, 1, 16, 5, 10};
    const WireEncoder::RawLine h13{77, 1, 3, 2, 1234, 4, 1, 0, 8, 6, 0, 0, 9};
    const Message line(16 + 50, 'x'), big(100000, 'b');
    const Message messages[] = {
        WireEncoder::rawLine(h11, line.data(), line.size()),
        WireEncoder::rawLine(h13, line.data(), 48),
        WireEncoder::fileHeader(5, "left head", {{100, -30.0}, {331, 1.25}}), big};
    // The first datagram of each message but the second of the large one,
    // then a foreign datagram on the port.
    std::vector<Message> datagrams;
    for (uint32_t i = 0; i < 4; ++i)
        datagrams.push_back(
            WireEncoder::fragment(i + 1, messages[i].data(), messages[i].size())[i == 3]);
    const char junk[] = "not our framing....";
    datagrams.emplace_back(junk, junk + sizeof junk);
    vxrec::PcapWriter w;
    const std::string path = check::tempPath("fields.pcap");
    CHECK(w.open(path));
    for (const Message& d : datagrams)
        w.write(1000000000LL, 0x7f000001, 40000, 0x7f000001, 6101,
                reinterpret_cast<const uint8_t*>(d.data()), d.size());
    w.close();
    std::string fields;
    for (const char* f :
         {"magic",  "message", "length", "offset",  "kind",        "series", "version",
          "device", "word0",   "word1",  "datatyp", "layout_flag", "mode",   "lineheadersize",
          "bpp",    "pixels",  "factor", "name",    "key",         "value",  "fragment"})
        fields += std::string(" -e vxlindral.") + f;
    const std::vector<std::string> expected = {
        "0x46535856|1|158|0|1|77|1.1|2|3|1|3|1||16|5|10|||||", // 92 + 16 + 50
        "0x46535856|2|176|0|1|77|1.3|2|4|0|1234||4|0|8|6|9||||",
        "0x46535856|3|49|0|2|||5||||||||||left head|100,331|-30,1.25|", // 16 + 9 + 2 * 12
        "0x46535856|4|100000|65491|||||||||||||||||1",
        "0x20746f6e|544372079|1835102822|778530409|||||||||||||||||", // "not ", ...
    };
    const auto lines = tshark(path, fields);
    for (std::size_t i = 0; i < expected.size(); ++i)
        CHECK_EQ(i < lines.size() ? lines[i] : "(none)", expected[i]);
    CHECK_EQ(lines.size(), expected.size());
}

#ifdef VX_SIM_BINARY
// simulator -> vxscanner-capture -> vxscanner-replay -> receiver, per row,
// then the dissector on the simulator's capture.
void roundTrip(bool dissector)
{
    const int count = 60;
    const struct
    {
        const char* name;
        std::string simArgs;
        int pixels;
        std::size_t fragmentsPerLine;
    } rows[] = {
        {"1.1 short, one datagram per line", "--protocol 1.1 --layout short --pixels 500", 500, 1},
        {"1.3, lines in 3 fragments", "--protocol 1.3 --pixels 20000", 20000, 3},
    };
    for (const auto& row : rows) {
        check::row = std::string("round trip ") + row.name;
        const std::string file = check::tempPath("roundtrip.pcap");
        // The shell gives the capture's process id (timeout passes SIGINT on).
        std::FILE* capture =
            popen(("echo $$; exec timeout 30 " + C + " --port 0 --out " + file).c_str(), "r");
        int pid = 0, port = 0;
        std::fscanf(capture, "%d vxscanner-capture: listening on UDP port %d", &pid, &port);
        if (!CHECK(port > 0)) {
            pclose(capture);
            continue;
        }
        CHECK_EQ(run(VX_SIM_BINARY " --rate 300 --count " + std::to_string(count) + " --port " +
                     std::to_string(port) + " " + row.simArgs),
                 0);
        usleep(200000);
        // Ctrl+C: everything received is in the file.
        kill(pid, SIGINT);
        CHECK(contains(readAll(capture), "stopped"));
        CHECK_EQ(pclose(capture), 0);

        int fileHeaders = 0;
        const std::vector<Message> captured = rawLinesIn(file, uint16_t(port), fileHeaders);
        CHECK_EQ(captured.size(), std::size_t(count));
        CHECK(fileHeaders >= 1);

        Receiver receiver;
        if (!CHECK(receiver.Connect(0, "127.0.0.1")))
            continue;
        CHECK_EQ(run(R + " --speed 2 --quiet --port " + std::to_string(port) + " --to-port " +
                     std::to_string(receiver.LocalPort()) + " " + file),
                 0);
        receiver.settle(count);
        receiver.Disconnect(true);
        CHECK(receiver.lines == captured);
        const strmsocket::StreamCounters c = receiver.counters();
        CHECK_EQ(c.malformedDatagrams + c.incompleteMessages, 0u);
        CHECK_EQ(c.rawLines, std::size_t(count));

        if (!dissector)
            continue;
        // Decode As for the capture's port: raw lines in one datagram show
        // their fields, larger ones their fragments.
        const auto lines = tshark(file, "-d udp.port==" + std::to_string(port) +
                                            ",vxlindral -e vxlindral.kind -e vxlindral.pixels "
                                            "-e vxlindral.fragment -e vxlindral.name");
        std::size_t rawLines = 0, fragments = 0, headers = 0;
        for (const std::string& l : lines) {
            rawLines += l.rfind("1|" + std::to_string(row.pixels) + "||", 0) == 0;
            fragments += l == "||1|";
            headers += l == "2|||vxscanner-sim";
        }
        CHECK_EQ(row.fragmentsPerLine == 1 ? rawLines : fragments, count * row.fragmentsPerLine);
        CHECK_EQ(headers, std::size_t(fileHeaders));
    }
}
#endif

} // namespace

int main()
{
    signal(SIGPIPE, SIG_IGN);
    setenv("HOME", check::tempPath("").c_str(), 1); // tshark keeps its profile there
    commandLineErrors();
    foreignCapture();
    const bool dissector = access("/usr/bin/tshark", X_OK) == 0;
    if (dissector)
        dissectorFields();
    else
        std::fprintf(stderr, "SKIP dissector: tshark is not installed\n");
#ifdef VX_SIM_BINARY
    roundTrip(dissector);
#else
    std::fprintf(stderr, "SKIP round trip: the simulator is not built\n");
#endif
    return check::result("tst_replayloopback");
}
