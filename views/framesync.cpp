#include "views/framesync.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QEvent>
#include <QTimer>
#include <QWidget>
#include <algorithm>
#include <vector>

namespace vxlindral {

namespace {

// Every live instance, for the frame and flushAll(); GUI thread only.
std::vector<FrameSync*>& instances()
{
    static std::vector<FrameSync*> all;
    return all;
}

bool alive(const FrameSync* f)
{
    const auto& all = instances();
    return std::find(all.begin(), all.end(), f) != all.end();
}

// The one frame clock and the time of its last frame.
QElapsedTimer& sinceFrame()
{
    static QElapsedTimer clock;
    return clock;
}

} // namespace

FrameSync::FrameSync(QObject* parent, std::function<void()> applyWork)
    : QObject(parent), apply(std::move(applyWork))
{
    instances().push_back(this);
    // A window repaints on an UpdateRequest sent to it; the application's
    // filter sees it before the window paints.
    QCoreApplication::instance()->installEventFilter(this);
}

FrameSync::~FrameSync()
{
    auto& all = instances();
    all.erase(std::remove(all.begin(), all.end(), this), all.end());
}

void FrameSync::watch(QWidget* widget)
{
    if (widget)
        watched.push_back(widget);
}

void FrameSync::markPending()
{
    if (pending)
        return;
    pending = true;
    static QTimer* clock = [] {
        auto* t = new QTimer(QCoreApplication::instance());
        t->setSingleShot(true);
        t->setTimerType(Qt::PreciseTimer);
        QObject::connect(t, &QTimer::timeout, t, [t] {
            frame();
            // Frames go on while work waits for its window's repaint.
            if (std::any_of(instances().begin(), instances().end(),
                            [](const FrameSync* f) { return f->pending && !f->held; }))
                t->start(kFrameMs);
        });
        return t;
    }();
    if (!clock->isActive()) {
        const qint64 since = sinceFrame().isValid() ? sinceFrame().elapsed() : kFrameMs;
        clock->start(static_cast<int>(std::max<qint64>(0, kFrameMs - since)));
    }
}

void FrameSync::frame()
{
    sinceFrame().start();
    // A copy: applying may create or destroy views.
    const std::vector<FrameSync*> all = instances();
    for (FrameSync* f : all) {
        if (!alive(f) || !f->pending || f->held)
            continue;
        // The apply function runs when the window is about to repaint. The
        // update makes Qt send the window its UpdateRequest, so that the
        // updates the apply functions make then are painted in the same pass
        // and request no further repaint. A view with nothing to show applies
        // its work at once.
        if (QWidget* shown = f->shownWidget())
            shown->update();
        else
            f->flush();
    }
}

QWidget* FrameSync::shownWidget() const
{
    for (const QPointer<QWidget>& w : watched)
        if (w && w->isVisible() && !w->rect().isEmpty())
            return w;
    return nullptr;
}

void FrameSync::hold(bool on)
{
    held = on;
    if (!on && pending) {
        pending = false; // asked for again, now with a frame
        markPending();
    }
}

void FrameSync::flush()
{
    if (!pending)
        return;
    pending = false;
    apply();
}

void FrameSync::flushAll()
{
    const std::vector<FrameSync*> all = instances();
    for (FrameSync* f : all)
        if (alive(f))
            f->flush();
}

bool FrameSync::eventFilter(QObject* target, QEvent* event)
{
    // Applying on the window's UpdateRequest lets the repaint that follows
    // paint the apply function's updates too, instead of a paint applying
    // work and requesting the next paint (which with a steady stream of lines
    // would apply again, and so on, far faster than the frame rate).
    const QEvent::Type type = event->type();
    if (pending && ((type == QEvent::UpdateRequest && !held) || type == QEvent::Paint) &&
        target->isWidgetType()) {
        const auto* widget = static_cast<QWidget*>(target);
        for (const QPointer<QWidget>& w : watched) {
            if (w && (type == QEvent::Paint ? w == target : w->window() == widget)) {
                flush();
                break;
            }
        }
    }
    return QObject::eventFilter(target, event);
}

} // namespace vxlindral
