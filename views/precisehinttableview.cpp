#include "views/precisehinttableview.h"

#include <QHeaderView>

namespace vxlindral {

PreciseHintTableView::PreciseHintTableView(QWidget* parent) : QTableView(parent) {}

QSize PreciseHintTableView::sizeHint() const
{
    const int w = verticalHeader()->width() + horizontalHeader()->length();
    const int h = horizontalHeader()->height() + 2 + verticalHeader()->length();
    return {w, h};
}

} // namespace vxlindral
