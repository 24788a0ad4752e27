#include "views/numericview.h"

#include "models/streamaveragedatamodel.h"
#include "models/streamdiffaveragedatamodel.h"
#include "models/streamheaderdatamodel.h"
#include "views/fontscrolltableview.h"
#include "views/framesync.h"
#include "views/precisehinttableview.h"
#include "views/tableframeproxy.h"

#include <QAction>
#include <QHeaderView>
#include <QIcon>
#include <QLayout>
#include <QScrollBar>
#include <QTableView>
#include <QToolBar>
#include <algorithm>

namespace vxlindral {

NumericView::NumericView(QWidget* parent) : BasicView(parent)
{
    setWindowTitle(tr("Numeric"));
    setWindowIcon(QIcon(QStringLiteral(":/PixMaps/numeric.png")));
    createContent();
}

NumericView::~NumericView() = default;

void NumericView::createContent()
{
    if (QToolBar* bar = toolBar()) {
        bar->setParent(this);
        layout()->addWidget(bar);
    }
    headerTable = new PreciseHintTableView(this);
    averageTable = new PreciseHintTableView(this);
    bigAverageTable = new FontScrollTableView(this);
    dataTable = new QTableView(this);

    QFont font(QStringLiteral("Monospace"), 8, QFont::Normal, false);
    font.setStyleHint(QFont::TypeWriter);
    const QList<QTableView*> tables{headerTable, averageTable, bigAverageTable, dataTable};
    for (QTableView* t : tables) {
        t->setFont(font);
        t->setShowGrid(false);
        t->setAlternatingRowColors(true);
        t->verticalHeader()->setDefaultSectionSize(16);
        t->verticalHeader()->setSectionResizeMode(QHeaderView::Fixed);
        layout()->addWidget(t);
    }

    QFont bold = bigAverageTable->font();
    bold.setWeight(75);
    bold.setPointSize(bigAverageTable->font().pointSize());
    bigAverageTable->setFont(bold);
    bigAverageTable->applyFontLayout();
    // Added again so that it ends up last, below the data table.
    layout()->addWidget(bigAverageTable);
    bigAverageTable->hide();

    frames = new FrameSync(this, [this] { syncTables(); });
    headerProxy = new TableFrameProxy(this);
    averageProxy = new TableFrameProxy(this);
    bigAverageProxy = new TableFrameProxy(this);
    dataProxy = new TableFrameProxy(this);
    const std::pair<QTableView*, TableFrameProxy*> pairs[] = {{headerTable, headerProxy},
                                                              {averageTable, averageProxy},
                                                              {bigAverageTable, bigAverageProxy},
                                                              {dataTable, dataProxy}};
    for (const auto& [table, proxy] : pairs) {
        table->setModel(proxy);
        connect(proxy, &TableFrameProxy::changed, frames, &FrameSync::markPending);
        for (QWidget* w : {table->viewport(), table->horizontalHeader()->viewport(),
                           table->verticalHeader()->viewport(),
                           static_cast<QWidget*>(table->horizontalScrollBar()),
                           static_cast<QWidget*>(table->verticalScrollBar())})
            frames->watch(w);
    }
    // A change of shape changes the heights. The header table's columns are
    // fitted only when its model announces a new layout (syncTables).
    connect(headerProxy, &QAbstractItemModel::layoutChanged, this, [this] { fixHeights(); });
    // Columns growing wider than the table bring a scroll bar, which the
    // height must leave room for.
    for (QTableView* t :
         {static_cast<QTableView*>(headerTable), static_cast<QTableView*>(averageTable)})
        connect(t->horizontalScrollBar(), &QScrollBar::rangeChanged, this,
                [this] { fixHeights(); });
    connect(averageProxy, &QAbstractItemModel::layoutChanged, this, [this] { fixHeights(); });
    connect(bigAverageProxy, &QAbstractItemModel::layoutChanged, this, [this] { fixHeights(); });
}

QToolBar* NumericView::toolBar()
{
    if (toolBarWidget)
        return toolBarWidget;
    toolBarWidget = new QToolBar(this);

    hexAction = new QAction(tr("Hex"), this);
    hexAction->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_M));
    averageAction = new QAction(tr("Avr"), this);
    averageAction->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_A));
    headerAction = new QAction(tr("Header"), this);
    headerAction->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_H));
    differenceAction = new QAction(tr("Div"), this);
    differenceAction->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_D));
    for (QAction* a : {hexAction, averageAction, headerAction, differenceAction}) {
        a->setCheckable(true);
        toolBarWidget->addAction(a);
    }
    headerAction->setChecked(false);

    connect(hexAction, &QAction::triggered, this, [this] { handleHex(); });
    connect(averageAction, &QAction::triggered, this, &NumericView::handleAvr);
    connect(headerAction, &QAction::triggered, this, &NumericView::handleHeader);
    connect(differenceAction, &QAction::triggered, this, [this] { handleDiv(); });
    return toolBarWidget;
}

