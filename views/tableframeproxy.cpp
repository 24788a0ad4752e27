#include "views/tableframeproxy.h"

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
        auto shape = [this] { markStale(false); };
        auto layout = [this] { markStale(true); };
        connections = {
            connect(model, &M::rowsInserted, this, shape),
            connect(model, &M::rowsRemoved, this, shape),
            connect(model, &M::rowsMoved, this, layout),
            connect(model, &M::columnsInserted, this, shape),
            connect(model, &M::columnsRemoved, this, shape),
            connect(model, &M::columnsMoved, this, layout),
            connect(model, &M::dataChanged, this, shape),
            connect(model, &M::headerDataChanged, this, shape),
            connect(model, &M::layoutChanged, this, layout),
            connect(model, &M::modelReset, this, layout),
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
        return;
    }
    if (rows > 0 && columns > 0) {
        emit dataChanged(index(0, 0), index(rows - 1, columns - 1));
        emit headerDataChanged(Qt::Horizontal, 0, columns - 1);
        emit headerDataChanged(Qt::Vertical, 0, rows - 1);
    }
}

} // namespace vxlindral
