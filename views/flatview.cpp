#include "views/flatview.h"

namespace vxlindral {

FlatView::FlatView(QWidget* parent) : BasicView(parent) {}
FlatView::~FlatView() = default;
QToolBar* FlatView::toolBar()
{
    return toolBarWidget;
}
int FlatView::grayValue(uint32_t, int, double)
{
    return 0;
}
void FlatView::updateNewLine(vxlindral::LineType) {}
void FlatView::setImage() {}
void FlatView::updateImage() {}
void FlatView::handleDisplayMode() {}
void FlatView::handleMirrow() {}
void FlatView::handleConfigChanged() {}
void FlatView::resizeEvent(QResizeEvent* e)
{
    BasicView::resizeEvent(e);
}
void FlatView::drawRow(const MyLine&, int, int) {}
void FlatView::drawColumn(const MyLine&, int, int) {}

} // namespace vxlindral
