// The Wireshark dissector, run through tshark on pcap files written with
// PcapWriter: messages of every kind on port 6101 decode field by field
// without Decode As, and the simulator's stream on another port, through
// Decode As, shows its raw lines and file headers. Without tshark the test
// is skipped.
#include "scanner/wireencoder.h"
#include "tests/check.h"
#include "tests/tools/toolrun.h"
#include "capture/pcapwriter.h"
#include "tools/sim/linecomposer.h"

#include <fstream>
#include <unistd.h>

namespace {

using Message = std::vector<char>;
using strmsocket::WireEncoder;

// tshark's decoding of a capture with the dissector (`options` add -d and
// the -e fields): a line per frame, fields separated by '|'.
std::string tshark(const std::string& file, const std::string& options)
{
    std::string out;
    const std::string errors = vxtest::tempPath("tshark.err");
    const int code =
        ToolRun::run("tshark -n -X lua_script:" VX_DISSECTOR " -r " + file +
                         " -T fields -E 'separator=|' -E occurrence=a -E aggregator=, " + options,
                     &out, " 2>" + errors);
    std::ifstream f(errors);
    const std::string err(std::istreambuf_iterator<char>(f), {});
    if (!CHECK_EQ(code, 0) || !CHECK(!ToolRun::says(err, "Lua Error")))
        std::fprintf(stderr, "  tshark: %s\n", err.c_str());
    return out;
}

// Writes `datagrams` to a pcap file as sent from 127.0.0.1:40000 to `port`.
std::string save(const std::string& name, const std::vector<Message>& datagrams, uint16_t port)
{
    vxrec::PcapWriter w;
    const std::string path = vxtest::tempPath(name);
    CHECK(w.open(path));
    for (const Message& d : datagrams)
        w.write(1000000000LL, 0x7f000001, 40000, 0x7f000001, port,
                reinterpret_cast<const uint8_t*>(d.data()), d.size());
    CHECK(w.close());
    return path;
}

// Messages of every kind on port 6101: the dissector finds them without
// Decode As and decodes each field.
void fields()
{
    vxtest::row = "dissector fields";
    // series, protocol, sub-protocol, device, datatyp, mode, layout flag,
    // line header size, bpp, pixels, extra 1 and 2, factor
    const WireEncoder::RawLine h11{77, 1, 1, 2, 3, 0, 1, 16, 5, 10};
    const WireEncoder::RawLine h13{77, 1, 3, 2, 1234, 4, 1, 0, 8, 6, 0, 0, 9};
    const Message line(16 + 50, 'x'), big(100000, 'b');
    const Message messages[] = {
        WireEncoder::rawLine(h11, line.data(), line.size()),
        WireEncoder::rawLine(h13, line.data(), 48),
        WireEncoder::fileHeader(5, "left head", {{100, -30.0}, {331, 1.25}}), big};
    // The first datagram of each message, the second of the large one too,
    // then a foreign datagram on the port.
    std::vector<Message> datagrams;
    for (uint32_t i = 0; i < 4; ++i)
        datagrams.push_back(
            WireEncoder::fragment(i + 1, messages[i].data(), messages[i].size())[0]);
    datagrams.push_back(WireEncoder::fragment(4, big.data(), big.size())[1]);
    const char junk[] = "not our framing....";
    datagrams.emplace_back(junk, junk + sizeof junk);
    std::string fields;
    for (const char* f :
         {"magic",  "message", "length", "offset",  "kind",        "series", "version",
          "device", "word0",   "word1",  "datatyp", "layout_flag", "mode",   "lineheadersize",
          "bpp",    "pixels",  "factor", "name",    "key",         "value",  "fragment"})
        fields += std::string(" -e vxlindral.") + f;
    const std::string expected =
        "0x46535856|1|158|0|1|77|1.1|2|3|1|3|1||16|5|10|||||\n" // 92 + 16 + 50
        "0x46535856|2|176|0|1|77|1.3|2|4|0|1234||4|0|8|6|9||||\n"
        "0x46535856|3|49|0|2|||5||||||||||left head|100,331|-30,1.25|\n" // 16 + 9 + 2 * 12
        "0x46535856|4|100000|0|||||||||||||||||1\n"
        "0x46535856|4|100000|65491|||||||||||||||||1\n"
        "0x20746f6e|544372079|1835102822|778530409|||||||||||||||||\n"; // "not ", ...
    CHECK_EQ(tshark(save("fields.pcap", datagrams, 6101), fields), expected);
}

// The simulator's messages as it sends them (a file header, lines, another
// file header, more lines), on port 7000 through Decode As.
void simulatorStream()
{
    vxtest::row = "simulator stream";
    vxsim::SimOptions options;
    options.subProtocol = 1;
    options.pixels = 500;
    vxsim::LineComposer composer(options);
    std::vector<Message> datagrams;
    std::string expected;
    const auto send = [&](const Message& m, const char* decoded) {
        datagrams.push_back(
            WireEncoder::fragment(uint32_t(datagrams.size()), m.data(), m.size())[0]);
        expected += decoded;
    };
    for (uint32_t k = 0; k < 60; ++k) {
        if (k % 30 == 0)
            send(composer.fileHeader(), "2||vxscanner-sim\n");
        send(composer.compose(k), "1|500|\n");
    }
    CHECK_EQ(tshark(save("simulator.pcap", datagrams, 7000),
                    "-d udp.port==7000,vxlindral -e vxlindral.kind -e vxlindral.pixels "
                    "-e vxlindral.name"),
             expected);
}

} // namespace

int main()
{
    if (access("/usr/bin/tshark", X_OK) != 0) {
        std::fprintf(stderr, "SKIP tst_dissector: tshark is not installed\n");
        return 77;
    }
    setenv("HOME", vxtest::tempPath("").c_str(), 1); // tshark keeps its profile there
    fields();
    simulatorStream();
    return vxtest::result("tst_dissector");
}
