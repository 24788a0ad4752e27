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
    void toolBarActions()
    {
        NumericView view;
        QStringList texts, keys;
        for (QAction* a : view.toolBar()->actions()) {
            texts << a->text();
            keys << a->shortcut().toString();
            QVERIFY(a->isCheckable());
            QVERIFY(!a->isChecked());
        }
        QCOMPARE(texts, (QStringList{"Hex", "Avr", "Header", "Div"}));
        QCOMPARE(keys, (QStringList{"Ctrl+M", "Ctrl+A", "Ctrl+H", "Ctrl+D"}));
        QCOMPARE(view.toolBar(), view.toolBar());
    }

    // The switches reach a real data model through the signals as the
    // main window connects them.
    void switchesReachTheModel()
    {
        NumericView view;
        StreamDataModel model;
        connect(&view, &NumericView::changeDisplayMode, &model, &StreamDataModel::setDisplayMode);
        QSignalSpy difference(&view, &NumericView::changeDifferenceMode);
        QSignalSpy header(&view, &NumericView::changeHeaderMode);

        action(view, "Hex")->trigger();
        QCOMPARE(model.displayMode(), StreamDataModel::DISPLAY_HEX);
        QVERIFY(action(view, "Hex")->isChecked());
        action(view, "Hex")->trigger();
        QCOMPARE(model.displayMode(), StreamDataModel::DISPLAY_DEC);
        QVERIFY(!action(view, "Hex")->isChecked());

        action(view, "Div")->trigger();
        action(view, "Div")->trigger();
        QCOMPARE(difference.count(), 2);
        QCOMPARE(difference.at(0).at(0).toBool(), true);
        QCOMPARE(difference.at(1).at(0).toBool(), false);
        QVERIFY(!action(view, "Div")->isChecked());

        action(view, "Header")->trigger();
        action(view, "Header")->trigger();
        QCOMPARE(header.count(), 2);
        QCOMPARE(header.at(0).at(0).toBool(), true);
        QCOMPARE(header.at(1).at(0).toBool(), false);
    }

    void avrSwapsTablesAndLeavesFlags()
    {
        NumericView view;
        view.show();
        auto* big = view.findChild<FontScrollTableView*>();
        QVERIFY(big);
        QVERIFY(!big->isVisible());
        action(view, "Avr")->trigger();
        QVERIFY(big->isVisible());
        int visibleSmall = 0;
        for (QTableView* t : view.findChildren<QTableView*>())
            visibleSmall += t != big && t->isVisible();
        QCOMPARE(visibleSmall, 0);
        action(view, "Avr")->trigger();
        QVERIFY(!big->isVisible());
        QVERIFY(!view.isHex() && !view.isHeaderExpanded() && !view.isDifference());
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
        QTest::newRow("notch up") << 8 << 120 << 16 << true;
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
