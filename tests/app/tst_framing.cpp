// Every view frames what arrives, with no input: scenes from centimetres to
// a hundred metres, 100 to 4,096 pixels, every protocol, with and without a
// file header and a transform, from a capture opened in the window and from
// a live port. On the first lines and while the scene goes by, the cut
// view's profile and the 3D view's cloud lie inside their pictures, clear of
// the border, and span a good part of them. The checks know nothing of the
// scenes: they look at the pictures only.
#include "app/captureplayback.h"
#include "app/mainwindow.h"
#include "views/cutview.h"
#include "views/framesync.h"
#include "views/myopenglwidget.h"
#include "views/threedview.h"
#include "simcapture.h"
#include "windowtest.h"

#include <QProcess>
#include <QScopeGuard>
#include <QtTest>
#include <QtWidgets>
#include <algorithm>
#include <functional>

using namespace vxlindral;

namespace {

// The bounding box of the pixels `isData` picks, leaving out up to 1 % of
// them on each side (the lone points a scanner reports at its own position
// for beams that met nothing, or a stray echo).
QRect dataBox(const QImage& picture, const std::function<bool(QRgb)>& isData)
{
    const QImage img = picture.convertToFormat(QImage::Format_RGB32);
    std::vector<int> columns(std::size_t(img.width())), rows(std::size_t(img.height()));
    int total = 0;
    for (int y = 0; y < img.height(); ++y) {
        const auto* line = reinterpret_cast<const QRgb*>(img.constScanLine(y));
        for (int x = 0; x < img.width(); ++x) {
            if (isData(line[x] & 0xFFFFFF)) {
                ++columns[std::size_t(x)];
                ++rows[std::size_t(y)];
                ++total;
            }
        }
    }
    if (total == 0)
        return {};
    const auto trimmed = [total](const std::vector<int>& counts, int& first, int& last) {
        const int skip = total / 100;
        int seen = 0;
        for (first = 0; seen + counts[std::size_t(first)] <= skip; ++first)
            seen += counts[std::size_t(first)];
        seen = 0;
        for (last = int(counts.size()) - 1; seen + counts[std::size_t(last)] <= skip; --last)
            seen += counts[std::size_t(last)];
    };
    int x0, x1, y0, y1;
    trimmed(columns, x0, x1);
    trimmed(rows, y0, y1);
    return QRect(QPoint(x0, y0), QPoint(x1, y1));
}

// Empty when the data is framed: inside the picture, at least 2 pixels from
// its border, spanning at least a quarter of its width or height. Else why not.
QString framingFault(const QImage& picture, const std::function<bool(QRgb)>& isData)
{
    const QRect box = dataBox(picture, isData);
    const QString where = QStringLiteral("data at %1,%2 %3x%4 in %5x%6")
                              .arg(box.x())
                              .arg(box.y())
                              .arg(box.width())
                              .arg(box.height())
                              .arg(picture.width())
                              .arg(picture.height());
    if (box.isEmpty())
        return QStringLiteral("nothing drawn");
    if (box.left() < 2 || box.top() < 2 || box.right() > picture.width() - 3 ||
        box.bottom() > picture.height() - 3)
        return QStringLiteral("touches the border: ") + where;
    if (box.width() < picture.width() / 4 && box.height() < picture.height() / 4)
        return QStringLiteral("less than a quarter of the picture: ") + where;
    return {};
}

// The cut view draws good points in rgb(0, 0, 200); the grid is gray.
bool cutPoint(QRgb c)
{
    return c == 0x0000C8; // rgb(0, 0, 200), alpha left out
}

// The 3D view clears to the middle gray.
bool cloudPoint(QRgb c)
{
    return c != 0x7F7F7F && c != 0x808080;
}

} // namespace

class TestFraming : public QObject
{
    Q_OBJECT
private slots:
    void init()
    {
        window = windowtest::freshWindow();
        QVERIFY(window);
    }
    void cleanup() { window.reset(); }

