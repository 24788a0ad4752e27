#include "stream/linequeue.h"

#include "models/streamdatamodel.h"

#include <QMetaObject>
#include <QModelIndex>
#include <QThread>
#include <QVariant>
#include <utility>

namespace vxlindral {

namespace {
constexpr std::size_t kInitialRing = 64;
}

LineQueue::LineQueue() : LineQueue(Limits()) {}

LineQueue::LineQueue(const Limits& limits) : bounds(limits), ring(kInitialRing) {}

void LineQueue::setResumeCallback(std::function<void()> callback)
{
    resume = std::move(callback);
}

bool LineQueue::waitForRoom()
{
    // Sequentially consistent with the drain's update of the waiting bytes
    // and its look at this flag: either this look sees the room, or the
    // drain sees the request.
    roomWanted.store(true, std::memory_order_seq_cst);
    return hasRoom();
}

LineQueue::~LineQueue() = default;

void LineQueue::setModel(std::shared_ptr<StreamDataModel> model)
{
    if (model && model->thread() != thread())
        moveToThread(model->thread());
    std::lock_guard<std::mutex> guard(lock);
    target = std::move(model);
}

std::shared_ptr<StreamDataModel> LineQueue::model() const
{
    std::lock_guard<std::mutex> guard(lock);
    return target;
}

void LineQueue::append(Entry&& e)
{
    if (count == ring.size()) {
        // Grows to the high-water mark once, then stays.
        std::vector<Entry> bigger(ring.size() * 2);
        for (std::size_t i = 0; i < count; ++i)
            bigger[i] = std::move(ring[(head + i) % ring.size()]);
        ring.swap(bigger);
        head = 0;
    }
    ring[(head + count) % ring.size()] = std::move(e);
    ++count;
    bytes += ring[(head + count - 1) % ring.size()].bytes;
}

LineQueue::Entry LineQueue::popFront()
{
    Entry e = std::move(ring[head]);
    head = (head + 1) % ring.size();
    --count;
    bytes -= e.bytes;
    return e;
}

void LineQueue::dropFront(std::atomic<uint64_t>& cause)
{
    graveyard.push_back(std::move(popFront().line));
    cause.fetch_add(1, std::memory_order_relaxed);
}

bool LineQueue::claimDrain()
{
    if (drainPending)
        return false;
    drainPending = true;
    // Texts emitted so far were posted before the drain event will be.
    textsPostedAtDrain = textsPosted;
    return true;
}

void LineQueue::publishWaiting()
{
    linesWaiting.store(count, std::memory_order_relaxed);
    bytesWaitingNow.store(bytes, std::memory_order_seq_cst);
}

void LineQueue::postDrain()
{
    // By name and without arguments: Qt builds the event inside its own
    // library, and the drain reads nothing from it, only this queue's state
    // under its lock.
    QMetaObject::invokeMethod(this, "drain", Qt::QueuedConnection);
}

void LineQueue::push(LineType line)
{
    if (!line)
        return;
    const std::size_t footprint = line->footprint();
    bool post = false;
    {
        std::lock_guard<std::mutex> guard(lock);
        if (!target)
            return; // no model: the line is freed
        append(Entry{std::move(line), footprint, nextSeq++});
        // The newest line stays whatever it costs: the views must end up
        // showing the newest line.
        while (count > 1 && bytes > bounds.maxBytes)
            dropFront(droppedMemory);
        publishWaiting();
        post = claimDrain();
    }
    graveyard.clear(); // dropped lines go back to their pool outside the lock
    if (post)
        postDrain();
}

void LineQueue::postText(const QString& text)
{
    std::shared_ptr<StreamDataModel> to;
    bool post = false;
    {
        std::lock_guard<std::mutex> guard(lock);
        if (!target)
            return;
        if (textsPosted - textsDelivered < static_cast<uint64_t>(bounds.maxTextsInFlight)) {
            to = target;
        } else {
            if (holding)
                textsDropped.fetch_add(1, std::memory_order_relaxed);
            holding = true;
            heldText = text;
            heldSeq = nextSeq++;
            heldAfter = textsPosted;
            post = claimDrain();
        }
    }
    if (to) {
        emit to->notifyStatistic(text);
        // Counted once its events are posted: a drain posted after this
        // point (from either thread) comes behind them.
        std::lock_guard<std::mutex> guard(lock);
        ++textsPosted;
    }
    if (post)
        postDrain();
}

void LineQueue::drain()
{
    std::shared_ptr<StreamDataModel> to;
    uint64_t end = 0;
    {
        std::lock_guard<std::mutex> guard(lock);
        drainPending = false;
        // Qt delivers events to one thread in the order they were posted:
        // every text emitted before this drain event has been delivered.
        textsDelivered = textsPostedAtDrain;
        end = nextSeq;
        to = target;
    }
    if (!to)
        return;
    registerLineType();
    bool repost = false;
    for (;;) {
        LineType line;
        QString text;
        bool haveText = false;
        {
            std::lock_guard<std::mutex> guard(lock);
            const bool lineDue = count > 0 && front().seq < end;
            if (holding && heldSeq < end && (!lineDue || heldSeq < front().seq)) {
                // The held text's turn; it must also come after the texts
                // emitted before it. Some of those may still wait in the event
                // queue behind this drain: a drain posted now comes after them.
                if (textsDelivered < heldAfter) {
                    repost = claimDrain();
                    break;
                }
                text = std::move(heldText);
                heldText = QString();
                holding = false;
                haveText = true;
            } else if (lineDue) {
                line = std::move(popFront().line);
                publishWaiting();
                linesTaken.fetch_add(1, std::memory_order_relaxed);
            } else {
                break;
            }
        }
        if (haveText)
            to->emitStatistic(text);
        else
            to->setData(QModelIndex(), QVariant::fromValue(line));
        resumeIfRoom();
    }
    if (repost)
        postDrain();
}

void LineQueue::resumeIfRoom()
{
    // Only the first drain step at or below the resume bound calls back: the
    // receive thread then decodes up to the room bound again.
    if (bytesWaitingNow.load(std::memory_order_seq_cst) <= bounds.resumeBytes &&
        roomWanted.load(std::memory_order_seq_cst) &&
        roomWanted.exchange(false, std::memory_order_seq_cst) && resume)
        resume();
}

void LineQueue::discard()
{
    std::vector<LineType> gone;
    {
        std::lock_guard<std::mutex> guard(lock);
        gone.reserve(count);
        while (count > 0)
            gone.push_back(std::move(popFront().line));
        holding = false;
        heldText = QString();
        publishWaiting();
    }
    // The lines go back to their pool outside the lock.
}

LineQueue::Counters LineQueue::counters() const
{
    Counters c;
    c.linesTaken = linesTaken.load(std::memory_order_relaxed);
    c.droppedMemory = droppedMemory.load(std::memory_order_relaxed);
    c.textsDropped = textsDropped.load(std::memory_order_relaxed);
    c.linesWaiting = linesWaiting.load(std::memory_order_relaxed);
    c.bytesWaiting = bytesWaitingNow.load(std::memory_order_relaxed);
    return c;
}

} // namespace vxlindral
