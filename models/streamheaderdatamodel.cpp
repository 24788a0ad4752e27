#include "models/streamheaderdatamodel.h"

#include "scanner/lineheader.h"

#include <cstring>
#include <string>

namespace vxlindral {

namespace {
// Unsigned 32-bit little-endian value at byte `offset` of the header, 0 when
// it does not fit.
uint32_t headerValue(const std::vector<uint8_t>& header, std::size_t offset)
{
    uint32_t v = 0;
    if (offset + sizeof v <= header.size())
        std::memcpy(&v, header.data() + offset, sizeof v);
    return v;
}

// Number of whole 32-bit words in the header.
std::size_t headerWords(const std::vector<uint8_t>& header)
{
    return header.size() / 4;
}
} // namespace

StreamHeaderDataModel::StreamHeaderDataModel(QObject* parent) : StreamDataModel(parent) {}

StreamHeaderDataModel::~StreamHeaderDataModel() = default;

int StreamHeaderDataModel::rowCount(const QModelIndex&) const
{
    if (!expandHeader)
        return 1;
    return current ? static_cast<int>(headerWords(current->header)) : 0;
}

int StreamHeaderDataModel::columnCount(const QModelIndex&) const
{
    return expandHeader ? 4 : 1;
}

QVariant StreamHeaderDataModel::data(const QModelIndex& index, int role) const
{
    if (role == Qt::TextAlignmentRole)
        return int(expandHeader) + 1;
    const LineType line = newestLine();
    if (index.row() < 0 || index.column() < 0 || !index.model() || index.row() >= rows || !line ||
        line->header.empty() || role != Qt::DisplayRole)
        return QVariant();

    const std::vector<uint8_t>& header = line->header;
    const std::size_t words = headerWords(header);

    if (!expandHeader) {
        // Value i is read at byte offset i, not 4 i: the collapsed text steps
        // through the header one byte at a time.
        QString text;
        text.reserve(static_cast<int>(words * 9));
        for (std::size_t i = 0; i < words; ++i) {
            if (i)
                text += QLatin1Char(' ');
            text += QStringLiteral("%1").arg(headerValue(header, i), 8, 16, QLatin1Char('0'));
        }
        return text;
    }

    const auto r = static_cast<unsigned>(index.row());
    const uint32_t word = r < words ? headerValue(header, 4 * std::size_t(r)) : 0;
    switch (index.column()) {
    case 0:
        return QStringLiteral("%1 ").arg(word, 8, 16, QLatin1Char('0'));
    case 1:
        return QString::fromUtf8(vxs::Lineheader2String(r));
    case 2: {
        if (r >= words)
            return QString();
        vxs::LineHeader view;
        view.data = header.data();
        view.length = static_cast<unsigned>(words * 4);
        return QString::fromStdString(vxs::LineheaderValue2String(view, r));
    }
    case 3: {
        // Most significant bit first, four groups of eight separated by ':'.
        QString bits;
        bits.reserve(35);
        for (int b = 31; b >= 0; --b) {
            bits += (word >> b) & 1u ? QLatin1Char('1') : QLatin1Char('0');
            if (b % 8 == 0 && b)
                bits += QLatin1Char(':');
        }
        return bits;
    }
    default:
        return QVariant();
    }
}

QVariant StreamHeaderDataModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (role != Qt::DisplayRole || !newestLine())
        return QVariant();
    if (orientation == Qt::Vertical)
        return expandHeader ? QVariant(section) : QVariant();
    if (section < 0)
        return section;
    switch (section % 3) {
    case 1:
        return tr("description");
    case 2:
        return tr("value");
    default:
        // Both the hexadecimal column 0 and the binary column 3 are raw values.
        return tr("raw value");
    }
}

void StreamHeaderDataModel::updateNewLine(vxlindral::LineType newLine)
{
    setData(index(0, 0), QVariant::fromValue(newLine), Qt::EditRole);
}

void StreamHeaderDataModel::setExpandHeader(bool mode)
{
    expandHeader = mode;
    emit headerDataChanged(Qt::Vertical, 0, rowCount());
    emit headerDataChanged(Qt::Horizontal, 0, columnCount());
    emit layoutChanged();
}

} // namespace vxlindral
