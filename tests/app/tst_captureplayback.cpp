// A capture played in the window. A seek to line n must show exactly what
// playing lines 0..n shows (cut, gray and 3D pictures pixel for pixel, the
// numeric tables cell for cell, the info text with its frame number), and a
// file that cannot be played must say so in a box that names it, without
// taking the window down. The captures are written here from the
// simulator's own lines, so the test needs no sockets.
#include "app/captureplayback.h"
#include "app/mainwindow.h"
#include "app/transportbar.h"
#include "capture/capturerecorder.h"
#include "capture/pcapwriter.h"
#include "stream/streamdatacontroller.h"
#include "tools/sim/linecomposer.h"
#include "tools/sim/linedatagrams.h"
#include "tools/sim/simoptions.h"
#include "views/cutview.h"
#include "views/flatview.h"
#include "views/framesync.h"
#include "views/numericview.h"
#include "views/statisticview.h"
#include "views/threedview.h"
#include "windowtest.h"

#include <QtTest>
#include <QtWidgets>

using namespace vxlindral;

namespace {

// Lines of one simulator set-up.
struct Stretch
{
    QStringList options;
    int lines;
};

// Writes the stretches one after the other as the simulator would send them
// to port 6101: a file header before every 100 lines, a line every 2 ms, each
// message in datagrams of at most 9000 bytes; as a pcap file, or with
// `recorded` as the window's Record capture writes them (pcapng). Returns the
// file's size.
qint64 writeCapture(const QString& path, const QList<Stretch>& stretches, bool recorded = false)
{
    const std::string file = QFile::encodeName(path).toStdString();
    vxrec::PcapWriter out;
    vxrec::CaptureRecorder recorder(6101);
    if (!(recorded ? recorder.start(file) : out.open(file)))
        return -1;
    vxsim::LineDatagrams stream(
        [&](int64_t t, const char* d, std::size_t n) {
            if (!recorded) {
                out.write(t, 0x7f000001, 40000, 0x7f000001, 6101,
                          reinterpret_cast<const uint8_t*>(d), n);
                return;
            }
            strmsocket::DatagramSource::Datagram g;
            g.length = n;
            g.sender = g.local = 0x7f000001;
            g.senderPort = 40000;
            g.receivedNs = t;
            recorder.onDatagram(d, g);
        },
        1'700'000'000'000'000'000, 2'000'000, 9000);
    for (const Stretch& s : stretches) {
        std::vector<std::string> args{"sim"};
        for (const QString& o : s.options)
            args.push_back(o.toStdString());
        std::vector<const char*> argv;
        for (const std::string& a : args)
            argv.push_back(a.c_str());
        vxsim::SimOptions options;
        std::string error;
        vxsim::SimOptions::parse(int(argv.size()), argv.data(), options, error);
        vxsim::LineComposer composer(options);
        stream.lines(composer, uint64_t(s.lines));
    }
    if (recorded ? !recorder.finish() : !out.close())
        return -1;
    return QFileInfo(path).size();
}

// What the capture's views show.
struct Shown
{
    QImage cut, gray, cloud;
    QString info;
    QList<QStringList> tables;
};

} // namespace

