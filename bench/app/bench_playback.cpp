// A capture played in the real window, beside the live intake of the same
// views in the same run. It writes a capture of 2,048-pixel street-scene lines
// (the simulator's own lines, as it would send them to port 6101), then for
// the default views (the 3D view alone) and for all five views prints:
//
//   live      the simulator sending to port 6101 faster than the window can
//             take in: lines per second the port's model took in once the
//             intake is steady (from 1 s into the sending to its end), and
//             the lines dropped by cause (expected here: the window is behind)
//   play      the capture played as fast as possible (speed 0) from line 0
//             to its end: lines per second its model took in, and the drops,
//             which must be 0 (a capture holds back instead of dropping)
//   seek      CapturePlayback::seekLine(n) at random lines, paused: the time
//             from the call until line n is taken and until it is shown,
//             p50, p99 and max. Taken: every view of the capture has taken
//             line n in (a queued slot connected after the views' own slots
//             has seen it). Shown: the window has composed and swapped a
//             frame in which the 3D view painted line n, with no 2D view's
//             frame clock still pending (each 2D view drew line n before)
//   close     closing the capture after the seeks, and closing it again
//             opened, while its index still reads the file: the time the
//             window is held up by each
//
// With --mirror the capture is one a mirror port gives: 84 kB of other UDP
// traffic after each line and a pause of a minute every 4,000 lines (20,000
// lines make 2 GB).
//
// The index of a large capture beside a plain read of the same file is
// bench_capture's part; this prints where to find it.
//
// usage (needs a display for the 3D view):
//   xvfb-run -a -s "-screen 0 1280x1024x24" build/bin/bench_playback [--lines 20000]
//       [--seeks 200] [--rate 20000] [--duration 4] [--views default,all]
//       [--file /tmp/bench_playback.pcap] [--mirror]
#include "app/applicationsetup.h"
#include "app/captureplayback.h"
#include "app/mainwindow.h"
#include "bench/app/simcapture.h"
#include "bench/app/windowbench.h"
#include "models/streamdatamodel.h"
#include "stream/streamdatacontroller.h"
#include "views/basicview.h"
#include "views/framesync.h"
#include "views/myopenglwidget.h"
#include "views/threedview.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFile>
#include <QOpenGLContext>
#include <QOpenGLFunctions>
#include <QTemporaryDir>
#include <QTimer>
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <random>
#include <vector>

namespace {

constexpr int kPort = 6101; // the port the window opens by itself

struct Options
{
    uint64_t lines = 20000;
    int seeks = 200;
    int rate = 20000;
    double duration = 4.0;
    QStringList viewSets = {"default", "all"};
    QString file = "/tmp/bench_playback.pcap";
    SimCapture::Mirror mirror;
};

double seconds(const QElapsedTimer& t)
{
    return double(t.nsecsElapsed()) / 1e9;
}

// The q-quantile of `ms` (reordered).
double quantile(std::vector<double>& ms, double q)
{
    if (ms.empty())
        return 0;
    const std::size_t k = std::min(ms.size() - 1, std::size_t(q * double(ms.size())));
    std::nth_element(ms.begin(), ms.begin() + std::ptrdiff_t(k), ms.end());
    return ms[k];
}

uint32_t lineNumber(const vxlindral::LineType& line)
{
    uint32_t n = 0;
    if (line && line->header.size() >= 4)
        std::memcpy(&n, line->header.data(), 4);
    return n;
}

// What the capture's views have taken in and shown: the newest line every
// view took (a queued slot on the model's newLine, connected after the
// views'), the lines the 3D view had when it last painted, and each frame
// the window swapped.
class ShownWatch : public QObject
{
public:
    ShownWatch(MainWindow& window, int key)
    {
        for (vxlindral::BasicView* v : window.findChildren<vxlindral::BasicView*>()) {
            if (v->getPort() != key)
                continue;
            reachBack = std::max(reachBack, v->reachBack());
            for (vxlindral::FrameSync* s : v->findChildren<vxlindral::FrameSync*>())
                syncs.push_back(s);
        }
        gl = window
                 .findChild<vxlindral::ThreeDView*>(
                     MainWindow::viewNamePattern(MainWindow::ThreeD).arg(key))
                 ->findChild<vxlindral::MyOpenGLWidget*>();
        gl->installEventFilter(this);
        connect(gl, &QOpenGLWidget::frameSwapped, this, [this] {
            swap = {clock.nsecsElapsed(), painted,
                    std::any_of(syncs.begin(), syncs.end(),
                                [](const vxlindral::FrameSync* s) { return s->isPending(); })};
        });
        connect(
            window.dataModel(key).get(), &vxlindral::StreamDataModel::newLine, this,
            [this](const vxlindral::LineType& line) {
                takenLine = lineNumber(line);
                takenNs = clock.nsecsElapsed();
                ++takenCount;
            },
            Qt::QueuedConnection);
        clock.start();
    }
    vxlindral::MyOpenGLWidget* glWidget() const { return gl; }

