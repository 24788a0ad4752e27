#pragma once
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

// One device's file header: a key -> value store (keys are u32 on the wire,
// values f64). Keys 320..335 hold the device's 4x4 transform, row-major.
// Thread-safety: a plain value; the stream that owns it writes it on its
// receive thread only.
class VxSHeader
{
public:
    VxSHeader() = default;

    // Non-null when the key is present; points at the stored value.
    const double* Find(int key) const;
    double GetDouble(int key, double fallback) const;
    void Set(int key, double value);
    void Clear() { entries.clear(); }
    std::size_t Size() const { return entries.size(); }

    std::string name;       // the header's name as sent (UTF-8)
    uint32_t device = 0;

private:
    std::vector<std::pair<int, double>> entries; // sorted by key
};
