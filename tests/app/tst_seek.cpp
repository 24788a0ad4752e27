// Seeking: port 6103 plays elsewhere in the stream, forgets its lines
// (clearLines on every view and model, line 0 as the big average's
// reference) and replays the tail; it must then show exactly what port 6101,
// which played from line 0, shows (both with the user's zoom and camera):
// cut, gray and 3D pictures pixel for pixel, numeric tables cell for cell,
// and the info text.
#include "app/mainwindow.h"
#include "models/streamdiffaveragedatamodel.h"
#include "views/cutview.h"
#include "views/flatview.h"
#include "views/framesync.h"
#include "views/myopenglwidget.h"
#include "views/numericview.h"
#include "views/statisticview.h"
#include "views/threedview.h"
#include "windowtest.h"

#include <QtTest>
#include <QtWidgets>
#include <algorithm>

using namespace vxlindral;

namespace {

constexpr int kWhole = 6101, kSeek = 6103;

// Line k: 1024 pixels of datatyp 2, from line `change` on 2048 of datatyp 4
// (the 3D view keeps 1024 points of either).
LineType streamLine(int k, int change)
{
    const bool changed = change >= 0 && k >= change;
    return windowtest::makeLine(changed ? 2048 : 1024, uint32_t(k), changed ? 4 : 2);
}

bool uniform(const QImage& image, QRgb colour)
{
    QImage same(image.size(), QImage::Format_RGB32);
    same.fill(colour);
    return image.convertToFormat(QImage::Format_RGB32) == same;
}

} // namespace

class TestSeek : public QObject
{
    Q_OBJECT
private slots:
    void init()
    {
        QSettings().clear();
        window = std::make_unique<MainWindow>();
        window->openStream(kSeek, kSeek + 1);
        void (MainWindow::*toggle[])(int) = {
            &MainWindow::toggleStaticView, &MainWindow::toggleNumericView,
            &MainWindow::toggleCutView, &MainWindow::toggleGrayView, &MainWindow::toggle3DView};
        for (int port : {kWhole, kSeek})
            for (int kind = 0; kind < 5; ++kind)
                if (!view<BasicView>(port, kind))
                    (window.get()->*toggle[kind])(port);
        window->show();
        QVERIFY(QTest::qWaitForWindowExposed(window.get()));
        for (int port : {kWhole, kSeek})
            for (BasicView* v : views(port)) {
                v->showNormal();
                v->resize(260, 200);
            }
        // Framing by themselves, the cut and 3D views keep a frame while it
        // shows the data, so their frame depends on the frames drawn before.
        // With the user's zoom and camera, both ports show the same.
        for (int port : {kWhole, kSeek}) {
            view<CutView>(port, MainWindow::Cut)->setScale(35.0f);
            view<ThreeDView>(port, MainWindow::ThreeD)
                ->glWidget()
                ->setFraming(ViewFraming::User);
        }
        QCoreApplication::processEvents();
    }
    void cleanup() { window.reset(); }

