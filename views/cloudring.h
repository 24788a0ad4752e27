#pragma once
#include <cstddef>
#include <cstdint>
#include <vector>

namespace vxlindral {

// One vertex of the point cloud: position then colour, 24 bytes.
struct CloudVertex
{
    float x, y, z;
    float r, g, b;
};
static_assert(sizeof(CloudVertex) == 24, "vertex layout: 6 floats");

// Where a vertex came from, kept beside it for export (never uploaded).
struct CloudSource
{
    uint32_t intensity; // raw intensity of the point
    float range;        // metres
    uint32_t series;    // the line's series number
    uint32_t pixel;     // index of the point in its line
    uint32_t line;      // the line's number in the stream, from 0
};

// The 3D view's vertices as a ring: dropping the oldest vertices advances the
// start, appending writes in place after the newest one. The logical order
// (oldest first) is that of one growing array from whose front the dropped
// vertices were erased. The storage grows (and is laid out from slot 0 again)
// only when the vertices no longer fit; it never shrinks.
// It also remembers what changed since the last upload: the slots written,
// which always follow one another around the ring, or that the storage was
// reallocated (then everything is to be uploaded). Beside each vertex it keeps
// the vertex's source in a second array of the same slots.
// A plain value owned by its widget. Threads: GUI thread only.
class CloudRing
{
public:
    // A run of storage slots.
    struct Range
    {
        std::size_t first = 0;
        std::size_t count = 0;
    };

    std::size_t size() const { return used; }
    bool empty() const { return used == 0; }
    std::size_t capacity() const { return store.size(); }
    // Storage slot of the oldest vertex.
    std::size_t start() const { return head; }
    // The storage, capacity() slots.
    const CloudVertex* data() const { return store.data(); }
    // The i-th vertex in logical order (0 = oldest); i < size().
    const CloudVertex& operator[](std::size_t i) const { return store[slot(i)]; }
    // The source of the i-th vertex in logical order; i < size().
    const CloudSource& source(std::size_t i) const { return sources[slot(i)]; }
    // The vertices in logical order.
    std::vector<CloudVertex> toVector() const;

    // Forgets every vertex; the storage stays (the next vertices are written
    // from slot 0 and uploaded as written).
    void clear();
    // Forgets the oldest n vertices (at most size()).
    void dropFront(std::size_t n);
    // Makes room for n more vertices; grows the storage if they do not fit.
    void reserveBack(std::size_t n);
    // Appends one vertex and its source; room must have been reserved.
    void push(const CloudVertex& v, const CloudSource& from)
    {
        store[tail] = v;
        sources[tail] = from;
        tail = tail + 1 == store.size() ? 0 : tail + 1;
        ++used;
        if (written < store.size())
            ++written;
    }

    // The logical sequence as at most two storage runs, oldest first;
    // returns how many of out are used.
    int drawRanges(Range out[2]) const;
    // True when the storage was reallocated since the last markUploaded():
    // the whole storage is to be uploaded.
    bool reallocated() const { return grown; }
    // The slots written since the last markUploaded(), as at most two runs.
    int changedRanges(Range out[2]) const;
    void markUploaded();
    // Treats the whole storage as new (a fresh GL buffer must receive it).
    void markReallocated() { grown = true; }

private:
    std::size_t slot(std::size_t i) const
    {
        const std::size_t s = head + i;
        return s >= store.size() ? s - store.size() : s;
    }
    // Up to two runs of count slots from first, wrapping at the end.
    int wrap(std::size_t first, std::size_t count, Range out[2]) const;
    // The slots of `from` in logical order, in storage of `capacity` slots.
    template <typename T>
    std::vector<T> laidOut(const std::vector<T>& from, std::size_t capacity) const;

    std::vector<CloudVertex> store;
    std::vector<CloudSource> sources; // same slots as store
    std::size_t head = 0;             // oldest vertex
    std::size_t tail = 0;             // next slot to write
    std::size_t used = 0;
    std::size_t firstWritten = 0; // first slot written since the last upload
    std::size_t written = 0;      // slots written since then (at most capacity)
    bool grown = false;
};

} // namespace vxlindral
