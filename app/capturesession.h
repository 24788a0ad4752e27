#pragma once
#include "app/sourcesession.h"
#include "line/linetype.h"

#include <QWidget>
#include <cstdint>
#include <memory>

namespace vxlindral {

class CapturePlayback;
class StatusRow;
class TransportBar;

// A capture file played as a source of its own: the session of its model,
// controller and views, and the playback that feeds them (CapturePlayback).
// It answers the playback's needs on a seek: the views and models forget
// their lines, hold their frames until the line sought is there, and the
// difference statistics keep the capture's first line as their reference,
// as if every line had been played. Freezing pauses the playback instead of
// discarding lines.
//
// Ownership: owns the playback (which shares the controller and owns the
// index and the source); see SourceSession for the rest. Threads: GUI
// thread only.
class CaptureSession : public SourceSession
{
    Q_OBJECT
public:
    // Plays the lines sent to UDP port `port` of the capture at `path` under
    // `key`; `name` titles the views. Nothing plays before start().
    CaptureSession(int key, const QString& path, uint16_t port, const QString& name,
                   QObject* parent);
    ~CaptureSession() override;

    // Starts indexing and playing; false with the reason when the file
    // cannot be played.
    bool start(QString& error);
    CapturePlayback* playback() const { return player.get(); }

    // The transport bar steers this playback and shows its place, the
    // status row its index's progress and its place (as the bar shows it).
    void showOn(TransportBar* bar, StatusRow* row);
    // Brings the bar and the row up to the playback's place.
    void refreshPlace();

    // Before `window` is on the screen its views have not their final size
    // yet, and a view that is resized starts its picture afresh: the
    // playback waits, and plays from its first line once the window is
    // exposed (its first layout done). Call before start().
    void playWhenShown(QWidget* window);

    void freeze(bool on) override;
    // With the capture's name and place.
    bool health(StreamHealthLabel::Port& entry) const override;
    // The place as the transport bar last showed it, so that the status line
    // names the same line; the playback's own before the bar showed one.
    QString placeText() const;

signals:
    // The capture stopped before its end: `fatal` when the file can no
    // longer be read; `text` says so.
    void stoppedEarly(const QString& text, bool fatal);

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    // The capture's views and models forget their lines, counting on as if
    // `before` lines had been taken in.
    void forgetLines(uint64_t before);

    std::unique_ptr<CapturePlayback> player;
    TransportBar* transport = nullptr;
    StatusRow* status = nullptr;
    QString shownPlace;
    QWidget* waitingWindow = nullptr; // the window whose exposure starts the playback
    // The capture's first line, the difference reference after a seek, and
    // whether the next line the model takes is the first line.
    LineType first;
    bool expectFirst = true;
};

} // namespace vxlindral
