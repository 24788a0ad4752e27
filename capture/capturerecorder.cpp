#include "capture/capturerecorder.h"

#include "scanner/wireformat.h"

#include <algorithm>
#include <cstring>
#include <ctime>

namespace vxrec {

namespace {

using strmsocket::WireFormat;

// One datagram in a chunk: this header, then its bytes, padded to 8.
struct Record
{
    int64_t timeNs;
    uint32_t sender;
    uint32_t local;
    uint32_t length;
    uint16_t senderPort;
    uint16_t reserved;
};
static_assert(sizeof(Record) == 24, "records stay 8-byte aligned");

constexpr std::size_t pad8(std::size_t n)
{
    return (n + 7) & ~std::size_t(7);
}
constexpr std::size_t kLargestRecord = sizeof(Record) + pad8(65536);
// Idle chunks kept for the next burst; the rest go back to the system.
constexpr std::size_t kSpareChunks = 16;
// A chunk that is still being filled is written after this long.
constexpr auto kWriteEvery = std::chrono::milliseconds(250);

} // namespace

CaptureRecorder::CaptureRecorder(uint16_t p) : CaptureRecorder(p, Limits()) {}

CaptureRecorder::CaptureRecorder(uint16_t p, Limits limits)
    : port(p), chunkBytes(std::max(limits.chunkBytes, kLargestRecord)),
      maxChunks(std::max<std::size_t>(2, limits.bufferBytes / chunkBytes))
{
}

CaptureRecorder::~CaptureRecorder()
{
    finish();
}

bool CaptureRecorder::start(const std::string& path, CaptureWriter::Format f)
{
    if (thread.joinable())
        return false;
    file = path;
    // Opening ignores SIGXFSZ: a file-size limit fails the write (EFBIG).
    writer = CaptureWriter::create(f);
    if (!writer->open(path)) {
        std::lock_guard<std::mutex> guard(lock);
        message = writer->error();
        failed = true;
        return false;
    }
    {
        std::lock_guard<std::mutex> guard(lock);
        format = f;
    }
    bytes = writer->fileBytes();
    written = writer->fileBytes();
    started = std::chrono::steady_clock::now();
    accepting = true;
    thread = std::thread([this] { writerLoop(); });
    return true;
}

void CaptureRecorder::stop()
{
    if (!thread.joinable())
        return;
    accepting = false;
    {
        std::lock_guard<std::mutex> guard(lock);
        stopping = true;
    }
    changed.notify_one();
}

bool CaptureRecorder::finish()
{
    if (!thread.joinable())
        return !failed;
    stop();
    thread.join();
    return !failed;
}

CaptureRecorder::Chunk* CaptureRecorder::room(std::size_t need)
{
    if (current && current->used + need <= chunkBytes)
        return current.get();
    if (current && current->used) {
        full.push_back(std::move(current));
        changed.notify_one();
    }
    if (!current) {
        if (!spare.empty()) {
            current = std::move(spare.back());
            spare.pop_back();
        } else if (chunks < maxChunks) {
            // Once per chunk while the buffer grows, not per datagram.
            current = std::make_unique<Chunk>();
            current->bytes.reset(new char[chunkBytes]);
            ++chunks;
        } else {
            return nullptr;
        }
    }
    current->used = 0;
    return current.get();
}

void CaptureRecorder::onDatagram(const char* data, const strmsocket::DatagramSource::Datagram& d)
{
    take(data, d);
}

bool CaptureRecorder::take(const char* data, const strmsocket::DatagramSource::Datagram& d)
{
    if (!accepting.load(std::memory_order_relaxed))
        return false;
    if (d.length > CaptureWriter::kMaxPayload) { // not one IPv4 packet; a socket never reads one
        notRecorded.fetch_add(1, std::memory_order_relaxed);
        return false;
    }
    Record r{d.receivedNs, d.sender, d.local, static_cast<uint32_t>(d.length), d.senderPort, 0};
    if (!r.timeNs) {
        timespec now{};
        ::clock_gettime(CLOCK_REALTIME, &now);
        r.timeNs = int64_t(now.tv_sec) * 1000000000 + now.tv_nsec;
    }
    const std::size_t need = sizeof r + pad8(d.length);
    uint64_t size = 0;
    {
        std::lock_guard<std::mutex> guard(lock);
        if (stopping)
            return false;
        Chunk* c = room(need);
        if (!c) {
            notRecorded.fetch_add(1, std::memory_order_relaxed);
            return false;
        }
        size = CaptureWriter::recordSize(format, d.length);
        std::memcpy(c->bytes.get() + c->used, &r, sizeof r);
        if (d.length) // an empty datagram may come without bytes
            std::memcpy(c->bytes.get() + c->used + sizeof r, data, d.length);
        c->used += need;
    }
    datagrams.fetch_add(1, std::memory_order_relaxed);
    if (WireFormat::beginsRawLine(data, d.length))
        lines.fetch_add(1, std::memory_order_relaxed);
    bytes.fetch_add(size, std::memory_order_relaxed);
    return true;
}

void CaptureRecorder::writerLoop()
{
    std::vector<std::unique_ptr<Chunk>> batch;
    std::unique_lock<std::mutex> guard(lock);
    for (;;) {
        const bool woken =
            changed.wait_for(guard, kWriteEvery, [this] { return !full.empty() || stopping; });
        // A quiet stream's datagrams are not left in memory for long; at the
        // end, everything goes.
        if ((!woken || stopping) && current && current->used)
            full.push_back(std::move(current));
        if (full.empty()) {
            if (stopping) {
                // Everything is written: the file is closed here, so that
                // whoever stopped the recording need not wait for the disk.
                guard.unlock();
                const bool ok = writer->close();
                written.store(writer->fileBytes(), std::memory_order_relaxed);
                guard.lock();
                if (!ok && !failed) {
                    message = writer->error();
                    failed = true;
                }
                closed.store(true, std::memory_order_release);
                return;
            }
            continue;
        }
        batch.swap(full);
        guard.unlock();
        bool ok = !failed.load();
        for (const auto& chunk : batch)
            ok = ok && writeChunk(*chunk);
        ok = ok && writer->flush();
        written.store(writer->fileBytes(), std::memory_order_relaxed);
        guard.lock();
        if (!ok && !failed) {
            // The rest of the recording is given up; the file keeps what it has.
            message = writer->error();
            failed = true;
            accepting = false;
        }
        for (auto& chunk : batch) {
            if (spare.size() < kSpareChunks) {
                spare.push_back(std::move(chunk));
            } else {
                --chunks;
                chunk.reset();
            }
        }
        batch.clear();
    }
}

bool CaptureRecorder::writeChunk(const Chunk& chunk)
{
    for (std::size_t at = 0; at < chunk.used;) {
        Record r;
        std::memcpy(&r, chunk.bytes.get() + at, sizeof r);
        const auto* payload = reinterpret_cast<const uint8_t*>(chunk.bytes.get() + at + sizeof r);
        if (!writer->write(r.timeNs, r.sender, r.senderPort, r.local, port, payload, r.length))
            return false;
        at += sizeof r + pad8(r.length);
    }
    return true;
}

CaptureRecorder::Status CaptureRecorder::status() const
{
    Status s;
    s.datagrams = datagrams.load(std::memory_order_relaxed);
    s.lines = lines.load(std::memory_order_relaxed);
    s.bytes = bytes.load(std::memory_order_relaxed);
    s.written = written.load(std::memory_order_relaxed);
    s.notRecorded = notRecorded.load(std::memory_order_relaxed);
    s.failed = failed.load();
    if (s.failed) {
        std::lock_guard<std::mutex> guard(lock);
        s.error = message;
    }
    return s;
}

} // namespace vxrec
