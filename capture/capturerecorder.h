#pragma once
#include "capture/capturewriter.h"
#include "scanner/datagramtap.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace vxrec {

// Records what a receive thread reads into a capture file (pcapng, or pcap,
// through a CaptureWriter), as its datagram tap: every datagram with the
// kernel's receive time, its sender's address and port, the local address it
// arrived on and the recorded port. The window records a port's stream with
// it, and vxscanner-capture calls it from its own receive loop.
//
// The receive thread never waits for the disk: onDatagram() copies the
// datagram into a bounded buffer of chunks (256 MiB by default) and a writer
// thread of its own writes them. A datagram that does not fit, because the
// disk has not kept up, is counted (notRecorded) and left out. A write error
// (a full disk, a file-size limit) ends the recording: by the writer's
// failure rule the file is cut back to its last whole record and stays a
// valid capture (CaptureWriter), failed and error tell why. SIGXFSZ is
// ignored from start() on, so that a file-size limit fails the write (EFBIG)
// instead of ending the process.
//
// Ownership: owns the file, the buffer and the writer thread. Threads:
// start(), stop(), finish() and destruction by one controlling thread;
// onDatagram() and take() on one receive thread at a time; status() from any
// thread. Clear the tap before the recorder goes (the destructor finishes
// it).
class CaptureRecorder : public strmsocket::DatagramTap
{
public:
    struct Limits
    {
        std::size_t bufferBytes = std::size_t(256) << 20; // datagrams waiting for the disk
        std::size_t chunkBytes = std::size_t(1) << 20;    // raised to hold the largest datagram
    };
    // A snapshot; each counter is read on its own.
    struct Status
    {
        uint64_t datagrams = 0;   // taken into the recording
        uint64_t lines = 0;       // of them, those that begin a raw line
        uint64_t bytes = 0;       // the capture's size once they are written
        uint64_t written = 0;     // bytes in the file now
        uint64_t notRecorded = 0; // did not fit the buffer: the disk did not keep up
        bool failed = false;      // a write failed: the recording has ended
        std::string error;        // why ("No space left on device"), else empty
    };

    // Records datagrams that arrived on local `port`.
    explicit CaptureRecorder(uint16_t port);
    CaptureRecorder(uint16_t port, Limits limits);
    ~CaptureRecorder() override;
    CaptureRecorder(const CaptureRecorder&) = delete;
    CaptureRecorder& operator=(const CaptureRecorder&) = delete;

    // Creates (or replaces) the file in `format`, writes its header and
    // starts the writer thread. False with the reason in status().error.
    bool start(const std::string& path,
               CaptureWriter::Format format = CaptureWriter::Format::Pcapng);
    // Ends the recording without waiting: later datagrams are ignored, and
    // the writer thread writes everything taken so far and closes the file
    // on its own. finished() tells when it has.
    void stop();
    // The writer thread has written and closed the file (or failed), so
    // finish() returns at once.
    bool finished() const { return closed.load(std::memory_order_acquire); }
    // stop(), then waits for the writer thread. False when the file failed.
    bool finish();

    void onDatagram(const char* data, const strmsocket::DatagramSource::Datagram& d) override;
    // onDatagram(), telling whether the datagram was taken into the
    // recording: false when it was left out (counted in notRecorded, or the
    // recording is not running).
    bool take(const char* data, const strmsocket::DatagramSource::Datagram& d);

    Status status() const;
    const std::string& path() const { return file; }
    // When start() succeeded.
    std::chrono::steady_clock::time_point startedAt() const { return started; }

private:
    struct Chunk
    {
        std::unique_ptr<char[]> bytes;
        std::size_t used = 0;
    };
    void writerLoop();
    // Writer thread: the records of one chunk into the file; false when a
    // write failed.
    bool writeChunk(const Chunk& chunk);
    // With `lock` held: a chunk with room for `need` more bytes, or null.
    Chunk* room(std::size_t need);

    const uint16_t port;
    const std::size_t chunkBytes;
    const std::size_t maxChunks;
    std::string file;
    std::chrono::steady_clock::time_point started;
    std::unique_ptr<CaptureWriter> writer; // writer thread (start() and finish() around it)
    std::thread thread;

    mutable std::mutex lock; // guards what follows, up to the counters
    std::condition_variable changed;
    std::unique_ptr<Chunk> current;           // being filled by the receive thread
    std::vector<std::unique_ptr<Chunk>> full; // waiting for the writer
    std::vector<std::unique_ptr<Chunk>> spare;
    std::size_t chunks = 0; // allocated: current, full, spare and being written
    bool stopping = false;
    CaptureWriter::Format format = CaptureWriter::Format::Pcapng;
    std::string message;

    std::atomic<bool> accepting{false};
    std::atomic<bool> closed{false}; // the writer thread closed the file
    std::atomic<bool> failed{false};
    std::atomic<uint64_t> datagrams{0}, lines{0}, bytes{0}, written{0}, notRecorded{0};
};

} // namespace vxrec
