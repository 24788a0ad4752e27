#pragma once
#include "scanner/vxlinedatastream.h"
#include "stream/lineformat.h"

#include <QMutex>
#include <atomic>
#include <cstdint>
#include <memory>

namespace vxlindral {

class MyLine;
class StreamDataModel;

// The line-data socket of one port: checks and decodes every raw line the
// library delivers, emits the line's stream information text through the
// model's notifyStatistic, builds a MyLine and hands it to the model on the
// GUI thread with a queued setData call. File headers update the device
// transforms (DeviceTransform).
//
// Overload bound: at most kMaxInFlight lines may be queued towards the model
// and not yet taken in (the text of a rejected line counts as one until it has
// been delivered). A raw line arriving while that many are in flight is
// counted in the frame counter and as skipped, and is otherwise dropped.
//
// Ownership: held by value by StreamDataController; shares the model.
// Threads: setModel(), stop() and destruction on the GUI thread; the
// callbacks on the library's receive thread; the counters from any thread.
class MyVxLinedataStream : public VxLinedataStream
{
public:
    static constexpr int kMaxInFlight = 4;

    MyVxLinedataStream();
    ~MyVxLinedataStream() override;

    // Makes `model` the receiver of lines and connects the socket to `port`
    // (all interfaces). Returns whether the socket could be opened.
    bool setModel(std::shared_ptr<StreamDataModel> model, int port);
    // Does nothing: the line socket stays open when a stream is stopped.
    void stop();

    void OnRAWFileHeaderBuf(const strmsocket::VxStreamDeviceInfo& device, const char* name,
                            const char* buffer, int length) override;
    void OnRawLine(const strmsocket::VxStreamDeviceInfo& device, const char* packet,
                   const strmsocket::LineRawInfo& info, const char* data, int count) override;
    void OnMessagesLost(int count) override;

    // Raw lines seen (good or bad, skipped included).
    uint32_t frames() const { return frame.load(std::memory_order_relaxed); }
    // Raw lines dropped because kMaxInFlight lines were in flight.
    uint64_t skippedLines() const { return skipped.load(std::memory_order_relaxed); }
    // Lines handed to the model and not yet taken in.
    int linesInFlight() const { return inFlight->load(std::memory_order_acquire); }

    // Low 32 bits of the tick count taken after the last line built by any
    // receiver of the process.
    static uint32_t lastLineTick() { return lastTick.load(std::memory_order_relaxed); }

private:
    void deliverLine(std::unique_ptr<MyLine> line, const std::shared_ptr<StreamDataModel>& to);

    std::shared_ptr<StreamDataModel> model; // access through std::atomic_load/store
    std::atomic<uint32_t> frame{0};
    LineFormat format;
    QMutex mutex; // taken by the file-header callback
    std::shared_ptr<std::atomic<int>> inFlight;
    std::atomic<uint64_t> skipped{0};

    static std::atomic<uint32_t> lastTick;
};

} // namespace vxlindral
