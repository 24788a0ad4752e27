#pragma once
#include <QObject>
#include <QPointer>
#include <QWidget>
#include <functional>
#include <vector>

namespace vxlindral {

// Paces the views' display work to the display. A view takes every line at
// once (models, cumulative pictures) and calls markPending(). One frame clock
// serves every view: at most one frame per kFrameMs, and only while some view
// has work pending, it asks the windows of those views to repaint (an update
// of a shown watched widget), and each view's apply function brings what it
// shows up to date with the newest line when its window is about to repaint:
// on the window's UpdateRequest, so that the updates the apply function makes
// are painted in that same pass and request no further repaint. Any other
// repaint of the window applies pending work the same way, so all views of a
// window apply and repaint together. Pending work is also applied on the
// paint of a watched widget that comes without an UpdateRequest (expose,
// grab), so no repaint shows a stale picture. A view with no shown watched
// widget gets its work applied by the frame itself. The apply function may
// update widgets and change their contents; it runs with nothing pending, so
// work it marks pending again (a continuous animation) gets the next frame.
// Ownership: a child of its view; the apply function refers to the view and
// dies with it. The frame clock belongs to the application object.
// Threads: GUI thread only (it filters the application's events).
class FrameSync : public QObject
{
    Q_OBJECT
public:
    static constexpr int kFrameMs = 16;

    FrameSync(QObject* parent, std::function<void()> apply);
    ~FrameSync() override;

    // Applies pending work before every paint of `widget` and of its window.
    void watch(QWidget* widget);
    // Marks work pending: the frame follows kFrameMs after the last one (at
    // once when that has passed).
    void markPending();
    bool isPending() const { return pending; }
    // While held, no frame is asked for this view and the window's repaints
    // for other views leave it alone: its work stays pending (a paint of a
    // watched widget itself, such as a grab, still applies it) and gets a
    // frame when released. For lines the user need not watch go by, such as those a
    // seek plays again to get to its line.
    void hold(bool on);
    // Applies the pending work now, if there is any.
    void flush();
    // Flushes every FrameSync of the process (tests, benchmarks).
    static void flushAll();

protected:
    bool eventFilter(QObject* target, QEvent* event) override;

private:
    // The frame: asks the windows of the views with pending work to repaint.
    static void frame();
    // A watched widget that is shown, or null.
    QWidget* shownWidget() const;

    std::function<void()> apply;
    std::vector<QPointer<QWidget>> watched; // widgets whose paints apply pending work
    bool pending = false;
    bool held = false;
};

} // namespace vxlindral
