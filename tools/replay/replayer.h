#pragma once
#include "capture/skipcounters.h"
#include "tools/replay/datagramsink.h"
#include "tools/replay/replayoptions.h"
#include "capture/replayscheduler.h"

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>

namespace vxrec {

// Replays the matching datagrams of a capture file into a sink.
//
// scan() reads the whole file once: it finds the datagrams to send, their
// time span and whether the file is damaged, so that errors show before
// anything is sent. run() then reads the file again (once per pass) and
// sends each datagram when the scheduler says it is due. Memory does not
// grow with the file.
//
// Ownership: uses, does not own, the clock and the sink. Threads: one
// thread; `stop` may be set by a signal handler.
class Replayer
{
public:
    struct Scan
    {
        uint64_t frames = 0;
        uint64_t datagrams = 0;   // matching datagrams at or after --start
        uint64_t bytes = 0;       // their payload bytes
        int64_t firstFrameNs = 0; // time zero of positions and --start
        int64_t firstNs = 0;      // first and last matching datagram
        int64_t lastNs = 0;
        SkipCounters skipped;
        std::string damage; // non-empty: the file is truncated or damaged
    };
    struct Progress
    {
        double positionS = 0; // capture time of the last datagram sent
        double totalS = 0;    // capture time of the last datagram to send
        uint64_t sent = 0;
        double ratePerS = 0; // datagrams per second over the last interval
    };
    using ProgressFunction = std::function<void(const Progress&)>;

    Replayer(const ReplayOptions& options, ReplayScheduler::Clock& clock, DatagramSink& sink);

    // False when the file cannot be read or holds no matching datagram;
    // `error` says why. A damaged file with matching datagrams before the
    // damage is accepted: scan().damage says what is wrong.
    bool scan(std::string& error);
    const Scan& scanned() const { return info; }

    // Sends every pass (one, or until `stop` with --loop). Calls `progress`
    // once per second of clock time.
    void run(const std::atomic<bool>& stop, const ProgressFunction& progress);

    uint64_t sent() const { return sentCount; }
    uint64_t sentBytes() const { return sentByteCount; }
    uint64_t sendErrors() const { return errorCount; }
    const std::string& lastSendError() const { return sendError; }
    uint64_t passes() const { return passCount; }

private:
    bool stopped() const { return stop && stop->load(std::memory_order_relaxed); }
    bool waitUntil(int64_t dueNs);
    void tick(int64_t nowNs);
    bool runPass(ReplayScheduler& scheduler);
    int64_t startNs() const;

    const ReplayOptions& options;
    ReplayScheduler::Clock& clock;
    DatagramSink& sink;
    Scan info;
    const std::atomic<bool>* stop = nullptr;
    ProgressFunction progress;
    int64_t nextTickNs = 0;
    int64_t lastTickNs = 0;
    uint64_t sentAtLastTick = 0;
    int64_t positionNs = 0;
    uint64_t sentCount = 0;
    uint64_t sentByteCount = 0;
    uint64_t errorCount = 0;
    uint64_t passCount = 0;
    std::string sendError;
};

} // namespace vxrec
