#pragma once
#include <atomic>

namespace vxcommon {

// Ends a tool's run on Ctrl+C or kill: install() makes SIGINT and SIGTERM
// set one process-wide flag, without SA_RESTART, so that a blocking sleep or
// wait returns at once (EINTR) and the tool's loop sees the flag.
// Threads: install() from main before the loop; requested() from any thread
// (a lock-free atomic, which a signal handler may set).
class StopSignal
{
public:
    static void install();
    static const std::atomic<bool>& requested();
};

} // namespace vxcommon
