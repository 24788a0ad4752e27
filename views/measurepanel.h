#pragma once
#include "views/cutmeasure.h"

#include <QTableWidget>

namespace vxlindral {

// The cut view's readout of its measures: one row per value with its name,
// the value in its display unit and the unit; a value without a number
// (no points, no feature) shows empty. text() gives the same rows as tab-
// separated lines for the clipboard.
// Ownership: a child of the cut view, which fills it once per display
// frame. Threads: GUI thread only.
class MeasurePanel : public QTableWidget
{
    Q_OBJECT
public:
    explicit MeasurePanel(QWidget* parent = nullptr);

    // Shows these rows; the rows' items are reused while their number stays.
    void showRows(const QVector<CutMeasure::Row>& rows);
    // The value shown in the row named `name`, as text; empty when it has no
    // value or there is no such row.
    QString value(const QString& name) const;
    // "name<TAB>value<TAB>unit" per row, each ending in a newline.
    QString text() const;
};

} // namespace vxlindral