void NumericView::fixHeights()
{
    for (QTableView* t :
         {static_cast<QTableView*>(headerTable), static_cast<QTableView*>(averageTable)}) {
        const QScrollBar* bar = t->horizontalScrollBar();
        const bool scrolls = bar->maximum() > bar->minimum();
        t->setFixedHeight(t->sizeHint().height() + (scrolls ? bar->sizeHint().height() : 0));
    }
}

void NumericView::handleAvr(bool big)
{
    bigAverage = big;
    headerTable->setVisible(!big);
    averageTable->setVisible(!big);
    dataTable->setVisible(!big);
    bigAverageTable->setVisible(big);
}

void NumericView::handleDiv()
{
    difference = !difference;
    differenceAction->setChecked(difference);
    emit changeDifferenceMode(difference);
}

void NumericView::handleHex()
{
    hex = !hex;
    hexAction->setChecked(hex);
    emit changeDisplayMode(hex ? StreamDataModel::DISPLAY_HEX : StreamDataModel::DISPLAY_DEC);
}

void NumericView::handleHeader(bool expand)
{
    expandHeader = expand;
    headerAction->setChecked(expand);
    emit changeHeaderMode(expand);
}

void NumericView::setHeaderModel(QAbstractItemModel* model)
{
    disconnect(headerLayout);
    headerProxy->setSourceModel(model);
    if (model)
        headerLayout = connect(model, &QAbstractItemModel::layoutChanged, this,
                               [this] { headerRefit = true; });
}

void NumericView::setAverageModel(QAbstractItemModel* model)
{
    averageProxy->setSourceModel(model);
}

void NumericView::setBigAverageModel(QAbstractItemModel* model)
{
    bigAverageProxy->setSourceModel(model);
}

void NumericView::setDataModel(QAbstractItemModel* model)
{
    dataProxy->setSourceModel(model);
}

void NumericView::updateNewLine(vxlindral::LineType)
{
    // The data table's refresh per line; its proxy passes it on to the table
    // as one layout change per frame.
    if (QAbstractItemModel* m = dataProxy->sourceModel())
        emit m->layoutChanged();
}

QList<StreamDataModel*> NumericView::tableModels() const
{
    QList<StreamDataModel*> models;
    for (TableFrameProxy* p : {headerProxy, averageProxy, bigAverageProxy, dataProxy})
        if (auto* model = qobject_cast<StreamDataModel*>(p->sourceModel()))
            models << model;
    return models;
}

void NumericView::clearLines(uint64_t)
{
    for (StreamDataModel* model : tableModels())
        model->clearLines();
}

int NumericView::reachBack() const
{
    int lines = 1;
    for (const StreamDataModel* model : tableModels())
        lines = std::max(lines, model->reachBack());
    return lines;
}

void NumericView::syncTables()
{
    for (TableFrameProxy* p : {headerProxy, averageProxy, bigAverageProxy, dataProxy})
        p->sync();
    // A layout announced before the first line has nothing to fit to yet;
    // the fit waits for the first cell.
    const QAbstractItemModel* header = headerProxy->sourceModel();
    if (headerRefit && header && header->rowCount() > 0 &&
        header->data(header->index(0, 0)).isValid()) {
        headerRefit = false;
        headerTable->resizeColumnsToContents();
        fixHeights();
    }
}

void NumericView::handleConfigChanged() {}

void NumericView::showModel(StreamDataModel* model)
{
    const auto queued = Qt::QueuedConnection;
    if (model)
        setDataModel(model);

    auto* average = new StreamAverageDataModel(this);
    if (model)
        connect(model, &StreamDataModel::newLine, average, &StreamAverageDataModel::updateNewLine,
                queued);
    connect(this, &NumericView::changeDisplayMode, average, &StreamDataModel::setDisplayMode);
    setAverageModel(average);

    auto* bigAverage = new StreamDiffAverageDataModel(this);
    if (model)
        connect(model, &StreamDataModel::newLine, bigAverage,
                &StreamDiffAverageDataModel::updateNewLine, queued);
    connect(this, &NumericView::changeDisplayMode, bigAverage, &StreamDataModel::setDisplayMode);
    // Every toggle, on or off, takes the current line as the new reference.
    connect(this, &NumericView::changeDifferenceMode, bigAverage,
            &StreamDiffAverageDataModel::setDiff);
    setBigAverageModel(bigAverage);

    auto* header = new StreamHeaderDataModel(this);
    if (model)
        connect(model, &StreamDataModel::newLine, header, &StreamHeaderDataModel::updateNewLine,
                queued);
    connect(this, &NumericView::changeHeaderMode, header, &StreamHeaderDataModel::setExpandHeader);
    setHeaderModel(header);
    header->setExpandHeader(false);

    if (model) {
        model->setDisplayMode(StreamDataModel::DISPLAY_DEC);
        model->setDifferenceMode(false);
        connect(this, &NumericView::changeDisplayMode, model, &StreamDataModel::setDisplayMode);
        connect(this, &NumericView::changeDifferenceMode, model,
                &StreamDataModel::setDifferenceMode);
        connect(model, &StreamDataModel::newLine, this, &NumericView::updateNewLine, queued);
    }
}

} // namespace vxlindral
