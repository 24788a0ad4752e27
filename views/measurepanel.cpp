#include "views/measurepanel.h"

#include <QHeaderView>
#include <cmath>

namespace vxlindral {

MeasurePanel::MeasurePanel(QWidget* parent) : QTableWidget(0, 3, parent)
{
    setObjectName(QStringLiteral("measurePanel"));
    setHorizontalHeaderLabels({tr("Measure"), tr("Value"), tr("Unit")});
    verticalHeader()->hide();
    horizontalHeader()->setSectionResizeMode(QHeaderView::ResizeToContents);
    setEditTriggers(QAbstractItemView::NoEditTriggers);
    setSelectionMode(QAbstractItemView::NoSelection);
    setFocusPolicy(Qt::NoFocus);
    // As wide as its columns where the view has room, narrower where not:
    // showing the panel must not make the view grow.
    setSizeAdjustPolicy(QAbstractScrollArea::AdjustToContents);
    setSizePolicy(QSizePolicy::Preferred, QSizePolicy::Expanding);
    setMinimumWidth(fontMetrics().horizontalAdvance(QStringLiteral("difference z")));
}

void MeasurePanel::showRows(const QVector<CutMeasure::Row>& rows)
{
    if (rowCount() != rows.size()) {
        setRowCount(rows.size());
        for (int r = 0; r < rows.size(); ++r) {
            for (int c = 0; c < 3; ++c) {
                auto* item = new QTableWidgetItem;
                if (c == 1)
                    item->setTextAlignment(Qt::AlignRight | Qt::AlignVCenter);
                setItem(r, c, item);
            }
        }
    }
    for (int r = 0; r < rows.size(); ++r) {
        const CutMeasure::Row& row = rows[r];
        const QString shown =
            std::isnan(row.value) ? QString() : QString::number(row.value, 'f', row.decimals);
        item(r, 0)->setText(row.name);
        item(r, 1)->setText(shown);
        item(r, 2)->setText(row.unit);
    }
}

QString MeasurePanel::value(const QString& name) const
{
    for (int r = 0; r < rowCount(); ++r) {
        if (item(r, 0)->text() == name)
            return item(r, 1)->text();
    }
    return {};
}

QString MeasurePanel::text() const
{
    QString out;
    for (int r = 0; r < rowCount(); ++r)
        out += item(r, 0)->text() + QLatin1Char('\t') + item(r, 1)->text() + QLatin1Char('\t') +
               item(r, 2)->text() + QLatin1Char('\n');
    return out;
}

} // namespace vxlindral
