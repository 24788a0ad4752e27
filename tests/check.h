#pragma once
// The check harness of the plain C++ tests (the scanner library and the
// tools build without Qt). A test sets vxtest::row to the case it checks;
// CHECK records a failure with its place and that row and goes on, and
// yields whether the check held, so that a test can skip what depends on it
// (`if (!CHECK(opened)) return;`). main returns vxtest::result(), which
// also removes the temporary directory of tempPath().
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <string>
#include <vector>

namespace vxtest {

inline std::string row; // the case being checked
inline int failures = 0;

inline bool fail(const char* file, int line, const std::string& what)
{
    ++failures;
    std::fprintf(stderr, "FAIL %s:%d [%s] %s\n", file, line, row.c_str(), what.c_str());
    return false;
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

// A path in a temporary directory of this run, made on first use.
inline std::string& tempDir()
{
    static std::string dir;
    return dir;
}

inline std::string tempPath(const std::string& name)
{
    if (tempDir().empty()) {
        char t[] = "/tmp/vxtest.XXXXXX";
        tempDir() = mkdtemp(t);
    }
    return tempDir() + "/" + name;
}

// `bytes` with the little-endian u32 at `offset` replaced by `v`.
inline std::vector<char> patched(std::vector<char> bytes, std::size_t offset, uint32_t v)
{
    std::memcpy(bytes.data() + offset, &v, 4);
    return bytes;
}

inline int result(const char* name)
{
    if (!tempDir().empty())
        std::system(("rm -rf '" + tempDir() + "'").c_str());
    std::fprintf(stderr, "%s: %s (%d failures)\n", name, failures ? "FAILED" : "passed", failures);
    return failures ? 1 : 0;
}

} // namespace vxtest

#define CHECK(cond) ((cond) ? true : vxtest::fail(__FILE__, __LINE__, "CHECK(" #cond ")"))
#define CHECK_EQ(a, b) vxtest::equal((a), (b), #a " == " #b, __FILE__, __LINE__)
#define CHECK_NEAR(a, b, eps) CHECK(std::fabs(double(a) - double(b)) <= (eps))
