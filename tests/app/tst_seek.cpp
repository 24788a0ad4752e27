// Seeking: after every view and model of a port has forgotten its lines
// (clearLines, the big average given line 0 as its reference) and taken in
// only the newest lines again, the port shows exactly what playing the stream
// from its first line shows. Port 6101 plays the stream from its start; port
// 6103 plays elsewhere in it first, then seeks. Compared: the cut and gray
// pictures and the 3D frame pixel for pixel, every cell and header text of
// the numeric view's tables, the info text and the models' histories.
#include "app/mainwindow.h"
#include "models/streamdatamodel.h"
#include "models/streamdiffaveragedatamodel.h"
#include "views/cutview.h"
#include "views/flatview.h"
#include "views/framesync.h"
#include "views/numericview.h"
#include "views/statisticview.h"
#include "views/threedview.h"
#include "windowtest.h"

#include <QtTest>
#include <QtWidgets>
#include <algorithm>

using namespace vxlindral;

namespace {

constexpr int kWhole = 6101; // plays the stream from its first line
constexpr int kSeek = 6103;  // plays elsewhere, then seeks

// How many of the newest lines the port plays after the seek: as the window
// does (lines n - K .. n, K the largest reach back of the port), or exactly
// the gray view's reach back, or one line less.
enum class Tail
{
    Window,
    GrayReach,
    GrayShort,
};

// Line `k` of the stream: 1024 pixels in datatyp 2, from line `change` on
// 2048 pixels in datatyp 4 (both thinned to 1024 points by the 3D view).
LineType streamLine(int k, int change)
{
    const bool changed = change >= 0 && k >= change;
    return windowtest::makeLine(changed ? 2048 : 1024, uint32_t(k), changed ? 4 : 2);
}

bool uniform(const QImage& image, QRgb colour)
{
    const QImage rgb = image.convertToFormat(QImage::Format_RGB32);
    for (int y = 0; y < rgb.height(); ++y)
        for (int x = 0; x < rgb.width(); ++x)
            if (rgb.pixel(x, y) != (colour | 0xff000000u))
                return false;
    return true;
}

// The shape, header and cell texts of a table's model.
QStringList tableTexts(const QAbstractItemModel* m)
{
    QStringList texts{QStringLiteral("%1x%2").arg(m->rowCount()).arg(m->columnCount())};
    for (int c = 0; c < m->columnCount(); ++c)
        texts << m->headerData(c, Qt::Horizontal).toString();
    for (int r = 0; r < m->rowCount(); ++r) {
        texts << m->headerData(r, Qt::Vertical).toString();
        for (int c = 0; c < m->columnCount(); ++c)
            texts << m->data(m->index(r, c)).toString();
    }
    return texts;
}

} // namespace

Q_DECLARE_METATYPE(Tail)

class TestSeek : public QObject
{
    Q_OBJECT
private slots:
    void init()
    {
        QSettings().clear();
        window = std::make_unique<MainWindow>();
        window->openStream(kSeek, kSeek + 1);
        for (int port : {kWhole, kSeek})
            for (int kind = MainWindow::Info; kind <= MainWindow::ThreeD; ++kind)
                if (!view<BasicView>(port, kind))
                    (window.get()->*toggles[kind])(port);
        window->show();
        QVERIFY(QTest::qWaitForWindowExposed(window.get()));
        // The same size for both ports' views of a kind.
        for (int port : {kWhole, kSeek})
            for (int kind = MainWindow::Info; kind <= MainWindow::ThreeD; ++kind) {
                BasicView* v = view<BasicView>(port, kind);
                v->showNormal();
                v->resize(kind == MainWindow::Numeric ? QSize(500, 400) : QSize(260, 200));
            }
        QCoreApplication::processEvents();
    }
    void cleanup()
    {
        window.reset();
        QCoreApplication::processEvents();
    }

