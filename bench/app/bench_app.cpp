// The real main window in-process, fed over loopback UDP by vxscanner-sim at
// a series of rates, with no views (the floor: reception and hand-over
// only), with the default views and with all five open (and on request all
// five with the cut view measuring, --views measure); then the stall
// cases: a steady rate while the GUI thread is blocked, or the whole process
// stopped (SIGSTOP, then SIGCONT), for a while. For each row it prints where
// the lines and the time went:
//
//   sent      lines the simulator sent (its own summary)
//   taken     lines the port's model took in (the hand-over's count)
//   dropped   by cause: the backlog bound (lines given up undecoded because
//             the window stayed behind until the backlog was full), the
//             hand-over's memory bound, datagrams the kernel dropped (the
//             receive buffer overflowed), messages given up incomplete
//   delay     from sending a line to its arrival in the model, p50 and p99:
//             the simulator stamps CLOCK_MONOTONIC microseconds into each
//             line's header (--stamp-send-time) and a handler on the model's
//             newLine reads the same clock
//   memory    resident set now, and its growth over the rate
//   CPU       share of one core over the sending time: the GUI thread, the
//             receive thread, the viewer's other threads (the X connection,
//             the OpenGL driver's workers) and the simulator process
//   backlog   (stall rows) the most memory that lines waiting undecoded took
//   catch-up  (stall rows) from the end of the stall until a line reached the
//             model again within 50 ms of its sending
//
// Then the recording rows: with no views, one rate without and then with a
// capture being recorded from the port (File > Record capture), the receive
// thread's CPU time per datagram received, the difference recording makes
// (the row without it, measured in the same run, is the floor), and the
// datagrams in the capture (read back from the file) against those received.
//
// usage (needs a display for the 3D view):
//   xvfb-run -a -s "-screen 0 1280x1024x24" build/bin/bench_app [--duration S]
//       [--rates 600,1500,...] [--pixels N] [--views none,default,all,measure|both]
//       [--stalls VIEWS:RATE:gui|process:MS,...|none] [--recording RATE,...|none]
//       [--scene street|conveyor]
#include "app/applicationsetup.h"
#include "app/mainwindow.h"
#include "bench/app/windowbench.h"
#include "capture/datagramextractor.h"
#include "line/linetype.h"
#include "models/streamdatamodel.h"
#include "stream/streamdatacontroller.h"
#include "views/cutview.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QSettings>
#include <QTemporaryDir>
#include <QThread>
#include <QTimer>
#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <pthread.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

constexpr int benchPort = 6101; // the port the window opens by itself

// One stall case: at `rate` lines/s, the GUI thread blocked (or the whole
// process stopped) for `ms` milliseconds, one second into the sending.
struct Stall
{
    QString views;
    int rate = 0;
    bool process = false;
    int ms = 0;
};

struct Options
{
    double duration = 3.0;
    int pixels = 2048;
    QList<int> rates = {600, 1500, 5000, 20000};
    QStringList viewSets = {"none", "default", "all"};
    QList<Stall> stalls = {{"default", 200, false, 1000}, {"default", 200, true, 1000},
                           {"default", 2000, false, 300}, {"default", 2000, true, 300},
                           {"all", 1000, false, 500},     {"default", 5000, true, 200}};
    QList<int> recordingRates = {5000};
    QString scene; // the simulator's scene; empty: its default
};

constexpr int kStallAtMs = 1000;   // into the sending
constexpr int64_t kLiveUs = 50000; // a line this fresh: caught up

// Current resident set size, in MiB.
double rssMiB()
{
    QFile statm("/proc/self/statm");
    if (!statm.open(QIODevice::ReadOnly))
        return 0;
    const QList<QByteArray> fields = statm.readAll().split(' ');
    return fields.size() > 1 ? fields[1].toDouble() * 4096.0 / (1024.0 * 1024.0) : 0;
}

int64_t clockNs(clockid_t clock)
{
    timespec ts{};
    clock_gettime(clock, &ts);
    return int64_t(ts.tv_sec) * 1000000000 + ts.tv_nsec;
}

// CPU time of the simulator processes that have ended and been reaped.
int64_t childrenCpuNs()
{
    rusage usage{};
    getrusage(RUSAGE_CHILDREN, &usage);
    const auto ns = [](const timeval& t) {
        return int64_t(t.tv_sec) * 1000000000 + t.tv_usec * 1000;
    };
    return ns(usage.ru_utime) + ns(usage.ru_stime);
}

// The receive thread's CPU clock, learnt on that thread from the first
// stream text the receiver emits there (the thread is the library's own).
struct ReceiveClock
{
    std::atomic<bool> known{false};
    clockid_t clock{};

