// The tools' command line: how arguments split into options and values,
// the strict number grammar and its bounds, and the errors worded for a
// missing or bad value.
#include "tests/check.h"
#include "tools/common/commandline.h"

using vxcommon::CommandLine;
using Outcome = CommandLine::Outcome;

namespace {

// Walks `args` the way the tools do and writes down what it saw:
// "name=value" for an option with a value, the plain argument otherwise,
// "!error" where it stopped. The walk is complete when it saw "file".
std::string walk(std::vector<const char*> args)
{
    args.insert(args.begin(), "tool");
    CommandLine cl(int(args.size()), args.data());
    std::string seen, value, error;
    const auto read = [&](const std::string& name) {
        if (name == "--help")
            return Outcome::Help;
        if (name.rfind("--", 0) != 0 || name == "--flag")
            seen += name + (cl.hasInlineValue() ? "(ignored value) " : " ");
        else if (cl.value(value))
            seen += name + "=" + value + " ";
        return cl.error().empty() ? Outcome::Run : Outcome::Error;
    };
    const auto complete = [&] { return seen.find("file") != std::string::npos || cl.fail("no"); };
    const Outcome outcome = cl.walk(read, complete, error);
    return seen + (outcome == Outcome::Help ? "help" : "") +
           (outcome == Outcome::Error ? "!" + error : "");
}

void arguments()
{
    const std::pair<std::vector<const char*>, const char*> rows[] = {
        {{"--a", "1", "--b=x=y", "--c=", "--d", "--e", "file", "--flag"},
         "--a=1 --b=x=y --c= --d=--e file --flag "},
        {{"--flag=1", "-x=5", "--=v", "file"}, "--flag(ignored value) -x=5 --=v file "},
        {{"--a", "1", "--help", "--b"}, "--a=1 help"},
        {{"", "--a", "", "file"}, " --a= file "},
        {{"--a", "1", "--b"}, "--a=1 !--b needs a value"},
        {{"--a", "1"}, "--a=1 !no"},
    };
    for (const auto& [args, expected] : rows) {
        vxtest::row = expected;
        CHECK_EQ(walk(args), std::string(expected));
    }
}

// `text` as a whole number and as a number within [lo, hi]; -1: refused (a
// refused number leaves the output alone). Whole numbers carry no sign, numbers may start
// with '-' or '.'; neither takes a '+', hex or anything behind the number.
void numbers()
{
    struct Row
    {
        const char* text;
        double whole, number, lo = 0, hi = 9;
    };
    const Row rows[] = {
        {"65535", 65535, 65535, 1, 65535},
        {"0", -1, -1, 1, 65535},
        {"65536", -1, -1, 1, 65535},
        {"0.001", -1, 0.001, 0.001},
        {"+5", -1, -1},
        {"5 ", -1, -1},
        {"0x1", -1, -1},
        {"-.0", -1, 0},
        {"nan", -1, -1},
        {"18446744073709551616", -1, -1}, // beyond 64 bits
    };
    for (const Row& r : rows) {
        vxtest::row = std::string("'") + r.text + "'";
        uint64_t n = 0;
        double number = -1;
        CHECK_EQ(CommandLine::toInteger(r.text, uint64_t(r.lo), uint64_t(r.hi), n) ? double(n) : -1,
                 r.whole);
        CommandLine::toNumber(r.text, r.lo, r.hi, number);
        CHECK_EQ(number, r.number);
    }
    vxtest::row = "largest integer";
    uint64_t n = 0;
    CHECK(CommandLine::toInteger("18446744073709551615", 1, UINT64_MAX, n) && n == UINT64_MAX);
}

void valueErrors()
{
    vxtest::row = "value errors";
    const char* argv[] = {"tool", "--port=70000", "--speed", "0"};
    CommandLine cl(4, argv);
    int port = 0;
    double speed = 0;
    CHECK(cl.take() == "--port" && !cl.integer(1, 65535, port));
    CHECK_EQ(cl.error(), std::string("--port: '70000' is not a whole number from 1 to 65535"));
    CHECK(cl.take() == "--speed" && !cl.number(1e-3, 1e6, speed));
    CHECK_EQ(cl.error(), std::string("--speed: '0' is not a number from 0.001 to 1e+06"));
}

} // namespace

int main()
{
    arguments();
    numbers();
    valueErrors();
    return vxtest::result("tst_commandline");
}
