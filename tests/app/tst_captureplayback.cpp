// A capture played in the window. A seek to line n must show exactly what
// playing lines 0..n shows (with the user's zoom and camera: cut, gray and 3D
// pictures pixel for pixel; the numeric tables cell for cell, the info text
// with its frame number), and a file that cannot be played must say so in a
// box that names it, without taking the window down. A marked stretch exported as cloud holds every
// point of its lines exactly as the unthinned 3D view holds them. The
// captures are written here from the simulator's own lines, so the test needs
// no sockets.
#include "app/captureplayback.h"
#include "app/mainwindow.h"
#include "app/positionslider.h"
#include "app/stretchexport.h"
#include "app/transportbar.h"
#include "capture/capturerecorder.h"
#include "capturefile.h"
#include "stream/streamdatacontroller.h"
#include "views/cutview.h"
#include "views/flatview.h"
#include "views/framesync.h"
#include "views/linepoints.h"
#include "views/myopenglwidget.h"
#include "views/numericview.h"
#include "views/statisticview.h"
#include "views/threedview.h"
#include "measure/measurecsv.h"
#include "tools/measure/capturemeasure.h"
#include "tools/measure/measureoptions.h"
#include "windowtest.h"

#include <QtTest>
#include <QtWidgets>

using namespace vxlindral;

namespace {

using Points = std::vector<CloudWriter::Point>;

// Reads what the stretch export wrote: binary PLY (its header must announce
// the points that follow) or CSV. Empty with `error` set when it cannot.
Points readCloud(const QString& path, QString& error)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        error = file.errorString();
        return {};
    }
    const QByteArray bytes = file.readAll();
    Points points;
    if (path.endsWith(".csv")) {
        QList<QByteArray> rows = bytes.split('\n');
        if (rows.takeFirst() != "x,y,z,gray,intensity,range,series,pixel" ||
            !rows.takeLast().isEmpty()) {
            error = "unexpected CSV frame";
            return {};
        }
        for (const QByteArray& row : rows) {
            if (row.startsWith('#')) // the note on the points without echo
                continue;
            const QList<QByteArray> f = row.split(',');
            if (f.size() != 8) {
                error = "row " + row;
                return {};
            }
            points.push_back({f[0].toFloat(), f[1].toFloat(), f[2].toFloat(),
                              uint8_t(f[3].toUInt()), f[4].toUInt(), f[5].toFloat(), f[6].toUInt(),
                              f[7].toUInt()});
        }
        return points;
    }
    const int end = bytes.indexOf("end_header\n");
    const int at = bytes.indexOf("element vertex ");
    if (end < 0 || at < 0 || !bytes.startsWith("ply\nformat binary_little_endian 1.0\n")) {
        error = "no binary PLY header";
        return {};
    }
    const qsizetype count = bytes.mid(at + 15, bytes.indexOf('\n', at) - at - 15).toLongLong();
    const char* d = bytes.constData() + end + 11;
    constexpr int record = 31; // x y z, red green blue, intensity, range, series, pixel
    if (bytes.size() - (end + 11) != count * record) {
        error =
            QString("%1 points announced, %2 bytes follow").arg(count).arg(bytes.size() - end - 11);
        return {};
    }
    points.resize(std::size_t(count));
    for (CloudWriter::Point& p : points) {
        std::memcpy(&p.x, d, 12);
        p.gray = uint8_t(d[12]);
        std::memcpy(&p.intensity, d + 15, 4);
        std::memcpy(&p.range, d + 19, 4);
        std::memcpy(&p.series, d + 23, 4);
        std::memcpy(&p.pixel, d + 27, 4);
        d += record;
    }
    return points;
}

