#include "views/fontscrolltableview.h"

#include <QHeaderView>
#include <QResizeEvent>
#include <QWheelEvent>
#include <algorithm>

namespace vxlindral {

FontScrollTableView::FontScrollTableView(QWidget* parent) : QTableView(parent) {}

void FontScrollTableView::setBoldPointSize(int size)
{
    QFont f = font();
    f.setWeight(75);
    f.setPointSize(std::clamp(size, kMinPointSize, kMaxPointSize));
    setFont(f);
}

void FontScrollTableView::wheelEvent(QWheelEvent* event)
{
    // The single legacy wheel delta (the dominant axis); one standard notch
    // (120) changes the size by 8 points.
    const QPoint a = event->angleDelta();
    const int delta = qAbs(a.x()) > qAbs(a.y()) ? a.x() : a.y();
    setBoldPointSize(font().pointSize() + delta / 15);
    applyFontLayout();
    event->accept();
}

void FontScrollTableView::resizeEvent(QResizeEvent* event)
{
    QTableView::resizeEvent(event);
    setBoldPointSize(font().pointSize());
    applyFontLayout();
}

void FontScrollTableView::applyFontLayout()
{
    resizeRowsToContents();
    const QAbstractItemModel* m = model();
    const int columns = m ? m->columnCount(rootIndex()) : 0;
    if (columns == 0 || font().pointSize() < kLargePrint) {
        verticalHeader()->show();
        resizeColumnsToContents();
        int widest = 0;
        for (int c = 0; c < columns; ++c)
            widest = std::max(widest, columnWidth(c));
        for (int c = 0; c < columns; ++c)
            setColumnWidth(c, widest);
    } else {
        // Large print: no row numbers, the columns share the width equally.
        verticalHeader()->hide();
        const int w = viewport()->width() / columns;
        for (int c = 0; c < columns; ++c)
            setColumnWidth(c, w);
    }
}

} // namespace vxlindral