    void seek_data()
    {
        QTest::addColumn<int>("n");         // the line sought
        QTest::addColumn<int>("elsewhere"); // the last line played before the seek
        QTest::addColumn<int>("change");    // first line of the new layout, or -1
        QTest::addColumn<bool>("waterfall");
        QTest::addColumn<Tail>("tail");
        QTest::newRow("near the start") << 5 << 400 << -1 << false << Tail::Window;
        QTest::newRow("middle") << 400 << 120 << -1 << false << Tail::Window;
        QTest::newRow("end") << 699 << 50 << -1 << false << Tail::Window;
        QTest::newRow("new layout before the tail") << 650 << 200 << 300 << false << Tail::Window;
        QTest::newRow("new layout within the tail") << 600 << 650 << 500 << false << Tail::Window;
        QTest::newRow("waterfall") << 400 << 600 << -1 << true << Tail::Window;
        QTest::newRow("gray, its reach back") << 400 << 120 << -1 << false << Tail::GrayReach;
        QTest::newRow("gray, one line short") << 400 << 120 << -1 << false << Tail::GrayShort;
        QTest::newRow("waterfall, its reach back") << 400 << 120 << -1 << true << Tail::GrayReach;
        QTest::newRow("waterfall, one line short") << 400 << 120 << -1 << true << Tail::GrayShort;
    }
    void seek()
    {
        QFETCH(int, n);
        QFETCH(int, elsewhere);
        QFETCH(int, change);
        QFETCH(bool, waterfall);
        QFETCH(Tail, tail);
        if (waterfall)
            for (int port : {kWhole, kSeek})
                view<FlatView>(port, MainWindow::Gray)->handleDisplayMode();

        play(kSeek, 0, elsewhere, change);
        int reach = window->dataModel(kSeek)->reachBack();
        for (BasicView* v : views(kSeek))
            reach = std::max(reach, v->reachBack());
        const int grayReach = view<FlatView>(kSeek, MainWindow::Gray)->reachBack();
        QVERIFY(reach >= grayReach);
        const int first = std::max(0, tail == Tail::Window      ? n - reach
                                      : tail == Tail::GrayReach ? n - grayReach + 1
                                                                : n - grayReach + 2);

        window->dataModel(kSeek)->clearLines();
        for (BasicView* v : views(kSeek))
            v->clearLines(uint64_t(first));
        view<NumericView>(kSeek, MainWindow::Numeric)
            ->findChild<StreamDiffAverageDataModel*>()
            ->setReference(streamLine(0, change));
        // Until the tail arrives, the port shows what it shows before any line.
        compare(false);
        QVERIFY(uniform(view<CutView>(kSeek, MainWindow::Cut)->picture(), qRgb(255, 255, 255)));

        play(kWhole, 0, n, change);
        play(kSeek, first, n, change);
        if (tail == Tail::Window) {
            compare(true);
            return;
        }
        const QImage whole = view<FlatView>(kWhole, MainWindow::Gray)->picture();
        const QImage sought = view<FlatView>(kSeek, MainWindow::Gray)->picture();
        QCOMPARE(whole == sought, tail == Tail::GrayReach);
    }

private:
    template <typename V> V* view(int port, int kind) const
    {
        return window->findChild<V*>(MainWindow::viewNamePattern(kind).arg(port));
    }
    QList<BasicView*> views(int port) const
    {
        QList<BasicView*> all;
        for (int kind = MainWindow::Info; kind <= MainWindow::ThreeD; ++kind)
            all << view<BasicView>(port, kind);
        return all;
    }

    // Lines from .. to into the port's model as the receiver hands them over,
    // each with its info text.
    void play(int port, int from, int to, int change)
    {
        const std::shared_ptr<StreamDataModel> model = window->dataModel(port);
        for (int k = from; k <= to; ++k) {
            model->emitStatistic(QStringLiteral("line %1").arg(k));
            model->setData(QModelIndex(), QVariant::fromValue(streamLine(k, change)));
            QCoreApplication::processEvents();
        }
    }

    // Both ports show the same; with `lines`, they show lines (the 3D frame
    // is not the empty background).
    void compare(bool lines)
    {
        FrameSync::flushAll();
        const QImage cloud = view<ThreeDView>(kWhole, MainWindow::ThreeD)->picture();
        QCOMPARE(cloud, view<ThreeDView>(kSeek, MainWindow::ThreeD)->picture());
        QCOMPARE(uniform(cloud, cloud.pixel(0, 0)), !lines);
        QCOMPARE(view<FlatView>(kWhole, MainWindow::Gray)->picture(),
                 view<FlatView>(kSeek, MainWindow::Gray)->picture());
        QCOMPARE(view<StatisticView>(kWhole, MainWindow::Info)->text(),
                 view<StatisticView>(kSeek, MainWindow::Info)->text());
        if (lines)
            QCOMPARE(view<CutView>(kWhole, MainWindow::Cut)->picture(),
                     view<CutView>(kSeek, MainWindow::Cut)->picture());
        auto* a = view<NumericView>(kWhole, MainWindow::Numeric);
        auto* b = view<NumericView>(kSeek, MainWindow::Numeric);
        a->syncTables();
        b->syncTables();
        const QList<QTableView*> tablesA = a->findChildren<QTableView*>();
        const QList<QTableView*> tablesB = b->findChildren<QTableView*>();
        QCOMPARE(tablesA.size(), 4);
        QCOMPARE(tablesB.size(), 4);
        for (int t = 0; t < 4; ++t)
            QCOMPARE(tableTexts(tablesA[t]->model()), tableTexts(tablesB[t]->model()));
        const QList<StreamDataModel*> modelsA = a->findChildren<StreamDataModel*>();
        const QList<StreamDataModel*> modelsB = b->findChildren<StreamDataModel*>();
        for (int m = 0; m < modelsA.size(); ++m)
            QCOMPARE(modelsA[m]->historySize(), modelsB[m]->historySize());
        QCOMPARE(window->dataModel(kWhole)->historySize(), window->dataModel(kSeek)->historySize());
    }

    // By view kind.
    static constexpr void (MainWindow::*toggles[])(int) = {
        &MainWindow::toggleStaticView, &MainWindow::toggleNumericView, &MainWindow::toggleCutView,
        &MainWindow::toggleGrayView, &MainWindow::toggle3DView};
    std::unique_ptr<MainWindow> window;
};

int main(int argc, char* argv[])
{
    return runWindowTest<TestSeek>(argc, argv);
}

#include "tst_seek.moc"
