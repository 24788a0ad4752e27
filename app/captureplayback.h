#pragma once
#include "capture/captureindex.h"
#include "capture/capturesource.h"

#include <QObject>
#include <QString>
#include <cstdint>
#include <functional>
#include <memory>

class QTimer;

namespace vxlindral {

class StreamDataController;

// One capture file played as a source of its own: the lines sent to one UDP
// port of the file go through the port's controller (its receiver, hand-over
// and model) exactly as a live port's do, paced by the capture's times. It
// indexes the file in the background and steers the playback: play, pause,
// speed, loop, one line on or back, and seeks.
//
// A seek to line n shows what playing lines 0..n would have shown, cheaply:
// the receive thread is stopped and what is still on its way is dropped, the
// window forgets the lines of the capture's views and models (`Hooks::forget`,
// counting on as if the lines before the tail had been taken in), the frame
// counter is set likewise, and only the tail of lines the views can still show
// (`Hooks::reachBack`) is played again, as fast as possible, from the file
// header that precedes it, with the views' frames held: nothing is drawn
// until the line sought has reached them, so the replay spends no time on
// pictures nobody asked for. Then the playback goes on as before the seek.
//
// Pausing stops before the next line begins, so that the line shown is always
// whole and one step on shows exactly one more line.
//
// Ownership: owned by the main window; shares the controller; owns the index
// and the source (the controller's receive thread holds it while it runs).
// Threads: GUI thread only; the index and the source report through atomics
// and locks read by a timer.
class CapturePlayback : public QObject
{
    Q_OBJECT
public:
    struct Hooks
    {
        // Forget every line of the capture's views and models, counting on as
        // if `before` lines had been taken in.
        std::function<void(uint64_t before)> forget;
        // How many of the newest lines the capture's views can still show.
        std::function<int()> reachBack;
        // Hold the frames of the capture's views (true) while a seek plays
        // its tail again, and let them show the line sought (false).
        std::function<void(bool hold)> holdFrames;
        // Deliver the calls already posted to the capture's views and models
        // (the lines and texts on their way), and no other posted call: a
        // queued close of the capture or an open of another file must not
        // run inside the seek that would then go on with a deleted playback.
        std::function<void()> deliverPosted;
    };

    // Where the playback stands.
    struct Place
    {
        qint64 ms = 0;         // capture time of the newest line, from the file's start
        qint64 durationMs = 0; // capture time of the last line found
        uint64_t line = 0;     // newest line handed out, 1-based; 0 before the first
        uint64_t lines = 0;    // lines found so far
        bool linesFinal = false;
    };

    CapturePlayback(const QString& path, uint16_t port,
                    std::shared_ptr<StreamDataController> controller, Hooks hooks,
                    QObject* parent = nullptr);
    ~CapturePlayback() override;

    // Opens the file, starts the index and plays at once at 1x. False with
    // the reason in `error` when the file cannot be played.
    bool start(QString& error);
    // Stops the receive thread and the index (the window's close).
    void stop();

    const QString& path() const { return filePath; }
    // The file's name without its folder.
    QString fileName() const;
    uint16_t port() const { return udpPort; }

    bool isPlaying() const { return playing; }
    // A seek is still playing its tail, or its views have not yet drawn it.
    bool isSeeking() const { return catchingUp || framesHeld; }
    // Plays (true) or pauses; asked before start(), it decides whether the
    // playback begins at once or paused before its first line.
    void setPlaying(bool on);
    // `factor` times the capture's pace; 0: as fast as possible.
    void setSpeed(double factor);
    void setLoop(bool on);
    // One line on (+1) or back (-1), pausing.
    void step(int delta);
    void toStart();
    void toEnd();
    // To the last line captured at or before `ms` from the file's start.
    // Asked while a seek is under way, it waits until that seek is shown;
    // a newer one replaces it.
    void seekTime(qint64 ms);
    // To line `n` (0-based, clamped to the lines found).
    void seekLine(uint64_t n);

    // The stretch of lines marked for "Export lines as cloud ...": its start
    // and its end are set at the line shown (0-based; -1 while unmarked).
    void markStart();
    void markEnd();
    int64_t markedStart() const { return startMark; }
    int64_t markedEnd() const { return endMark; }
    // The stretch to export, in order: from the start mark (else the first
    // line) to the end mark (else the last line found so far). False while
    // no line is known.
    bool markedStretch(uint64_t& first, uint64_t& last) const;
    // Capture time of line `n` (0-based) from the file's start; -1 when the
    // line is not known yet.
    qint64 lineMs(uint64_t n) const;

    Place place() const;
    // "scan.pcapng: 00:12.345 / 01:40.000, line 2,345 of 20,000", of `p`
    // (a place taken once, so that the bar and the status line name the same).
    QString placeText(const Place& p) const;
    const vxrec::CaptureIndex& index() const { return lineIndex; }
    // Cancels the index; the lines found so far stay usable.
    void cancelIndex() { lineIndex.cancel(); }
    // Why the playback stopped early ("" while it has not).
    QString problem() const { return lastProblem; }

signals:
    // A few times a second while the place or the index changes.
    void placeChanged();
    void playingChanged(bool playing);
    void marksChanged();
    // The file ended early: cut or damaged (`fatal` false: played up to
    // there), or gone or unreadable while playing (`fatal` true).
    void stopped(const QString& reason, bool fatal);

private:
    void tick();
    // The line shown (0-based), 0 before the first.
    int64_t shownLine() const;

    const QString filePath;
    const uint16_t udpPort;
    std::shared_ptr<StreamDataController> controller;
    Hooks hooks;
    std::shared_ptr<vxrec::CaptureSource> source;
    vxrec::CaptureIndex lineIndex;
    QTimer* timer = nullptr;
    bool playing = true;
    double speed = 1.0;
    bool loop = false;
    bool catchingUp = false;   // a seek's tail is being played fast
    bool framesHeld = false;   // the views' frames wait for the seek's line
    uint64_t releaseAt = 0;    // the model's count of lines taken once it took that line
    int heldTicks = 0;         // ticks without progress since the tail was handed out
    uint64_t heldProgress = 0; // the counters' sum at the last progress
    qint64 waitingSeekMs = -1; // a seekTime() waiting for the seek under way
    uint64_t catchUpTo = 0;    // the line after the seek's target
    QString lastProblem;
    Place last;
    int64_t startMark = -1;
    int64_t endMark = -1;
};

} // namespace vxlindral
