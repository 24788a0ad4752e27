#include "tools/replay/replayoptions.h"

namespace vxrec {

using vxcommon::CommandLine;

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

ReplayOptions::Outcome ReplayOptions::parse(int argc, const char* const* argv, ReplayOptions& out,
                                            std::string& error)
{
    CommandLine cl(argc, argv);
    bool haveFile = false;
    const auto read = [&](const std::string& arg) {
        if (arg == "--help" || arg == "-h")
            return Outcome::Help;
        bool ok = true;
        if (arg.size() > 1 && arg[0] == '-') {
            ok = out.read(cl, arg);
        } else if (haveFile) {
            ok = cl.fail("more than one capture file given");
        } else {
            out.file = arg;
            haveFile = true;
        }
        return ok ? Outcome::Run : Outcome::Error;
    };
    return cl.walk(read, [&] { return haveFile || cl.fail("no capture file given"); }, error);
}

bool ReplayOptions::read(CommandLine& cl, const std::string& name)
{
    if (name == "--port")
        return cl.integer(1, 65535, port);
    if (name == "--source-port")
        return cl.integer(1, 65535, sourcePort);
    if (name == "--to-port")
        return cl.integer(1, 65535, toPort);
    if (name == "--host")
        return cl.value(host) && (!host.empty() || cl.fail("--host needs an address"));
    if (name == "--speed")
        return cl.number(1e-3, 1e6, speed);
    if (name == "--start")
        return cl.number(0, 1e9, start);
    if (name == "--fast")
        fast = true;
    else if (name == "--loop")
        loop = true;
    else if (name == "--quiet")
        quiet = true;
    else
        return cl.fail("unknown option " + name);
    return true;
}

} // namespace vxrec
