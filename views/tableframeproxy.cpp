#include "views/tableframeproxy.h"

#include <utility>

namespace vxlindral {

TableFrameProxy::TableFrameProxy(QObject* parent) : QAbstractTableModel(parent) {}

TableFrameProxy::~TableFrameProxy() = default;

void TableFrameProxy::setSourceModel(QAbstractItemModel* model)
{
    beginResetModel();
    for (const QMetaObject::Connection& c : connections)
        disconnect(c);
    connections.clear();
    source = model;
    rows = model ? model->rowCount() : 0;
    columns = model ? model->columnCount() : 0;
    stale = false;
    layoutStale = false;
    if (model) {
        using M = QAbstractItemModel;
        // The models' layout changes only refresh their tables: their rows
        // and columns are positions, never rearranged.
        auto changed = [this] { markStale(false); };
        auto moved = [this] { markStale(true); };
        connections = {
            connect(model, &M::rowsInserted, this, changed),
            connect(model, &M::rowsRemoved, this, changed),
            connect(model, &M::rowsMoved, this, moved),
            connect(model, &M::columnsInserted, this, changed),
            connect(model, &M::columnsRemoved, this, changed),
            connect(model, &M::columnsMoved, this, moved),
            connect(model, &M::dataChanged, this, changed),
            connect(model, &M::headerDataChanged, this,
                    [this] {
                        headersAnnounced = true;
                        markStale(false);
                    }),
            connect(model, &M::layoutChanged, this, changed),
            connect(model, &M::modelReset, this, moved),
            connect(model, &QObject::destroyed, this, &TableFrameProxy::dropSource),
        };
    }
    endResetModel();
}

void TableFrameProxy::dropSource()
{
    beginResetModel();
    connections.clear();
    source = nullptr;
    rows = 0;
    columns = 0;
    stale = false;
    layoutStale = false;
    endResetModel();
}

int TableFrameProxy::rowCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : rows;
}

int TableFrameProxy::columnCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : columns;
}

QVariant TableFrameProxy::data(const QModelIndex& index, int role) const
{
    if (!source || !index.isValid())
        return QVariant();
    return source->data(source->index(index.row(), index.column()), role);
}

QVariant TableFrameProxy::headerData(int section, Qt::Orientation orientation, int role) const
{
    return source ? source->headerData(section, orientation, role) : QVariant();
}

Qt::ItemFlags TableFrameProxy::flags(const QModelIndex& index) const
{
    if (!source || !index.isValid())
        return Qt::NoItemFlags;
    return source->flags(source->index(index.row(), index.column()));
}

void TableFrameProxy::markStale(bool layout)
{
    layoutStale = layoutStale || layout;
    if (stale)
        return;
    stale = true;
    emit changed();
}

void TableFrameProxy::sync()
{
    if (!stale)
        return;
    stale = false;
    const int r = source ? source->rowCount() : 0;
    const int c = source ? source->columnCount() : 0;
    if (layoutStale || r != rows || c != columns) {
        layoutStale = false;
        headersAnnounced = false;
        emit layoutAboutToBeChanged();
        // Cells are addressed by position: a kept index (selection, current
        // cell) stays where it is unless the new shape no longer has it.
        const QModelIndexList kept = persistentIndexList();
        rows = r;
        columns = c;
        for (const QModelIndex& i : kept)
            if (i.row() >= r || i.column() >= c)
                changePersistentIndex(i, QModelIndex());
        emit layoutChanged();
        headerTextsChanged(Qt::Horizontal);
        headerTextsChanged(Qt::Vertical);
        return;
    }
    if (rows > 0 && columns > 0)
        emit dataChanged(index(0, 0), index(rows - 1, columns - 1));
    // A header change makes the table's headers measure themselves again,
    // and the table lay itself out again later: only when the texts changed.
    const bool announced = std::exchange(headersAnnounced, false);
    for (Qt::Orientation o : {Qt::Horizontal, Qt::Vertical}) {
        const int n = o == Qt::Horizontal ? columns : rows;
        if ((headerTextsChanged(o) || announced) && n > 0)
            emit headerDataChanged(o, 0, n - 1);
    }
}

bool TableFrameProxy::headerTextsChanged(Qt::Orientation orientation)
{
    QStringList& kept = headerTexts[orientation == Qt::Horizontal ? 0 : 1];
    const int n = orientation == Qt::Horizontal ? columns : rows;
    if (!source || n > kComparedSections) {
        kept.clear();
        return false;
    }
    QStringList now;
    now.reserve(n);
    for (int i = 0; i < n; ++i)
        now << source->headerData(i, orientation).toString();
    if (now == kept)
        return false;
    kept = std::move(now);
    return true;
}

} // namespace vxlindral
