#include "tools/sim/simulator.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <ctime>

namespace vxsim {

namespace {

constexpr int64_t kSecond = 1000000000;
constexpr uint64_t kMaxBatchLines = 256;

int64_t nowNs()
{
    timespec ts;
    ::clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<int64_t>(ts.tv_sec) * kSecond + ts.tv_nsec;
}

void sleepUntil(int64_t ns)
{
    timespec ts;
    ts.tv_sec = static_cast<time_t>(ns / kSecond);
    ts.tv_nsec = static_cast<long>(ns % kSecond);
    // Returns early with EINTR on a signal, so that a stop request is seen.
    ::clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &ts, nullptr);
}

} // namespace

Simulator::Simulator(const SimOptions& options, std::FILE* output)
    : opt(options), out(output), composer(options)
{
}

bool Simulator::open(std::string& error)
{
    return messages.open(opt.host, opt.port, error);
}

void Simulator::printSummary(double elapsed, double rate, bool final)
{
    std::fprintf(out, "%s%.1f s: %llu lines, %llu datagrams, %llu bytes, %.1f lines/s%s",
                 final ? "total " : "", elapsed, static_cast<unsigned long long>(sentLines),
                 static_cast<unsigned long long>(messages.datagrams()),
                 static_cast<unsigned long long>(messages.bytes()), rate, final ? " average" : "");
    if (messages.errors())
        std::fprintf(out, ", %llu send errors (%s)",
                     static_cast<unsigned long long>(messages.errors()),
                     std::strerror(messages.lastError()));
    std::fputc('\n', out);
    std::fflush(out);
}

void Simulator::run(const std::atomic<bool>& stop)
{
    std::fprintf(out, "vxscanner-sim: protocol %s, %d pixels x %d bytes, %g lines/s to %s:%d\n",
                 opt.protocolText().c_str(), opt.pixels, opt.bpp, opt.rate, opt.host.c_str(),
                 opt.port);
    std::fflush(out);

    const std::vector<char> header = composer.fileHeader();
    const uint64_t limit = opt.count ? opt.count : UINT64_MAX;
    const int64_t start = nowNs();
    const int64_t end =
        opt.duration > 0 ? start + static_cast<int64_t>(opt.duration * kSecond) : INT64_MAX;
    // Line k is due at anchor + (k - anchorLine) / rate.
    int64_t anchor = start;
    uint64_t anchorLine = 0;
    const auto dueAt = [&](uint64_t k) {
        return anchor + static_cast<int64_t>(static_cast<double>(k - anchorLine) * 1e9 / opt.rate);
    };
    int64_t nextHeader = start;
    int64_t nextSummary = start + kSecond;
    int64_t lastSummary = start;
    uint64_t linesAtLastSummary = 0;

    while (!stop.load(std::memory_order_relaxed)) {
        int64_t t = nowNs();
        if (t >= end)
            break;
        if (t >= nextHeader) {
            if (!header.empty()) // --no-header
                messages.queue(header);
            nextHeader = std::max(nextHeader + kSecond, t);
        }
        // Lines whose deadline has passed.
        uint64_t due = anchorLine +
                       static_cast<uint64_t>(static_cast<double>(t - anchor) * opt.rate / 1e9) + 1;
        if (due > sentLines + static_cast<uint64_t>(std::ceil(opt.rate)) + kMaxBatchLines) {
            anchor = t;
            anchorLine = sentLines;
            due = sentLines + 1;
        }
        due = std::min(due, limit);
        const uint64_t batch = std::min(due - std::min(due, sentLines), kMaxBatchLines);
        for (uint64_t k = 0; k < batch; ++k) {
            messages.queue(composer.compose(sentLines + k));
            // A stamped line goes out the moment it is stamped, not after the
            // rest of its batch has been composed.
            if (opt.stampSendTime)
                messages.flush();
        }
        messages.flush();
        sentLines += batch;
        if (sentLines >= limit)
            break;

        t = nowNs();
        if (t >= nextSummary) {
            printSummary(static_cast<double>(t - start) / kSecond,
                         static_cast<double>(sentLines - linesAtLastSummary) * kSecond /
                             static_cast<double>(t - lastSummary),
                         false);
            lastSummary = t;
            linesAtLastSummary = sentLines;
            nextSummary += kSecond;
            if (nextSummary <= t)
                nextSummary = t + kSecond;
        }
        if (sentLines < due)
            continue; // still behind: send the next batch at once
        sleepUntil(std::min({dueAt(sentLines), nextHeader, nextSummary, end}));
    }

    const double elapsed = static_cast<double>(nowNs() - start) / kSecond;
    printSummary(elapsed, elapsed > 0 ? static_cast<double>(sentLines) / elapsed : 0.0, true);
}

} // namespace vxsim
