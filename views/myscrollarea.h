#pragma once
#include <QScrollArea>

namespace vxlindral {

// The scroll area that holds an image view's picture. It swallows wheel
// events on its viewport so the picture never scrolls by the wheel; the event
// travels on to the enclosing view (the cut view zooms with it).
// Ownership: child of its view. Threads: GUI thread only.
class MyScrollArea : public QScrollArea
{
    Q_OBJECT
public:
    explicit MyScrollArea(QWidget* parent = nullptr);

    bool eventFilter(QObject* watched, QEvent* event) override;
};

} // namespace vxlindral
