#include "tools/capture/captureoptions.h"

#include "tools/pcapio/commandline.h"
#include "tools/pcapio/pcapwriter.h"

namespace vxrec {

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

CaptureOptions::Parse CaptureOptions::parse(int argc, char** argv, std::string& error)
{
    CommandLine cl(argc, argv);
    while (!cl.atEnd()) {
        const std::string a = cl.take();
        int64_t i = 0;
        bool ok = true;
        if (a == "--help" || a == "-h") {
            return Parse::Help;
        } else if (a == "--port") {
            ok = cl.integer(0, 65535, i);
            port = static_cast<int>(i);
        } else if (a == "--out") {
            ok = cl.value(out);
        } else if (a == "--bind") {
            ok = cl.value(bind);
        } else if (a == "--count") {
            ok = cl.integer(1, INT64_MAX, i);
            count = static_cast<uint64_t>(i);
        } else if (a == "--duration") {
            ok = cl.number(1e-3, 1e9, duration);
        } else if (a == "--max-bytes") {
            // At least the file header and one small datagram.
            ok = cl.integer(PcapWriter::kFileHeader + PcapWriter::recordBytes(0), INT64_MAX, i);
            maxBytes = static_cast<uint64_t>(i);
        } else {
            error = a.rfind("-", 0) == 0 ? "unknown option " + a : "unexpected argument " + a;
            return Parse::Error;
        }
        if (!ok) {
            error = cl.error();
            return Parse::Error;
        }
    }
    if (port < 0) {
        error = "--port is required";
        return Parse::Error;
    }
    if (out.empty()) {
        error = "--out is required";
        return Parse::Error;
    }
    return Parse::Ok;
}

} // namespace vxrec
