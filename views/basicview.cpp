#include "views/basicview.h"

#include "line/myline.h"
#include "views/framesync.h"
#include "views/linepoints.h"
#include "views/myscrollarea.h"

#include <QCloseEvent>
#include <QIcon>
#include <QLabel>
#include <QLayout>
#include <QPixmap>
#include <QToolBar>
#include <cmath>

namespace vxlindral {

BasicView::BasicView(QWidget* parent) : QMdiSubWindow(parent)
{
    registerLineType();
    // Every view deletes itself when closed, also one that builds its content
    // without createContent (the numeric and 3D views): the next press of its
    // button makes a new view with fresh models.
    setAttribute(Qt::WA_DeleteOnClose);
    // A 1x1 icon keeps the application icon out of the sub-window's title bar.
    QPixmap blank(1, 1);
    blank.fill(Qt::transparent);
    setWindowIcon(QIcon(blank));
}

BasicView::~BasicView() = default;

void BasicView::createContent()
{
    scrollArea = new MyScrollArea(this);
    scrollArea->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    scrollArea->setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    scrollArea->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Expanding);
    label = new QLabel(scrollArea);
    label->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Expanding);
    scrollArea->setWidget(label);
    layout()->addWidget(scrollArea);
}

QToolBar* BasicView::toolBar()
{
    return toolBarWidget;
}

QImage BasicView::picture()
{
    // The contents rectangle leaves out the frame and the title bar.
    QRect area = contentsRect();
    if (toolBarWidget && toolBarWidget->isVisible())
        area.setTop(toolBarWidget->geometry().bottom() + 1);
    return grab(area).toImage();
}

void BasicView::clearLines(uint64_t) {}

int BasicView::reachBack() const
{
    return 1;
}

void BasicView::setPort(int p)
{
    port = p;
    setWindowTitle(windowTitle() + QStringLiteral(" : Port %1").arg(p));
}

void BasicView::setSourceName(const QString& name)
{
    QString title = windowTitle();
    const int suffix = title.lastIndexOf(QStringLiteral(" : Port "));
    if (suffix >= 0)
        title.truncate(suffix);
    setWindowTitle(title + QStringLiteral(" : ") + name);
}

void BasicView::updateStatistic(const QString&) {}

void BasicView::calculateRanges(const MyLine* ln, int& minI, int& maxI)
{
    LinePoints::intensityRange(*ln, minI, maxI);
}

bool BasicView::isFilteredDisplayed()
{
    return displayFiltered;
}

void BasicView::setDisplayFiltered(bool filtered)
{
    displayFiltered = filtered;
}

void BasicView::handleConfigChanged() {}

void BasicView::holdFrames(bool on)
{
    for (FrameSync* sync : findChildren<FrameSync*>())
        sync->hold(on);
    // Nor does anything else of the view repaint meanwhile (tables reset by
    // a seek, labels): each repaint composes the whole window, which with a
    // software renderer costs as much as the lines themselves. Enabled again,
    // the view repaints once.
    setUpdatesEnabled(!on);
}

void BasicView::resizeEvent(QResizeEvent* event)
{
    QMdiSubWindow::resizeEvent(event);
}

void BasicView::closeEvent(QCloseEvent* event)
{
    emit closed(objectName());
    event->accept();
}

} // namespace vxlindral
