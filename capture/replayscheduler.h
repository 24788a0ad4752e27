#pragma once
#include <cstdint>

namespace vxrec {

// Maps capture times to the wall-clock times at which datagrams are due:
// the capture's intervals divided by the speed, anchored at the first
// datagram of each pass. The schedule is absolute, so a datagram that is
// late (slow sending) goes out at once and the replay catches up instead of
// drifting. A new pass (--loop) starts where the previous one ended. After
// restart() (the user sought, played or changed the speed) the next pass
// starts now, whatever was due before: a datagram that was minutes away
// behind a pause in the capture does not hold up what the user asked for.
//
// Ownership: uses, does not own, the clock. Threads: one thread at a time.
class ReplayScheduler
{
public:
    // Monotonic time source; tests substitute a fake one.
    class Clock
    {
    public:
        virtual ~Clock() = default;
        virtual int64_t nowNs() = 0;
        virtual void sleepUntilNs(int64_t wakeNs) = 0;
    };
    // The process's monotonic clock.
    static Clock& systemClock();

    ReplayScheduler(Clock& clock, double speed, bool fast);

    // The next pass begins with a datagram captured at `captureNs`.
    void beginPass(int64_t captureNs);
    // The next beginPass anchors the schedule at the clock's now, not at the
    // end of what was scheduled before.
    void restart() { started = false; }
    // Another speed (or as fast as possible); takes effect with the next
    // beginPass, which anchors the schedule anew.
    void setSpeed(double newSpeed, bool asFastAsPossible);
    // When the datagram captured at `captureNs` is due (clock time).
    int64_t dueNs(int64_t captureNs);

private:
    Clock& clock;
    double speed;
    bool fast;
    bool started = false;
    int64_t anchorCapture = 0;
    int64_t anchorWall = 0;
    int64_t lastDue = 0;
};

} // namespace vxrec
