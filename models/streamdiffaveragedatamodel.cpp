#include "models/streamdiffaveragedatamodel.h"

#include <stdexcept>

namespace vxlindral {

StreamDiffAverageDataModel::StreamDiffAverageDataModel(QObject* parent) : StreamDataModel(parent) {}

StreamDiffAverageDataModel::~StreamDiffAverageDataModel() = default;

int StreamDiffAverageDataModel::rowCount(const QModelIndex&) const
{
    return current && current->parser ? current->parser->colCount() : 0;
}

int StreamDiffAverageDataModel::columnCount(const QModelIndex&) const
{
    return 3;
}

QVariant StreamDiffAverageDataModel::data(const QModelIndex& index, int role) const
{
    if (role == Qt::TextAlignmentRole)
        return int(Qt::AlignRight);
    const LineType line = current;
    if (role != Qt::DisplayRole || !line || !index.model())
        return QVariant();

    // Columns 0 and 1 show mean and standard deviation; from column 2 on the
    // statistic index is column - 2, compared with the reference line.
    const int field = index.row();
    const int c = index.column();
    if (c < 0)
        throw std::invalid_argument("field index is out of range");
    const int stat = c < 2 ? c : c - 2;
    double v = statisticEntry(statistic(*line, stat), field);
    if (c >= 2 && diffReference)
        v -= statisticEntry(statistic(*diffReference, stat), field);
    return formatStatistic(v, mode, fieldBits(line, field));
}

QVariant StreamDiffAverageDataModel::headerData(int section, Qt::Orientation orientation,
                                                int role) const
{
    if (role != Qt::DisplayRole || !current)
        return QVariant();
    if (orientation == Qt::Vertical)
        return fieldName(current, section);
    if (section == 0)
        return tr("avr");
    if (section == 1)
        return tr("std");
    return tr("diff");
}

void StreamDiffAverageDataModel::updateNewLine(vxlindral::LineType line)
{
    // The first line is its own reference: its difference column shows 0.
    if (!diffReference)
        diffReference = line;
    takeStatisticsLine(line);
}

void StreamDiffAverageDataModel::setDiff()
{
    diffReference = current;
}

void StreamDiffAverageDataModel::setReference(vxlindral::LineType line)
{
    diffReference = std::move(line);
    // The difference column changes with it; the tables read it through.
    if (current && rowCount() > 0)
        emit dataChanged(createIndex(0, 0), createIndex(rowCount() - 1, columnCount() - 1));
}

void StreamDiffAverageDataModel::clearLines()
{
    diffReference.reset();
    StreamDataModel::clearLines();
}

} // namespace vxlindral
