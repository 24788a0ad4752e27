#include "tools/sim/simoptions.h"

#include "scanner/linerawinfo.h"
#include "scanner/wireformat.h"

#include <charconv>
#include <cmath>
#include <set>

namespace vxsim {

namespace {

const char* const kOptions[] = {"--host",   "--port",     "--rate",    "--pixels", "--protocol",
                                "--layout", "--bpp",      "--datatyp", "--mode",   "--device",
                                "--count",  "--duration", "--help"};

bool known(const std::string& name)
{
    for (const char* o : kOptions)
        if (name == o)
            return true;
    return false;
}

// Whole-string decimal integer within [lo, hi].
bool toInteger(const std::string& text, uint64_t lo, uint64_t hi, uint64_t& out)
{
    uint64_t v = 0;
    const char* end = text.data() + text.size();
    const auto r = std::from_chars(text.data(), end, v);
    if (text.empty() || r.ec != std::errc() || r.ptr != end || v < lo || v > hi)
        return false;
    out = v;
    return true;
}

// Whole-string finite real number greater than 0 and at most `hi`.
bool toPositive(const std::string& text, double hi, double& out)
{
    double v = 0.0;
    const char* end = text.data() + text.size();
    const auto r = std::from_chars(text.data(), end, v);
    if (text.empty() || r.ec != std::errc() || r.ptr != end || !std::isfinite(v) || v <= 0.0 ||
        v > hi)
        return false;
    out = v;
    return true;
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
    std::set<std::string> seen;
    bool bppGiven = false, datatypGiven = false, modeGiven = false, layoutGiven = false;
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        std::string name = arg, value;
        bool hasValue = false;
        const auto eq = arg.find('=');
        if (arg.rfind("--", 0) == 0 && eq != std::string::npos) {
            name = arg.substr(0, eq);
            value = arg.substr(eq + 1);
            hasValue = true;
        }
        if (!known(name)) {
            error = arg.rfind("--", 0) == 0 ? "unknown option " + name
                                            : "unexpected argument '" + arg + "'";
            return Outcome::Error;
        }
        if (name == "--help") {
            if (hasValue) {
                error = "--help takes no value";
                return Outcome::Error;
            }
            return Outcome::Help;
        }
        if (!seen.insert(name).second) {
            error = name + " given twice";
            return Outcome::Error;
        }
        if (!hasValue) {
            if (i + 1 >= argc) {
                error = "missing value for " + name;
                return Outcome::Error;
            }
            value = argv[++i];
        }

        uint64_t n = 0;
        const auto integer = [&](uint64_t lo, uint64_t hi, const char* expected) {
            if (toInteger(value, lo, hi, n))
                return true;
            error = badValue(name, value, expected);
            return false;
        };
        const auto positive = [&](double hi, const char* expected, double& to) {
            if (toPositive(value, hi, to))
                return true;
            error = badValue(name, value, expected);
            return false;
        };
        if (name == "--host") {
            if (value.empty()) {
                error = "empty value for --host";
                return Outcome::Error;
            }
            o.host = value;
        } else if (name == "--port") {
            if (!integer(1, 65535, "a port 1..65535"))
                return Outcome::Error;
            o.port = static_cast<int>(n);
        } else if (name == "--rate") {
            if (!positive(1e6, "lines per second, > 0 and at most 1000000", o.rate))
                return Outcome::Error;
        } else if (name == "--pixels") {
            if (!integer(1, 199999, "1..199999"))
                return Outcome::Error;
            o.pixels = static_cast<int>(n);
        } else if (name == "--protocol") {
            if (value == "1.1" || value == "1.2" || value == "1.3") {
                o.subProtocol = value[2] - '0';
            } else {
                error = badValue(name, value, "1.1, 1.2 or 1.3");
                return Outcome::Error;
            }
        } else if (name == "--layout") {
            if (value != "short" && value != "long") {
                error = badValue(name, value, "short or long");
                return Outcome::Error;
            }
            o.shortLayout = value == "short";
            layoutGiven = true;
        } else if (name == "--bpp") {
            if (!integer(2, 63, "2..63"))
                return Outcome::Error;
            o.bpp = static_cast<int>(n);
            bppGiven = true;
        } else if (name == "--datatyp") {
            if (!integer(2, 9999, "2..9999"))
                return Outcome::Error;
            o.datatyp = static_cast<int>(n);
            datatypGiven = true;
        } else if (name == "--mode") {
            if (!integer(0, UINT32_MAX, "0..4294967295"))
                return Outcome::Error;
            o.mode = static_cast<uint32_t>(n);
            modeGiven = true;
        } else if (name == "--device") {
            if (!integer(0, UINT32_MAX, "0..4294967295"))
                return Outcome::Error;
            o.device = static_cast<uint32_t>(n);
        } else if (name == "--count") {
            if (!integer(1, UINT64_MAX, "a number of lines >= 1"))
                return Outcome::Error;
            o.count = n;
        } else if (name == "--duration") {
            if (!positive(1e9, "seconds > 0", o.duration))
                return Outcome::Error;
        }
    }

    if (seen.count("--count") && seen.count("--duration")) {
        error = "--count and --duration exclude each other";
        return Outcome::Error;
    }
    const bool v11 = o.subProtocol == 1;
    if (layoutGiven && !v11) {
        error = "--layout applies to protocol 1.1 only";
        return Outcome::Error;
    }
    if (modeGiven && v11) {
        error = "--mode applies to protocols 1.2 and 1.3 only (1.1 lines carry no mode)";
        return Outcome::Error;
    }
    if (v11 && o.shortLayout) {
        if (!bppGiven)
            o.bpp = 5;
        if (!datatypGiven)
            o.datatyp = 3;
    }
    if (o.bpp < o.basicBytes()) {
        error = "--bpp " + std::to_string(o.bpp) + " is too small: protocol " + o.protocolText() +
                (v11 ? (o.shortLayout ? " short" : " long") : "") + " needs at least " +
                std::to_string(o.basicBytes()) + " bytes per pixel for range and intensity";
        return Outcome::Error;
    }
    if (o.messageBytes() > strmsocket::WireFormat::kMaxMessage) {
        error = "a line of " + std::to_string(o.messageBytes()) +
                " bytes exceeds the 16 MiB message limit";
        return Outcome::Error;
    }
    out = o;
    return Outcome::Run;
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
           "Streams a simulated conveyor scene as raw lines over UDP.\n"
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
           "  --help             show this text\n"
           "\n"
           "Without --count or --duration it runs until interrupted (Ctrl+C).\n"
           "Options take their value as '--opt value' or '--opt=value'.\n";
}

} // namespace vxsim
