#pragma once
#include <cstdint>
#include <string>
#include <vector>

namespace vxrec {

// Walks the arguments of a command line of the form "--name value",
// "--name=value" and "--flag", with strict number parsing, for the tools'
// option classes. Plain value; one thread.
class CommandLine
{
public:
    CommandLine(int argc, char** argv);

    bool atEnd() const { return index >= args.size(); }
    // The next argument; for "--name=value" only the "--name" part.
    std::string take();
    // The value of the option just taken ("--name=value" or the following
    // argument). False, with error() set, when there is none.
    bool value(std::string& out);
    // The value as an integer within [lo, hi], or as a finite number within
    // [lo, hi]. False, with error() set, otherwise.
    bool integer(int64_t lo, int64_t hi, int64_t& out);
    bool number(double lo, double hi, double& out);

    const std::string& error() const { return message; }
    const std::string& option() const { return current; }

private:
    std::vector<std::string> args;
    std::size_t index = 0;
    std::string current;
    std::string inlineValue;
    bool hasInline = false;
    std::string message;
};

} // namespace vxrec
