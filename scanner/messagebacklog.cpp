#include "scanner/messagebacklog.h"

#include "scanner/messageassembler.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace strmsocket {

namespace {
// Buffers kept after trim(): enough for the short backlogs of every day.
constexpr std::size_t kKeptSpares = 64;
} // namespace

MessageBacklog::MessageBacklog(std::size_t maxBytes) : limit(maxBytes) {}

void MessageBacklog::push(const VxStreamDeviceInfo& sender,
                          std::chrono::steady_clock::time_point arrival, const char* message,
                          std::size_t length)
{
    std::vector<char> buffer;
    if (!spare.empty()) {
        buffer = std::move(spare.back());
        spare.pop_back();
    }
    const std::size_t size =
        std::max(length + MessageAssembler::kPadding, MessageAssembler::kMinBuffer);
    // resize() only writes the bytes beyond the old size: the padding must be
    // zero whatever the buffer held before.
    buffer.resize(size);
    if (length)
        std::memcpy(buffer.data(), message, length);
    std::memset(buffer.data() + length, 0, size - length);
    waiting.push_back(Message{sender, arrival, std::move(buffer), length});
    held += length;
}

void MessageBacklog::pop()
{
    Message& m = waiting.front();
    held -= m.length;
    spare.push_back(std::move(m.bytes));
    waiting.pop_front();
}

void MessageBacklog::trim()
{
    if (spare.size() > kKeptSpares) {
        spare.resize(kKeptSpares);
        spare.shrink_to_fit();
    }
    if (waiting.empty())
        waiting.shrink_to_fit();
}

} // namespace strmsocket
