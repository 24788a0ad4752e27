#include "stream/linepool.h"

#include <new>

namespace vxlindral {

// The deleter of every handed-out line: back to the pool.
struct LinePool::Recycle
{
    std::shared_ptr<LinePool> pool;
    void operator()(MyLine* line) const noexcept { pool->recycle(line); }
};

// Allocates the handles' control blocks from the pool. The block is given
// back after the deleter has run, and this allocator's own reference keeps
// the pool alive until then.
template <typename T> struct LinePool::BlockAllocator
{
    using value_type = T;
    std::shared_ptr<LinePool> pool;

    explicit BlockAllocator(std::shared_ptr<LinePool> p) : pool(std::move(p)) {}
    template <typename U> BlockAllocator(const BlockAllocator<U>& other) : pool(other.pool) {}
    T* allocate(std::size_t n) { return static_cast<T*>(pool->takeBlock(n * sizeof(T))); }
    void deallocate(T* p, std::size_t n) noexcept { pool->giveBlock(p, n * sizeof(T)); }
    template <typename U> bool operator==(const BlockAllocator<U>& other) const
    {
        return pool == other.pool;
    }
    template <typename U> bool operator!=(const BlockAllocator<U>& other) const
    {
        return pool != other.pool;
    }
};

std::shared_ptr<LinePool> LinePool::create(std::size_t maxLines, std::size_t maxBytes)
{
    return std::shared_ptr<LinePool>(new LinePool(maxLines, maxBytes));
}

LinePool::LinePool(std::size_t lines, std::size_t bytes) : maxLines(lines), maxBytes(bytes)
{
    idle.reserve(maxLines);
    // A control block per idle line and per line in use; more are freed.
    blocks.reserve(2 * maxLines);
}

LinePool::~LinePool()
{
    for (const Idle& i : idle)
        delete i.line;
    for (void* b : blocks)
        ::operator delete(b);
}

LineType LinePool::acquire()
{
    MyLine* line = nullptr;
    {
        std::lock_guard<std::mutex> guard(lock);
        if (!idle.empty()) {
            // The most recently returned line is the one most likely cached.
            line = idle.back().line;
            bytesIdle -= idle.back().bytes;
            idle.pop_back();
        }
    }
    if (!line)
        line = new MyLine;
    // Should the control block fail to allocate, the deleter takes the line
    // back before the exception leaves.
    const std::shared_ptr<LinePool> self = shared_from_this();
    return LineType(line, Recycle{self}, BlockAllocator<MyLine>(self));
}

std::size_t LinePool::idleLines() const
{
    std::lock_guard<std::mutex> guard(lock);
    return idle.size();
}

std::size_t LinePool::idleBytes() const
{
    std::lock_guard<std::mutex> guard(lock);
    return bytesIdle;
}

void LinePool::recycle(MyLine* line) noexcept
{
    const std::size_t bytes = line->footprint();
    {
        std::lock_guard<std::mutex> guard(lock);
        if (idle.size() < maxLines && bytesIdle + bytes <= maxBytes) {
            idle.push_back(Idle{line, bytes}); // reserved: does not allocate
            bytesIdle += bytes;
            return;
        }
    }
    delete line;
}

void* LinePool::takeBlock(std::size_t bytes)
{
    {
        std::lock_guard<std::mutex> guard(lock);
        if (blockSize == 0)
            blockSize = bytes;
        if (bytes == blockSize && !blocks.empty()) {
            void* b = blocks.back();
            blocks.pop_back();
            return b;
        }
    }
    return ::operator new(bytes);
}

void LinePool::giveBlock(void* block, std::size_t bytes) noexcept
{
    {
        std::lock_guard<std::mutex> guard(lock);
        if (bytes == blockSize && blocks.size() < blocks.capacity()) {
            blocks.push_back(block);
            return;
        }
    }
    ::operator delete(block);
}

} // namespace vxlindral