    void seek_data()
    {
        QTest::addColumn<int>("n");         // the line sought
        QTest::addColumn<int>("elsewhere"); // the last line played before
        QTest::addColumn<int>("change");    // first line of a new layout, or -1
        QTest::addColumn<bool>("waterfall");
        // -1: lines n - K .. n are replayed, as the window does (K the port's
        // largest reach back); else the gray view's reach back less this many.
        QTest::addColumn<int>("fewer");
        QTest::newRow("near the start") << 5 << 400 << -1 << false << -1;
        QTest::newRow("middle") << 400 << 120 << -1 << false << -1;
        QTest::newRow("end") << 699 << 50 << -1 << false << -1;
        QTest::newRow("new layout, then tail") << 650 << 200 << 300 << false << -1;
        QTest::newRow("new layout in the tail") << 600 << 650 << 500 << false << -1;
        QTest::newRow("waterfall") << 400 << 600 << -1 << true << -1;
        QTest::newRow("gray reach") << 400 << 120 << -1 << false << 0;
        QTest::newRow("gray, one short") << 400 << 120 << -1 << false << 1;
        QTest::newRow("waterfall reach") << 400 << 120 << -1 << true << 0;
        QTest::newRow("waterfall, one short") << 400 << 120 << -1 << true << 1;
    }
    void seek()
    {
        QFETCH(int, n);
        QFETCH(int, elsewhere);
        QFETCH(int, change);
        QFETCH(bool, waterfall);
        QFETCH(int, fewer);
        for (int port : {kWhole, kSeek})
            if (waterfall)
                view<FlatView>(port, MainWindow::Gray)->handleDisplayMode();
        play(kSeek, 0, elsewhere, change);
        int reach = window->dataModel(kSeek)->reachBack();
        for (BasicView* v : views(kSeek))
            reach = std::max(reach, v->reachBack());
        const int gray = view<FlatView>(kSeek, MainWindow::Gray)->reachBack();
        const int first = std::max(0, fewer < 0 ? n - reach : n - (gray - fewer) + 1);

        window->dataModel(kSeek)->clearLines();
        for (BasicView* v : views(kSeek))
            v->clearLines(uint64_t(first));
        view<NumericView>(kSeek, MainWindow::Numeric)
            ->findChild<StreamDiffAverageDataModel*>()
            ->setReference(streamLine(0, change));
        // Until the tail comes, it shows what a port shows before any line.
        compare(false);
        if (QTest::currentTestFailed())
            return;
        QVERIFY(uniform(view<CutView>(kSeek, MainWindow::Cut)->picture(), qRgb(255, 255, 255)));

        play(kWhole, 0, n, change);
        play(kSeek, first, n, change);
        if (fewer < 0)
            return compare(true);
        QCOMPARE(view<FlatView>(kWhole, MainWindow::Gray)->picture() ==
                     view<FlatView>(kSeek, MainWindow::Gray)->picture(),
                 fewer == 0);
    }

private:
    template <typename V> V* view(int port, int kind) const
    {
        return window->findChild<V*>(MainWindow::viewNamePattern(kind).arg(port));
    }
    QList<BasicView*> views(int port) const
    {
        QList<BasicView*> all;
        for (int kind = 0; kind < 5; ++kind)
            all << view<BasicView>(port, kind);
        return all;
    }
    // Lines from .. to, each with its info text, as the receiver hands them over.
    void play(int port, int from, int to, int change)
    {
        for (int k = from; k <= to; ++k) {
            window->dataModel(port)->emitStatistic(QStringLiteral("line %1").arg(k));
            window->dataModel(port)->setData({}, QVariant::fromValue(streamLine(k, change)));
            QCoreApplication::processEvents();
        }
    }
    // Both ports show the same; the 3D frame shows points exactly with `lines`.
    void compare(bool lines)
    {
        FrameSync::flushAll();
        const QImage cloud = view<ThreeDView>(kWhole, MainWindow::ThreeD)->picture();
        QCOMPARE(cloud, view<ThreeDView>(kSeek, MainWindow::ThreeD)->picture());
        QCOMPARE(uniform(cloud, cloud.pixel(0, 0)), !lines);
        QCOMPARE(view<FlatView>(kWhole, MainWindow::Gray)->picture(),
                 view<FlatView>(kSeek, MainWindow::Gray)->picture());
        if (lines)
            QCOMPARE(view<CutView>(kWhole, MainWindow::Cut)->picture(),
                     view<CutView>(kSeek, MainWindow::Cut)->picture());
        QCOMPARE(view<StatisticView>(kWhole, MainWindow::Info)->text(),
                 view<StatisticView>(kSeek, MainWindow::Info)->text());
        NumericView* numeric[] = {view<NumericView>(kWhole, MainWindow::Numeric),
                                  view<NumericView>(kSeek, MainWindow::Numeric)};
        QList<QTableView*> tables[2];
        for (int p = 0; p < 2; ++p) {
            numeric[p]->syncTables();
            tables[p] = numeric[p]->findChildren<QTableView*>();
        }
        QCOMPARE(tables[0].size(), 4);
        for (int t = 0; t < 4; ++t)
            QCOMPARE(windowtest::tableTexts(tables[0][t]->model()),
                     windowtest::tableTexts(tables[1][t]->model()));
    }

    std::unique_ptr<MainWindow> window;
};

int main(int argc, char* argv[])
{
    return runWindowTest<TestSeek>(argc, argv);
}

#include "tst_seek.moc"