    // Called on the emitting thread.
    void learn()
    {
        if (known.load(std::memory_order_acquire) ||
            QThread::currentThread() == QCoreApplication::instance()->thread())
            return;
        clockid_t c{};
        if (pthread_getcpuclockid(pthread_self(), &c) == 0) {
            clock = c;
            known.store(true, std::memory_order_release);
        }
    }
    int64_t ns() const { return known.load(std::memory_order_acquire) ? clockNs(clock) : 0; }
};

// Where the CPU time went so far.
struct CpuTimes
{
    int64_t process, gui, receive, children;
    static CpuTimes now(const ReceiveClock& receive)
    {
        return {clockNs(CLOCK_PROCESS_CPUTIME_ID), clockNs(CLOCK_THREAD_CPUTIME_ID), receive.ns(),
                childrenCpuNs()};
    }
};

// Delay samples of one rate, in microseconds, in storage allocated before
// the rate starts: the per-line handler only reads two header words and the
// clock and stores one number.
struct Delays
{
    std::vector<int64_t> us;
    std::vector<int64_t> atUs; // when each line reached the model
    std::size_t count = 0;

    void reset(std::size_t capacity)
    {
        us.assign(capacity, 0);
        atUs.assign(capacity, 0);
        count = 0;
    }
    void add(const vxlindral::LineType& line)
    {
        if (!line || line->header.size() < 12 || count == us.size())
            return;
        uint32_t low = 0, high = 0;
        std::memcpy(&low, line->header.data() + 4, 4);
        std::memcpy(&high, line->header.data() + 8, 4);
        const int64_t now = clockNs(CLOCK_MONOTONIC) / 1000;
        atUs[count] = now;
        us[count++] = now - int64_t(uint64_t(low) | uint64_t(high) << 32);
    }
    // Milliseconds from `endUs` until a line reached the model within
    // kLiveUs of its sending again; NaN when none did. Before quantileMs,
    // which reorders the delays.
    double catchUpMs(int64_t endUs) const
    {
        for (std::size_t i = 0; i < count; ++i)
            if (atUs[i] >= endUs && us[i] < kLiveUs)
                return double(atUs[i] - endUs) / 1000.0;
        return std::nan("");
    }
    double maxMs() const
    {
        return count ? double(*std::max_element(us.begin(), us.begin() + std::ptrdiff_t(count))) /
                           1000.0
                     : std::nan("");
    }
    // The q-quantile in milliseconds; NaN without samples.
    double quantileMs(double q)
    {
        if (count == 0)
            return std::nan("");
        const std::size_t k = std::min(count - 1, std::size_t(q * double(count)));
        std::nth_element(us.begin(), us.begin() + std::ptrdiff_t(k),
                         us.begin() + std::ptrdiff_t(count));
        return double(us[k]) / 1000.0;
    }
};

// The counters of the port that a rate's figures are taken from.
struct Counts
{
    vxlindral::LineQueue::Counters handover;
    strmsocket::StreamCounters socket;
    static Counts of(const vxlindral::StreamDataController& c)
    {
        return {c.handoverCounters(), c.counters()};
    }
};

// Notices when the whole process was stopped: a thread that wakes every
// millisecond sees the gap; the end of the longest gap is when it went on.
class StopWatcher
{
public:
    StopWatcher()
        : thread([this] {
              int64_t last = clockNs(CLOCK_MONOTONIC);
              while (!done.load(std::memory_order_relaxed)) {
                  ::usleep(1000);
                  const int64_t now = clockNs(CLOCK_MONOTONIC);
                  if (now - last > longest.load(std::memory_order_relaxed)) {
                      longest.store(now - last, std::memory_order_relaxed);
                      resumedNs.store(now, std::memory_order_relaxed);
                  }
                  last = now;
              }
          })
    {
    }
    ~StopWatcher()
    {
        done.store(true, std::memory_order_relaxed);
        thread.join();
    }
    int64_t resumedUs() const { return resumedNs.load(std::memory_order_relaxed) / 1000; }

private:
    std::atomic<bool> done{false};
    std::atomic<int64_t> longest{0}, resumedNs{0};
    std::thread thread;
};

void printLegend()
{
    std::printf("dropped: blog = the backlog bound, mem = the hand-over's memory bound,\n"
                "         kern = kernel drops (datagrams), inc = incomplete messages.\n"
                "delay: send to model, ms. CPU: %% of one core over the sending time "
                "(other = the viewer's\n         other threads). Stall rows: backlog = most "
                "MiB waiting undecoded, catch-up = ms\n         from the stall's end until a "
                "line reached the model within 50 ms of its sending.\n");
}