// The lines the 3D view showed in each frame it drew (the window also
// composes frames in which the view did not draw: those are not counted).
class FrameWatch : public QObject
{
public:
    explicit FrameWatch(MyOpenGLWidget* gl)
    {
        connect(gl, &MyOpenGLWidget::frameDrawn, this, [this](int lines) { drawn << lines; });
    }
    QList<int> drawn;
};

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
        window = windowtest::freshWindow();
        QVERIFY(window);
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
        // Framing by themselves, the cut and 3D views keep a frame while it
        // shows the data, so their frame depends on the frames drawn before
        // (tst_framing checks that a seek shows the data framed). With the
        // user's zoom and camera, what they show is the same.
        view<CutView>(key, MainWindow::Cut)->setScale(35.0f);
        view<ThreeDView>(key, MainWindow::ThreeD)->glWidget()->setFraming(ViewFraming::User);
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

    // A seek draws no frame until its line has reached the views (the lines
    // it plays again on the way are not shown one by one); positions asked
    // for meanwhile (a dragged slider) wait, the newest replacing the others;
    // playing on after a seek draws frames again.
    void seekDrawsOnlyItsLine()
    {
        QVERIFY(window->openCapture(capture));
        CapturePlayback* playback = window->capturePlayback();
        playback->setPlaying(false);
        playback->setSpeed(0);
        QTRY_VERIFY(playback->index().finished());
        playback->seekLine(100);
        settle(101);
        auto* gl = view<ThreeDView>(window->captureSource(), MainWindow::ThreeD)->glWidget();
        QVERIFY(gl->reachBack() > 50);
        FrameWatch frames(gl);
        playback->seekLine(600);
        settle(601);
        QTest::qWait(100);
        QVERIFY(!frames.drawn.isEmpty());
        QStringList drawn;
        for (int lines : frames.drawn)
            drawn << QString::number(lines);
        QVERIFY2(std::all_of(frames.drawn.begin(), frames.drawn.end(),
                             [](int lines) { return lines == 601; }),
                 qPrintable(drawn.join(' ')));

        frames.drawn.clear();
        for (int line : {200, 300, 400})
            playback->seekTime(playback->lineMs(uint64_t(line)));
        settle(401);
        QTest::qWait(100);
        drawn.clear();
        for (int lines : frames.drawn)
            drawn << QString::number(lines);
        QVERIFY2(!frames.drawn.isEmpty() && frames.drawn.back() == 401 &&
                     std::all_of(frames.drawn.begin(), frames.drawn.end(),
                                 [](int lines) { return lines == 201 || lines == 401; }),
                 qPrintable(drawn.join(' ')));

        frames.drawn.clear();
        playback->setSpeed(0.1); // 50 lines a second: several frames
        playback->setPlaying(true);
        // Frames of the lines on their way, however slowly the machine draws
        // them, before the playback reaches the capture's end.
        const auto between = [](int lines) { return lines > 601 && lines < 890; };
        QTRY_VERIFY_WITH_TIMEOUT(
            std::count_if(frames.drawn.begin(), frames.drawn.end(), between) >= 3 ||
                playback->place().line >= 890,
            15000);
        playback->setPlaying(false);
        QVERIFY2(std::count_if(frames.drawn.begin(), frames.drawn.end(), between) >= 3,
                 qPrintable(QString::number(frames.drawn.size())));
    }

    // The stretch marked with I and O, exported as cloud: every point of its
    // lines, in order, exactly as a 3D view that thins nothing holds them
    // (same x per line, gray, columns), also across a change of layout and
    // line length. Unmarked ends stretch to the capture's ends.
    void exportStretch_data()
    {
        QTest::addColumn<int>("start"); // line marked with I; -1: none
        QTest::addColumn<int>("end");   // line marked with O; -1: none
        QTest::addColumn<QString>("name");
        QTest::addColumn<int>("first");
        QTest::addColumn<int>("last");
        QTest::addColumn<bool>("keepNoEcho"); // points without echo written too
        QTest::newRow("PLY, in the first layout") << 100 << 160 << "s.ply" << 100 << 160 << false;
        QTest::newRow("CSV, across the layout change")
            << 690 << 720 << "s.csv" << 690 << 720 << false;
        QTest::newRow("end marked before start") << 330 << 300 << "s.ply" << 300 << 330 << false;
        QTest::newRow("only the start marked") << 880 << -1 << "s.ply" << 880 << 899 << false;
        QTest::newRow("only the end marked") << -1 << 3 << "s.csv" << 0 << 3 << true;
        QTest::newRow("unmarked: the whole capture") << -1 << -1 << "s.ply" << 0 << 899 << true;
    }
    void exportStretch()
    {
        QFETCH(int, start);
        QFETCH(int, end);
        QFETCH(QString, name);
        QFETCH(int, first);
        QFETCH(int, last);
        QFETCH(bool, keepNoEcho);
        QSettings settings;
        settings.setValue("ThreeD/pointsPerLine", 4096);
        settings.setValue("ThreeD/maxPoints", 4'000'000);
        QVERIFY(window->openCapture(capture));
        CapturePlayback* playback = window->capturePlayback();
        playback->setPlaying(false);
        playback->setSpeed(0);
        QTRY_VERIFY(playback->index().finished());
        mark(start, end);
        if (QTest::currentTestFailed())
            return;
        playback->seekLine(899);
        settle(900);
        const Points all =
            view<ThreeDView>(window->captureSource(), MainWindow::ThreeD)->glWidget()->cloud();
        Points want;
        for (const CloudWriter::Point& p : all)
            if (p.x >= LinePoints::lineX(first) && p.x <= LinePoints::lineX(last))
                want.push_back(p);
        const int firstLayout = std::max(std::min(last, 699) - first + 1, 0);
        const int secondLayout = std::max(last - std::max(first, 700) + 1, 0);
        QCOMPARE(want.size(), std::size_t(firstLayout * 1024 + secondLayout * 2048));
        // The pixels without echo sit at the scanner: left out unless asked for.
        const std::size_t noEcho = std::size_t(std::count_if(
            want.begin(), want.end(), [](const CloudWriter::Point& p) { return p.range == 0; }));
        QVERIFY(noEcho > 0);
        if (!keepNoEcho)
            want.erase(std::remove_if(want.begin(), want.end(),
                                      [](const CloudWriter::Point& p) { return p.range == 0; }),
                       want.end());
        window->findChild<QAction*>("actionKeepNoEcho")->setChecked(keepNoEcho);

        const QString target = dir.filePath(name);
        QFile::remove(target);
        windowtest::answer<QFileDialog>(
            true, [&](QFileDialog* dialog) { windowtest::chooseFile(dialog, target); });
        window->findChild<QAction*>("actionExportStretch")->trigger();
        QVERIFY(window->runningStretchExport());
        QTRY_VERIFY_WITH_TIMEOUT(!window->runningStretchExport(), 60000);
        QString error;
        const Points got = readCloud(target, error);
        QVERIFY2(error.isEmpty(), qPrintable(error));
        QCOMPARE(got.size(), want.size());
        for (std::size_t i = 0; i < got.size(); ++i) {
            const CloudWriter::Point &g = got[i], &w = want[i];
            QVERIFY2(std::memcmp(&g.x, &w.x, 12) == 0 && g.gray == w.gray &&
                         g.intensity == w.intensity && g.range == w.range && g.series == w.series &&
                         g.pixel == w.pixel,
                     qPrintable(QString("point %1").arg(i)));
        }
        QCOMPARE(QSettings().value("Path/Last").toString(), target);
        QCOMPARE(QSettings().value("Export/keepNoEcho").toBool(), keepNoEcho);
        QCOMPARE(QDir(dir.path()).entryList({name + ".*"}, QDir::Files), QStringList());
    }

    // File > "Export measurements ...": the marked stretch measured in the
    // region of the capture's cut view gives, row for row, what
    // vxscanner-measure gives for those lines of the capture (the same
    // line numbers, the same numbers), also across the change of layout.
    void exportMeasurements_data()
    {
        QTest::addColumn<int>("start"); // line marked with I; -1: none
        QTest::addColumn<int>("end");   // line marked with O; -1: none
        QTest::addColumn<double>("y0");
        QTest::addColumn<double>("y1");
        QTest::addColumn<int>("first");
        QTest::addColumn<int>("last");
        QTest::newRow("a stretch of the belt") << 100 << 160 << -0.4 << 0.4 << 100 << 160;
        QTest::newRow("across the layout change, region reversed")
            << 690 << 720 << 1.0 << -1.0 << 690 << 720;
        QTest::newRow("unmarked: the whole capture") << -1 << -1 << -5.0 << 5.0 << 0 << 899;
    }
    void exportMeasurements()
    {
        QFETCH(int, start);
        QFETCH(int, end);
        QFETCH(double, y0);
        QFETCH(double, y1);
        QFETCH(int, first);
        QFETCH(int, last);
        // What the tool writes for the whole capture.
        vxmeasure::MeasureOptions options;
        options.file = QFile::encodeName(capture).toStdString();
        options.roi0 = std::min(y0, y1);
        options.roi1 = std::max(y0, y1);
        options.quiet = true;
        char* toolText = nullptr;
        std::size_t toolSize = 0;
        std::FILE* toolOut = open_memstream(&toolText, &toolSize);
        QCOMPARE(vxmeasure::CaptureMeasure::run(options, toolOut, stderr), 0);
        std::fclose(toolOut);
        const QStringList toolRows = QString::fromUtf8(toolText, int(toolSize)).split('\n');
        std::free(toolText);
        QCOMPARE(toolRows.size(), 1 + 900 + 1); // header, rows, after the last newline

        QVERIFY(window->openCapture(capture));
        CapturePlayback* playback = window->capturePlayback();
        playback->setPlaying(false);
        QTRY_VERIFY(playback->index().finished());
        const int key = window->captureSource();
        if (!view<CutView>(key, MainWindow::Cut))
            window->toggleCutView(key);
        mark(start, end);
        if (QTest::currentTestFailed())
            return;
        const QString target = dir.filePath("measures.csv");
        QFile::remove(target);
        auto* action = window->findChild<QAction*>("actionExportMeasurements");
        QVERIFY(action->isEnabled());
        // Without a region there is nothing to measure: a box says so.
        QString text;
        windowtest::answer<QMessageBox>(true, [&](QMessageBox* box) { text = box->text(); });
        action->trigger();
        QVERIFY2(text.contains("region"), qPrintable(text));
        QVERIFY(!window->runningMeasureExport());

        view<CutView>(key, MainWindow::Cut)->setMeasureMode(true);
        view<CutView>(key, MainWindow::Cut)->setMeasureRegion(y0, y1);
        windowtest::answer<QFileDialog>(
            true, [&](QFileDialog* dialog) { windowtest::chooseFile(dialog, target); });
        action->trigger();
        QVERIFY(window->runningMeasureExport());
        QVERIFY(!action->isEnabled());
        QTRY_VERIFY_WITH_TIMEOUT(!window->runningMeasureExport(), 60000);
        QVERIFY(action->isEnabled());
        QFile file(target);
        QVERIFY(file.open(QIODevice::ReadOnly));
        const QStringList rows = QString::fromUtf8(file.readAll()).split('\n');
        QCOMPARE(rows.size(), 1 + (last - first + 1) + 1);
        QCOMPARE(rows.front(), toolRows.front());
        for (int line = first; line <= last; ++line)
            QCOMPARE(rows[1 + line - first], toolRows[1 + line]);
        // Some line of the stretch has points in the region.
        QVERIFY(std::any_of(rows.begin() + 1, rows.end() - 1,
                            [](const QString& row) { return row.section(',', 1, 1) != "0"; }));
        QCOMPARE(QSettings().value("Path/Last").toString(), target);

        // The cut view's panel measures the line on show alike: line `middle`
        // sought, its measures give the tool's row for it.
        const int middle = (first + last) / 2;
        playback->seekLine(uint64_t(middle));
        settle(middle + 1);
        FrameSync::flushAll();
        auto* cut = view<CutView>(key, MainWindow::Cut);
        QVERIFY(cut->measurement().measured());
        char row[vxmeasure::MeasureCsv::kRowBytes];
        const std::size_t n =
            vxmeasure::MeasureCsv::row(uint64_t(middle), cut->measurement().lineResult(), row);
        QCOMPARE(QString::fromUtf8(row, int(n) - 1), toolRows[1 + middle]);
    }

    // Cancelled, or unable to write, the export leaves no file behind; a
    // failure says why in the "Export failed" box.
    void exportStretchLeavesNoHalfFile()
    {
        QVERIFY(window->openCapture(capture));
        QTRY_VERIFY(window->capturePlayback()->index().finished());
        const QString target = dir.filePath("cancelled.csv");
        windowtest::answer<QFileDialog>(
            true, [&](QFileDialog* dialog) { windowtest::chooseFile(dialog, target); });
        window->findChild<QAction*>("actionExportStretch")->trigger();
        QVERIFY(window->runningStretchExport());
        QVERIFY(!window->findChild<QAction*>("actionExportStretch")->isEnabled());
        // Its Cancel button, before the dialog shows (it waits a second).
        window->findChild<QProgressDialog*>("stretchProgress")->findChild<QPushButton*>()->click();
        // The export's end reaches the window queued.
        QTRY_VERIFY(!window->runningStretchExport());
        QCOMPARE(QDir(dir.path()).entryList({"cancelled*"}, QDir::Files), QStringList());
        QVERIFY(window->findChild<QAction*>("actionExportStretch")->isEnabled());

        QString text, informative;
        windowtest::answer<QFileDialog>(true, [&](QFileDialog* dialog) {
            windowtest::chooseFile(dialog, dir.filePath("gone/cloud.ply"));
        });
        windowtest::answer<QMessageBox>(true, [&](QMessageBox* box) {
            text = box->text();
            informative = box->informativeText();
        });
        window->findChild<QAction*>("actionExportStretch")->trigger();
        QCOMPARE(text, QStringLiteral("Could not open file for writing"));
        QVERIFY2(informative.contains("cloud.ply"), qPrintable(informative));
        QVERIFY(!window->runningStretchExport());
    }

