#include "tools/common/commandline.h"

#include <charconv>
#include <cmath>
#include <cstdio>

namespace vxcommon {

namespace {

std::string shortNumber(double v)
{
    char buf[32];
    std::snprintf(buf, sizeof buf, "%g", v);
    return buf;
}

// The whole of `text` read by std::from_chars: no blanks, no '+', no hex.
template <class T> bool readAll(const std::string& text, T& out)
{
    const char* end = text.data() + text.size();
    const auto r = std::from_chars(text.data(), end, out);
    return !text.empty() && r.ec == std::errc() && r.ptr == end;
}

} // namespace

CommandLine::CommandLine(int argc, const char* const* argv)
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

bool CommandLine::fail(const std::string& why)
{
    message = why;
    return false;
}

bool CommandLine::integerValue(uint64_t lo, uint64_t hi, uint64_t& out)
{
    std::string text;
    return value(text) &&
           (toInteger(text, lo, hi, out) ||
            outOfRange(text, "a whole number", std::to_string(lo), std::to_string(hi)));
}

bool CommandLine::number(double lo, double hi, double& out)
{
    std::string text;
    return value(text) && (toNumber(text, lo, hi, out) ||
                           outOfRange(text, "a number", shortNumber(lo), shortNumber(hi)));
}

bool CommandLine::outOfRange(const std::string& text, const char* kind, const std::string& lo,
                             const std::string& hi)
{
    return fail(current + ": '" + text + "' is not " + kind + " from " + lo + " to " + hi);
}

bool CommandLine::toInteger(const std::string& text, uint64_t lo, uint64_t hi, uint64_t& out)
{
    uint64_t v = 0;
    if (!readAll(text, v) || v < lo || v > hi)
        return false;
    out = v;
    return true;
}

bool CommandLine::toNumber(const std::string& text, double lo, double hi, double& out)
{
    double v = 0.0;
    if (!readAll(text, v) || !std::isfinite(v) || v < lo || v > hi)
        return false;
    out = v;
    return true;
}

int CommandLine::finish(Outcome outcome, const char* tool, const std::string& usage,
                        const std::string& error, const char* hint)
{
    if (outcome == Outcome::Help) {
        std::fputs(usage.c_str(), stdout);
        return 0;
    }
    std::fprintf(stderr, "%s: %s\n%s\n", tool, error.c_str(), hint);
    return 2;
}

} // namespace vxcommon
