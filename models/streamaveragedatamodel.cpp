#include "models/streamaveragedatamodel.h"

namespace vxlindral {

StreamAverageDataModel::StreamAverageDataModel(QObject* parent) : StreamDataModel(parent) {}

StreamAverageDataModel::~StreamAverageDataModel() = default;

int StreamAverageDataModel::rowCount(const QModelIndex&) const
{
    return 4;
}

int StreamAverageDataModel::columnCount(const QModelIndex&) const
{
    return current && current->parser ? current->parser->colCount() : 0;
}

QVariant StreamAverageDataModel::data(const QModelIndex& index, int role) const
{
    if (role == Qt::TextAlignmentRole)
        return int(Qt::AlignRight);
    // An index of no model (e.g. from index() outside the table) shows nothing.
    if (role != Qt::DisplayRole || !index.model() || index.row() >= rows)
        return QVariant();
    const LineType line = newestLine();
    if (!line)
        return QVariant();
    const double v = statisticEntry(statistic(*line, index.row()), index.column());
    return formatStatistic(v, mode, fieldBits(line, index.column()));
}

QVariant StreamAverageDataModel::headerData(int section, Qt::Orientation orientation,
                                            int role) const
{
    const LineType line = newestLine();
    if (role != Qt::DisplayRole || !line)
        return QVariant();
    if (orientation == Qt::Horizontal)
        return fieldName(line, section);
    switch (section) {
    case 0:
        return tr("avr");
    case 1:
        return tr("std");
    case 2:
        return tr("min");
    case 3:
        return tr("max");
    default:
        return QVariant();
    }
}

void StreamAverageDataModel::updateNewLine(vxlindral::LineType line)
{
    takeStatisticsLine(line);
}

} // namespace vxlindral
