#include "views/threedview.h"

#include "views/myopenglwidget.h"

namespace vxlindral {

ThreeDView::ThreeDView(QWidget* parent) : BasicView(parent) {}
ThreeDView::~ThreeDView() = default;
QToolBar* ThreeDView::toolBar()
{
    return toolBarWidget;
}
void ThreeDView::updateNewLine(vxlindral::LineType) {}
void ThreeDView::handleConfigChanged() {}
void ThreeDView::handleHome() {}
void ThreeDView::readSettings() {}

} // namespace vxlindral
