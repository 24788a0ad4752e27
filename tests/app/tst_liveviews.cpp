// The whole window on a live stream: the simulator sends to the default line
// port, all five views are open, and each of them must show the stream's data
// (a wiring fault anywhere between socket and view leaves a view blank). The
// window's picture is kept in the build tree as a test artifact; it is the
// screenshot shown in the README.
#include "app/mainwindow.h"
#include "models/streamdatamodel.h"
#include "stream/streamdatacontroller.h"
#include "views/cutview.h"
#include "views/flatview.h"
#include "views/myopenglwidget.h"
#include "views/numericview.h"
#include "views/statisticview.h"
#include "views/threedview.h"
#include "windowtest.h"

#include <QApplication>
#include <QDir>
#include <QHeaderView>
#include <QLabel>
#include <QProcess>
#include <QScopeGuard>
#include <QTableView>
#include <QtTest>

using namespace vxlindral;

namespace {

template <typename Pred> int countPixels(const QImage& image, Pred pred)
{
    int n = 0;
    const QImage rgb = image.convertToFormat(QImage::Format_RGB32);
    for (int y = 0; y < rgb.height(); ++y) {
        const auto* row = reinterpret_cast<const QRgb*>(rgb.constScanLine(y));
        for (int x = 0; x < rgb.width(); ++x)
            n += pred(row[x] & 0xFFFFFF) ? 1 : 0;
    }
    return n;
}

} // namespace

class TestLiveViews : public QObject
{
    Q_OBJECT
private slots:
    void everyViewShowsTheStream();
};

void TestLiveViews::everyViewShowsTheStream()
{
    constexpr int port = 6101;
    constexpr int pixels = 1024;
    QProcess sim;
    sim.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    sim.start(QStringLiteral(VX_SIM_PATH), {"--port", QString::number(port), "--rate", "200",
                                            "--pixels", QString::number(pixels)});
    QVERIFY(sim.waitForStarted(5000));
    const auto stopSim = qScopeGuard([&sim] {
        sim.terminate();
        sim.waitForFinished(5000);
    });

    MainWindow window;
    window.resize(1260, 1000);
    window.show();
    window.activateWindow();
    window.toggleNumericView();
    window.toggleCutView();
    window.toggleGrayView();
    window.toggleStaticView();
    QTRY_COMPARE_WITH_TIMEOUT(window.dataModel(port)->rowCount(), pixels, 5000);
    QTest::qWait(1500);

    // The view kinds carry crossed object names: the info view is "_cut",
    // the cut view "_3d", the 3D view "_info".
    auto* info = window.findChild<StatisticView*>(QStringLiteral("%1_cut").arg(port));
    auto* numeric = window.findChild<NumericView*>(QStringLiteral("%1_num").arg(port));
    auto* cut = window.findChild<CutView*>(QStringLiteral("%1_3d").arg(port));
    auto* gray = window.findChild<FlatView*>(QStringLiteral("%1_gray").arg(port));
    QVERIFY(info && numeric && cut && gray);

    // The cut view frames the profile (about 1 m across) by itself: no zoom
    // here, which would make the framing the test's from whatever the view
    // showed at that moment.

    // The point cloud moves along x by 1/250 per line and its oldest points
    // are trimmed, so it stays in the camera's view only for its first few
    // dozen lines: open a new 3D view and freeze once it holds about 20.
    const QString cloudName = QStringLiteral("%1_info").arg(port);
    window.findChild<ThreeDView*>(cloudName)->close();
    QTRY_VERIFY(!window.findChild<ThreeDView*>(cloudName));
    window.toggle3DView();
    auto* cloud = window.findChild<ThreeDView*>(cloudName);
    QVERIFY(cloud);
    QTRY_VERIFY_WITH_TIMEOUT(cloud->glWidget()->getLineCount() >= 20, 10000);

    // Freeze so that every view holds the same moment, then look at each.
    window.controller(port)->pauseStream(true);
    QTest::qWait(300);

    const QLabel* infoLabel = info->findChild<QLabel*>();
    QVERIFY(infoLabel);
    QVERIFY2(infoLabel->text().startsWith("frame "), qPrintable(infoLabel->text()));
    QVERIFY(infoLabel->text().contains(QStringLiteral("pixel %1\n").arg(pixels)));

    QCOMPARE(window.dataModel(port)->rowCount(), pixels);
    // Every line is announced as inserted rows; the tables' headers must
    // still match their models after hundreds of lines, not grow with them.
    const QList<QTableView*> tables = numeric->findChildren<QTableView*>();
    QCOMPARE(tables.size(), 4);
    for (const QTableView* t : tables)
        QCOMPARE(t->verticalHeader()->count(), t->model()->rowCount());

    const int profile = countPixels(cut->image().toImage(), [](QRgb c) { return c == 0x0000C8; });
    QVERIFY2(profile > 50, qPrintable(QString::number(profile))); // points share pixels

    const int shaded = countPixels(gray->image().toImage(), [](QRgb c) { return c != 0xFFFFFF; });
    QVERIFY2(shaded > 1000, qPrintable(QString::number(shaded)));

    // Everything that is not the clear colour (0.5 gray) is a point.
    const QImage frame = cloud->glWidget()->grabFramebuffer();
    const int points = countPixels(frame, [](QRgb c) {
        const int g = qGreen(c);
        return qRed(c) != g || qBlue(c) != g || g < 120 || g > 135;
    });
    QVERIFY2(points > 500, qPrintable(QString::number(points)));

    const QString artifacts = QStringLiteral(VX_ARTIFACT_DIR);
    QDir().mkpath(artifacts);
    QVERIFY(window.grab().save(artifacts + "/live-views.png"));

    window.controller(port)->pauseStream(false);
}

int main(int argc, char* argv[])
{
    return runWindowTest<TestLiveViews>(argc, argv);
}

#include "tst_liveviews.moc"