uint64_t delta(uint64_t after, uint64_t before)
{
    return after - before;
}

// The window with one set of views, fed by the simulator, and what a row
// reads from it.
class Run
{
public:
    Run(const QString& set, const Options& options, const QString& simulator)
        : opt(options), simPath(simulator), views(WindowBench::configureViews(set))
    {
        window.resize(1260, 1000);
        window.show();
        window.handleRealign();
        // "measure": every view, the cut view measuring a region across the
        // whole profile (the measures of the line on show, every frame).
        if (set == "measure")
            for (vxlindral::CutView* cut : window.findChildren<vxlindral::CutView*>()) {
                cut->setMeasureMode(true);
                cut->setMeasureRegion(-15.0, 15.0);
            }
        WindowBench::runEventLoop(300);
        model = window.dataModel(benchPort);
        controller = window.controller(benchPort);
    }
    ~Run() { window.close(); }

    // The first lines: the window's first paints, the line pool and the
    // receive thread's clock are then in place before anything is measured.
    bool start()
    {
        if (!model || !controller || controller->localPort() != benchPort) {
            std::fprintf(stderr, "bench_app: port %d could not be opened\n", benchPort);
            return false;
        }
        const QMetaObject::Connection learning = QObject::connect(
            model.get(), &vxlindral::StreamDataModel::notifyStatistic, model.get(),
            [this](const QString&) { receive.learn(); }, Qt::DirectConnection);
        QObject::connect(model.get(), &vxlindral::StreamDataModel::newLine,
                         [this](const vxlindral::LineType& line) { delays.add(line); });
        delays.reset(4096);
        if (simulate({"--rate", "500", "--count", "100"}) < 0)
            return false;
        WindowBench::drain(*controller);
        // Known by now (or the receive thread's share reads 0): the measured
        // runs go without the extra call per line.
        QObject::disconnect(learning);
        return true;
    }

    // One rate for the set duration; `stall` (with a positive ms) blocks the
    // GUI thread or stops the process on the way.
    void row(int rate, const Stall* stall)
    {
        delays.reset(std::size_t(std::ceil(rate * opt.duration * 1.5)) + 4096);
        const Counts before = Counts::of(*controller);
        const double rssBefore = rssMiB();
        const CpuTimes cpuBefore = CpuTimes::now(receive);
        QElapsedTimer wall;
        wall.start();

        std::unique_ptr<StopWatcher> watcher;
        pid_t stopper = 0;
        int64_t guiStallEndUs = 0;
        if (stall && stall->process) {
            watcher = std::make_unique<StopWatcher>();
            const QString script =
                QStringLiteral("sleep %1; kill -STOP %2; sleep %3; kill -CONT %2")
                    .arg(kStallAtMs / 1000.0)
                    .arg(::getpid())
                    .arg(stall->ms / 1000.0);
            stopper = WindowBench::spawn({"/bin/sh", "-c", script}, -1);
        } else if (stall) {
            QTimer::singleShot(kStallAtMs, [&guiStallEndUs, ms = stall->ms] {
                ::usleep(useconds_t(ms) * 1000);
                guiStallEndUs = clockNs(CLOCK_MONOTONIC) / 1000;
            });
        }
        const qint64 sent = simulate(
            {"--rate", QString::number(rate), "--duration", QString::number(opt.duration)});
        const double wallNs = double(wall.nsecsElapsed());
        const CpuTimes cpu = CpuTimes::now(receive);
        WindowBench::drain(*controller);
        if (stopper)
            ::waitpid(stopper, nullptr, 0);

        const Counts after = Counts::of(*controller);
        const uint64_t taken = delta(after.handover.linesTaken, before.handover.linesTaken);
        const auto share = [wallNs](int64_t ns) { return 100.0 * double(ns) / wallNs; };
        const int64_t gui = cpu.gui - cpuBefore.gui;
        const int64_t recv = cpu.receive - cpuBefore.receive;
        const auto u = [](uint64_t v) { return static_cast<unsigned long long>(v); };
        std::printf("%6d %7lld %7llu %5.1f%% | %6llu %6llu %6llu %6llu | ", rate,
                    static_cast<long long>(sent), u(taken),
                    sent > 0 ? 100.0 * double(taken) / double(sent) : 0.0,
                    u(delta(after.socket.backlogDrops, before.socket.backlogDrops)),
                    u(delta(after.handover.droppedMemory, before.handover.droppedMemory)),
                    u(delta(after.socket.kernelDrops, before.socket.kernelDrops)),
                    u(delta(after.socket.incompleteMessages, before.socket.incompleteMessages)));
        if (stall) {
            const int64_t endUs = stall->process ? watcher->resumedUs() : guiStallEndUs;
            const double catchUp = delays.catchUpMs(endUs);
            const double worst = delays.maxMs();
            std::printf("%7.1f %7.1f %7.0f | %6.0f %+6.0f | %7.1f %8.0f\n", delays.quantileMs(0.50),
                        delays.quantileMs(0.99), worst, rssMiB(), rssMiB() - rssBefore,
                        double(after.socket.backlogPeakBytes) / (1024.0 * 1024.0), catchUp);
        } else {
            std::printf("%7.1f %7.1f | %6.0f %+6.0f | %4.0f%% %4.0f%% %4.0f%% %4.0f%%\n",
                        delays.quantileMs(0.50), delays.quantileMs(0.99), rssMiB(),
                        rssMiB() - rssBefore, share(gui), share(recv),
                        share(cpu.process - cpuBefore.process - gui - recv),
                        share(cpu.children - cpuBefore.children));
        }
        std::fflush(stdout);
    }

