#pragma once
#include "tools/sim/linecomposer.h"
#include "tools/sim/messagesender.h"
#include "tools/sim/simoptions.h"

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <string>

namespace vxsim {

// The simulator's main loop: sends the file header at start and every
// second, and line after line at the configured rate until the line count or
// duration is reached or `stop` is set.
//
// Pacing: line k is due at start + k / rate (absolute deadlines on the
// monotonic clock, slept to with clock_nanosleep), and every line that is
// due is sent in one batch, so the average rate stays exact even when a
// single sleep overshoots. When the sender falls more than a second behind,
// the schedule restarts from now instead of sending the backlog at once.
// Lines stamped with their send time are sent one by one as they are
// composed, so that the stamp does not wait for the rest of the batch.
//
// Once a second it prints a one-line summary to `out`, and a final one when it
// ends. Ownership: owns its composer and sender. Threads: one thread; `stop`
// may be set from a signal handler.
class Simulator
{
public:
    explicit Simulator(const SimOptions& options, std::FILE* out = stdout);

    // Resolves the host and opens the socket; false with a message on error.
    bool open(std::string& error);
    // Sends until done or `stop` is set.
    void run(const std::atomic<bool>& stop);

    uint64_t lines() const { return sentLines; }
    const MessageSender& sender() const { return messages; }

private:
    void printSummary(double elapsed, double rate, bool final);

    SimOptions opt;
    std::FILE* out;
    LineComposer composer;
    MessageSender messages;
    uint64_t sentLines = 0;
};

} // namespace vxsim
