#pragma once
#include <cstdio>
#include <string>

// A minimal check harness for the table-driven tool tests (no Qt: the tools
// build without it). CHECK records a failure with the current row's name and
// goes on; main returns checkResult().
namespace check {

inline std::string& row()
{
    static std::string r;
    return r;
}

inline int& failures()
{
    static int n = 0;
    return n;
}

inline bool fail(const char* file, int line, const std::string& what)
{
    ++failures();
    std::fprintf(stderr, "FAIL %s:%d [%s] %s\n", file, line, row().c_str(), what.c_str());
    return false;
}

inline int result(const char* name)
{
    std::fprintf(stderr, "%s: %s (%d failure%s)\n", name, failures() ? "FAILED" : "passed",
                 failures(), failures() == 1 ? "" : "s");
    return failures() ? 1 : 0;
}

} // namespace check

#define CHECK(cond) ((cond) ? true : check::fail(__FILE__, __LINE__, #cond))
#define CHECK_EQ(a, b)                                                                             \
    (((a) == (b)) ? true                                                                           \
                  : check::fail(__FILE__, __LINE__,                                                \
                                std::string(#a " == " #b ": ") + std::to_string(a) +               \
                                    " != " + std::to_string(b)))