    // Runs the event loop until line `n` is taken (at `takenAt`) and shown (at
    // `shownAt`), ns on this watch's clock; false after `timeoutMs`.
    bool waitShown(uint32_t n, int64_t since, int64_t& takenAt, int64_t& shownAt, int timeoutMs)
    {
        QEventLoop loop;
        QTimer poll;
        bool done = false;
        const auto check = [&] {
            if (takenLine != n || takenNs < since || swap.atNs < since ||
                swap.painted != int(n) + 1 || swap.pending)
                return;
            takenAt = takenNs;
            shownAt = std::max(takenNs, swap.atNs);
            done = true;
            loop.quit();
        };
        connect(&poll, &QTimer::timeout, &loop, check);
        QTimer::singleShot(timeoutMs, &loop, &QEventLoop::quit);
        poll.start(1);
        check();
        if (!done)
            loop.exec();
        return done;
    }

    QElapsedTimer clock;
    int reachBack = 1; // the most lines a seek plays again: the views' reach
    uint32_t takenLine = 0;
    int64_t takenNs = -1;
    uint64_t takenCount = 0;

protected:
    bool eventFilter(QObject* target, QEvent* event) override
    {
        if (target == gl && event->type() == QEvent::Paint)
            painted = gl->getLineCount();
        return false;
    }

private:
    struct Swap
    {
        int64_t atNs = -1;
        int painted = -1; // lines the 3D view had when it painted last
        bool pending = true;
    };
    std::vector<vxlindral::FrameSync*> syncs;
    vxlindral::MyOpenGLWidget* gl = nullptr;
    int painted = -1;
    Swap swap;
};

struct Drops
{
    uint64_t blog = 0, mem = 0, kern = 0, inc = 0;
    static Drops of(const vxlindral::StreamDataController& c)
    {
        const strmsocket::StreamCounters s = c.counters();
        return {s.backlogDrops, c.handoverCounters().droppedMemory, s.kernelDrops,
                s.incompleteMessages};
    }
    Drops since(const Drops& b) const
    {
        return {blog - b.blog, mem - b.mem, kern - b.kern, inc - b.inc};
    }
    void print() const
    {
        const auto u = [](uint64_t v) { return static_cast<unsigned long long>(v); };
        std::printf("dropped blog %llu, mem %llu, kern %llu, inc %llu", u(blog), u(mem), u(kern),
                    u(inc));
    }
};

// The OpenGL context the 3D view got, as "3.3 core, llvmpipe ..."; empty
// when it is not at least a 3.3 core profile.
QString glContext(vxlindral::MyOpenGLWidget* gl)
{
    const QSurfaceFormat f = gl->format();
    if (!gl->context() || f.profile() != QSurfaceFormat::CoreProfile ||
        qMakePair(f.majorVersion(), f.minorVersion()) < qMakePair(3, 3))
        return {};
    gl->makeCurrent();
    const auto* renderer = gl->context()->functions()->glGetString(GL_RENDERER);
    const QString text = QStringLiteral("%1.%2 core, %3")
                             .arg(f.majorVersion())
                             .arg(f.minorVersion())
                             .arg(reinterpret_cast<const char*>(renderer));
    gl->doneCurrent();
    return text;
}

// The live port fed by the simulator faster than the window takes in.
// The machine's own stalls: one fixed piece of CPU work as long as a
// typical seek (`typicalMs`, made of units of about a millisecond), timed
// as many times as there were seeks. A seek's p99 cannot be better than
// this p99 on the same machine in the same run: a shared machine that
// stops the process now and then stops a seek as often.
void stallFloor(double typicalMs, int runs)
{
    volatile uint64_t sink = 0;
    const auto unit = [&sink] {
        uint64_t x = 0x9e3779b97f4a7c15ULL;
        for (int i = 0; i < 400000; ++i)
            x = x * 6364136223846793005ULL + 1442695040888963407ULL;
        sink = sink + x;
    };
    // The unit's own time: the quickest of a few.
    double unitMs = 1e9;
    for (int k = 0; k < 20; ++k) {
        QElapsedTimer one;
        one.start();
        unit();
        unitMs = std::min(unitMs, double(one.nsecsElapsed()) / 1e6);
    }
    const int units = std::max(1, int(std::lround(typicalMs / std::max(unitMs, 1e-3))));
    std::vector<double> ms;
    for (int k = 0; k < runs; ++k) {
        QElapsedTimer one;
        one.start();
        for (int u = 0; u < units; ++u)
            unit();
        ms.push_back(double(one.nsecsElapsed()) / 1e6);
    }
    const double worst = *std::max_element(ms.begin(), ms.end());
    std::printf("floor  fixed work of %6.1f ms took %6.1f / %6.1f / %6.1f ms (p50 / p99 / max; "
                "%d runs): the machine's own stalls\n",
                units * unitMs, quantile(ms, 0.5), quantile(ms, 0.99), worst, runs);
}

bool liveIntake(MainWindow& window, const Options& opt, const QString& simPath)
{
    const auto controller = window.controller(kPort);
    const QStringList common = {"--host",   "127.0.0.1", "--port", QString::number(kPort),
                                "--pixels", "2048"};
    // The first lines: the window's first paints and the line pool in place.
    if (WindowBench::runSimulator(simPath,
                                  common + QStringList{"--rate", "500", "--count", "100"}) < 0)
        return false;
    WindowBench::drain(*controller);
    const Drops before = Drops::of(*controller);
    uint64_t takenAt1s = 0;
    QElapsedTimer wall;
    wall.start();
    double from = 0;
    QTimer steady; // ends with this function, even when the simulator fails early
    steady.setSingleShot(true);
    QObject::connect(&steady, &QTimer::timeout, [&] {
        takenAt1s = controller->handoverCounters().linesTaken;
        from = seconds(wall);
    });
    steady.start(1000);
    const qint64 sent = WindowBench::runSimulator(
        simPath, common + QStringList{"--rate", QString::number(opt.rate), "--duration",
                                      QString::number(opt.duration)});
    const uint64_t takenAtEnd = controller->handoverCounters().linesTaken;
    const double to = seconds(wall);
    WindowBench::drain(*controller);
    if (sent < 0 || takenAt1s == 0)
        return false;
    std::printf("live   %8.0f lines/s taken (simulator at %d lines/s for %.1f s, %lld sent), ",
                double(takenAtEnd - takenAt1s) / (to - from), opt.rate, opt.duration,
                static_cast<long long>(sent));
    Drops::of(*controller).since(before).print();
    std::printf("\n");
    return true;
}

bool runViews(const QString& set, const Options& opt, const QString& simPath)
{
    WindowBench::configureViews(set);
    MainWindow window;
    window.resize(1260, 1000);
    window.show();
    window.handleRealign();
    WindowBench::runEventLoop(300);
    std::printf("\nviews: %s (%s)\n", qPrintable(set),
                set == "all" ? "all five" : "the 3D view alone");
    if (!liveIntake(window, opt, simPath))
        return false;

    // The live port's views make room for the capture's.
    for (vxlindral::BasicView* v : window.findChildren<vxlindral::BasicView*>())
        if (v->getPort() == kPort)
            v->close();
    WindowBench::runEventLoop(200);

    QElapsedTimer opened;
    opened.start();
    if (!window.openCapture(opt.file))
        return false;
    vxlindral::CapturePlayback* playback = window.capturePlayback();
    playback->setPlaying(false);
    const int key = window.captureSource();
    ShownWatch watch(window, key);
    while (!playback->index().ended())
        WindowBench::runEventLoop(20);
    const double indexS = seconds(opened);
    const uint64_t lines = playback->index().lines();
    WindowBench::runEventLoop(300);
    const QString gl = glContext(watch.glWidget());
    if (gl.isEmpty()) {
        std::fprintf(stderr, "bench_playback: no OpenGL 3.3 core context for the 3D view\n");
        return false;
    }
    std::printf("OpenGL %s; capture indexed in the window in %.2f s (%llu lines, %.1f bytes "
                "per line)\n",
                qPrintable(gl), indexS, static_cast<unsigned long long>(lines),
                double(playback->index().bytes()) / double(std::max<uint64_t>(lines, 1)));

    // As fast as possible from the first line to the last.
    const auto controller = window.controller(key);
    const Drops before = Drops::of(*controller);
    playback->setSpeed(0);
    playback->setPlaying(true);
    const int64_t start = watch.clock.nsecsElapsed();
    const uint64_t countBefore = watch.takenCount;
    playback->seekLine(0);
    while (watch.takenLine + 1 < lines || watch.takenNs < start) {
        WindowBench::runEventLoop(20);
        if (watch.clock.nsecsElapsed() - start > int64_t(600) * 1000000000)
            break;
    }
    const double playS = double(watch.takenNs - start) / 1e9;
    std::printf("play   %8.0f lines/s taken (%llu lines, speed 0, %.2f s), ",
                double(watch.takenCount - countBefore) / playS,
                static_cast<unsigned long long>(watch.takenCount - countBefore), playS);
    Drops::of(*controller).since(before).print();
    std::printf("\n");
    WindowBench::runEventLoop(300);

    // Seeks at random lines, paused.
    playback->setPlaying(false);
    std::mt19937 rng(1);
    std::vector<double> taken, shown;
    int timeouts = 0;
    for (int k = 0; k < opt.seeks; ++k) {
        const auto n = uint32_t(std::uniform_int_distribution<uint64_t>(0, lines - 1)(rng));
        const int64_t t0 = watch.clock.nsecsElapsed();
        playback->seekLine(n);
        int64_t takenAt = 0, shownAt = 0;
        if (!watch.waitShown(n, t0, takenAt, shownAt, 5000)) {
            ++timeouts;
            continue;
        }
        taken.push_back(double(takenAt - t0) / 1e6);
        shown.push_back(double(shownAt - t0) / 1e6);
    }
    const double maxTaken = taken.empty() ? 0 : *std::max_element(taken.begin(), taken.end());
    const double maxShown = shown.empty() ? 0 : *std::max_element(shown.begin(), shown.end());
    std::printf("seek   taken %6.1f / %6.1f / %6.1f ms, shown %6.1f / %6.1f / %6.1f ms "
                "(p50 / p99 / max; %zu seeks, %d timed out, %d lines replayed per seek)\n",
                quantile(taken, 0.5), quantile(taken, 0.99), maxTaken, quantile(shown, 0.5),
                quantile(shown, 0.99), maxShown, shown.size(), timeouts, watch.reachBack);
    stallFloor(quantile(taken, 0.5), std::max(opt.seeks, 1));
    QElapsedTimer closing;
    closing.start();
    window.closeCapture();
    const double closeMs = double(closing.nsecsElapsed()) / 1e6;
    WindowBench::runEventLoop(200);
    // Opened again and closed while the index reads (it has read about a
    // tenth of a large file by then).
    if (!window.openCapture(opt.file))
        return false;
    WindowBench::runEventLoop(300);
    const double read = window.capturePlayback()->index().progress();
    closing.restart();
    window.closeCapture();
    const double closeIndexingMs = double(closing.nsecsElapsed()) / 1e6;
    std::printf("close  %6.1f ms paused after the seeks, %6.1f ms while indexing (%.0f %% read)\n",
                closeMs, closeIndexingMs, read * 100);
    window.close();
    return true;
}

} // namespace

