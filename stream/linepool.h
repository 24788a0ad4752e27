#pragma once
#include "line/linetype.h"

#include <cstddef>
#include <memory>
#include <mutex>
#include <vector>

namespace vxlindral {

// A bounded pool of line records for one receiver, so that building a line
// touches memory that is already mapped: acquire() hands out a line whose
// vectors keep the capacity of an earlier use, and when the last LineType of
// it goes, the line comes back here instead of being freed. The control
// blocks of the handles are recycled as well: once the pool is warm, a line
// costs no allocation.
//
// A recycled line still holds its previous contents; the receiver overwrites
// every field it fills (a delivered line is never written, so the fields it
// does not fill keep their zeros).
//
// Bounds: at most `maxLines` idle lines holding at most `maxBytes` between
// them (MyLine::footprint()); a line beyond either is freed.
//
// Ownership: held by shared pointer by its receiver; every line handed out
// holds the pool too, so the pool outlives the receiver until its last line
// is gone. Threads: acquire() from one thread at a time (the receive thread);
// lines may die on any thread; a short lock guards the idle lists.
class LinePool : public std::enable_shared_from_this<LinePool>
{
public:
    static constexpr std::size_t kDefaultMaxLines = 64;
    static constexpr std::size_t kDefaultMaxBytes = 32u << 20;

    static std::shared_ptr<LinePool> create(std::size_t maxLines = kDefaultMaxLines,
                                            std::size_t maxBytes = kDefaultMaxBytes);
    ~LinePool();
    LinePool(const LinePool&) = delete;
    LinePool& operator=(const LinePool&) = delete;

    // A line to fill: a recycled one when there is one, else a new empty one.
    LineType acquire();

    // Idle lines waiting for reuse, and their footprint.
    std::size_t idleLines() const;
    std::size_t idleBytes() const;

private:
    LinePool(std::size_t maxLines, std::size_t maxBytes);

    struct Recycle;
    template <typename T> struct BlockAllocator;

    void recycle(MyLine* line) noexcept;
    void* takeBlock(std::size_t bytes);
    void giveBlock(void* block, std::size_t bytes) noexcept;

    const std::size_t maxLines;
    const std::size_t maxBytes;
    mutable std::mutex lock;
    struct Idle
    {
        MyLine* line;
        std::size_t bytes;
    };
    std::vector<Idle> idle;
    std::size_t bytesIdle = 0;
    // Recycled control blocks, all of blockSize bytes.
    std::vector<void*> blocks;
    std::size_t blockSize = 0;
};

} // namespace vxlindral
