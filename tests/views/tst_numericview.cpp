#include "models/streamdatamodel.h"
#include "views/fontscrolltableview.h"
#include "views/numericview.h"
#include "viewtestsupport.h"

#include <QAction>
#include <QHeaderView>
#include <QSignalSpy>
#include <QStandardItemModel>
#include <QTableView>
#include <QToolBar>
#include <QWheelEvent>

using namespace vxlindral;

namespace {

QAction* action(NumericView& view, const QString& text)
{
    for (QAction* a : view.toolBar()->actions())
        if (a->text() == text)
            return a;
    return nullptr;
}

} // namespace

class TstNumericView : public QObject
{
    Q_OBJECT
private slots:
    // Every switch starts unchecked and toggles. Hex, Div and Header reach
    // a real data model, or the signals, as the main window connects them;
    // Avr swaps the three small tables for the big one and back.
    void switchesToggle()
    {
        NumericView view;
        view.show();
        StreamDataModel model;
        connect(&view, &NumericView::changeDisplayMode, &model, &StreamDataModel::setDisplayMode);
        QSignalSpy difference(&view, &NumericView::changeDifferenceMode);
        QSignalSpy header(&view, &NumericView::changeHeaderMode);
        auto* big = view.findChild<FontScrollTableView*>();
        QVERIFY(big && !big->isVisible());
        for (bool on : {true, false}) {
            for (const char* text : {"Hex", "Div", "Header", "Avr"}) {
                QAction* a = action(view, text);
                QVERIFY2(a, text);
                a->trigger();
                QCOMPARE(a->isChecked(), on);
            }
            QCOMPARE(model.displayMode(),
                     on ? StreamDataModel::DISPLAY_HEX : StreamDataModel::DISPLAY_DEC);
            QCOMPARE(difference.takeFirst().at(0).toBool(), on);
            QCOMPARE(header.takeFirst().at(0).toBool(), on);
            int visible = 0;
            for (QTableView* t : view.findChildren<QTableView*>())
                visible += t->isVisible();
            QCOMPARE(big->isVisible(), on);
            QCOMPARE(visible, on ? 1 : 3);
        }
        QVERIFY(difference.isEmpty() && header.isEmpty());
    }

    void newLineRefreshesDataTable()
    {
        NumericView view;
        QStandardItemModel model(3, 2);
        view.setDataModel(&model);
        QSignalSpy spy(&model, &QAbstractItemModel::layoutChanged);
        view.updateNewLine(viewtest::makeLine({}));
        QCOMPARE(spy.count(), 1);
    }

    // Wheel notches change the bold font by delta / 15 points within
    // 8 .. 300; from 32 points the row numbers go.
    void fontScroll_data()
    {
        QTest::addColumn<int>("start");
        QTest::addColumn<int>("delta");
        QTest::addColumn<int>("size");
        QTest::addColumn<bool>("rowNumbers");
        QTest::newRow("below one step") << 8 << 14 << 8 << true;
        QTest::newRow("floor") << 10 << -120 << 8 << true;
        QTest::newRow("large print") << 24 << 120 << 32 << false;
        QTest::newRow("ceiling") << 296 << 120 << 300 << false;
    }
    void fontScroll()
    {
        QFETCH(int, start);
        QFETCH(int, delta);
        FontScrollTableView table;
        QStandardItemModel model(2, 3);
        table.setModel(&model);
        QFont f = table.font();
        f.setPointSize(start);
        table.setFont(f);
        table.show();
        QWheelEvent e(QPointF(5, 5), QPointF(5, 5), QPoint(), QPoint(0, delta), Qt::NoButton,
                      Qt::NoModifier, Qt::NoScrollPhase, false);
        QApplication::sendEvent(table.viewport(), &e);
        QTEST(table.font().pointSize(), "size");
        QCOMPARE(table.font().weight(), 75);
        QTEST(!table.verticalHeader()->isHidden(), "rowNumbers");
    }
};

VIEW_TEST_MAIN(TstNumericView, true)
#include "tst_numericview.moc"
