#pragma once
#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace vxrec {

// The lines of one UDP port of a capture, found by a worker thread: for each
// raw-line message, where its first datagram starts in the file and when it
// was captured. Seeking to a line is then one file positioning away, and the
// position of the playback can be shown as "line n of m".
//
// A line is a raw-line message that arrives whole, reassembled as the
// receiver does it when the capture is played (LineCounter): a line whose
// pieces are missing is no line for the receiver, so it is none here either,
// only counted as incomplete. Line n is thus the same line whether it is
// played to or jumped to. An entry points at the line's first datagram in
// the file. The file is read once, front to back,
// never held in memory; an entry takes 16 bytes. The entries found so far
// can be read while the worker runs.
//
// Ownership: owns the worker thread and the entries. Threads: start(),
// cancel() and destruction by the owner; the readers (lines(), entry(),
// find(), progress(), finished(), error()) from any thread.
class CaptureIndex
{
public:
    struct Entry
    {
        uint64_t offset = 0; // of the frame that carries the line's first datagram
        int64_t timeNs = 0;  // its capture time
    };

    CaptureIndex() = default;
    ~CaptureIndex();
    CaptureIndex(const CaptureIndex&) = delete;
    CaptureIndex& operator=(const CaptureIndex&) = delete;

    // Starts indexing the lines sent to `port` in `path` on a worker thread.
    void start(const std::string& path, uint16_t port);
    // Stops the worker soon; what it found stays readable.
    void cancel();
    // Waits until the worker has ended (finished, cancelled or failed).
    void wait();

    std::size_t lines() const { return count.load(std::memory_order_acquire); }
    // Entry `i` (< lines()).
    Entry entry(std::size_t i) const;
    // The last line captured at or before `timeNs` (0 when none is).
    std::size_t find(int64_t timeNs) const;
    // Where the last file-header message before line `line` begins (the
    // device's description, which the lines after it are decoded with);
    // false when no header precedes that line.
    bool headerBefore(std::size_t line, uint64_t& offset) const;
    // Messages found incomplete so far (lines with pieces missing, mostly).
    uint64_t incomplete() const { return lost.load(std::memory_order_relaxed); }
    // The fraction of the file read, 0 .. 1.
    double progress() const { return done.load(std::memory_order_relaxed); }
    // The whole file is indexed.
    bool finished() const { return complete.load(std::memory_order_acquire); }
    // The worker has ended, for whatever reason.
    bool ended() const { return stopped.load(std::memory_order_acquire); }
    // Why indexing stopped early (a damaged file); empty otherwise.
    std::string error() const;
    // Memory the entries take.
    std::size_t bytes() const;

private:
    void run(std::string path, uint16_t port);
    void add(const Entry& e);

    static constexpr std::size_t kChunk = 1 << 12; // entries per block (64 KiB)

    mutable std::mutex lock; // guards `chunks` (its table, not the entries), `problem`, `headers`
    std::vector<std::unique_ptr<Entry[]>> chunks;
    std::atomic<std::size_t> count{0};
    std::atomic<uint64_t> lost{0};
    std::atomic<double> done{0.0};
    std::atomic<bool> stopping{false};
    std::atomic<bool> complete{false};
    std::atomic<bool> stopped{false};
    std::string problem;
    // File headers: where each begins, and how many lines precede it.
    std::vector<std::pair<uint64_t, std::size_t>> headers;
    std::thread worker;
};

} // namespace vxrec
