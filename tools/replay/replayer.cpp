#include "tools/replay/replayer.h"

#include "capture/datagramextractor.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace vxrec {

namespace {
constexpr int64_t kSecondNs = 1000000000;
// Longest single sleep, so that Ctrl+C and progress lines are not held up
// by a long pause in the capture.
constexpr int64_t kMaxSleepNs = kSecondNs / 10;

std::string seconds(double s)
{
    char buf[32];
    std::snprintf(buf, sizeof buf, "%g", s);
    return buf;
}

std::string hostPort(const ReplayOptions& o)
{
    std::string s = "UDP port " + std::to_string(o.port);
    if (o.sourcePort >= 0)
        s += " from source port " + std::to_string(o.sourcePort);
    return s;
}
} // namespace

Replayer::Replayer(const ReplayOptions& options, ReplayScheduler::Clock& clock, DatagramSink& sink)
    : options(options), clock(clock), sink(sink)
{
}

int64_t Replayer::startNs() const
{
    return static_cast<int64_t>(std::llround(options.start * double(kSecondNs)));
}

bool Replayer::scan(std::string& error)
{
    info = Scan{};
    DatagramExtractor extractor({options.port, options.sourcePort});
    if (!extractor.open(options.file)) {
        // libpcap names the file in most of its messages already.
        error = extractor.error();
        if (error.find(options.file) == std::string::npos)
            error = options.file + ": " + error;
        return false;
    }
    UdpDatagram d;
    DatagramExtractor::Status s;
    uint64_t beforeStart = 0;
    while ((s = extractor.next(d)) == DatagramExtractor::Status::Datagram) {
        if (d.timeNs - extractor.firstFrameNs() < startNs()) {
            ++beforeStart;
            continue;
        }
        if (info.datagrams++ == 0)
            info.firstNs = d.timeNs;
        info.lastNs = std::max(info.lastNs, d.timeNs);
        info.bytes += d.length;
    }
    info.frames = extractor.framesRead();
    info.firstFrameNs = extractor.firstFrameNs();
    info.skipped = extractor.skipped();
    if (s == DatagramExtractor::Status::Error)
        info.damage = extractor.error();
    if (info.datagrams == 0) {
        error = options.file + ": no UDP datagram to " + hostPort(options);
        if (beforeStart)
            error += " after " + seconds(options.start) + " s (" + std::to_string(beforeStart) +
                     " before)";
        error += " in " + std::to_string(info.frames) +
                 " frames (skipped: " + info.skipped.summary() + ")";
        if (!info.damage.empty())
            error += "; the file is damaged: " + info.damage;
        return false;
    }
    return true;
}

void Replayer::tick(int64_t nowNs)
{
    if (nowNs < nextTickNs)
        return;
    if (progress) {
        Progress p;
        p.positionS = double(positionNs - info.firstFrameNs) / kSecondNs;
        p.totalS = double(info.lastNs - info.firstFrameNs) / kSecondNs;
        p.sent = sentCount;
        const double interval = double(nowNs - lastTickNs) / kSecondNs;
        p.ratePerS = interval > 0 ? double(sentCount - sentAtLastTick) / interval : 0;
        progress(p);
    }
    lastTickNs = nowNs;
    sentAtLastTick = sentCount;
    nextTickNs = nowNs + kSecondNs;
}

bool Replayer::waitUntil(int64_t dueNs)
{
    for (;;) {
        const int64_t now = clock.nowNs();
        tick(now);
        if (now >= dueNs)
            return true;
        if (stopped())
            return false;
        clock.sleepUntilNs(std::min(dueNs, now + kMaxSleepNs));
    }
}

bool Replayer::runPass(ReplayScheduler& scheduler)
{
    DatagramExtractor extractor({options.port, options.sourcePort});
    if (!extractor.open(options.file)) {
        sendError = extractor.error();
        return false;
    }
    ++passCount;
    bool first = true;
    UdpDatagram d;
    while (!stopped() && extractor.next(d) == DatagramExtractor::Status::Datagram) {
        if (d.timeNs - extractor.firstFrameNs() < startNs())
            continue;
        if (first)
            scheduler.beginPass(d.timeNs);
        first = false;
        if (!waitUntil(scheduler.dueNs(d.timeNs)))
            return false;
        if (sink.send(d.data, d.length)) {
            ++sentCount;
            sentByteCount += d.length;
        } else {
            ++errorCount;
            sendError = sink.error();
        }
        positionNs = d.timeNs;
    }
    return !first && !stopped();
}

void Replayer::run(const std::atomic<bool>& stopFlag, const ProgressFunction& progressFn)
{
    stop = &stopFlag;
    progress = progressFn;
    lastTickNs = clock.nowNs();
    nextTickNs = lastTickNs + kSecondNs;
    sentAtLastTick = 0;
    positionNs = info.firstNs;
    ReplayScheduler scheduler(clock, options.speed, options.fast);
    while (runPass(scheduler) && options.loop) {
    }
}

} // namespace vxrec