int main(int argc, char* argv[])
{
    QTemporaryDir config;
    qputenv("XDG_CONFIG_HOME", config.path().toLocal8Bit());
    vxlindral::ApplicationSetup::beforeApplication();
    QApplication app(argc, argv);
    vxlindral::ApplicationSetup::afterApplication();

    Options opt;
    const QStringList args = app.arguments();
    for (int i = 1; i < args.size(); i += 2) {
        const QString& key = args[i];
        const QString value = i + 1 < args.size() ? args[i + 1] : QString();
        if (key == "--lines") {
            opt.lines = value.toULongLong();
        } else if (key == "--seeks") {
            opt.seeks = value.toInt();
        } else if (key == "--rate") {
            opt.rate = value.toInt();
        } else if (key == "--duration") {
            opt.duration = value.toDouble();
        } else if (key == "--views") {
            opt.viewSets = value.split(',', Qt::SkipEmptyParts);
        } else if (key == "--file") {
            opt.file = value;
        } else if (key == "--mirror") {
            opt.mirror.otherBytesPerLine = 84000;
            opt.mirror.pauseEvery = 4000;
            --i; // takes no value
        } else {
            std::fprintf(stderr, "bench_playback: unknown option %s\n", qPrintable(key));
            return 2;
        }
    }
    if (opt.lines < 2 || opt.seeks < 1 || opt.rate <= 0 || opt.duration <= 1.0 ||
        std::any_of(opt.viewSets.begin(), opt.viewSets.end(),
                    [](const QString& v) { return v != "default" && v != "all"; })) {
        std::fprintf(stderr, "bench_playback: bad --lines, --seeks, --rate, --duration (over "
                             "1 s) or --views (default, all)\n");
        return 2;
    }
    if (!WindowBench::portFree(kPort)) {
        std::fprintf(stderr, "bench_playback: port %d is in use by another program\n", kPort);
        return 1;
    }
    QElapsedTimer writing;
    writing.start();
    if (!SimCapture::write(opt.file, opt.lines, 2048, opt.mirror)) {
        std::fprintf(stderr, "bench_playback: cannot write %s\n", qPrintable(opt.file));
        return 1;
    }
    std::printf("capture: %llu street-scene lines of 2,048 pixels%s, %.0f MB, written in %.1f s "
                "to %s\n",
                static_cast<unsigned long long>(opt.lines),
                opt.mirror.otherBytesPerLine ? " with other traffic and pauses" : "",
                double(QFile(opt.file).size()) / 1e6, seconds(writing), qPrintable(opt.file));
    const QString simPath = QCoreApplication::applicationDirPath() + "/vxscanner-sim";
    int status = 0;
    for (const QString& set : opt.viewSets) {
        if (!runViews(set, opt, simPath)) {
            status = 1;
            break;
        }
    }
    QFile::remove(opt.file);
    std::printf("\nindex of a 2 GB capture beside a plain read of it: build/bin/bench_capture "
                "--size-mb 2048\n");
    return status;
}
