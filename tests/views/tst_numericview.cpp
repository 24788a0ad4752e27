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

// A raw line of `pixels` records in layout (datatyp, peak) with byte values
// following `seed`, a header of `words` words, and its statistics.
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
    const auto st = line->parser->calc(reinterpret_cast<const char*>(line->data.data()), pixels);
    std::tie(line->avr, line->sdev, line->min, line->max) =
        std::tie(st.avr, st.sdev, st.min, st.max);
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

    explicit Models(NumericView& view)
    {
        view.setDataModel(&data);
        view.setAverageModel(&average);
        view.setBigAverageModel(&bigAverage);
        view.setHeaderModel(&header);
        QObject::connect(&data, &StreamDataModel::newLine, &average,
                         &StreamAverageDataModel::updateNewLine);
        QObject::connect(&data, &StreamDataModel::newLine, &bigAverage,
                         &StreamDiffAverageDataModel::updateNewLine);
        QObject::connect(&data, &StreamDataModel::newLine, &header,
                         &StreamHeaderDataModel::updateNewLine);
        QObject::connect(&data, &StreamDataModel::newLine, &view, &NumericView::updateNewLine);
    }

    // The tables whose shape, header texts or cell texts, as the table shows
    // them (as many rows and columns as its headers have), differ from the
    // model's.
    QStringList mismatches(NumericView& view) const
    {
        const auto texts = [](const QAbstractItemModel& m, int rows, int cols) {
            QStringList out{QStringLiteral("%1x%2").arg(rows).arg(cols)};
            for (int c = 0; c < cols; ++c)
                out << m.headerData(c, Qt::Horizontal).toString();
            for (int r = 0; r < rows; ++r) {
                out << m.headerData(r, Qt::Vertical).toString();
                for (int c = 0; c < cols; ++c)
                    out << m.data(m.index(r, c)).toString();
            }
            return out;
        };
        const QList<QTableView*> tables = view.findChildren<QTableView*>();
        const QAbstractItemModel* sources[] = {&header, &average, &bigAverage, &data};
        QStringList out;
        for (int i = 0; i < 4; ++i) {
            const QTableView& t = *tables.value(i);
            if (texts(*t.model(), t.verticalHeader()->count(), t.horizontalHeader()->count()) !=
                texts(*sources[i], sources[i]->rowCount(), sources[i]->columnCount()))
                out << QString::fromLatin1(sources[i]->metaObject()->className());
        }
        return out;
    }
};

// Plays a script: a, b, c lines of three shapes (layouts, pixels, header
// words), x switches the header expansion. With `frames` a display frame
// follows every step, and the tables must then show what their models hold.
void play(NumericView& view, Models& models, const QString& script, bool frames)
{
    const int shapes[3][3] = {{4, 5, 2}, {4, 3, 4}, {2, 8, 3}}; // datatyp, pixels, words
    int seed = 0;
    for (QChar c : script) {
        const int k = c.toLatin1() - 'a';
        if (k >= 0 && k < 3)
            models.data.setData(
                QModelIndex(),
                QVariant::fromValue(rawLine(shapes[k][0], shapes[k][1], shapes[k][2], ++seed)));
        else
            models.header.setExpandHeader(!models.header.isExpandHeader());
        if (frames) {
            FrameSync::flushAll();
            const QStringList wrong = models.mismatches(view);
            QVERIFY2(wrong.isEmpty(), qPrintable(QString(c) + ": " + wrong.join(' ')));
        }
    }
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

    // Every table shows its model's shape, headers and cells of the newest
    // line: after every step when a frame follows each, and after a burst
    // once the view paints (the paint brings the tables up to date first).
    // Lines change the shapes; header expansion is the model's own layout
    // change.
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
        NumericView stepwise;
        NumericView burst;
        Models stepModels(stepwise);
        Models burstModels(burst);
        stepwise.show();
        burst.show();
        play(stepwise, stepModels, script, true);
        play(burst, burstModels, script, false);
        QCOMPARE(burst.findChildren<QTableView*>().size(), 4);
        burst.grab();
        const QStringList wrong = burstModels.mismatches(burst);
        QVERIFY2(wrong.isEmpty(), qPrintable(wrong.join(' ')));
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
