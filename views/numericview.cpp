#include "views/numericview.h"

#include "views/fontscrolltableview.h"
#include "views/precisehinttableview.h"

#include <QAction>
#include <QHeaderView>
#include <QIcon>
#include <QLayout>
#include <QTableView>
#include <QToolBar>

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
    headerTable->setFixedHeight(headerTable->sizeHint().height());
    averageTable->setFixedHeight(averageTable->sizeHint().height());
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
    headerTable->setModel(model);
    if (model)
        connect(model, &QAbstractItemModel::layoutChanged, this, [this] {
            headerTable->resizeColumnsToContents();
            fixHeights();
        });
}

void NumericView::setAverageModel(QAbstractItemModel* model)
{
    averageTable->setModel(model);
    if (model)
        connect(model, &QAbstractItemModel::layoutChanged, this, [this] { fixHeights(); });
}

void NumericView::setBigAverageModel(QAbstractItemModel* model)
{
    bigAverageTable->setModel(model);
    if (model)
        connect(model, &QAbstractItemModel::layoutChanged, this, [this] { fixHeights(); });
}

void NumericView::setDataModel(QAbstractItemModel* model)
{
    dataTable->setModel(model);
}

void NumericView::updateNewLine(vxlindral::LineType)
{
    if (QAbstractItemModel* m = dataTable->model())
        emit m->layoutChanged();
    // The models announce every line as rows 0 .. rowCount inserted, while
    // the small tables keep their few rows (1 header row, 4 statistics, one
    // row per field): each announcement adds sections to a table's vertical
    // header, which would grow by a line's pixel count with every line,
    // without bound. A layout change makes the header take the model's shape
    // again (and runs the tables' own handlers: column fit, fixed heights).
    for (QTableView* t :
         {static_cast<QTableView*>(headerTable), static_cast<QTableView*>(averageTable),
          static_cast<QTableView*>(bigAverageTable)}) {
        QAbstractItemModel* m = t->model();
        if (m && t->verticalHeader()->count() != m->rowCount())
            emit m->layoutChanged();
    }
}

void NumericView::handleConfigChanged() {}

} // namespace vxlindral
