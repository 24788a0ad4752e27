#pragma once
#include <cstddef>

namespace vxs {
namespace math {

// A point of N components of type T, zero-initialised.
template <typename T, std::size_t N>
struct PointND
{
    T v[N] = {};
    T& operator[](std::size_t i) { return v[i]; }
    const T& operator[](std::size_t i) const { return v[i]; }
};

} // namespace math
} // namespace vxs
