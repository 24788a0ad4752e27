#include "tools/pcapio/commandline.h"

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>

namespace vxrec {

namespace {
std::string shortNumber(double v)
{
    char buf[32];
    std::snprintf(buf, sizeof buf, "%g", v);
    return buf;
}
} // namespace

CommandLine::CommandLine(int argc, char** argv)
{
    for (int i = 1; i < argc; ++i)
        args.emplace_back(argv[i]);
}

std::string CommandLine::take()
{
    current = args.at(index++);
    hasInline = false;
    const auto eq = current.find('=');
    if (current.rfind("--", 0) == 0 && eq != std::string::npos) {
        inlineValue = current.substr(eq + 1);
        current.resize(eq);
        hasInline = true;
    }
    return current;
}

bool CommandLine::value(std::string& out)
{
    if (hasInline) {
        out = inlineValue;
        hasInline = false;
        return true;
    }
    if (atEnd()) {
        message = current + " needs a value";
        return false;
    }
    out = args[index++];
    return true;
}

bool CommandLine::integer(int64_t lo, int64_t hi, int64_t& out)
{
    std::string text;
    if (!value(text))
        return false;
    errno = 0;
    char* end = nullptr;
    const long long v = std::strtoll(text.c_str(), &end, 10);
    if (text.empty() || *end != '\0' || errno == ERANGE || v < lo || v > hi) {
        message = current + ": '" + text + "' is not a whole number from " + std::to_string(lo) +
                  " to " + std::to_string(hi);
        return false;
    }
    out = v;
    return true;
}

bool CommandLine::number(double lo, double hi, double& out)
{
    std::string text;
    if (!value(text))
        return false;
    char* end = nullptr;
    const double v = std::strtod(text.c_str(), &end);
    if (text.empty() || *end != '\0' || !std::isfinite(v) || v < lo || v > hi) {
        message = current + ": '" + text + "' is not a number from " + shortNumber(lo) + " to " +
                  shortNumber(hi);
        return false;
    }
    out = v;
    return true;
}

} // namespace vxrec
