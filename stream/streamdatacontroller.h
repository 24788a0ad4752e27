#pragma once
#include "scanner/streamcounters.h"
#include "stream/myvxinfostream.h"
#include "stream/myvxlinedatastream.h"

#include <QObject>
#include <cstdint>
#include <memory>

namespace vxlindral {

class StreamDataModel;

// Starts, pauses and stops one scanner port as a unit: its line-data receiver,
// its status receiver and the model that receives the lines.
// The controller is moved to a QThread that is never started, so it runs no
// queued work: the main window calls every method directly.
// Ownership: held by shared pointer by the main window; owns both receivers,
// shares the model. Threads: GUI thread for everything; the counters may be
// read from any thread.
class StreamDataController : public QObject
{
    Q_OBJECT
public:
    explicit StreamDataController(std::shared_ptr<StreamDataModel> model);
    ~StreamDataController() override;

    // Connects the line socket to `portLine`; `portInfo` is accepted and not
    // used (the status stream stays unconnected). Returns whether the socket
    // could be opened.
    Q_INVOKABLE bool startStream(int portLine, int portInfo);
    // Receives the lines from `source` (a capture played back) instead of
    // a socket. Returns whether the receive thread started.
    bool startSource(std::unique_ptr<strmsocket::DatagramSource> source)
    {
        return lineStream.setSource(model, std::move(source));
    }
    // Ends the receive thread and forgets the lines not yet handed to the
    // model: what follows starts afresh (a seek in a capture).
    void stopSource() { lineStream.disconnectAndDiscard(); }
    // The frame number the next raw line continues from (while stopped).
    void setFrames(uint32_t n) { lineStream.setFrames(n); }
    // Disconnects the status stream only; the line socket stays open and keeps
    // delivering to the model.
    Q_INVOKABLE void stopStream();
    // Sets the pause flag of both receivers.
    Q_INVOKABLE void pauseStream(bool pause);
    Q_INVOKABLE bool isPaused() const;
    // Hands every datagram the line socket reads from now on, before
    // anything is decoded, paused or dropped, to `tap` (null: to none). Any
    // thread; returns once a call of the previous tap has ended.
    void setTap(strmsocket::DatagramTap* tap) { lineStream.SetTap(tap); }

    // The hand-over of lines to the model: lines taken in, dropped by cause
    // (memory, age), texts dropped, lines and bytes waiting.
    LineQueue::Counters handoverCounters() const { return lineStream.handoverCounters(); }
    // Raw lines the line receiver has seen.
    uint32_t frames() const { return lineStream.frames(); }
    // The library's counters of the line socket.
    strmsocket::StreamCounters counters() const { return lineStream.counters(); }
    // The bound line port (useful after startStream(0, ...)); 0 when closed.
    int localPort() const { return lineStream.LocalPort(); }
    bool isInfoConnected() const { return infoStream.IsConnected(); }

private:
    std::shared_ptr<StreamDataModel> model;
    MyVxLinedataStream lineStream;
    MyVxInfoStream infoStream;
};

} // namespace vxlindral
