#include "views/cloudring.h"

#include <algorithm>

namespace vxlindral {

template <typename T>
std::vector<T> CloudRing::laidOut(const std::vector<T>& from, std::size_t capacity) const
{
    std::vector<T> out;
    out.reserve(capacity);
    Range runs[2];
    const int n = drawRanges(runs);
    for (int r = 0; r < n; ++r)
        out.insert(out.end(), from.begin() + static_cast<std::ptrdiff_t>(runs[r].first),
                   from.begin() + static_cast<std::ptrdiff_t>(runs[r].first + runs[r].count));
    out.resize(capacity);
    return out;
}

std::vector<CloudVertex> CloudRing::toVector() const
{
    return laidOut(store, used);
}

void CloudRing::clear()
{
    head = 0;
    tail = 0;
    used = 0;
    firstWritten = 0;
    written = 0;
}

void CloudRing::dropFront(std::size_t n)
{
    n = std::min(n, used);
    head = slot(n);
    used -= n;
}

void CloudRing::reserveBack(std::size_t n)
{
    if (used + n <= store.size())
        return;
    // Doubling keeps the number of reallocations (each a full upload) small
    // while the cloud builds up; afterwards the size stays put.
    const std::size_t grownTo = std::max(used + n, 2 * store.size());
    // Both laid out before either is replaced: the runs depend on the size.
    std::vector<CloudVertex> grownStore = laidOut(store, grownTo);
    std::vector<CloudSource> grownSources = laidOut(sources, grownTo);
    store.swap(grownStore);
    sources.swap(grownSources);
    head = 0;
    tail = used; // n > 0, so the storage holds more than used
    firstWritten = tail;
    written = 0;
    grown = true;
}

int CloudRing::wrap(std::size_t first, std::size_t count, Range out[2]) const
{
    if (count == 0)
        return 0;
    const std::size_t toEnd = store.size() - first;
    if (count <= toEnd) {
        out[0] = {first, count};
        return 1;
    }
    out[0] = {first, toEnd};
    out[1] = {0, count - toEnd};
    return 2;
}

int CloudRing::drawRanges(Range out[2]) const
{
    return wrap(head, used, out);
}

int CloudRing::changedRanges(Range out[2]) const
{
    if (grown)
        return wrap(0, store.size(), out);
    // After a whole turn of writes this is the whole storage.
    return wrap(firstWritten, written, out);
}

void CloudRing::markUploaded()
{
    grown = false;
    firstWritten = tail;
    written = 0;
}

} // namespace vxlindral
