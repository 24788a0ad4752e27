#pragma once
#include <QBasicTimer>
#include <QElapsedTimer>
#include <QObject>
#include <functional>

class QWidget;

namespace vxlindral {

// Paces a view's display work to the display. A view takes every line at
// once (models, cumulative pictures) and calls markPending(); its apply
// function then runs once per display frame, at most one frame per kFrameMs
// and only while work is pending, to bring what it shows up to date with the
// newest line. Before any paint of a watched widget the pending work is
// applied first, so that a repaint Qt makes for its own reasons (expose,
// resize, grab) never shows a stale picture. The apply function may update
// widgets and change their contents; it runs with nothing pending, so work it
// marks pending again (a continuous animation) gets the next frame.
// Ownership: a child of its view; the apply function refers to the view and
// dies with it. Threads: GUI thread only.
class FrameSync : public QObject
{
    Q_OBJECT
public:
    static constexpr int kFrameMs = 16;

    FrameSync(QObject* parent, std::function<void()> apply);
    ~FrameSync() override;

    // Applies pending work before every paint of `widget`.
    void watch(QWidget* widget);
    // Marks work pending: the frame follows kFrameMs after the last one (at
    // once when that has passed).
    void markPending();
    bool isPending() const { return pending; }
    // Applies the pending work now, if there is any.
    void flush();
    // Flushes every FrameSync of the process (tests, benchmarks).
    static void flushAll();

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;
    void timerEvent(QTimerEvent* event) override;

private:
    std::function<void()> apply;
    QBasicTimer timer;
    QElapsedTimer sinceFrame;
    bool pending = false;
};

} // namespace vxlindral
