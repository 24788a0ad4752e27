#pragma once
#include <cstdint>
#include <string>
#include <vector>

namespace vxcommon {

// Walks a tool's command line: options of the form "--name value",
// "--name=value" and "--flag", and other arguments, with strict conversion
// of values to numbers (plain decimal text, nothing before or after it).
//
// value(), integer() and number() word the error of a missing or bad value
// themselves, as vxscanner-replay and vxscanner-capture print it; a tool
// with its own wording (the simulator) takes the value with value(),
// converts it with toInteger() or toNumber() and words the error with
// fail().
//
// Plain value; one thread.
class CommandLine
{
public:
    // What a tool decides from its command line: run, print the usage and
    // exit 0, or print the error and exit 2.
    enum class Outcome
    {
        Run,
        Help,
        Error,
    };

    CommandLine(int argc, const char* const* argv);

    // Walks the command line: hands every argument in turn to `read` (see
    // take()), which takes the option's value when it has one and returns
    // Run to go on, or Help, or Error after fail(); the walk stops there.
    // When it ran through, `complete()` checks the options together and
    // gives false after fail() when they are incomplete or do not fit.
    // `error` receives the error.
    template <class Read, class Complete>
    Outcome walk(Read read, Complete complete, std::string& error)
    {
        Outcome outcome = Outcome::Run;
        while (outcome == Outcome::Run && !atEnd())
            outcome = read(take());
        if (outcome == Outcome::Run && !complete())
            outcome = Outcome::Error;
        error = message;
        return outcome;
    }

    bool atEnd() const { return index >= args.size(); }
    // The next argument; for "--name=value" only the "--name" part.
    std::string take();
    // Whether the argument just taken carried its value after '='.
    bool hasInlineValue() const { return hasInline; }
    // The value of the option just taken ("--name=value" or the following
    // argument). False, with error() set, when there is none.
    bool value(std::string& out);
    // The value as a whole number within [lo, hi], or as a finite number
    // within [lo, hi]. False, with error() set, otherwise.
    template <class T> bool integer(uint64_t lo, uint64_t hi, T& out)
    {
        uint64_t v = 0;
        if (!integerValue(lo, hi, v))
            return false;
        out = static_cast<T>(v);
        return true;
    }
    bool number(double lo, double hi, double& out);

    const std::string& error() const { return message; }
    // Sets the error to `why`; returns false.
    bool fail(const std::string& why);

    // `text` as a whole number within [lo, hi] / a finite number within
    // [lo, hi]. False, leaving `out` alone, for anything else.
    static bool toInteger(const std::string& text, uint64_t lo, uint64_t hi, uint64_t& out);
    static bool toNumber(const std::string& text, double lo, double hi, double& out);

    // A tool's main: parses the command line with Options::parse(argc, argv,
    // options, error) and gives the exit status of `body(options)`. On Help
    // it prints Options::usage() to stdout and gives 0; on Error it prints
    // "tool: error" and the line `hint` to stderr and gives 2.
    template <class Options>
    static int run(int argc, const char* const* argv, const char* tool, const char* hint,
                   int (*body)(const Options&))
    {
        Options options;
        std::string error;
        const Outcome outcome = Options::parse(argc, argv, options, error);
        return outcome == Outcome::Run ? body(options)
                                       : finish(outcome, tool, Options::usage(), error, hint);
    }

private:
    static int finish(Outcome outcome, const char* tool, const std::string& usage,
                      const std::string& error, const char* hint);
    bool integerValue(uint64_t lo, uint64_t hi, uint64_t& out);
    bool outOfRange(const std::string& text, const char* kind, const std::string& lo,
                    const std::string& hi);

    std::vector<std::string> args;
    std::size_t index = 0;
    std::string current;
    std::string inlineValue;
    bool hasInline = false;
    std::string message;
};

} // namespace vxcommon
