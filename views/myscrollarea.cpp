#include "views/myscrollarea.h"

#include <QEvent>

namespace vxlindral {

MyScrollArea::MyScrollArea(QWidget* parent) : QScrollArea(parent)
{
    viewport()->installEventFilter(this);
}

bool MyScrollArea::eventFilter(QObject* watched, QEvent* event)
{
    if (event->type() == QEvent::Wheel) {
        // Never scroll the picture by the wheel; let the view see the wheel.
        event->ignore();
        return true;
    }
    return QScrollArea::eventFilter(watched, event);
}

} // namespace vxlindral
