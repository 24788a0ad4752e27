// Replay timing on a fake clock: datagrams go out at their capture offsets
// divided by the speed, --start counts from the capture's first frame, a
// slow sender catches up instead of drifting, --loop continues without a gap
// or a burst, --fast does not wait. Checked by counting what was sent by a
// given clock time.
#include "capturebuilder.h"
#include "check.h"

#include "tools/replay/replayer.h"

#include <cmath>
#include <csignal>
#include <cstdlib>
#include <string>
#include <unistd.h>
#include <vector>

using namespace vxrec;
using Bytes = CaptureBuilder::Bytes;

namespace {

constexpr int64_t kMs = 1000000;
constexpr int64_t kT0 = 1700000000LL * 1000000000;

class FakeClock : public ReplayScheduler::Clock
{
public:
    int64_t now = 5000 * kMs;
    int64_t nowNs() override { return now; }
    void sleepUntilNs(int64_t wake) override { now = std::max(now, wake); }
};

// Records the clock time of each send; may cost clock time itself and stop
// the replay after a number of datagrams.
class RecordingSink : public DatagramSink
{
public:
    RecordingSink(FakeClock& clock, volatile std::sig_atomic_t& stop) : clock(clock), stop(stop) {}
    bool send(const uint8_t* data, std::size_t) override
    {
        times.push_back(clock.now);
        ids.push_back(data[0]);
        clock.now += costNs;
        if (stopAfter && times.size() >= stopAfter)
            stop = 1;
        return true;
    }
    FakeClock& clock;
    volatile std::sig_atomic_t& stop;
    std::vector<int64_t> times;
    std::vector<uint8_t> ids;
    int64_t costNs = 0;
    std::size_t stopAfter = 0;
};

// The capture: a non-matching frame 200 ms before the first datagram, then
// datagrams 0..99 every 10 ms, a 2 s pause, datagrams 100..109 every 10 ms.
// Returns the capture offsets of the datagrams from the first frame.
std::vector<int64_t> writeCapture(const std::string& path)
{
    CaptureBuilder b(CaptureBuilder::Format::Pcap, false, true, 101);
    b.add(kT0, CaptureBuilder::ipv4(1, 2, 17, CaptureBuilder::udp(1, 9999, Bytes(4, 0))));
    std::vector<int64_t> offsets;
    int64_t t = 200 * kMs;
    for (int i = 0; i < 110; ++i) {
        if (i == 100)
            t += 2000 * kMs;
        offsets.push_back(t);
        b.add(kT0 + t,
              CaptureBuilder::ipv4(1, 2, 17, CaptureBuilder::udp(1, 6101, Bytes(1, uint8_t(i)))));
        t += 10 * kMs;
    }
    b.save(path);
    return offsets;
}

struct Run
{
    std::vector<int64_t> times; // relative to the first send
    std::vector<uint8_t> ids;
    uint64_t passes = 0;
    int progressCalls = 0;
};

Run replay(const std::string& path, ReplayOptions o, int64_t costNs = 0, std::size_t stopAfter = 0)
{
    o.file = path;
    FakeClock clock;
    volatile std::sig_atomic_t stop = 0;
    RecordingSink sink(clock, stop);
    sink.costNs = costNs;
    sink.stopAfter = stopAfter;
    Replayer r(o, clock, sink);
    std::string error;
    Run run;
    if (!CHECK(r.scan(error)))
        return run;
    r.run(&stop, [&](const Replayer::Progress&) { ++run.progressCalls; });
    for (int64_t t : sink.times)
        run.times.push_back(t - sink.times.front());
    run.ids = sink.ids;
    run.passes = r.passes();
    return run;
}

std::size_t sentBy(const Run& r, int64_t t)
{
    std::size_t n = 0;
    for (int64_t x : r.times)
        n += x <= t;
    return n;
}

void speedsAndStart(const std::string& path, const std::vector<int64_t>& offsets)
{
    struct Row
    {
        const char* name;
        double speed;
        double start;
        std::size_t firstId;
    };
    const Row rows[] = {
        {"speed 1", 1.0, 0, 0},
        {"speed 2", 2.0, 0, 0},
        {"speed 0.25", 0.25, 0, 0},
        // --start counts from the first frame, which is not a datagram.
        {"start 0.5 s", 1.0, 0.5, 30},
        {"start 1.4 s at speed 3", 3.0, 1.4, 100},
    };
    for (const Row& row : rows) {
        check::row() = row.name;
        ReplayOptions o;
        o.speed = row.speed;
        o.start = row.start;
        const Run r = replay(path, o);
        if (!CHECK_EQ(r.times.size(), offsets.size() - row.firstId))
            continue;
        CHECK_EQ(int(r.ids[0]), int(row.firstId));
        // Every datagram at its scaled offset from the first one sent...
        int worst = 0;
        for (std::size_t i = 0; i < r.times.size(); ++i) {
            const double due = double(offsets[row.firstId + i] - offsets[row.firstId]) / row.speed;
            worst = std::max(worst, int(std::llabs(r.times[i] - std::llround(due))));
        }
        CHECK(worst <= 1);
        // ...so that by half the first run's span, half of it has gone out.
        if (row.firstId == 0) {
            const int64_t mid = std::llround(double(offsets[49] - offsets[0]) / row.speed);
            CHECK_EQ(sentBy(r, mid), std::size_t(50));
        }
    }
}

void slowSenderCatchesUp(const std::string& path, const std::vector<int64_t>& offsets)
{
    check::row() = "slow sender";
    ReplayOptions o;
    // Each send costs 15 ms while the capture has 10 ms gaps: the first run
    // falls behind, and the pause lets the replay catch up to the schedule.
    const Run r = replay(path, o, 15 * kMs);
    if (!CHECK_EQ(r.times.size(), offsets.size()))
        return;
    CHECK_EQ(r.times[99], 99 * 15 * kMs);
    CHECK_EQ(r.times[100], offsets[100] - offsets[0]);
    CHECK_EQ(r.times[101], offsets[100] - offsets[0] + 15 * kMs);
}

void loopAndFast(const std::string& path, const std::vector<int64_t>& offsets)
{
    check::row() = "loop";
    ReplayOptions o;
    o.loop = true;
    const std::size_t n = offsets.size();
    const Run r = replay(path, o, 0, 2 * n + 5);
    CHECK_EQ(r.times.size(), 2 * n + 5);
    CHECK_EQ(r.passes, 3u);
    const int64_t span = offsets.back() - offsets.front();
    // The second pass starts where the first ended, and keeps the pacing.
    CHECK_EQ(r.times[n], span);
    CHECK_EQ(r.times[n + 1], span + 10 * kMs);
    CHECK_EQ(r.times[2 * n], 2 * span);
    // One progress line per second of clock time.
    CHECK(std::abs(r.progressCalls - int(2 * span / 1000000000)) <= 1);

    check::row() = "fast";
    o.loop = false;
    o.fast = true;
    const Run f = replay(path, o, 0);
    CHECK_EQ(f.times.size(), n);
    CHECK_EQ(f.times.back(), 0);
}

} // namespace

int main()
{
    char dir[] = "/tmp/tst_replaytiming.XXXXXX";
    const std::string path = std::string(mkdtemp(dir)) + "/timing.pcap";
    const std::vector<int64_t> offsets = writeCapture(path);
    speedsAndStart(path, offsets);
    slowSenderCatchesUp(path, offsets);
    loopAndFast(path, offsets);
    unlink(path.c_str());
    rmdir(dir);
    return check::result("tst_replaytiming");
}
