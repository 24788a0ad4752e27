#pragma once
#include "scanner/vxstreamdeviceinfo.h"

#include <chrono>
#include <cstddef>
#include <deque>
#include <vector>

namespace strmsocket {

// Complete messages that wait, undecoded, until the receiver has room for
// them: the cheapest place to hold a backlog, since a decoded line takes many
// times the memory of its message.
//
// A message is kept as its bytes (padded as dispatching needs: at least 128
// bytes from its start and 8 zero bytes behind it), its sender and the moment
// it reached the socket, in arrival order. The bound is on the messages'
// bytes; what to do when it is reached is the caller's choice (full()).
// Buffers of messages taken out are kept for the next ones, so that a
// backlog that comes and goes costs no allocation once it has been as long.
//
// Ownership: owns the messages' buffers. Threads: not thread-safe; one
// thread (the receive thread) uses it.
class MessageBacklog
{
public:
    struct Message
    {
        VxStreamDeviceInfo sender;
        std::chrono::steady_clock::time_point arrival;
        std::vector<char> bytes; // the message, then zero padding
        std::size_t length = 0;  // the message's own bytes
    };

    explicit MessageBacklog(std::size_t maxBytes);

    bool empty() const { return waiting.empty(); }
    std::size_t size() const { return waiting.size(); }
    // The waiting messages' own bytes.
    std::size_t bytes() const { return held; }
    std::size_t maxBytes() const { return limit; }
    // Whether a further message of `length` bytes would pass the bound.
    bool full(std::size_t length) const { return held + length > limit; }

    // Copies a message in behind the others.
    void push(const VxStreamDeviceInfo& sender, std::chrono::steady_clock::time_point arrival,
              const char* message, std::size_t length);
    // The oldest message; the backlog must not be empty.
    Message& front() { return waiting.front(); }
    // Removes the oldest message; its buffer is kept for a later one.
    void pop();
    // Frees the kept buffers beyond a few: called when the backlog has been
    // empty for a while, so that a long stall's memory goes back.
    void trim();

private:
    std::size_t limit;
    std::size_t held = 0;
    std::deque<Message> waiting;
    std::vector<std::vector<char>> spare;
};

} // namespace strmsocket
