#include "tools/capture/captureoptions.h"

#include "capture/pcapwriter.h"

namespace vxrec {

using vxcommon::CommandLine;

const char* CaptureOptions::usage()
{
    return "Usage: vxscanner-capture --port P --out FILE [--count N] [--duration S]\n"
           "                         [--max-bytes B] [--bind ADDR]\n"
           "Receives the UDP datagrams sent to port P (no capture privileges needed)\n"
           "and writes them to a pcap file that Wireshark and vxscanner-replay read,\n"
           "with IPv4/UDP headers carrying the real sender and ports.\n"
           "\n"
           "  --port P        UDP port to receive on (0: any free port, printed)\n"
           "  --out FILE      pcap file to write (replaced if it exists)\n"
           "  --count N       stop after N datagrams\n"
           "  --duration S    stop after S seconds\n"
           "  --max-bytes B   stop before the file would grow beyond B bytes\n"
           "  --bind ADDR     receive on this local IPv4 address only\n"
           "  --help          show this text\n"
           "\n"
           "Ctrl+C stops the capture; every datagram received is in the file.\n"
           "Exit status: 0 when done, 1 on a socket or file error, 2 on bad options.\n";
}

CaptureOptions::Outcome CaptureOptions::parse(int argc, const char* const* argv,
                                              CaptureOptions& out, std::string& error)
{
    CommandLine cl(argc, argv);
    const auto read = [&](const std::string& arg) {
        if (arg == "--help" || arg == "-h")
            return Outcome::Help;
        return out.read(cl, arg) ? Outcome::Run : Outcome::Error;
    };
    const auto complete = [&] {
        if (out.port < 0)
            return cl.fail("--port is required");
        return !out.out.empty() || cl.fail("--out is required");
    };
    return cl.walk(read, complete, error);
}

bool CaptureOptions::read(CommandLine& cl, const std::string& name)
{
    if (name == "--port")
        return cl.integer(0, 65535, port);
    if (name == "--out")
        return cl.value(out);
    if (name == "--bind")
        return cl.value(bind);
    if (name == "--count")
        return cl.integer(1, INT64_MAX, count);
    if (name == "--duration")
        return cl.number(1e-3, 1e9, duration);
    // At least the file header and one empty datagram.
    if (name == "--max-bytes")
        return cl.integer(PcapWriter::kFileHeader + PcapWriter::recordBytes(0), INT64_MAX,
                          maxBytes);
    return cl.fail(name.rfind("-", 0) == 0 ? "unknown option " + name
                                           : "unexpected argument " + name);
}

} // namespace vxrec
