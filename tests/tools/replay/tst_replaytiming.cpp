// Replay timing on a fake clock: datagrams go out at their capture offsets
// divided by the speed, --start counts from the capture's first frame, a
// slow sender catches up instead of drifting, --loop continues without a gap
// or a burst, --fast does not wait. A progress line comes once per second.
#include "tests/check.h"
#include "tests/capture/capturebuilder.h"

#include "tools/replay/replayer.h"

#include <atomic>
#include <cmath>
#include <functional>

using namespace vxrec;
using B = CaptureBuilder;

namespace {

constexpr int64_t kMs = 1000000;
std::vector<int64_t> offsets; // of the capture's datagrams from its first frame

// The clock and the sink in one: time moves only when the replayer sleeps or
// a send costs `costNs`; sends are recorded with their clock time, and the
// replay is stopped after `stopAfter` of them.
struct FakeRun : ReplayScheduler::Clock, DatagramSink
{
    int64_t now = 5000 * kMs, costNs = 0;
    std::size_t stopAfter = 0;
    std::atomic<bool> stop{false};
    std::vector<int64_t> times;
    std::vector<uint8_t> ids;
    int progressCalls = 0;

    int64_t nowNs() override { return now; }
    void sleepUntilNs(int64_t wake) override { now = std::max(now, wake); }
    bool send(const uint8_t* data, std::size_t) override
    {
        times.push_back(now);
        ids.push_back(data[0]);
        now += costNs;
        stop = stopAfter && times.size() >= stopAfter;
        return true;
    }
};

// The capture: a non-matching frame 200 ms before the first datagram, then
// datagrams 0..99 every 10 ms, a 2 s pause, datagrams 100..109 every 10 ms.
void writeCapture()
{
    constexpr int64_t t0 = 1700000000LL * 1000000000;
    B b(false, true, 101);
    b.add(t0, B::ipv4(B::udp(9999, {0})));
    for (int64_t i = 0, t = 200 * kMs; i < 110; ++i, t += 10 * kMs) {
        t += i == 100 ? 2000 * kMs : 0;
        offsets.push_back(t);
        b.add(t0 + t, B::ipv4(B::udp(6101, {uint8_t(i)})));
    }
    B::save(vxtest::tempPath("timing.pcap"), b.bytes());
}

// Each row's sends against the clock times they are due at, to the
// nanosecond (rounding aside).
void schedule()
{
    const std::size_t n = offsets.size();
    const auto at = [](std::size_t i) { return double(offsets[i] - offsets[0]); };
    const int64_t span = int64_t(at(n - 1));
    struct Row
    {
        const char* name;
        double speed, start;
        bool loop, fast;
        int64_t costNs;
        std::size_t sends, firstId;
        std::function<double(std::size_t)> due; // of the k-th send
    };
    const Row rows[] = {
        {"speed 2", 2, 0, false, false, 0, n, 0, [&](std::size_t k) { return at(k) / 2; }},
        {"speed 0.25", 0.25, 0, false, false, 0, n, 0, [&](std::size_t k) { return at(k) * 4; }},
        // --start counts from the first frame, which is not a datagram.
        {"start 0.5 s", 1, 0.5, false, false, 0, n - 30, 30,
         [&](std::size_t k) { return at(30 + k) - at(30); }},
        {"start 1.4 s at speed 3", 3, 1.4, false, false, 0, n - 100, 100,
         [&](std::size_t k) { return (at(100 + k) - at(100)) / 3; }},
        // Each send costs 15 ms while the capture has 10 ms gaps: the first
        // run falls behind, and the pause lets the replay catch up.
        {"slow sender", 1, 0, false, false, 15 * kMs, n, 0,
         [&](std::size_t k) {
             return k < 100 ? k * 15.0 * kMs : at(100) + (k - 100) * 15.0 * kMs;
         }},
        // The next pass starts where the last ended, and keeps the pacing.
        {"loop", 1, 0, true, false, 0, 2 * n + 5, 0,
         [&](std::size_t k) { return double(k / n * span) + at(k % n); }},
        {"fast", 1, 0, false, true, 0, n, 0, [](std::size_t) { return 0.0; }},
    };
    for (const Row& row : rows) {
        vxtest::row = row.name;
        ReplayOptions o;
        o.file = vxtest::tempPath("timing.pcap");
        o.speed = row.speed;
        o.start = row.start;
        o.loop = row.loop;
        o.fast = row.fast;
        FakeRun f;
        f.costNs = row.costNs;
        f.stopAfter = row.loop ? row.sends : 0;
        Replayer r(o, f, f);
        std::string error;
        if (!CHECK(r.scan(error)))
            continue;
        r.run(f.stop, [&](const Replayer::Progress&) { ++f.progressCalls; });
        if (!CHECK_EQ(f.times.size(), row.sends))
            continue;
        CHECK_EQ(int(f.ids[0]), int(row.firstId));
        CHECK_EQ(r.passes(), (row.sends - 1) / n + 1);
        long long worst = 0;
        for (std::size_t k = 0; k < f.times.size(); ++k)
            worst = std::max(worst, std::llabs(f.times[k] - f.times[0] - std::llround(row.due(k))));
        CHECK(worst <= 1);
        // One progress line per second of clock time.
        CHECK(std::llabs(f.progressCalls - (f.times.back() - f.times[0]) / 1000000000) <= 1);
    }
}

} // namespace

int main()
{
    writeCapture();
    schedule();
    return vxtest::result("tst_replaytiming");
}
