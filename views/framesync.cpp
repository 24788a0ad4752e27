#include "views/framesync.h"

#include <QCoreApplication>
#include <QEvent>
#include <QTimerEvent>
#include <QWidget>
#include <algorithm>
#include <vector>

namespace vxlindral {

namespace {

// Every live instance, for flushAll(); GUI thread only.
std::vector<FrameSync*>& instances()
{
    static std::vector<FrameSync*> all;
    return all;
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
    const qint64 since = sinceFrame.isValid() ? sinceFrame.elapsed() : kFrameMs;
    timer.start(static_cast<int>(std::max<qint64>(0, kFrameMs - since)), Qt::PreciseTimer, this);
}

void FrameSync::flush()
{
    if (!pending)
        return;
    pending = false;
    timer.stop();
    sinceFrame.start();
    apply();
}

void FrameSync::flushAll()
{
    // A copy: applying may create or destroy views.
    const std::vector<FrameSync*> all = instances();
    for (FrameSync* f : all)
        if (std::find(instances().begin(), instances().end(), f) != instances().end())
            f->flush();
}

bool FrameSync::eventFilter(QObject* target, QEvent* event)
{
    // Applying on the window's UpdateRequest lets the repaint that follows
    // paint the apply function's updates too, instead of a paint applying
    // work and requesting the next paint (which with a steady stream of lines
    // would apply again, and so on, far faster than the frame rate).
    const QEvent::Type type = event->type();
    if (pending && (type == QEvent::UpdateRequest || type == QEvent::Paint) &&
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

void FrameSync::timerEvent(QTimerEvent* event)
{
    if (event->timerId() != timer.timerId()) {
        QObject::timerEvent(event);
        return;
    }
    timer.stop();
    // The frame asks the window to repaint and applies the work when it is
    // about to, so that what is applied is as new as the repaint and the
    // updates it makes are painted in that pass.
    for (const QPointer<QWidget>& w : watched) {
        if (w) {
            QCoreApplication::postEvent(w->window(), new QEvent(QEvent::UpdateRequest),
                                        Qt::LowEventPriority);
            return;
        }
    }
    flush();
}

} // namespace vxlindral
