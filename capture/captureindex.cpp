#include "capture/captureindex.h"

#include "capture/datagramextractor.h"
#include "capture/linecounter.h"

#include <algorithm>
#include <cstring>
#include <iterator>

namespace vxrec {

CaptureIndex::~CaptureIndex()
{
    cancel();
    wait();
}

void CaptureIndex::start(const std::string& path, uint16_t port)
{
    cancel();
    wait();
    {
        std::lock_guard<std::mutex> guard(lock);
        chunks.clear();
        problem.clear();
        headers.clear();
    }
    count.store(0);
    lost.store(0);
    done.store(0.0);
    stopping.store(false);
    complete.store(false);
    stopped.store(false);
    worker = std::thread([this, path, port] { run(path, port); });
}

void CaptureIndex::cancel()
{
    stopping.store(true, std::memory_order_relaxed);
}

void CaptureIndex::wait()
{
    if (worker.joinable())
        worker.join();
}

void CaptureIndex::run(std::string path, uint16_t port)
{
    DatagramExtractor extractor({port, -1});
    extractor.setStop(&stopping);
    if (!extractor.open(path)) {
        std::lock_guard<std::mutex> guard(lock);
        problem = extractor.error();
    } else {
        const double size = double(std::max<uint64_t>(extractor.fileSize(), 1));
        UdpDatagram d;
        DatagramExtractor::Status s;
        uint64_t seen = 0;
        LineCounter counter;
        while ((s = extractor.next(d)) == DatagramExtractor::Status::Datagram) {
            const LineCounter::Result r = counter.feed(d);
            if (r.completed == LineCounter::Completed::Line) {
                add(Entry{r.firstOffset, r.firstNs});
            } else if (r.completed == LineCounter::Completed::FileHeader) {
                std::lock_guard<std::mutex> guard(lock);
                headers.emplace_back(r.firstOffset, count.load(std::memory_order_relaxed));
            }
            if (counter.incompleteMessages() != lost.load(std::memory_order_relaxed))
                lost.store(counter.incompleteMessages(), std::memory_order_relaxed);
            if ((++seen & 255) == 0)
                done.store(std::min(1.0, double(extractor.position()) / size),
                           std::memory_order_relaxed);
        }
        if (s != DatagramExtractor::Status::Stopped) {
            if (s == DatagramExtractor::Status::Error) {
                std::lock_guard<std::mutex> guard(lock);
                problem = extractor.error();
            } else {
                // What still waits for pieces at the end never completes.
                lost.store(counter.incompleteMessages(true), std::memory_order_relaxed);
                done.store(1.0, std::memory_order_relaxed);
                complete.store(true, std::memory_order_release);
            }
        }
    }
    stopped.store(true, std::memory_order_release);
}

void CaptureIndex::add(const Entry& e)
{
    const std::size_t n = count.load(std::memory_order_relaxed);
    if (n % kChunk == 0) {
        std::lock_guard<std::mutex> guard(lock);
        chunks.push_back(std::make_unique<Entry[]>(kChunk));
    }
    Entry* block;
    {
        std::lock_guard<std::mutex> guard(lock);
        block = chunks[n / kChunk].get();
    }
    block[n % kChunk] = e;
    count.store(n + 1, std::memory_order_release);
}

CaptureIndex::Entry CaptureIndex::entry(std::size_t i) const
{
    std::lock_guard<std::mutex> guard(lock);
    return chunks[i / kChunk][i % kChunk];
}

std::size_t CaptureIndex::find(int64_t timeNs) const
{
    // Capture times only grow in all but merged files: a binary search over
    // the lines found so far.
    std::size_t lo = 0, hi = lines();
    while (hi - lo > 1) {
        const std::size_t mid = lo + (hi - lo) / 2;
        if (entry(mid).timeNs <= timeNs)
            lo = mid;
        else
            hi = mid;
    }
    return lo;
}

bool CaptureIndex::headerBefore(std::size_t line, uint64_t& offset) const
{
    std::lock_guard<std::mutex> guard(lock);
    // Headers in file order; the last one with at most `line` lines before it.
    const auto after = std::upper_bound(
        headers.begin(), headers.end(), line,
        [](std::size_t l, const std::pair<uint64_t, std::size_t>& h) { return l < h.second; });
    if (after == headers.begin())
        return false;
    offset = std::prev(after)->first;
    return true;
}

std::string CaptureIndex::error() const
{
    std::lock_guard<std::mutex> guard(lock);
    return problem;
}

std::size_t CaptureIndex::bytes() const
{
    std::lock_guard<std::mutex> guard(lock);
    return chunks.size() * kChunk * sizeof(Entry) + chunks.capacity() * sizeof(chunks[0]) +
           headers.capacity() * sizeof(headers[0]);
}

} // namespace vxrec
