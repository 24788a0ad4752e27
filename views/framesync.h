#pragma once
#include <QBasicTimer>
#include <QElapsedTimer>
#include <QObject>
#include <QPointer>
#include <QWidget>
#include <functional>
#include <vector>

namespace vxlindral {

// Paces a view's display work to the display. A view takes every line at
// once (models, cumulative pictures) and calls markPending(); at most one
// frame per kFrameMs, and only while work is pending, the window of the
// view's watched widgets is asked to repaint, and the view's apply function
// brings what it shows up to date with the newest line when that window is
// about to repaint (on its UpdateRequest, so that the updates the apply
// function makes are painted in that same pass; any other repaint of the
// window applies pending work the same way). Pending work is also applied on
// the paint of a watched widget that comes without an UpdateRequest (expose,
// grab), so no repaint shows a stale picture. Without a watched widget the
// frame applies the work itself. The apply function may update widgets and
// change their contents; it runs with nothing pending, so work it marks
// pending again (a continuous animation) gets the next frame.
// Ownership: a child of its view; the apply function refers to the view and
// dies with it. Threads: GUI thread only (it filters the application's
// events).
class FrameSync : public QObject
{
    Q_OBJECT
public:
    static constexpr int kFrameMs = 16;

    FrameSync(QObject* parent, std::function<void()> apply);
    ~FrameSync() override;

    // Applies pending work before every paint of `widget` and of its window;
    // the window of the first watched widget is the one frames repaint.
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
    bool eventFilter(QObject* target, QEvent* event) override;
    void timerEvent(QTimerEvent* event) override;

private:
    std::function<void()> apply;
    std::vector<QPointer<QWidget>> watched; // widgets whose paints apply pending work
    QBasicTimer timer;
    QElapsedTimer sinceFrame;
    bool pending = false;
};

} // namespace vxlindral
