#include "views/cutview.h"

#include "views/drawcut.h"

namespace vxlindral {

CutView::CutView(QWidget* parent) : BasicView(parent) {}
CutView::~CutView() = default;
void CutView::createContent()
{
    BasicView::createContent();
}
QToolBar* CutView::toolBar()
{
    return toolBarWidget;
}
void CutView::updateNewLine(vxlindral::LineType newLine)
{
    currentLine = newLine;
}
void CutView::handleCenter() {}
void CutView::handleZoomIn() {}
void CutView::handleZoomOut() {}
void CutView::handleZoomHome() {}
void CutView::handlePointSize() {}
void CutView::handleGrid() {}
void CutView::handleDrawMode() {}
void CutView::updateImage() {}
void CutView::updateImageLabel() {}
void CutView::handleConfigChanged() {}
void CutView::resizeEvent(QResizeEvent* e)
{
    BasicView::resizeEvent(e);
}
void CutView::wheelEvent(QWheelEvent* e)
{
    BasicView::wheelEvent(e);
}
void CutView::mousePressEvent(QMouseEvent* e)
{
    BasicView::mousePressEvent(e);
}
void CutView::mouseMoveEvent(QMouseEvent* e)
{
    BasicView::mouseMoveEvent(e);
}
void CutView::mouseDoubleClickEvent(QMouseEvent* e)
{
    BasicView::mouseDoubleClickEvent(e);
}
void CutView::mouseReleaseEvent(QMouseEvent* e)
{
    BasicView::mouseReleaseEvent(e);
}
QPoint CutView::labelCentre() const
{
    return {};
}
void CutView::applyClickPoint() {}
QSize CutView::viewSize() const
{
    return {};
}

} // namespace vxlindral
