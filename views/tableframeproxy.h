#pragma once
#include <QAbstractTableModel>
#include <QPointer>
#include <QStringList>
#include <vector>

namespace vxlindral {

// What a table of the numeric view shows in place of its source model. Cells
// and headers are read through from the source when the table paints, while
// the shape (rows, columns) is the one last announced to the table. The
// source's announcements (every line announces its rows as inserted, then
// data changed, and the data table's view a layout change) only mark the
// proxy stale and emit changed(); sync() then tells the table once: a layout
// change when the shape differs (or the source was reset or moved rows),
// otherwise a change of every cell, and of the headers when the source
// announced it or their texts changed. So the table never takes in the row
// announcements that would grow its header by a line's pixel count per line,
// and a refresh costs no relayout. The models' rows and columns are
// positions, so their layout changes are taken as such refreshes. Header
// texts are compared for headers of up to kComparedSections sections; the
// longer ones (the data table's row numbers) follow from the position.
// Ownership: owned by its view; follows, but does not own, the source (until
// the source is destroyed). Threads: GUI thread only.
class TableFrameProxy : public QAbstractTableModel
{
    Q_OBJECT
public:
    explicit TableFrameProxy(QObject* parent = nullptr);
    ~TableFrameProxy() override;

    void setSourceModel(QAbstractItemModel* model);
    QAbstractItemModel* sourceModel() const { return source; }

    int rowCount(const QModelIndex& parent = QModelIndex()) const override;
    int columnCount(const QModelIndex& parent = QModelIndex()) const override;
    QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;
    QVariant headerData(int section, Qt::Orientation orientation,
                        int role = Qt::DisplayRole) const override;
    Qt::ItemFlags flags(const QModelIndex& index) const override;

    bool isStale() const { return stale; }
    // Tells the table what changed in the source since the last sync.
    void sync();

signals:
    // The source announced a change; sync() brings the table up to date.
    void changed();

private:
    static constexpr int kComparedSections = 64;

    void markStale(bool layout);
    // Whether the header texts of `orientation` differ from those kept (kept
    // from now on); false for headers too long to compare.
    bool headerTextsChanged(Qt::Orientation orientation);
    void dropSource();

    QPointer<QAbstractItemModel> source;
    std::vector<QMetaObject::Connection> connections;
    int rows = 0;
    int columns = 0;
    bool stale = false;
    bool layoutStale = false;
    bool headersAnnounced = false;
    QStringList headerTexts[2]; // horizontal, vertical
};

} // namespace vxlindral