    // One rate without recording (`capture` empty) or recording into
    // `capture`: receive-thread CPU per datagram, datagrams received and, when
    // recording, in the file. Returns the CPU per datagram in microseconds.
    double recordingRow(int rate, const QString& capture, double floorUs)
    {
        if (!capture.isEmpty() && !window.startCapture(benchPort, capture))
            return 0;
        const Counts before = Counts::of(*controller);
        const CpuTimes cpuBefore = CpuTimes::now(receive);
        const qint64 sent = simulate(
            {"--rate", QString::number(rate), "--duration", QString::number(opt.duration)});
        const CpuTimes cpu = CpuTimes::now(receive);
        WindowBench::drain(*controller);
        window.stopCapture();
        // The rest is written in the background: the file is counted whole.
        while (window.isFinishingCaptures())
            QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, 50);
        const Counts after = Counts::of(*controller);
        const uint64_t received = delta(after.socket.datagrams, before.socket.datagrams);
        const double perDatagramUs =
            received ? double(cpu.receive - cpuBefore.receive) / 1000.0 / double(received) : 0;
        const auto u = [](uint64_t v) { return static_cast<unsigned long long>(v); };
        std::printf("%6d %9s %7lld %9llu ", rate, capture.isEmpty() ? "off" : "on",
                    static_cast<long long>(sent), u(received));
        if (capture.isEmpty()) {
            std::printf("%9s | %8.2f %8s\n", "-", perDatagramUs, "floor");
        } else {
            uint64_t recorded = 0;
            vxrec::DatagramExtractor file({uint16_t(benchPort), -1});
            vxrec::UdpDatagram d;
            if (file.open(QFile::encodeName(capture).toStdString()))
                while (file.next(d) == vxrec::DatagramExtractor::Status::Datagram)
                    ++recorded;
            std::printf("%9llu | %8.2f %+8.2f\n", u(recorded), perDatagramUs,
                        perDatagramUs - floorUs);
        }
        std::fflush(stdout);
        return perDatagramUs;
    }

private:
    qint64 simulate(const QStringList& args)
    {
        QStringList common = {"--host",           "127.0.0.1",
                              "--port",           QString::number(benchPort),
                              "--pixels",         QString::number(opt.pixels),
                              "--stamp-send-time"};
        if (!opt.scene.isEmpty())
            common << "--scene" << opt.scene;
        return WindowBench::runSimulator(simPath, common + args);
    }

    const Options& opt;
    const QString simPath;
    const QString views; // the set of views, stored before the window exists
    MainWindow window;
    std::shared_ptr<vxlindral::StreamDataModel> model;
    std::shared_ptr<vxlindral::StreamDataController> controller;
    ReceiveClock receive;
    Delays delays;
};

bool runRates(const QString& set, const Options& opt, const QString& simPath)
{
    Run run(set, opt, simPath);
    if (!run.start())
        return false;
    std::printf("\nviews: %s%s (%d pixels per line, %.1f s per rate)\n", qPrintable(set),
                set == "none" ? " = the floor: reception and hand-over only" : "", opt.pixels,
                opt.duration);
    std::printf("%6s %7s %7s %6s | %6s %6s %6s %6s | %7s %7s | %6s %6s | %5s %5s %5s %5s\n",
                "rate/s", "sent", "taken", "taken%", "blog", "mem", "kern", "inc", "p50 ms",
                "p99 ms", "rssMiB", "+MiB", "gui", "recv", "other", "sim");
    for (int rate : opt.rates)
        run.row(rate, nullptr);
    return true;
}