class TestCapturePlayback : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase()
    {
        QVERIFY(dir.isValid());
        // 700 lines of the street scene, then 200 in another column layout
        // and line length (thinned to as many 3D points: the cloud's size
        // then does not depend on how far back the lines go).
        capture = dir.filePath("scan.pcap");
        QVERIFY(writeCapture(
                    capture,
                    {{{"--pixels", "1024", "--scene", "conveyor"}, 700},
                     {{"--protocol", "1.1", "--layout", "short", "--pixels", "2048"}, 200}}) > 0);
    }
    void init()
    {
        QSettings().clear();
        window = std::make_unique<MainWindow>();
        window->show();
        QVERIFY(QTest::qWaitForWindowExposed(window.get()));
    }
    void cleanup() { window.reset(); }

    void seekShowsWhatPlayingShows_data()
    {
        QTest::addColumn<int>("n");         // the line sought
        QTest::addColumn<int>("elsewhere"); // where the playback stood before
        QTest::newRow("near the start") << 4 << 650;
        QTest::newRow("middle") << 400 << 120;
        QTest::newRow("end") << 899 << 30;
        QTest::newRow("just after the layout changed") << 705 << 300;
        QTest::newRow("back into the first layout") << 690 << 850;
    }
    void seekShowsWhatPlayingShows()
    {
        QFETCH(int, n);
        QFETCH(int, elsewhere);
        QVERIFY(window->openCapture(capture));
        CapturePlayback* playback = window->capturePlayback();
        QVERIFY(playback);
        playback->setPlaying(false);
        const int key = window->captureSource();
        void (MainWindow::*toggle[])(int) = {
            &MainWindow::toggleStaticView, &MainWindow::toggleNumericView,
            &MainWindow::toggleCutView, &MainWindow::toggleGrayView, &MainWindow::toggle3DView};
        for (int kind = 0; kind < 5; ++kind)
            if (!view<BasicView>(key, kind))
                (window.get()->*toggle[kind])(key);
        for (int kind = 0; kind < 5; ++kind) {
            view<BasicView>(key, kind)->showNormal();
            view<BasicView>(key, kind)->resize(260, 200);
        }
        QTRY_VERIFY(playback->index().finished());
        QCOMPARE(playback->index().lines(), std::size_t(900));

        // Played: line 0, then n lines on as fast as possible.
        playback->setSpeed(0);
        playback->seekLine(0);
        settle(1);
        if (n > 0)
            playback->step(n);
        settle(n + 1);
        const Shown played = shown(key);
        QVERIFY2(played.info.startsWith(QStringLiteral("frame %1\n").arg(n)),
                 qPrintable(played.info));

        playback->seekLine(uint64_t(elsewhere));
        settle(elsewhere + 1);
        playback->seekLine(uint64_t(n));
        settle(n + 1);
        const Shown sought = shown(key);
        QCOMPARE(sought.info, played.info);
        QCOMPARE(sought.cut, played.cut);
        QCOMPARE(sought.gray, played.gray);
        QCOMPARE(sought.cloud, played.cloud);
        QCOMPARE(sought.tables, played.tables);
        QTRY_VERIFY(window->transportBar()
                        ->findChild<QLabel*>("positionLabel")
                        ->text()
                        .contains(QStringLiteral("line %1 of 900")
                                      .arg(QLocale(QLocale::English).toString(n + 1))));
    }

    void badFiles_data()
    {
        QTest::addColumn<QByteArray>("bytes"); // the file's content; "-": no file
        QTest::addColumn<QString>("message");  // the start of the box's text
        QTest::newRow("missing") << QByteArray("-") << "Could not open gone.pcap: ";
        QTest::newRow("empty") << QByteArray() << "Could not open gone.pcap: ";
        QTest::newRow("not a capture")
            << QByteArray("hello, this is text\n").repeated(20) << "Could not open gone.pcap: ";
        QTest::newRow("unknown link type")
            << QByteArray::fromHex("d4c3b2a1020004000000000000000000ffff000093000000")
            << "Could not open gone.pcap: ";
        QTest::newRow("no scanner lines")
            << QByteArray::fromHex("d4c3b2a1020004000000000000000000ffff000001000000")
            << "No scanner lines found in gone.pcap";
    }
    void badFiles()
    {
        QFETCH(QByteArray, bytes);
        QFETCH(QString, message);
        const QString path = dir.filePath("gone.pcap");
        QFile::remove(path);
        if (bytes != "-") {
            QFile file(path);
            QVERIFY(file.open(QIODevice::WriteOnly));
            file.write(bytes);
        }
        QString text;
        windowtest::answer<QMessageBox>(true, [&](QMessageBox* box) {
            text = box->text();
            QCOMPARE(box->windowTitle(), window->windowTitle());
            QCOMPARE(box->standardButtons(), QMessageBox::StandardButtons(QMessageBox::Ok));
        });
        QVERIFY(!window->openCapture(path));
        QVERIFY2(text.startsWith(message), qPrintable(text));
        QVERIFY(!text.contains(QLatin1Char('\n')));
        QVERIFY(!window->capturePlayback());
        QVERIFY(window->transportBar()->isHidden());
        // The live port goes on.
        QVERIFY(window->controller(6101));
    }

    // A capture cut inside a record plays up to the cut; the status line says so.
    void truncatedFilePlaysToTheCut()
    {
        const QString cut = dir.filePath("cut.pcap");
        QFile::remove(cut);
        QVERIFY(QFile::copy(capture, cut));
        QFile file(cut);
        QVERIFY(file.resize(file.size() / 2 + 77));
        QVERIFY(window->openCapture(cut));
        CapturePlayback* playback = window->capturePlayback();
        playback->setSpeed(0);
        QTRY_VERIFY(!playback->problem().isEmpty());
        QTRY_VERIFY(window->findChild<QLabel*>("labelStatus")
                        ->text()
                        .startsWith(QStringLiteral("cut.pcap ends early")));
        QVERIFY(playback->place().line > 400);
        QCOMPARE(window->controller(window->captureSource())->handoverCounters().droppedMemory, 0u);
    }

    // What Record capture wrote plays in the window, every line of it.
    void recordedCapturePlays()
    {
        const QString recorded = dir.filePath("recorded.pcapng");
        QVERIFY(writeCapture(recorded, {{{"--pixels", "1024"}, 300}}, true) > 0);
        QVERIFY(window->openCapture(recorded));
        CapturePlayback* playback = window->capturePlayback();
        playback->setSpeed(0);
        QTRY_VERIFY(playback->index().finished());
        QCOMPARE(playback->index().lines(), std::size_t(300));
        StreamDataController* c = window->controller(window->captureSource()).get();
        QTRY_COMPARE(c->handoverCounters().linesTaken, 300u);
        QCOMPARE(c->frames(), 300u);
        QCOMPARE(c->counters().incompleteMessages + c->counters().backlogDrops, 0u);
    }

    // Closing the capture's views ends it; its key is no line port.
    void closingTheViewsEndsTheCapture()
    {
        // Opened by dropping the file on the window.
        QMimeData data;
        data.setUrls({QUrl::fromLocalFile(capture)});
        QDragEnterEvent enter(QPoint(5, 5), Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
        QCoreApplication::sendEvent(window.get(), &enter);
        QVERIFY(enter.isAccepted());
        QDropEvent drop(QPointF(5, 5), Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
        QCoreApplication::sendEvent(window.get(), &drop);
        QTRY_VERIFY(window->capturePlayback());
        const int key = window->captureSource();
        QVERIFY(key >= MainWindow::firstCaptureKey);
        QVERIFY(!window->transportBar()->isHidden());
        QVERIFY(view<BasicView>(key, MainWindow::ThreeD)->windowTitle().endsWith(" : scan.pcap"));
        // Beside the capture, three line ports still fit (6101 is open).
        bool refused = false;
        QObject waiting; // no box is expected: the wait ends with the test
        windowtest::answer<QMessageBox>(
            true, [&](QMessageBox*) { refused = true; }, &waiting);
        window->openStream(6103, 6104);
        window->openStream(6105, 6106);
        QVERIFY(!refused);
        QVERIFY(window->controller(6105));
        for (int kind = 0; kind < 5; ++kind)
            if (BasicView* v = view<BasicView>(key, kind))
                v->close();
        QTRY_VERIFY(!window->capturePlayback());
        QVERIFY(!window->controller(key));
        QVERIFY(window->transportBar()->isHidden());
    }

private:
    template <typename V> V* view(int key, int kind) const
    {
        return window->findChild<V*>(MainWindow::viewNamePattern(kind).arg(key));
    }
    // Waits until `lines` lines of the capture were taken in and shown.
    void settle(int lines)
    {
        StreamDataController* c = window->controller(window->captureSource()).get();
        QTRY_COMPARE_WITH_TIMEOUT(int(c->frames()), lines, 20000);
        QTRY_COMPARE(c->handoverCounters().linesWaiting, 0u);
        QTRY_COMPARE(int(window->capturePlayback()->place().line), lines);
        QCoreApplication::processEvents();
        QCoreApplication::sendPostedEvents();
    }
    Shown shown(int key)
    {
        FrameSync::flushAll();
        Shown s;
        s.cut = view<CutView>(key, MainWindow::Cut)->picture();
        s.gray = view<FlatView>(key, MainWindow::Gray)->picture();
        s.cloud = view<ThreeDView>(key, MainWindow::ThreeD)->picture();
        s.info = view<StatisticView>(key, MainWindow::Info)->text();
        auto* numeric = view<NumericView>(key, MainWindow::Numeric);
        numeric->syncTables();
        for (QTableView* table : numeric->findChildren<QTableView*>())
            s.tables << windowtest::tableTexts(table->model());
        return s;
    }

    QTemporaryDir dir;
    QString capture;
    std::unique_ptr<MainWindow> window;
};

int main(int argc, char* argv[])
{
    return runWindowTest<TestCapturePlayback>(argc, argv);
}

#include "tst_captureplayback.moc"
