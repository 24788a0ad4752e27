#pragma once
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>

namespace vxs {

// A small byte vector of exactly 24 bytes with alignment 1, so that it can sit
// inside the byte-packed point record (vxs::VxPt) at an odd offset. Contents of
// up to 23 bytes live inline (no allocation: the per-pixel raw bytes of every
// point fit there for bpp <= 23); longer contents go to the heap.
// Thread-safety: a plain value.
class ByteVector
{
public:
    static constexpr std::size_t kInline = 23;

    ByteVector() noexcept { std::memset(s, 0, sizeof s); }
    ByteVector(const void* p, std::size_t n) : ByteVector() { assign(p, n); }
    ByteVector(const ByteVector& o) : ByteVector() { assign(o.data(), o.size()); }
    ByteVector(ByteVector&& o) noexcept
    {
        std::memcpy(s, o.s, sizeof s);
        std::memset(o.s, 0, sizeof o.s);
    }
    ByteVector& operator=(const ByteVector& o)
    {
        if (this != &o)
            assign(o.data(), o.size());
        return *this;
    }
    ByteVector& operator=(ByteVector&& o) noexcept
    {
        if (this != &o) {
            release();
            std::memcpy(s, o.s, sizeof s);
            std::memset(o.s, 0, sizeof o.s);
        }
        return *this;
    }
    ~ByteVector() { release(); }

    std::size_t size() const { return onHeap() ? heapSize() : s[kInline]; }
    std::size_t capacity() const { return onHeap() ? heapCap() : kInline; }
    bool empty() const { return size() == 0; }
    const unsigned char* data() const { return onHeap() ? heapPtr() : s; }
    unsigned char* data() { return onHeap() ? heapPtr() : s; }
    unsigned char operator[](std::size_t i) const { return data()[i]; }

    void reserve(std::size_t n)
    {
        if (n <= capacity())
            return;
        auto* p = static_cast<unsigned char*>(std::malloc(n));
        if (!p)
            throw std::bad_alloc();
        const std::size_t len = size();
        std::memcpy(p, data(), len);
        release();
        setHeap(p, len, n);
    }
    void assign(const void* p, std::size_t n)
    {
        if (n > capacity()) {
            release();
            std::memset(s, 0, sizeof s);
            reserve(n);
        }
        if (n)
            std::memmove(data(), p, n);
        setSize(n);
    }
    void push_back(unsigned char b)
    {
        const std::size_t len = size();
        if (len == capacity())
            reserve(len < 32 ? 32 : len * 2);
        data()[len] = b;
        setSize(len + 1);
    }
    void clear() { setSize(0); }

private:
    static constexpr unsigned char kHeapTag = 0xFF;
    bool onHeap() const { return s[kInline] == kHeapTag; }
    unsigned char* heapPtr() const
    {
        unsigned char* p;
        std::memcpy(&p, s, sizeof p);
        return p;
    }
    std::size_t heapSize() const
    {
        uint32_t v;
        std::memcpy(&v, s + 8, 4);
        return v;
    }
    std::size_t heapCap() const
    {
        uint32_t v;
        std::memcpy(&v, s + 12, 4);
        return v;
    }
    void setHeap(unsigned char* p, std::size_t len, std::size_t cap)
    {
        const auto l = static_cast<uint32_t>(len), c = static_cast<uint32_t>(cap);
        std::memcpy(s, &p, sizeof p);
        std::memcpy(s + 8, &l, 4);
        std::memcpy(s + 12, &c, 4);
        s[kInline] = kHeapTag;
    }
    void setSize(std::size_t n)
    {
        if (onHeap()) {
            const auto l = static_cast<uint32_t>(n);
            std::memcpy(s + 8, &l, 4);
        } else {
            s[kInline] = static_cast<unsigned char>(n);
        }
    }
    void release() noexcept
    {
        if (onHeap()) {
            std::free(heapPtr());
            std::memset(s, 0, sizeof s);
        }
    }

    unsigned char s[24];
};

static_assert(sizeof(ByteVector) == 24 && alignof(ByteVector) == 1, "fits the packed point");

} // namespace vxs
