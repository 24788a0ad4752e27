#pragma once
#include "stream/linetype.h"

#include <QObject>
#include <QString>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

namespace vxlindral {

class StreamDataModel;

// The hand-over of one receiver's lines to the model's (GUI) thread.
//
// Lines wait here until the GUI thread takes them. The waiting lines are
// bounded by memory (their footprint) and by age; when a bound is reached the
// OLDEST waiting lines are dropped and counted by cause, and the newest line
// always gets through. The receive thread posts one drain event to the
// queue's thread only when none is pending; the drain takes the lines that
// were waiting when it started, in arrival order, and hands each to the model
// through setData(QModelIndex(), QVariant::fromValue(line)). Lines that
// arrive meanwhile are left to the next drain, so paints and input
// interleave with long bursts.
//
// Texts (the stream information of each line, "unknown data" of a rejected
// one) are emitted through the model's notifyStatistic directly from the
// calling thread. Every text emitted before a drain event was posted has
// been delivered when that drain runs; while more than maxTextsInFlight texts
// may still wait in the GUI thread's event queue, a new text is not emitted
// but held here (a held text replaced by a newer one is counted as dropped)
// and a drain hands it to the model's emitStatistic at its place among the
// lines, once every text emitted before it has been delivered, so that the
// newest text is the one that stays shown.
//
// Ownership: owned by its receiver; shares the model. Lines are shared
// handles. Threads: construction, setModel() and destruction on the model's
// thread; push() and postText() from one thread at a time (the receive
// thread); the drain runs on the queue's thread, which setModel() makes the
// model's; model() and counters() from any thread. One short lock guards the
// waiting lines and orders the receive thread's writes to a line before the
// GUI thread's reads.
class LineQueue : public QObject
{
    Q_OBJECT
public:
    using Clock = std::function<std::chrono::steady_clock::time_point()>;

    struct Limits
    {
        std::size_t maxBytes = std::size_t(64) << 20; // footprint of the waiting lines
        std::chrono::milliseconds maxAge{250};        // how long a line may wait
        int maxTextsInFlight = 4096;                  // texts emitted, not yet delivered
    };

    // What the hand-over did so far; a snapshot readable from any thread.
    struct Counters
    {
        uint64_t linesTaken = 0;    // lines the model took in
        uint64_t droppedMemory = 0; // oldest lines dropped for the memory bound
        uint64_t droppedAge = 0;    // lines dropped for waiting longer than the age bound
        uint64_t textsDropped = 0;  // held texts replaced by a newer one
        uint64_t linesWaiting = 0;  // lines waiting now
        uint64_t bytesWaiting = 0;  // their footprint
    };

    // The default limits; `clock` defaults to the steady clock.
    LineQueue();
    explicit LineQueue(const Limits& limits, Clock clock = Clock());
    ~LineQueue() override;

    // The model that takes the lines and texts in; moves the queue to the
    // model's thread. Lines already waiting go to the new model.
    void setModel(std::shared_ptr<StreamDataModel> model);
    std::shared_ptr<StreamDataModel> model() const;

    // Queues a line for the model (a line without a model is dropped
    // uncounted) and enforces the bounds. A line's age counts from
    // `arrived`, the moment it reached the socket; without it, from now.
    void push(LineType line, std::chrono::steady_clock::time_point arrived);
    void push(LineType line) { push(std::move(line), clock()); }
    // Whether a line that reached the socket at `arrived` is already older
    // than the age bound; the receive thread then drops it before decoding
    // (while newer lines wait behind it) and counts it with dropStale().
    bool isStale(std::chrono::steady_clock::time_point arrived) const;
    void dropStale() { droppedAge.fetch_add(1, std::memory_order_relaxed); }
    // Emits `text` through the model's notifyStatistic now, or holds it for
    // the drain when too many texts are still on their way.
    void postText(const QString& text);

    Counters counters() const;

private slots:
    // The drain event: runs on the queue's thread.
    void drain();

private:
    struct Entry
    {
        LineType line;
        std::chrono::steady_clock::time_point arrived;
        std::size_t bytes = 0;
        uint64_t seq = 0; // arrival order among lines and held texts
    };

    // All with `lock` held.
    Entry& front() { return ring[head]; }
    void append(Entry&& e);
    Entry popFront();
    // Drops the oldest line into `graveyard` and counts it in `cause`.
    void dropFront(std::atomic<uint64_t>& cause);
    // Marks a drain as pending; true when the caller must post it.
    bool claimDrain();
    void publishWaiting();

    void postDrain();

    const Limits bounds;
    const Clock clock;

    mutable std::mutex lock;
    std::shared_ptr<StreamDataModel> target;
    std::vector<Entry> ring; // waiting lines, oldest at head
    std::size_t head = 0;
    std::size_t count = 0;
    std::size_t bytes = 0;
    uint64_t nextSeq = 0;
    bool drainPending = false;
    uint64_t textsPosted = 0;        // texts emitted directly (counted after the emit)
    uint64_t textsPostedAtDrain = 0; // of them, those emitted before the pending drain was posted
    uint64_t textsDelivered = 0;     // of them, those known to be delivered
    bool holding = false;            // a held text waits
    QString heldText;
    uint64_t heldSeq = 0;
    uint64_t heldAfter = 0;          // texts emitted before the held one
    std::vector<LineType> graveyard; // lines dropped by push(), freed outside the lock

    std::atomic<uint64_t> linesTaken{0};
    std::atomic<uint64_t> droppedMemory{0};
    std::atomic<uint64_t> droppedAge{0};
    std::atomic<uint64_t> textsDropped{0};
    std::atomic<uint64_t> linesWaiting{0};
    std::atomic<uint64_t> bytesWaitingNow{0};
};

} // namespace vxlindral