private:
    // Marks the stretch from line `start` to line `end` with I and O on the
    // transport bar (-1: leaves that end unmarked).
    void mark(int start, int end)
    {
        CapturePlayback* playback = window->capturePlayback();
        auto* slider = window->transportBar()->findChild<PositionSlider*>("positionSlider");
        for (auto [line, key] : {std::pair{start, Qt::Key_I}, std::pair{end, Qt::Key_O}}) {
            if (line < 0)
                continue;
            playback->seekLine(uint64_t(line));
            settle(line + 1);
            window->activateWindow(); // no window manager does it under Xvfb
            QTRY_VERIFY(window->isActiveWindow());
            QTest::keyClick(window.get(), key);
            QCOMPARE(key == Qt::Key_I ? slider->markStart() : slider->markEnd(),
                     playback->lineMs(uint64_t(line)));
        }
    }
    template <typename V> V* view(int key, int kind) const
    {
        return windowtest::view<V>(*window, key, kind);
    }
    // Waits until `lines` lines of the capture were taken in and shown.
    void settle(int lines)
    {
        StreamDataController* c = window->controller(window->captureSource()).get();
        QTRY_COMPARE_WITH_TIMEOUT(int(c->frames()), lines, 20000);
        QTRY_COMPARE(c->handoverCounters().linesWaiting, 0u);
        QTRY_COMPARE(int(window->capturePlayback()->place().line), lines);
        QTRY_VERIFY(!window->capturePlayback()->isSeeking());
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
