// The tools' command line: how arguments split into options and values,
// the strict number grammar and its bounds, and the errors worded for a
// missing or bad value.
#include "tests/check.h"
#include "tools/common/commandline.h"

#include <sstream>

using vxcommon::CommandLine;

namespace {

// Walks `args` (blank-separated; "_" stands for an empty argument) the way
// the tools do and writes down what it saw: "name=value" for an option with
// a value, the plain argument otherwise, "!error" where it stopped.
std::string walk(const std::string& args)
{
    std::vector<std::string> words = {"tool"};
    std::istringstream in(args);
    for (std::string w; in >> w;)
        words.push_back(w == "_" ? "" : w);
    std::vector<const char*> argv;
    for (const std::string& w : words)
        argv.push_back(w.c_str());
    CommandLine cl(int(argv.size()), argv.data());
    std::string seen, error;
    const auto read = [&](const std::string& name) {
        std::string value;
        if (name == "--help")
            return CommandLine::Outcome::Help;
        if (name.rfind("--", 0) != 0 || name == "--flag")
            seen += name + (cl.hasInlineValue() ? "(ignored value) " : " ");
        else if (cl.value(value))
            seen += name + "=" + value + " ";
        return cl.error().empty() ? CommandLine::Outcome::Run : CommandLine::Outcome::Error;
    };
    // The walk is complete when it saw "file".
    const auto complete = [&] {
        return seen.find("file") != std::string::npos || cl.fail("no file");
    };
    const CommandLine::Outcome outcome = cl.walk(read, complete, error);
    if (outcome == CommandLine::Outcome::Help)
        seen += "help";
    return outcome == CommandLine::Outcome::Error ? seen + "!" + error : seen;
}

void arguments()
{
    const std::pair<const char*, const char*> rows[] = {
        {"--a 1 --b=2 file --flag", "--a=1 --b=2 file --flag "},
        {"--a=x=y --b= --c --d file", "--a=x=y --b= --c=--d file "},
        {"--flag=1 -x=5 --=v file", "--flag(ignored value) -x=5 --=v file "},
        {"--a 1 --help --b", "--a=1 help"},
        {"_ --a _ file", " --a= file "},
        {"--a 1 --b", "--a=1 !--b needs a value"},
        {"--a 1", "--a=1 !no file"},
    };
    for (const auto& [args, expected] : rows) {
        vxtest::row = args;
        CHECK_EQ(walk(args), std::string(expected));
    }
}

void numbers()
{
    struct Row
    {
        const char* text;
        bool integer; // else number
        double lo, hi;
        bool valid;
        double value;
    };
    const Row rows[] = {
        {"65535", true, 1, 65535, true, 65535},
        {"0", true, 1, 65535, false, 0},
        {"65536", true, 1, 65535, false, 0},
        {"+5", true, 0, 9, false, 0},
        {" 5", true, 0, 9, false, 0},
        {"5 ", true, 0, 9, false, 0},
        {"-0", true, 0, 9, false, 0},
        {"0x1", true, 0, 9, false, 0},
        {"", true, 0, 9, false, 0},
        {"18446744073709551616", true, 0, 1.9e19, false, 0}, // beyond 64 bits
        {"0.001", false, 1e-3, 1e6, true, 1e-3},
        {".5", false, 0, 1, true, 0.5},
        {"2e3", false, 0, 1e6, true, 2000},
        {"-0", false, 0, 1, true, 0},
        {"1e6x", false, 0, 1e7, false, 0},
        {"+2", false, 0, 9, false, 0},
        {"0x1p1", false, 0, 9, false, 0},
        {"nan", false, -1e9, 1e9, false, 0},
        {"inf", false, 0, 1e308, false, 0},
        {"1e400", false, 0, 1e308, false, 0},
    };
    for (const Row& r : rows) {
        vxtest::row = std::string(r.integer ? "integer '" : "number '") + r.text + "'";
        double value = -1;
        bool valid = false;
        if (r.integer) {
            uint64_t n = 7;
            valid = CommandLine::toInteger(r.text, uint64_t(r.lo), uint64_t(r.hi), n);
            value = double(n);
            CHECK(valid || n == 7); // left alone
        } else {
            valid = CommandLine::toNumber(r.text, r.lo, r.hi, value);
        }
        if (CHECK_EQ(valid, r.valid) && valid)
            CHECK_EQ(value, r.value);
    }
    vxtest::row = "largest integer";
    uint64_t n = 0;
    CHECK(CommandLine::toInteger("18446744073709551615", 1, UINT64_MAX, n) && n == UINT64_MAX);
}

void valueErrors()
{
    const char* argv[] = {"tool", "--port=70000", "--speed", "0", "--count", "-1"};
    CommandLine cl(6, argv);
    const std::string expected[] = {
        "--port: '70000' is not a whole number from 1 to 65535",
        "--speed: '0' is not a number from 0.001 to 1e+06",
        "--count: '-1' is not a whole number from 1 to 9223372036854775807",
    };
    int port = 0;
    double speed = 0;
    uint64_t count = 0;
    vxtest::row = cl.take();
    CHECK(!cl.integer(1, 65535, port) && cl.error() == expected[0]);
    vxtest::row = cl.take();
    CHECK(!cl.number(1e-3, 1e6, speed) && cl.error() == expected[1]);
    vxtest::row = cl.take();
    CHECK(!cl.integer(1, INT64_MAX, count) && cl.error() == expected[2]);
    CHECK(cl.atEnd());
}

} // namespace

int main()
{
    arguments();
    numbers();
    valueErrors();
    return vxtest::result("tst_commandline");
}
