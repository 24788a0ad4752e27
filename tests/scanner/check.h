#pragma once
// A minimal check harness for the library's plain C++ tests: CHECK records a
// failure with its location and the current row's name and goes on; main()
// returns the number of failures.
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

namespace vxtest {
inline int failures = 0;
inline std::string row;

// `bytes` with the little-endian u32 at `offset` replaced by `v`.
inline std::vector<char> patched(std::vector<char> bytes, std::size_t offset, uint32_t v)
{
    std::memcpy(bytes.data() + offset, &v, 4);
    return bytes;
}

inline int result(const char* name)
{
    std::fprintf(stderr, "%s: %d failure(s)\n", name, failures);
    return failures == 0 ? 0 : 1;
}
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
