#include "tools/replay/replayoptions.h"
#include "tools/pcapio/commandline.h"

namespace vxrec {

const char* ReplayOptions::usage()
{
    return "Usage: vxscanner-replay [options] FILE\n"
           "Sends the UDP datagrams of a pcap or pcapng capture to a host and port,\n"
           "with the capture's own timing.\n"
           "\n"
           "  --port P          pick datagrams sent to UDP port P (default 6101)\n"
           "  --source-port P   pick only datagrams sent from UDP port P\n"
           "  --host ADDR       send to ADDR (default 127.0.0.1)\n"
           "  --to-port P       send to port P (default: the --port value)\n"
           "  --speed F         play F times as fast as captured (default 1.0)\n"
           "  --fast            send as fast as possible, ignoring the timing\n"
           "  --loop            start over at the end, until Ctrl+C\n"
           "  --start S         skip the first S seconds of the capture\n"
           "  --quiet           no progress line\n"
           "  --help            show this text\n"
           "\n"
           "Reads Ethernet (with VLAN tags), Linux cooked v1/v2 and raw IPv4 captures;\n"
           "reassembles IP fragments. Exit status: 0 when done, 1 on a file, network\n"
           "or truncated-capture error, 2 on bad options.\n";
}

ReplayOptions::Parse ReplayOptions::parse(int argc, char** argv, std::string& error)
{
    CommandLine cl(argc, argv);
    bool haveFile = false;
    while (!cl.atEnd()) {
        const std::string a = cl.take();
        int64_t i = 0;
        bool ok = true;
        if (a == "--help" || a == "-h") {
            return Parse::Help;
        } else if (a == "--port") {
            ok = cl.integer(1, 65535, i);
            port = static_cast<uint16_t>(i);
        } else if (a == "--source-port") {
            ok = cl.integer(1, 65535, i);
            sourcePort = static_cast<int>(i);
        } else if (a == "--to-port") {
            ok = cl.integer(1, 65535, i);
            toPort = static_cast<int>(i);
        } else if (a == "--host") {
            ok = cl.value(host) && !host.empty();
            if (!ok && cl.error().empty()) {
                error = "--host needs an address";
                return Parse::Error;
            }
        } else if (a == "--speed") {
            ok = cl.number(1e-3, 1e6, speed);
        } else if (a == "--start") {
            ok = cl.number(0, 1e9, start);
        } else if (a == "--fast") {
            fast = true;
        } else if (a == "--loop") {
            loop = true;
        } else if (a == "--quiet") {
            quiet = true;
        } else if (a.size() > 1 && a[0] == '-') {
            error = "unknown option " + a;
            return Parse::Error;
        } else if (haveFile) {
            error = "more than one capture file given";
            return Parse::Error;
        } else {
            file = a;
            haveFile = true;
        }
        if (!ok) {
            error = cl.error();
            return Parse::Error;
        }
    }
    if (!haveFile) {
        error = "no capture file given";
        return Parse::Error;
    }
    return Parse::Ok;
}

} // namespace vxrec
