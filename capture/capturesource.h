#pragma once
#include "capture/datagramextractor.h"
#include "capture/linecounter.h"
#include "capture/replayscheduler.h"
#include "scanner/datagramsource.h"

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace vxrec {

// A capture file played back as the datagram source of a receive thread:
// the UDP datagrams sent to one port, read in order (link layers, IPv4
// reassembly) and handed out when they are due by their capture times,
// scaled by the speed, or as fast as possible. Play, pause, speed and loop
// are set from any thread.
//
// It holds back: while the receiver has no room for a line the receive loop
// reads nothing from it, so at any speed every line of the capture is
// delivered and none is dropped. A datagram's receive time is its capture
// time. A file that ends in a damaged or cut record is played up to there;
// status() then says why it stopped.
//
// Ownership: owns the reader; the receive loop owns the source once
// connected. Threads: open() before the source is handed to a receive loop;
// wait(), receive() on the receive thread; play(), pause(), setSpeed(),
// setLoop(), wake() and status() from any thread.
class CaptureSource : public strmsocket::DatagramSource
{
public:
    // Where the playback stands; a consistent snapshot.
    struct Status
    {
        uint64_t datagrams = 0; // handed out so far (over every pass)
        uint64_t lines = 0;     // lines completed by them (a line whose pieces are missing is none)
        uint64_t nextLine = 0;  // number in the file of the next line to complete (0 = first)
        uint64_t passes = 0;    // times the file was started (loop)
        int64_t firstNs = 0;    // capture time of the file's first frame
        int64_t currentNs = 0;  // capture time of the newest datagram handed out
        bool playing = true;
        bool ended = false;  // the file is played to its end (not looping)
        std::string problem; // why it ended early (a damaged or cut file), else empty
    };

    explicit CaptureSource(uint16_t port);

    // Opens the capture. False with error() when the file is missing,
    // unreadable, not a capture, or of a link type that is not read.
    bool open(const std::string& path);
    const std::string& error() const { return openError; }

    // Plays on (without a limit of lines).
    void play();
    void pause();
    // Plays `n` more lines, then pauses before the next line begins (the
    // lines still go at the set speed). play() lifts the limit.
    void playLines(uint64_t n);
    static constexpr uint64_t kNoPrelude = UINT64_MAX;
    // Goes on at `offset`, where a datagram starts (an index entry's
    // offset), which begins line number `line` of the file; the schedule
    // starts anew there. With a `prelude` (where a file header begins), the
    // datagrams from there up to the next line go first: the receiver then
    // decodes the lines with the device description they were sent under.
    // The playing state and the counters stay as they are.
    void seek(uint64_t offset, uint64_t line = 0, uint64_t prelude = kNoPrelude);
    // `factor` times the capture's own pace; 0 or less: as fast as possible.
    void setSpeed(double factor);
    void setLoop(bool on);
    Status status() const;

    // A stand-in for a receive loop, which owns and destroys its source when
    // it stops: it shares `source`, so that its owner keeps it across stops
    // (a seek restarts the loop) and can read its status.
    static std::unique_ptr<strmsocket::DatagramSource>
    shared(std::shared_ptr<CaptureSource> source);

    int wait(int timeoutMs, bool forData = true) override;
    int receive(char* buffer, std::size_t capacity, Datagram& out) override;
    void wake() override;
    bool canHoldBack() const override { return true; }

private:
    using Clock = std::chrono::steady_clock;

    // Opens the file from its start; false with the reason in `problem`.
    bool restart(std::string& problem);
    // Receive thread: makes `pending` the next datagram of the file (a new
    // pass when looping); false at the end or on a damaged file.
    bool fetch();
    // With `lock` held: when the pending datagram is due, on the scheduler's
    // clock; anchors the schedule anew after reanchor() or a new pass.
    int64_t dueNs();
    // With `lock` held: the user acted (play, seek, speed): the pending
    // datagram is due now and the schedule goes on from it, however long
    // the capture waited before it (a pause of minutes in the recording).
    void reanchor();

    const uint16_t port;
    std::string path;
    std::string openError;
    std::unique_ptr<DatagramExtractor> extractor;
    UdpDatagram pending;
    std::vector<uint8_t> pendingBytes;
    bool havePending = false;
    bool exhausted = false;         // receive thread: the file gave all it has
    bool cutShort = false;          // receive thread: the last fetch() was interrupted
    bool freshNext = true;          // receive thread: the next datagram starts a place anew
    LineCounter counter;            // receive thread (under `lock`): completes lines as the receiver does
    // Set by wake() and the controls: a fetch() skipping other traffic stops
    // between two frames, so that a stop, a seek or a control is never held
    // up by the bytes still to skip.
    std::atomic<bool> interrupted{false};
    uint64_t resumeAt = kNoPrelude; // receive thread: where the file goes on after a prelude

    mutable std::mutex lock; // guards what follows
    std::condition_variable changed;
    ReplayScheduler scheduler{ReplayScheduler::systemClock(), 1.0, false};
    bool anchored = false;
    bool woken = false;
    bool loop = false;
    bool seeking = false;
    uint64_t seekTo = 0;
    uint64_t seekLine = 0;
    uint64_t seekPrelude = kNoPrelude;
    uint64_t linesLeft = UINT64_MAX; // lines that may still begin before pausing
    Status state;
};

} // namespace vxrec