bool runStall(const Stall& stall, const Options& opt, const QString& simPath)
{
    Run run(stall.views, opt, simPath);
    if (!run.start())
        return false;
    std::printf("\nstall: views %s, %d lines/s, %s %d ms at %.1f s (%d pixels per line, %.1f s)\n",
                qPrintable(stall.views), stall.rate,
                stall.process ? "process stopped" : "GUI thread blocked", stall.ms,
                kStallAtMs / 1000.0, opt.pixels, opt.duration);
    std::printf("%6s %7s %7s %6s | %6s %6s %6s %6s | %7s %7s %7s | %6s %6s | %7s %8s\n", "rate/s",
                "sent", "taken", "taken%", "blog", "mem", "kern", "inc", "p50 ms", "p99 ms",
                "max ms", "rssMiB", "+MiB", "backlog", "catch-up");
    run.row(stall.rate, &stall);
    return true;
}

bool runRecording(int rate, const Options& opt, const QString& simPath)
{
    Run run("none", opt, simPath);
    if (!run.start())
        return false;
    QTemporaryDir dir;
    std::printf("\nrecording: views none, %d lines/s (%d pixels per line, %.1f s per row)\n", rate,
                opt.pixels, opt.duration);
    std::printf("%6s %9s %7s %9s %9s | %8s %8s\n", "rate/s", "recording", "sent", "received",
                "recorded", "recv us", "+us");
    const double floorUs = run.recordingRow(rate, QString(), 0);
    run.recordingRow(rate, dir.filePath("bench.pcapng"), floorUs);
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
        if (key == "--duration") {
            opt.duration = value.toDouble();
        } else if (key == "--pixels") {
            opt.pixels = value.toInt();
        } else if (key == "--rates") {
            opt.rates.clear();
            for (const QString& r : value.split(',', Qt::SkipEmptyParts))
                opt.rates << r.toInt();
        } else if (key == "--stalls") {
            opt.stalls.clear();
            for (const QString& item : value.split(',', Qt::SkipEmptyParts)) {
                if (item == "none")
                    continue;
                const QStringList f = item.split(':');
                if (f.size() != 4 || (f[2] != "gui" && f[2] != "process")) {
                    std::fprintf(stderr, "bench_app: a stall is VIEWS:RATE:gui|process:MS\n");
                    return 2;
                }
                opt.stalls << Stall{f[0], f[1].toInt(), f[2] == "process", f[3].toInt()};
            }
        } else if (key == "--scene") {
            opt.scene = value;
        } else if (key == "--recording") {
            opt.recordingRates.clear();
            for (const QString& r : value.split(',', Qt::SkipEmptyParts))
                if (r != "none")
                    opt.recordingRates << r.toInt();
        } else if (key == "--views") {
            opt.viewSets.clear();
            for (const QString& v : value.split(',', Qt::SkipEmptyParts))
                opt.viewSets << (v == "both" ? QStringList{"default", "all"} : QStringList{v});
        } else {
            std::fprintf(stderr, "bench_app: unknown option %s\n", qPrintable(key));
            return 2;
        }
    }
    const QStringList sets = {"none", "default", "all", "measure"};
    const bool setsKnown =
        std::all_of(opt.viewSets.begin(), opt.viewSets.end(),
                    [&sets](const QString& v) { return sets.contains(v); }) &&
        std::all_of(opt.stalls.begin(), opt.stalls.end(), [&sets](const Stall& st) {
            return sets.contains(st.views) && st.rate > 0 && st.ms > 0;
        });
    if (opt.duration <= 0 || opt.pixels <= 0 || opt.rates.isEmpty() ||
        std::any_of(opt.rates.begin(), opt.rates.end(), [](int r) { return r <= 0; }) ||
        std::any_of(opt.recordingRates.begin(), opt.recordingRates.end(),
                    [](int r) { return r <= 0; }) ||
        !setsKnown) {
        std::fprintf(stderr, "bench_app: bad --duration, --pixels, --rates, --views, --stalls or "
                             "--recording\n");
        return 2;
    }
    if (!WindowBench::portFree(benchPort)) {
        std::fprintf(stderr, "bench_app: port %d is in use by another program\n", benchPort);
        return 1;
    }
    printLegend();
    const QString simPath = QCoreApplication::applicationDirPath() + "/vxscanner-sim";
    for (const QString& set : opt.viewSets) {
        if (!runRates(set, opt, simPath))
            return 1;
    }
    for (const Stall& stall : opt.stalls) {
        if (!runStall(stall, opt, simPath))
            return 1;
    }
    for (int rate : opt.recordingRates) {
        if (!runRecording(rate, opt, simPath))
            return 1;
    }
    return 0;
}
