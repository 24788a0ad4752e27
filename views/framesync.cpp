#include "views/framesync.h"

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
}

FrameSync::~FrameSync()
{
    auto& all = instances();
    all.erase(std::remove(all.begin(), all.end(), this), all.end());
}

void FrameSync::watch(QWidget* widget)
{
    if (widget)
        widget->installEventFilter(this);
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

bool FrameSync::eventFilter(QObject* watched, QEvent* event)
{
    if (event->type() == QEvent::Paint)
        flush();
    return QObject::eventFilter(watched, event);
}

void FrameSync::timerEvent(QTimerEvent* event)
{
    if (event->timerId() != timer.timerId()) {
        QObject::timerEvent(event);
        return;
    }
    timer.stop();
    flush();
}

} // namespace vxlindral
