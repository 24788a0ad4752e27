#include "capture/capturesource.h"

#include "scanner/wireformat.h"

#include <algorithm>
#include <chrono>
#include <cstring>

namespace vxrec {

namespace {

class SharedSource : public strmsocket::DatagramSource
{
public:
    explicit SharedSource(std::shared_ptr<CaptureSource> s) : source(std::move(s)) {}
    int wait(int timeoutMs, bool forData) override { return source->wait(timeoutMs, forData); }
    int receive(char* buffer, std::size_t capacity, Datagram& out) override
    {
        return source->receive(buffer, capacity, out);
    }
    void wake() override { source->wake(); }
    bool canHoldBack() const override { return source->canHoldBack(); }

private:
    std::shared_ptr<CaptureSource> source;
};

} // namespace

CaptureSource::CaptureSource(uint16_t p) : port(p) {}

std::unique_ptr<strmsocket::DatagramSource>
CaptureSource::shared(std::shared_ptr<CaptureSource> source)
{
    return std::make_unique<SharedSource>(std::move(source));
}

bool CaptureSource::restart(std::string& problem)
{
    extractor = std::make_unique<DatagramExtractor>(DatagramExtractor::Filter{port, -1});
    extractor->setStop(&interrupted);
    if (extractor->open(path))
        return true;
    problem = extractor->error();
    return false;
}

bool CaptureSource::open(const std::string& file)
{
    path = file;
    if (!restart(openError))
        return false;
    openError.clear();
    std::lock_guard<std::mutex> guard(lock);
    state = Status{};
    state.passes = 1;
    return true;
}

void CaptureSource::play()
{
    playLines(UINT64_MAX);
}

void CaptureSource::playLines(uint64_t n)
{
    std::lock_guard<std::mutex> guard(lock);
    linesLeft = n;
    state.playing = true;
    reanchor(); // the schedule goes on from now
    changed.notify_all();
}

void CaptureSource::seek(uint64_t offset, uint64_t line, uint64_t prelude)
{
    std::lock_guard<std::mutex> guard(lock);
    seeking = true;
    seekTo = offset;
    seekLine = line;
    seekPrelude = prelude < offset ? prelude : kNoPrelude;
    // The status tells of the new place at once, not only once the receive
    // thread gets to it.
    state.nextLine = line;
    state.ended = false;
    state.problem.clear();
    reanchor();
    interrupted.store(true, std::memory_order_relaxed);
    changed.notify_all();
}

void CaptureSource::pause()
{
    std::lock_guard<std::mutex> guard(lock);
    state.playing = false;
    changed.notify_all();
}

void CaptureSource::setSpeed(double factor)
{
    std::lock_guard<std::mutex> guard(lock);
    scheduler.setSpeed(factor, factor <= 0);
    reanchor();
    changed.notify_all();
}

void CaptureSource::setLoop(bool on)
{
    std::lock_guard<std::mutex> guard(lock);
    loop = on;
    changed.notify_all();
}

CaptureSource::Status CaptureSource::status() const
{
    std::lock_guard<std::mutex> guard(lock);
    return state;
}

void CaptureSource::wake()
{
    std::lock_guard<std::mutex> guard(lock);
    woken = true;
    interrupted.store(true, std::memory_order_relaxed);
    changed.notify_all();
}

bool CaptureSource::fetch()
{
    cutShort = false;
    {
        std::unique_lock<std::mutex> guard(lock);
        if (seeking) {
            seeking = false;
            const uint64_t offset = seekTo;
            const uint64_t prelude = seekPrelude;
            state.nextLine = seekLine;
            guard.unlock();
            havePending = false;
            freshNext = true;
            resumeAt = prelude == kNoPrelude ? kNoPrelude : offset;
            const bool moved =
                extractor && extractor->seek(prelude == kNoPrelude ? offset : prelude);
            guard.lock();
            exhausted = !moved;
            state.ended = !moved;
            state.problem = moved ? std::string() : extractor->error();
        }
    }
    if (havePending)
        return true;
    for (int pass = 0; pass < 2 && !exhausted && extractor; ++pass) {
        UdpDatagram d;
        DatagramExtractor::Status s = extractor->next(d);
        if (s == DatagramExtractor::Status::Datagram && resumeAt != kNoPrelude &&
            strmsocket::WireFormat::beginsRawLine(d.data, d.length)) {
            // The prelude is over at the next line: on at the seek's target,
            // with the schedule anchored there.
            const uint64_t target = resumeAt;
            resumeAt = kNoPrelude;
            s = extractor->seek(target) ? extractor->next(d) : DatagramExtractor::Status::Error;
            std::lock_guard<std::mutex> guard(lock);
            reanchor();
        }
        if (s == DatagramExtractor::Status::Stopped) {
            cutShort = true; // on from here at the next call
            return false;
        }
        if (s == DatagramExtractor::Status::Datagram) {
            pendingBytes.assign(d.data, d.data + d.length);
            pending = d;
            pending.data = pendingBytes.data();
            havePending = true;
            std::lock_guard<std::mutex> guard(lock);
            if (state.firstNs == 0)
                state.firstNs = extractor->firstFrameNs();
            return true;
        }
        std::unique_lock<std::mutex> guard(lock);
        if (s == DatagramExtractor::Status::Error) {
            state.problem = extractor->error();
        } else if (loop && state.datagrams > 0) {
            // Once more from the start; the schedule goes on where it is.
            guard.unlock();
            std::string why;
            const bool reopened = restart(why);
            guard.lock();
            if (reopened) {
                ++state.passes;
                state.nextLine = 0;
                freshNext = true;
                resumeAt = kNoPrelude;
                anchored = false;
                continue;
            }
            state.problem = why;
        }
        state.ended = true;
        exhausted = true;
    }
    return false;
}

void CaptureSource::reanchor()
{
    scheduler.restart();
    anchored = false;
}

int64_t CaptureSource::dueNs()
{
    if (!anchored) {
        scheduler.beginPass(pending.timeNs);
        anchored = true;
    }
    return scheduler.dueNs(pending.timeNs);
}

int CaptureSource::wait(int timeoutMs, bool forData)
{
    const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    for (;;) {
        // The file is read outside the lock: the controls stay quick.
        const bool have = forData && fetch();
        std::unique_lock<std::mutex> guard(lock);
        if (woken) {
            woken = false;
            interrupted.store(false, std::memory_order_relaxed);
            return 2;
        }
        if (cutShort || (forData && seeking)) {
            // A control cut the reading short, or a seek came after the read:
            // read on, with it applied. The datagram read before a seek is
            // never timed, lest the seek's fresh anchor make it due at once.
            interrupted.store(false, std::memory_order_relaxed);
            continue;
        }
        auto until = deadline;
        if (have && state.playing) {
            const int64_t now = ReplayScheduler::systemClock().nowNs();
            const int64_t due = dueNs();
            if (due <= now)
                return 1;
            until = std::min(until, Clock::now() + std::chrono::nanoseconds(due - now));
        }
        if (Clock::now() >= deadline)
            return 0;
        // Woken, a control changed, or the datagram fell due: look again.
        changed.wait_until(guard, until);
    }
}

int CaptureSource::receive(char* buffer, std::size_t capacity, Datagram& out)
{
    if (!fetch())
        return 0;
    {
        std::lock_guard<std::mutex> guard(lock);
        // A seek that came after the read above makes the pending datagram
        // stale: it is dropped at the next read, never sent.
        if (seeking || !state.playing || dueNs() > ReplayScheduler::systemClock().nowNs())
            return 0;
        if (linesLeft == 0 && strmsocket::WireFormat::beginsRawLine(pending.data, pending.length)) {
            state.playing = false; // the lines asked for are played
            return 0;
        }
        // A line counts when its last piece goes out, as the receiver
        // completes it then; one with pieces missing never counts.
        if (freshNext)
            counter.clear();
        if (counter.feed(pending).completed == LineCounter::Completed::Line) {
            if (linesLeft != UINT64_MAX)
                --linesLeft;
            state.lines += 1;
            state.nextLine += 1;
        }
        state.datagrams += 1;
        state.currentNs = pending.timeNs;
    }
    out = Datagram{};
    out.length = std::min(pending.length, capacity);
    std::memcpy(buffer, pending.data, out.length);
    out.sender = pending.source;
    out.senderPort = pending.sourcePort;
    out.local = pending.destination;
    out.receivedNs = pending.timeNs;
    out.fresh = freshNext;
    freshNext = false;
    havePending = false;
    return 1;
}

} // namespace vxrec
