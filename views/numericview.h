#pragma once
#include "models/streamdatamodel.h"
#include "views/basicview.h"

class QAbstractItemModel;
class QAction;
class QTableView;

namespace vxlindral {

class FontScrollTableView;
class FrameSync;
class PreciseHintTableView;
class TableFrameProxy;

// The numeric view: the decoded line header, the per-field statistics and the
// raw value table of a port, or instead the transposed statistics in large
// print. It owns no data; its tool bar relays hex display, difference mode and
// header expansion to the models through its three signals.
// Each table shows its model through a TableFrameProxy: the models' per-line
// announcements reach the tables once per display frame (and before any paint
// of a table), with the shape and texts of the newest line.
// Ownership: the tables, their proxies, the frame pacer, the actions and the
// three models that showModel builds are children of the view; the source's
// model is owned by its session. Threads: GUI thread only.
class NumericView : public BasicView
{
    Q_OBJECT
public:
    explicit NumericView(QWidget* parent = nullptr);
    ~NumericView() override;

    void createContent() override;
    QToolBar* toolBar() override;

    // Shows the lines of `model` (a port's or a capture's; null: none): its
    // raw value table, and three models of the view's own (average, big
    // average, header), children of the view, fed by `model` through queued
    // connections; the tool bar's switches reach all four. The model
    // outlives the view and may have been left in hexadecimal or difference
    // mode by an earlier view: it is set back to decimal without difference.
    void showModel(StreamDataModel* model);

    // Keeps the header and average tables exactly as tall as their rows, plus
    // the horizontal scroll bar while their columns are wider than the table.
    void fixHeights();
    // Brings the tables up to date with their models now.
    void syncTables();
    // Clears the models of its four tables (StreamDataModel::clearLines),
    // the port's data model among them; the tables follow at the next frame.
    void clearLines(uint64_t before) override;
    // The longest history its tables' models keep.
    int reachBack() const override;

    bool isHex() const { return hex; }
    bool isHeaderExpanded() const { return expandHeader; }
    bool isBigAverage() const { return bigAverage; }
    bool isDifference() const { return difference; }

signals:
    void changeDisplayMode(StreamDataModel::DISPLAY_MODE mode);
    void changeDifferenceMode(bool mode);
    void changeHeaderMode(bool expand);

public slots:
    void handleAvr(bool big);
    void handleDiv();
    void handleHex();
    void handleHeader(bool expand);
    void setHeaderModel(QAbstractItemModel* model);
    void setAverageModel(QAbstractItemModel* model);
    void setBigAverageModel(QAbstractItemModel* model);
    void setDataModel(QAbstractItemModel* model);
    void updateNewLine(vxlindral::LineType newLine) override;
    void handleConfigChanged() override;

private:
    // The models of its tables that are StreamDataModels.
    QList<StreamDataModel*> tableModels() const;

    bool hex = false;
    bool expandHeader = false;
    bool bigAverage = false;
    bool difference = false;

    QAction* headerAction = nullptr;
    QAction* averageAction = nullptr;
    QAction* hexAction = nullptr;
    QAction* differenceAction = nullptr;

    PreciseHintTableView* headerTable = nullptr;
    PreciseHintTableView* averageTable = nullptr;
    FontScrollTableView* bigAverageTable = nullptr;
    QTableView* dataTable = nullptr;

    TableFrameProxy* headerProxy = nullptr;
    TableFrameProxy* averageProxy = nullptr;
    TableFrameProxy* bigAverageProxy = nullptr;
    TableFrameProxy* dataProxy = nullptr;
    FrameSync* frames = nullptr;
    // The header model announced a new layout: the header table fits its
    // columns once the frame has brought it up to date and it has a line.
    bool headerRefit = false;
    QMetaObject::Connection headerLayout;
};

} // namespace vxlindral
