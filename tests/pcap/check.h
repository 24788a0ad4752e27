#pragma once
#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <string>

// A minimal check harness for the table-driven tool tests (no Qt: the tools
// build without it). CHECK records a failure with the current row's name and
// goes on; main returns check::result(), which also removes the temporary
// directory of tempPath().
namespace check {

inline std::string row; // the case being checked
inline int failures = 0;

inline bool fail(const char* file, int line, const std::string& what)
{
    ++failures;
    std::fprintf(stderr, "FAIL %s:%d [%s] %s\n", file, line, row.c_str(), what.c_str());
    return false;
}

inline std::string tempPath(const std::string& name)
{
    static const std::string dir = [] {
        char t[] = "/tmp/tst_pcap.XXXXXX";
        return std::string(mkdtemp(t));
    }();
    return dir + "/" + name;
}

inline int result(const char* name)
{
    std::system(("rm -rf '" + tempPath("") + "'").c_str());
    std::fprintf(stderr, "%s: %s (%d failures)\n", name, failures ? "FAILED" : "passed", failures);
    return failures ? 1 : 0;
}

template <class A, class B>
bool equal(const A& a, const B& b, const char* what, const char* file, int line)
{
    if (a == b)
        return true;
    std::ostringstream o;
    o << what << ": " << a << " != " << b;
    return fail(file, line, o.str());
}

} // namespace check

#define CHECK(cond) ((cond) ? true : check::fail(__FILE__, __LINE__, #cond))
#define CHECK_EQ(a, b) check::equal((a), (b), #a " == " #b, __FILE__, __LINE__)
