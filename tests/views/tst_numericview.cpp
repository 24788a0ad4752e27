#include "models/streamaveragedatamodel.h"
#include "models/streamdatamodel.h"
#include "models/streamdiffaveragedatamodel.h"
#include "models/streamheaderdatamodel.h"
#include "views/fontscrolltableview.h"
#include "views/framesync.h"
#include "views/numericview.h"
#include "viewtestsupport.h"

#include <QAction>
#include <QHeaderView>
#include <QScrollBar>
#include <QSignalSpy>
#include <QStandardItemModel>
#include <QTableView>
#include <QToolBar>
#include <QWheelEvent>

using namespace vxlindral;

namespace {

// A raw line of `pixels` records in layout (datatyp, peak) with byte values
// following `seed`, and a header of `words` words.
LineType rawLine(int datatyp, int pixels, int words, int seed)
{
    auto line = std::make_shared<MyLine>();
    line->parser = std::make_shared<vx::RawLineParser>();
    line->parser->detect(datatyp, vx::RawLineParser::MOD_PEAK, false);
    for (int i = 0; i < pixels * line->parser->bytesPerPixel(); ++i)
        line->data.push_back(uint8_t((i * 31 + seed * 17) % 251));
    for (int w = 0; w < words * 4; ++w)
        line->header.push_back(uint8_t(w * 13 + seed));
    line->pixel = pixels;
    return line;
}

// The port's data model and the view's three models, connected as the main
// window connects them, but directly, so that a line is taken in at once.
struct Models
{
    StreamDataModel data;
    StreamAverageDataModel average;
    StreamDiffAverageDataModel bigAverage;
    StreamHeaderDataModel header;

    NumericView& view;

    explicit Models(NumericView& v) : view(v)
    {
        view.setDataModel(&data);
        view.setAverageModel(&average);
        view.setBigAverageModel(&bigAverage);
        view.setHeaderModel(&header);
        QObject::connect(&data, &StreamDataModel::newLine, [this](const LineType& line) {
            average.updateNewLine(line);
            bigAverage.updateNewLine(line);
            header.updateNewLine(line);
            view.updateNewLine(line);
        });
    }

    // Plays a script: a, b, c lines of three shapes (layouts, pixels, header
    // words), x switches the header expansion. With `frames` a display frame
    // follows every step, and the tables must then show what their models
    // hold.
    void play(const QString& script, bool frames)
    {
        const int shapes[3][3] = {{4, 5, 2}, {4, 3, 4}, {2, 8, 3}}; // datatyp, pixels, words
        int seed = 0;
        for (QChar c : script) {
            const int* s = shapes[c.toLatin1() - 'a'];
            if (c == 'x')
                header.setExpandHeader(!header.isExpandHeader());
            else
                data.setData({}, QVariant::fromValue(rawLine(s[0], s[1], s[2], ++seed)));
            if (frames) {
                FrameSync::flushAll();
                QCOMPARE(texts(true), texts(false));
            }
        }
    }

    // The shapes, header and cell texts of the four models as their tables
    // show them (as many rows and columns as the table's headers have), or
    // as the models hold them.
    QStringList texts(bool shown) const
    {
        const QList<QTableView*> tables = view.findChildren<QTableView*>();
        const QAbstractItemModel* sources[] = {&header, &average, &bigAverage, &data};
        QStringList out;
        for (int i = 0; i < 4; ++i) {
            const QTableView& t = *tables.value(i);
            const QAbstractItemModel& m = shown ? *t.model() : *sources[i];
            const int rows = shown ? t.verticalHeader()->count() : m.rowCount();
            const int cols = shown ? t.horizontalHeader()->count() : m.columnCount();
            out << QStringLiteral("%1x%2").arg(rows).arg(cols);
            for (int r = -1; r < rows; ++r) {
                out << (r < 0 ? QString() : m.headerData(r, Qt::Vertical).toString());
                for (int c = 0; c < cols; ++c)
                    out << (r < 0 ? m.headerData(c, Qt::Horizontal) : m.index(r, c).data())
                               .toString();
            }
        }
        return out;
    }
};

} // namespace

class TstNumericView : public QObject
{
    Q_OBJECT
private slots:
    // Each switch toggles. Hex, Div and Header are announced by the signals
    // the main window connects to the models; Avr swaps the three small
    // tables for the big one and back.
    void switchesToggle()
    {
        NumericView view;
        view.show();
        StreamDataModel model;
        connect(&view, &NumericView::changeDisplayMode, &model, &StreamDataModel::setDisplayMode);
        QSignalSpy difference(&view, &NumericView::changeDifferenceMode);
        QSignalSpy header(&view, &NumericView::changeHeaderMode);
        auto* big = view.findChild<FontScrollTableView*>();
        for (bool on : {true, false}) {
            for (QAction* a : view.toolBar()->actions())
                a->trigger();
            QCOMPARE(model.displayMode(),
                     on ? StreamDataModel::DISPLAY_HEX : StreamDataModel::DISPLAY_DEC);
            QCOMPARE(difference.takeFirst().at(0).toBool(), on);
            QCOMPARE(header.takeFirst().at(0).toBool(), on);
            for (QTableView* t : view.findChildren<QTableView*>())
                QCOMPARE(t->isVisible(), (t == big) == on);
        }
    }

