#pragma once
#include <cstddef>
#include <vector>

namespace vxs {

// A list of filter values, constructed with a count (that many default
// elements). clr() zeroes the count fields without freeing storage.
template <typename T>
class PDatas
{
public:
    explicit PDatas(int count = 0)
        : items(count > 0 ? static_cast<std::size_t>(count) : 0), used(items.size())
    {
    }
    std::size_t size() const { return used; }
    void clr() { used = 0; }
    T& operator[](std::size_t i) { return items[i]; }
    const T& operator[](std::size_t i) const { return items[i]; }

private:
    std::vector<T> items;
    std::size_t used;
};

} // namespace vxs