    void framesEveryScene_data()
    {
        QTest::addColumn<QStringList>("scene"); // simulator options
        QTest::addColumn<bool>("live");         // from the port, else from a capture
        const auto row = [](const char* tag, const QString& options, bool live) {
            QTest::newRow(tag) << options.split(' ') << live;
        };
        row("street, 1.2, 2048 px", "--scene street", false);
        row("belt 0.3 m, 1024 px, no header", "--scene belt --pixels 1024 --no-header", false);
        row("belt 0.3 m, 1.1 short, 100 px", "--scene belt --protocol 1.1 --layout short "
                                              "--pixels 100",
            false);
        row("conveyor, 1.3, 4096 px, no header",
            "--scene conveyor --protocol 1.3 --pixels 4096 --no-header", false);
        row("wall 6 m, 90 deg, header, 1024 px", "--scene wall --pixels 1024", false);
        row("wall 6 m, 1.3, no header, 300 px",
            "--scene wall --protocol 1.3 --pixels 300 --no-header", false);
        row("tunnel 40-60 m, 1.1, 2048 px", "--scene tunnel --protocol 1.1", false);
        row("tunnel, 1.2, no header, 512 px", "--scene tunnel --pixels 512 --no-header", false);
        row("bowl, 1.2, 2048 px", "--scene bowl", false);
        row("bowl, 1.1, no header, 4096 px",
            "--scene bowl --protocol 1.1 --pixels 4096 --no-header", false);
        row("live: belt 0.3 m, no header", "--scene belt --pixels 1024 --no-header", true);
        row("live: tunnel, 1.1", "--scene tunnel --protocol 1.1 --pixels 1024", true);
    }
    void framesEveryScene()
    {
        QFETCH(QStringList, scene);
        QFETCH(bool, live);
        QProcess sim;
        const auto stopSim = qScopeGuard([&sim] {
            sim.terminate();
            sim.waitForFinished(5000);
        });
        int key = 6101;
        if (live) {
            sim.setProcessChannelMode(QProcess::ForwardedErrorChannel);
            sim.start(QStringLiteral(VX_SIM_PATH),
                      scene + QStringList{"--port", "6101", "--rate", "200"});
            QVERIFY(sim.waitForStarted(5000));
        } else {
            const QString path = dir.filePath("scene.pcap");
            QVERIFY(writeCapture(path, {{scene, 1500}}) > 0);
            QVERIFY(window->openCapture(path));
            key = window->captureSource();
        }
        // A first start opens the 3D view alone; the cut view beside it.
        window->toggleCutView(key);
        auto* cut = view<CutView>(key, MainWindow::Cut);
        auto* cloud = view<ThreeDView>(key, MainWindow::ThreeD);
        QVERIFY(cut && cloud);
        window->handleRealign();
        MyOpenGLWidget* gl = cloud->glWidget();

        // The first lines, as soon as they are shown, then a while later.
        for (int lines : {5, 600}) {
            QTRY_VERIFY_WITH_TIMEOUT(gl->getLineCount() >= lines, 20000);
            FrameSync::flushAll();
            const QImage cutPicture = cut->picture();
            const QImage cloudPicture = cloud->picture();
            const QString tag = QStringLiteral("after %1 lines: ").arg(gl->getLineCount());
            const QString cutFault = framingFault(cutPicture, cutPoint);
            const QString cloudFault = framingFault(cloudPicture, cloudPoint);
            if (!cutFault.isEmpty() || !cloudFault.isEmpty()) {
                QDir().mkpath(QStringLiteral(VX_ARTIFACT_DIR));
                const QString base = QDir(QStringLiteral(VX_ARTIFACT_DIR))
                                         .filePath(QStringLiteral("framing-") +
                                                   QString::fromLatin1(QTest::currentDataTag())
                                                       .replace(QRegularExpression("[^\\w.-]+"),
                                                                QStringLiteral("_")));
                cutPicture.save(base + "-cut.png");
                cloudPicture.save(base + "-3d.png");
            }
            QVERIFY2(cutFault.isEmpty(), qPrintable(tag + "cut view " + cutFault));
            QVERIFY2(cloudFault.isEmpty(), qPrintable(tag + "3D view " + cloudFault));
        }
        QCOMPARE(cut->framingMode(), ViewFraming::Home);
        QCOMPARE(gl->framingMode(), ViewFraming::Home);
    }

private:
    template <typename V> V* view(int key, int kind) const
    {
        return windowtest::view<V>(*window, key, kind);
    }

    QTemporaryDir dir;
    std::unique_ptr<MainWindow> window;
};

int main(int argc, char* argv[])
{
    return runWindowTest<TestFraming>(argc, argv);
}

#include "tst_framing.moc"
