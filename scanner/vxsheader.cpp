#include "scanner/vxsheader.h"

#include <algorithm>

namespace {

struct KeyLess
{
    bool operator()(const std::pair<int, double>& e, int key) const { return e.first < key; }
};

} // namespace

const double* VxSHeader::Find(int key) const
{
    auto it = std::lower_bound(entries.begin(), entries.end(), key, KeyLess());
    return it != entries.end() && it->first == key ? &it->second : nullptr;
}

double VxSHeader::GetDouble(int key, double fallback) const
{
    const double* v = Find(key);
    return v ? *v : fallback;
}

void VxSHeader::Set(int key, double value)
{
    auto it = std::lower_bound(entries.begin(), entries.end(), key, KeyLess());
    if (it != entries.end() && it->first == key)
        it->second = value;
    else
        entries.insert(it, {key, value});
}
