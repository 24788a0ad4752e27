#include "models/streamdatamodel.h"

#include <QMutexLocker>
#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <string>

namespace vxlindral {

namespace {
constexpr int kCellBuffer = 80;
}

StreamDataModel::StreamDataModel(QObject* parent) : QAbstractListModel(parent)
{
    registerLineType();
}

StreamDataModel::~StreamDataModel() = default;

int StreamDataModel::rowCount(const QModelIndex&) const
{
    return rows;
}

int StreamDataModel::columnCount(const QModelIndex&) const
{
    return columns;
}

void StreamDataModel::rawValueText(char* buffer, const LineType& line, int row, int col, bool hex)
{
    std::memset(buffer, 0, kCellBuffer);
    if (!line || !line->parser || line->data.empty() || row >= line->rowCount())
        return;
    // Rows beyond the copied pixel bytes have no value.
    const std::size_t stride = static_cast<std::size_t>(line->parser->stride());
    if (stride == 0 || (static_cast<std::size_t>(row) + 1) * stride > line->data.size())
        return;
    line->parser->valueAsString(buffer, kCellBuffer,
                                reinterpret_cast<const char*>(line->data.data()), row, col, hex);
}

QVariant StreamDataModel::data(const QModelIndex& index, int role) const
{
    if (role == Qt::TextAlignmentRole)
        return int(Qt::AlignRight);
    if (index.row() < 0 || index.column() < 0 || !index.model() || index.row() >= rows ||
        role != Qt::DisplayRole)
        return QVariant();

    char buffer[kCellBuffer];
    if (!differenceMode) {
        rawValueText(buffer, current, index.row(), index.column(), mode == DISPLAY_HEX);
        return QString::fromUtf8(buffer);
    }
    // Difference mode: decimal values of both lines, reference minus current.
    rawValueText(buffer, current, index.row(), index.column(), false);
    const double now = std::strtod(buffer, nullptr);
    rawValueText(buffer, reference, index.row(), index.column(), false);
    const double then = std::strtod(buffer, nullptr);
    return then - now;
}

bool StreamDataModel::setData(const QModelIndex&, const QVariant& value, int)
{
    QMutexLocker locker(&mutex);
    LineType line;
    if (value.canConvert<LineType>())
        line = value.value<LineType>();
    current = line;
    if (!current)
        return true;

    rows = current->rowCount();
    columns = current->parser ? current->parser->colCount() : 0;

    // The last row argument is the row count itself, one past the last row:
    // the whole table is announced as new with every line.
    beginInsertRows(QModelIndex(), 0, rows);
    history.push_back(current);
    if (history.size() > static_cast<std::size_t>(historyLimit))
        history.erase(history.begin());
    endInsertRows();

    emit newLine(current);
    // The lower right corner lies one past the last row and column.
    emit dataChanged(createIndex(0, 0), createIndex(rowCount(), columnCount()), {});
    return true;
}

void StreamDataModel::clearLines()
{
    QMutexLocker locker(&mutex);
    beginResetModel();
    history.clear();
    current.reset();
    // The reference the user took for difference mode stays: after a seek in
    // a capture the values go on being compared with the same line.
    rows = 0;
    columns = 0;
    endResetModel();
}

QVariant StreamDataModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (role != Qt::DisplayRole || !current)
        return QVariant();
    if (orientation == Qt::Horizontal)
        return fieldName(current, section);
    return QStringLiteral("%1").arg(section);
}

QString StreamDataModel::currentLineText() const
{
    const LineType line = current;
    if (!line || !line->parser)
        return QString();
    const int records = line->parser->stride() > 0
                            ? std::min(line->rowCount(),
                                       static_cast<int>(line->data.size() / line->parser->stride()))
                            : 0;
    const std::string text = line->parser->lineToString(
        reinterpret_cast<const char*>(line->data.data()), records, 0, " ", "\n");
    return QString::fromStdString(text);
}

void StreamDataModel::emitStatistic(const QString& message)
{
    emit notifyStatistic(message);
}

void StreamDataModel::emitError(const QString& message)
{
    emit notifyError(message);
}

void StreamDataModel::setDisplayMode(StreamDataModel::DISPLAY_MODE displayMode)
{
    mode = displayMode;
}

void StreamDataModel::setDifferenceMode(bool on)
{
    if (history.empty())
        return;
    differenceMode = on;
    if (on)
        reference = history.back();
}

QString StreamDataModel::formatStatistic(double v, DISPLAY_MODE displayMode, int bits)
{
    if (displayMode != DISPLAY_HEX)
        return QStringLiteral("%1").arg(v, 3, 'f', 2, QLatin1Char(' '));
    // Truncate toward zero, then keep the low `bits` bits of the 32-bit
    // two's complement; a width of 0 or 32 keeps all of them.
    const bool representable = std::isfinite(v) && std::fabs(v) < 9.2e18;
    const auto whole = representable ? static_cast<int64_t>(v) : int64_t(0);
    uint32_t u = static_cast<uint32_t>(whole);
    const unsigned shift = static_cast<unsigned>(32 - bits) % 32u;
    u = (u << shift) >> shift;
    return QStringLiteral("%1").arg(u, bits / 4, 16, QLatin1Char('0'));
}

void StreamDataModel::takeStatisticsLine(const LineType& line)
{
    setData(index(0, 0), QVariant::fromValue(line), Qt::EditRole);
    if (history.size() == 1) {
        rows = 4;
        emit headerDataChanged(Qt::Vertical, 0, 4);
        emit headerDataChanged(Qt::Horizontal, 0, columns);
        emit layoutChanged();
    }
}

const std::vector<double>& StreamDataModel::statistic(const MyLine& line, int index)
{
    switch (index) {
    case 0:
        return line.avr;
    case 1:
        return line.sdev;
    case 2:
        return line.min;
    case 3:
        return line.max;
    default:
        throw std::invalid_argument("field index is out of range");
    }
}

double StreamDataModel::statisticEntry(const std::vector<double>& values, int field)
{
    return field >= 0 && static_cast<std::size_t>(field) < values.size()
               ? values[static_cast<std::size_t>(field)]
               : 0.0;
}

QString StreamDataModel::fieldName(const LineType& line, int section)
{
    const char* name = line && line->parser ? line->parser->getColDef(section).name : nullptr;
    return QStringLiteral("%1").arg(QString::fromUtf8(name ? name : ""));
}

int StreamDataModel::fieldBits(const LineType& line, int section)
{
    return line && line->parser ? line->parser->getColDef(section).bits : 0;
}

} // namespace vxlindral
