#pragma once
#include <QSlider>

class QTimer;

namespace vxlindral {

// The transport bar's slider over a capture's time, in milliseconds from its
// start. It tells where the user wants to go (seekRequested) and otherwise
// follows the playback (setPosition):
// - While the user drags the handle, the position under it is asked for at
//   most once every seekIntervalMs: the newest position waiting wins, and the
//   position where the handle is let go is always asked for. The playback
//   does not move the handle while the user holds it.
// - A click in the groove puts the handle there at once (not a page step) and
//   goes on as a drag, so the click asks for its position when it is let go.
// - Keys and the wheel on the focused slider ask for each new position at once.
// Setting the duration or the position never asks for anything.
// The marks of a stretch (setMarks) are drawn over the groove: a tick at
// each, the stretch between them shaded.
//
// Ownership: owned by its parent widget; owns its drag timer. Threads: GUI only.
class PositionSlider : public QSlider
{
    Q_OBJECT
public:
    static constexpr int seekIntervalMs = 40;

    explicit PositionSlider(QWidget* parent = nullptr);

    // The range, 0 .. `ms` (clamped to what an int holds: 24 days).
    void setDuration(qint64 ms);
    // Moves the handle to `ms` unless the user holds it.
    void setPosition(qint64 ms);
    // The marks, in ms; -1 for none.
    void setMarks(qint64 startMs, qint64 endMs);
    qint64 markStart() const { return startMark; }
    qint64 markEnd() const { return endMark; }

signals:
    void seekRequested(qint64 msFromStart);

protected:
    void mousePressEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void paintEvent(QPaintEvent* event) override;

private:
    void changed(int value);

    QTimer* dragTimer; // runs while a drag's newest position waits
    bool setting = false;
    qint64 startMark = -1;
    qint64 endMark = -1;
};

} // namespace vxlindral