    // Every table shows its model's shape, headers and cells of the newest
    // line: after every step when a frame follows each, and after a burst
    // once the view paints (the paint brings the tables up to date first).
    // Lines change the shapes; header expansion is the model's own layout
    // change. Every line refreshes the data table.
    void tablesFollowModels_data()
    {
        QTest::addColumn<QString>("script");
        QTest::newRow("changing shapes") << "abcab";
        QTest::newRow("header expanded between lines") << "axbxcx";
        QTest::newRow("expanded after the last line") << "abcx";
    }
    void tablesFollowModels()
    {
        QFETCH(QString, script);
        NumericView stepwise, burst;
        Models stepModels(stepwise), burstModels(burst);
        stepwise.show();
        burst.show();
        stepModels.play(script, true);
        int refreshes = 0;
        connect(&burstModels.data, &QAbstractItemModel::layoutChanged, [&] { ++refreshes; });
        burstModels.play(script, false);
        QCOMPARE(refreshes, script.size() - script.count('x'));
        burst.grab();
        QCOMPARE(burstModels.texts(true), burstModels.texts(false));
    }

    // The header and average tables show all their rows (the average table
    // four, which the scroll bar used to cover the last of): their height makes
    // room for the horizontal scroll bar while their columns are wider than
    // the view, and gives it back when the view is widened.
    void smallTablesShowAllRows_data()
    {
        QTest::addColumn<int>("width");
        QTest::addColumn<bool>("scrolls");
        QTest::newRow("narrow") << 160 << true;
        QTest::newRow("wide") << 1600 << false;
    }
    void smallTablesShowAllRows()
    {
        QFETCH(int, width);
        QFETCH(bool, scrolls);
        NumericView view;
        Models models(view);
        view.resize(1600, 500);
        view.show();
        QVERIFY(QTest::qWaitForWindowExposed(&view));
        models.play("axcx", true);
        view.resize(width, 500);
        QTest::qWait(50);
        FrameSync::flushAll();
        const QList<QTableView*> tables = view.findChildren<QTableView*>();
        for (QTableView* t : {tables[0], tables[1]}) {
            // The collapsed header is one column, which does not scroll.
            if (t == tables[1])
                QCOMPARE(t->horizontalScrollBar()->isVisible(), scrolls);
            const int rows = t->model()->rowCount();
            QVERIFY(rows > 0);
            QVERIFY2(
                t->rowViewportPosition(rows - 1) + t->rowHeight(rows - 1) <=
                    t->viewport()->height(),
                qPrintable(
                    QStringLiteral("%1 rows in %2 px").arg(rows).arg(t->viewport()->height())));
            QVERIFY(!t->verticalScrollBar()->isVisible());
        }
    }

    // The header table fits its columns when its model announces a new
    // layout (expanding, collapsing), not on every line. The main window
    // collapses the header before the first line: that fit waits for the
    // first line's text.
    void headerColumnsFitOnLayoutOnly()
    {
        NumericView view;
        Models models(view);
        view.show();
        models.header.setExpandHeader(false);
        FrameSync::flushAll();
        models.play("a", true);
        QTableView* table = view.findChildren<QTableView*>().at(0);
        const auto fitted = [table] {
            const int width = table->columnWidth(0);
            table->resizeColumnToContents(0);
            return table->columnWidth(0) == width;
        };
        QVERIFY(table->columnWidth(0) > 100); // two words of hexadecimal digits
        QVERIFY(fitted());
        table->setColumnWidth(0, 30);
        models.play("aba", true);
        view.grab();
        QCOMPARE(table->columnWidth(0), 30);
        models.play("x", true);
        QVERIFY(table->columnWidth(0) > 30);
        QVERIFY(fitted());
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
        table.setFont(QFont(QString(), start));
        table.show();
        QWheelEvent e({5, 5}, {5, 5}, {}, {0, delta}, Qt::NoButton, {}, Qt::NoScrollPhase, false);
        QApplication::sendEvent(table.viewport(), &e);
        QTEST(table.font().pointSize(), "size");
        QCOMPARE(table.font().weight(), int(QFont::Bold));
        QTEST(!table.verticalHeader()->isHidden(), "rowNumbers");
    }
};

VIEW_TEST_MAIN(TstNumericView, true)
#include "tst_numericview.moc"
