#include "tools/sim/simoptions.h"

#include "scanner/linerawinfo.h"
#include "scanner/wireformat.h"
#include "tools/common/commandline.h"

#include <limits>
#include <set>
#include <type_traits>

namespace vxsim {

using vxcommon::CommandLine;

namespace {

const char* const kOptions[] = {
    "--host",    "--port", "--rate",   "--pixels", "--protocol", "--layout",          "--bpp",
    "--datatyp", "--mode", "--device", "--count",  "--duration", "--stamp-send-time", "--scene",
    "--no-header", "--help"};

// The smallest double above 0: a lower bound that admits every positive value.
constexpr double kAboveZero = std::numeric_limits<double>::denorm_min();

bool known(const std::string& name)
{
    for (const char* o : kOptions)
        if (name == o)
            return true;
    return false;
}

std::string badValue(const std::string& name, const std::string& value, const char* expected)
{
    return "bad value '" + value + "' for " + name + ": expected " + expected;
}

} // namespace

SimOptions::Outcome SimOptions::parse(int argc, const char* const* argv, SimOptions& out,
                                      std::string& error)
{
    SimOptions o;
    std::set<std::string> given;
    CommandLine cl(argc, argv);
    const auto read = [&](const std::string& name) {
        if (name == "--help" && !cl.hasInlineValue())
            return Outcome::Help;
        return o.read(cl, name, given) ? Outcome::Run : Outcome::Error;
    };
    const Outcome outcome = cl.walk(
        read, [&] { return o.settle(cl, given); }, error);
    if (outcome == Outcome::Run)
        out = o;
    return outcome;
}

bool SimOptions::read(CommandLine& cl, const std::string& name, std::set<std::string>& given)
{
    if (!known(name))
        return cl.fail(name.rfind("--", 0) == 0 ? "unknown option " + name
                                                : "unexpected argument '" + name + "'");
    if (name == "--help")
        return cl.fail("--help takes no value");
    if (!given.insert(name).second)
        return cl.fail(name + " given twice");
    if (name == "--stamp-send-time" || name == "--no-header") {
        if (cl.hasInlineValue())
            return cl.fail(name + " takes no value");
        (name == "--no-header" ? fileHeader : stampSendTime) = name != "--no-header";
        return true;
    }
    std::string value;
    if (!cl.value(value))
        return cl.fail("missing value for " + name);

    const auto bad = [&](const char* expected) { return cl.fail(badValue(name, value, expected)); };
    const auto integer = [&](uint64_t lo, uint64_t hi, const char* expected, auto& to) {
        uint64_t n = 0;
        if (!CommandLine::toInteger(value, lo, hi, n))
            return bad(expected);
        to = static_cast<std::remove_reference_t<decltype(to)>>(n);
        return true;
    };
    const auto positive = [&](double hi, const char* expected, double& to) {
        return CommandLine::toNumber(value, kAboveZero, hi, to) || bad(expected);
    };
    if (name == "--host") {
        host = value;
        return !value.empty() || cl.fail("empty value for --host");
    }
    if (name == "--port")
        return integer(1, 65535, "a port 1..65535", port);
    if (name == "--rate")
        return positive(1e6, "lines per second, > 0 and at most 1000000", rate);
    if (name == "--pixels")
        return integer(1, 199999, "1..199999", pixels);
    if (name == "--protocol") {
        if (value != "1.1" && value != "1.2" && value != "1.3")
            return bad("1.1, 1.2 or 1.3");
        subProtocol = value[2] - '0';
        return true;
    }
    if (name == "--layout") {
        if (value != "short" && value != "long")
            return bad("short or long");
        shortLayout = value == "short";
        return true;
    }
    if (name == "--scene") {
        if (!Scene::fromName(value.c_str(), scene))
            return bad("street, conveyor, belt, wall, tunnel or bowl");
        return true;
    }
    if (name == "--bpp")
        return integer(2, 63, "2..63", bpp);
    if (name == "--datatyp")
        return integer(2, 9999, "2..9999", datatyp);
    if (name == "--mode")
        return integer(0, UINT32_MAX, "0..4294967295", mode);
    if (name == "--device")
        return integer(0, UINT32_MAX, "0..4294967295", device);
    if (name == "--count")
        return integer(1, UINT64_MAX, "a number of lines >= 1", count);
    return positive(1e9, "seconds > 0", duration); // --duration
}

bool SimOptions::settle(CommandLine& cl, const std::set<std::string>& given)
{
    if (given.count("--count") && given.count("--duration"))
        return cl.fail("--count and --duration exclude each other");
    const bool v11 = subProtocol == 1;
    if (given.count("--layout") && !v11)
        return cl.fail("--layout applies to protocol 1.1 only");
    if (given.count("--mode") && v11)
        return cl.fail("--mode applies to protocols 1.2 and 1.3 only (1.1 lines carry no mode)");
    if (v11 && shortLayout) {
        if (!given.count("--bpp"))
            bpp = 5;
        if (!given.count("--datatyp"))
            datatyp = 3;
    }
    if (bpp < basicBytes())
        return cl.fail("--bpp " + std::to_string(bpp) + " is too small: protocol " +
                       protocolText() + (v11 ? (shortLayout ? " short" : " long") : "") +
                       " needs at least " + std::to_string(basicBytes()) +
                       " bytes per pixel for range and intensity");
    if (messageBytes() > strmsocket::WireFormat::kMaxMessage)
        return cl.fail("a line of " + std::to_string(messageBytes()) +
                       " bytes exceeds the 16 MiB message limit");
    return true;
}

int SimOptions::basicBytes() const
{
    return subProtocol == 1 && !shortLayout ? 8 : 5;
}

uint64_t SimOptions::messageBytes() const
{
    const uint64_t head = subProtocol == 1 ? strmsocket::LineRawInfo::kDataOffset11
                                           : strmsocket::LineRawInfo::kDataOffset12;
    return head + static_cast<uint64_t>(lineheadersize) +
           static_cast<uint64_t>(pixels) * static_cast<uint64_t>(bpp);
}

std::string SimOptions::protocolText() const
{
    return "1." + std::to_string(subProtocol);
}

std::string SimOptions::usage()
{
    return "usage: vxscanner-sim [options]\n"
           "Streams a simulated scene as raw lines over UDP.\n"
           "\n"
           "  --host HOST        destination host (default 127.0.0.1)\n"
           "  --port N           destination UDP port (default 6101)\n"
           "  --rate R           lines per second, > 0 (default 200)\n"
           "  --pixels N         pixels per line, 1..199999 (default 2048)\n"
           "  --protocol P       1.1, 1.2 or 1.3 (default 1.2)\n"
           "  --layout L         short or long, protocol 1.1 only (default long)\n"
           "  --bpp N            bytes per pixel, 2..63 (default 8; 1.1 short: 5)\n"
           "  --datatyp N        datatyp, 2..9999 (default 2; 1.1 short: 3)\n"
           "  --mode N           scan mode, protocols 1.2/1.3 only (default 0)\n"
           "  --device N         device number (default 0)\n"
           "  --count N          send N lines, then exit\n"
           "  --duration S       send for S seconds, then exit\n"
           "  --stamp-send-time  line header words 1/2: CLOCK_MONOTONIC microseconds\n"
           "                     of sending instead of the scanner timestamp\n"
           "  --scene S          street (a vehicle driving along a street, the default),\n"
           "                     conveyor (objects on a belt 1 m under the scanner),\n"
           "                     belt (the same 0.3 m under it), wall (6 m ahead),\n"
           "                     tunnel (40 to 60 m around it) or bowl (a half-pipe)\n"
           "  --no-header        send no file header (the viewer's default geometry)\n"
           "  --help             show this text\n"
           "\n"
           "Without --count or --duration it runs until interrupted (Ctrl+C).\n"
           "Options take their value as '--opt value' or '--opt=value'.\n";
}

} // namespace vxsim
