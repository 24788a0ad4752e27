#pragma once
#include "scanner/rawlineparser.h"
#include "scanner/vxlinedatastream.h"
#include "scanner/lineformat.h"
#include "stream/linequeue.h"

#include <QMutex>
#include <atomic>
#include <cstdint>
#include <memory>

namespace vxlindral {

class LinePool;
class StreamDataModel;

// The line-data socket of one port: checks and decodes every raw line the
// library delivers, emits the line's stream information text through the
// model's notifyStatistic, builds a MyLine and hands it to the model on the
// GUI thread through its LineQueue. While the GUI thread is behind (the
// queue has no room), the library keeps further messages undecoded in its
// backlog, so that a stall costs no line. File headers update the device
// transforms (DeviceTransform).
//
// Lines come from the receiver's LinePool and go back there when their last
// handle goes, so that in steady state a line costs neither allocation nor
// fresh pages; lines of one layout share one copy of it.
//
// Ownership: held by value by StreamDataController; owns its queue, shares
// the model and its pool (with the lines it handed out).
// Threads: construction, setModel(), stop() and destruction on the GUI
// thread; the callbacks on the library's receive thread; the counters from
// any thread.
class MyVxLinedataStream : public VxLinedataStream
{
public:
    MyVxLinedataStream();
    // With other bounds for the hand-over (tests).
    explicit MyVxLinedataStream(const LineQueue::Limits& handover);
    ~MyVxLinedataStream() override;

    // Makes `model` the receiver of lines and connects the socket to `port`
    // (all interfaces). Returns whether the socket could be opened.
    bool setModel(std::shared_ptr<StreamDataModel> model, int port);
    // Makes `model` the receiver of lines and starts receiving from
    // `source` (a capture played back). Returns whether it started.
    bool setSource(std::shared_ptr<StreamDataModel> model,
                   std::unique_ptr<strmsocket::DatagramSource> source);
    // Stops receiving (joining the receive thread) and forgets the lines
    // still waiting for the GUI thread; the model stays the receiver.
    void disconnectAndDiscard();
    // Counts on as if `n` raw lines had been seen (a seek in a capture).
    // Only while disconnected.
    void setFrames(uint32_t n) { frame.store(n, std::memory_order_relaxed); }
    // Does nothing: the line socket stays open when a stream is stopped.
    void stop();

    void OnRAWFileHeaderBuf(const strmsocket::VxStreamDeviceInfo& device, const char* name,
                            const char* buffer, int length) override;
    void OnRawLine(const strmsocket::VxStreamDeviceInfo& device, const char* packet,
                   const strmsocket::LineRawInfo& info, const char* data, int count) override;
    void OnMessagesLost(int count) override;
    // Forgets the file headers and puts the device transforms this receiver
    // wrote back to their start state.
    void OnSourceRestarted() override;

    // Raw lines seen (good or bad).
    uint32_t frames() const { return frame.load(std::memory_order_relaxed); }
    // What the hand-over to the GUI thread did: lines taken in, dropped by
    // cause, texts dropped, lines and bytes waiting.
    LineQueue::Counters handoverCounters() const { return queue->counters(); }

    // Low 32 bits of the tick count taken after the last line built by any
    // receiver of the process.
    static uint32_t lastLineTick() { return lastTick.load(std::memory_order_relaxed); }

protected:
    // Whether the hand-over has room for a further line; when not, the queue
    // resumes delivery once its drain has made room.
    bool ReadyForMessage() override;

private:
    // The nine-line information text of the line just decoded into `format`.
    QString streamText(uint32_t thisFrame, const strmsocket::VxStreamDeviceInfo& device,
                       uint32_t serie, const char* modeName) const;
    // A line from the pool with the header and pixel bytes, the series
    // number, one point per pixel and the column statistics of the line decoded into `format`,
    // under the current `layout`. Throws std::length_error for a negative
    // header size.
    LineType buildLine(const strmsocket::VxStreamDeviceInfo& device, const char* data, int count,
                       uint32_t serie);

    std::atomic<uint32_t> frame{0};
    LineFormat format;
    QMutex mutex;                     // taken by the file-header callback
    std::unique_ptr<LineQueue> queue; // holds the model
    std::shared_ptr<LinePool> pool;
    // Receive thread only: the layout copy of the previous line (shared by
    // the lines built with it) and the statistics' working arrays.
    std::shared_ptr<vx::RawLineParser> layout;
    vx::RawLineParser::AvrStd stats;

    static std::atomic<uint32_t> lastTick;
};

} // namespace vxlindral
