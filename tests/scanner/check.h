#pragma once
// A minimal check harness for the library's plain C++ tests: CHECK records a
// failure with its location and the current row's name and goes on; main()
// returns the number of failures.
#include <cstdio>
#include <string>

namespace vxtest {
inline int failures = 0;
inline std::string row;
} // namespace vxtest

#define CHECK(cond)                                                                                \
    do {                                                                                           \
        if (!(cond)) {                                                                             \
            std::fprintf(stderr, "%s:%d: [%s] CHECK(%s) failed\n", __FILE__, __LINE__,             \
                         vxtest::row.c_str(), #cond);                                              \
            ++vxtest::failures;                                                                    \
        }                                                                                          \
    } while (0)

#define CHECK_NEAR(a, b, eps) CHECK(std::fabs(double(a) - double(b)) <= (eps))

#define RUN(test)                                                                                  \
    do {                                                                                           \
        vxtest::row.clear();                                                                       \
        test();                                                                                    \
    } while (0)

inline int vxtestResult(const char* name)
{
    std::fprintf(stderr, "%s: %d failure(s)\n", name, vxtest::failures);
    return vxtest::failures == 0 ? 0 : 1;
}
