#include "capture/replayscheduler.h"

#include <algorithm>
#include <cerrno>
#include <ctime>

namespace vxrec {

namespace {

class MonotonicClock : public ReplayScheduler::Clock
{
public:
    int64_t nowNs() override
    {
        timespec ts{};
        clock_gettime(CLOCK_MONOTONIC, &ts);
        return int64_t(ts.tv_sec) * 1000000000 + ts.tv_nsec;
    }
    void sleepUntilNs(int64_t wakeNs) override
    {
        timespec ts{};
        ts.tv_sec = wakeNs / 1000000000;
        ts.tv_nsec = wakeNs % 1000000000;
        // A signal ends the sleep early; the caller checks and waits again.
        clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &ts, nullptr);
    }
};

} // namespace

ReplayScheduler::Clock& ReplayScheduler::systemClock()
{
    static MonotonicClock clock;
    return clock;
}

ReplayScheduler::ReplayScheduler(Clock& clock, double speed, bool fast)
    : clock(clock), speed(speed > 0 ? speed : 1.0), fast(fast)
{
}

void ReplayScheduler::beginPass(int64_t captureNs)
{
    const int64_t now = clock.nowNs();
    anchorWall = started ? std::max(now, lastDue) : now;
    anchorCapture = captureNs;
    lastDue = anchorWall;
    started = true;
}

void ReplayScheduler::setSpeed(double newSpeed, bool asFastAsPossible)
{
    speed = newSpeed > 0 ? newSpeed : 1.0;
    fast = asFastAsPossible;
}

int64_t ReplayScheduler::dueNs(int64_t captureNs)
{
    if (fast)
        return anchorWall;
    // Out-of-order capture times (merged files) never move the schedule back.
    const double offset = double(captureNs - anchorCapture) / speed;
    const int64_t due = anchorWall + static_cast<int64_t>(offset);
    lastDue = std::max(lastDue, due);
    return lastDue;
}

} // namespace vxrec
