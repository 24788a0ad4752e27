#pragma once
#include "line/linetype.h"

#include <QObject>
#include <QString>
#include <atomic>
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
// Lines wait here until the GUI thread takes them. The receive thread asks
// hasRoom() before it decodes a further line: while the waiting lines' memory
// (their footprint) is at the room bound, it stops decoding and leaves the
// lines undecoded where they are far cheaper to hold (the library's backlog
// of messages and the socket). Once the drain has taken the waiting lines
// down to the resume bound, the queue calls the resume callback, so that the
// receive thread goes on. A stall of the GUI thread therefore costs no line;
// lines are only dropped further up, when the backlog itself is full.
//
// The memory bound proper (maxBytes) is a safety net for callers that push
// without asking: when it is reached the OLDEST waiting lines are dropped and
// counted, and the newest line always gets through. The receive thread posts
// one drain event to the queue's thread only when none is pending; the drain
// takes the lines that were waiting when it started, in arrival order, and
// hands each to the model through setData(QModelIndex(),
// QVariant::fromValue(line)). Lines that arrive meanwhile are left to the
// next drain, so paints and input interleave with long bursts.
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
// handles. Threads: construction, setModel(), setResumeCallback() and
// destruction on the model's thread, before the receive thread runs for the
// callback; push(), postText() and waitForRoom() from one thread at a time
// (the receive thread); the drain, and so the resume callback, runs on the
// queue's thread, which setModel() makes the model's; hasRoom(), model() and
// counters() from any thread. One short lock guards the waiting lines and
// orders the receive thread's writes to a line before the GUI thread's reads.
class LineQueue : public QObject
{
    Q_OBJECT
public:
    struct Limits
    {
        std::size_t maxBytes = std::size_t(64) << 20;    // footprint of the waiting lines
        std::size_t roomBytes = std::size_t(32) << 20;   // decode no further line from here
        std::size_t resumeBytes = std::size_t(16) << 20; // go on decoding from here down
        int maxTextsInFlight = 4096;                     // texts emitted, not yet delivered
    };

    // What the hand-over did so far; a snapshot readable from any thread.
    struct Counters
    {
        uint64_t linesTaken = 0;    // lines the model took in
        uint64_t droppedMemory = 0; // oldest lines dropped for the memory bound
        uint64_t textsDropped = 0;  // held texts replaced by a newer one
        uint64_t linesWaiting = 0;  // lines waiting now
        uint64_t bytesWaiting = 0;  // their footprint
    };

    // The default limits.
    LineQueue();
    explicit LineQueue(const Limits& limits);
    ~LineQueue() override;

    // The model that takes the lines and texts in; moves the queue to the
    // model's thread. Lines already waiting go to the new model.
    void setModel(std::shared_ptr<StreamDataModel> model);
    std::shared_ptr<StreamDataModel> model() const;

    // Queues a line for the model (a line without a model is dropped
    // uncounted) and enforces the memory bound.
    void push(LineType line);
    // Whether the waiting lines leave room for a further one (below the room
    // bound). Lock-free.
    bool hasRoom() const
    {
        return bytesWaitingNow.load(std::memory_order_seq_cst) < bounds.roomBytes;
    }
    // Asks for the resume callback once the waiting lines are down to the
    // resume bound, then answers hasRoom() again: room made meanwhile is
    // seen either here or by the drain, which then calls back.
    bool waitForRoom();
    // Called on the queue's thread when a drain has made room after
    // waitForRoom() said there was none.
    void setResumeCallback(std::function<void()> callback);
    // Emits `text` through the model's notifyStatistic now, or holds it for
    // the drain when too many texts are still on their way.
    void postText(const QString& text);

    Counters counters() const;
    // Forgets the lines and the held text waiting for the drain, without
    // counting them as dropped: the model is to start afresh (a seek in a
    // capture). The model's thread, while no receive thread pushes.
    void discard();

private slots:
    // The drain event: runs on the queue's thread.
    void drain();

private:
    struct Entry
    {
        LineType line;
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
    // Calls the resume callback when the receive thread waits for room and
    // the waiting lines are down to the resume bound. Queue's thread.
    void resumeIfRoom();

    void postDrain();

    const Limits bounds;
    std::function<void()> resume;

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
    std::atomic<uint64_t> textsDropped{0};
    std::atomic<uint64_t> linesWaiting{0};
    std::atomic<uint64_t> bytesWaitingNow{0};
    std::atomic<bool> roomWanted{false};
};

} // namespace vxlindral
