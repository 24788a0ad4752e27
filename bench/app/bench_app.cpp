// The real main window in-process, fed over loopback UDP by vxscanner-sim at
// a series of rates, with no views (the floor: reception and hand-over
// only), with the default views and with all five open. For each rate it
// prints where the lines and the time went:
//
//   sent      lines the simulator sent (its own summary)
//   taken     lines the port's model took in (the hand-over's count)
//   dropped   by cause: the hand-over's memory and age bounds (the window fell
//             behind), datagrams the kernel dropped (the receive buffer
//             overflowed), messages given up incomplete
//   delay     from sending a line to its arrival in the model, p50 and p99:
//             the simulator stamps CLOCK_MONOTONIC microseconds into each
//             line's header (--stamp-send-time) and a handler on the model's
//             newLine reads the same clock
//   memory    resident set now, and its growth over the rate
//   CPU       share of one core over the sending time: the GUI thread, the
//             receive thread, the viewer's other threads (the X connection,
//             the OpenGL driver's workers) and the simulator process
//
// usage (needs a display for the 3D view):
//   xvfb-run -a -s "-screen 0 1280x1024x24" build/bin/bench_app [--duration S]
//       [--rates 600,1500,...] [--pixels N] [--views none,default,all|both]
#include "app/applicationsetup.h"
#include "app/mainwindow.h"
#include "models/streamdatamodel.h"
#include "stream/linetype.h"
#include "stream/streamdatacontroller.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFile>
#include <QRegularExpression>
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
#include <fcntl.h>
#include <netinet/in.h>
#include <pthread.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

constexpr int benchPort = 6101; // the port the window opens by itself

struct Options
{
    double duration = 3.0;
    int pixels = 2048;
    QList<int> rates = {600, 1500, 5000, 20000};
    QStringList viewSets = {"none", "default", "all"};
};

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

void runEventLoop(int ms)
{
    QEventLoop loop;
    QTimer::singleShot(ms, &loop, &QEventLoop::quit);
    loop.exec();
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
    std::size_t count = 0;

    void reset(std::size_t capacity)
    {
        us.assign(capacity, 0);
        count = 0;
    }
    void add(const vxlindral::LineType& line)
    {
        if (!line || line->header.size() < 12 || count == us.size())
            return;
        uint32_t low = 0, high = 0;
        std::memcpy(&low, line->header.data() + 4, 4);
        std::memcpy(&high, line->header.data() + 8, 4);
        us[count++] =
            clockNs(CLOCK_MONOTONIC) / 1000 - int64_t(uint64_t(low) | uint64_t(high) << 32);
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

// Runs the simulator with `args` to the end; its summary's line count, or -1
// when it could not be started. Started with posix_spawn, which does not copy
// this process: after a fork (QProcess's way) every page of the window's large
// buffers is shared copy-on-write, and its next writes fault page by page, a
// stall of a few hundred milliseconds at the start of each rate that a real
// scanner never causes.
qint64 runSimulator(const QString& path, const QStringList& args)
{
    int out[2];
    if (::pipe2(out, O_CLOEXEC | O_NONBLOCK) != 0)
        return -1;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, out[1], STDERR_FILENO);
    QList<QByteArray> words{path.toLocal8Bit()};
    for (const QString& a : args)
        words << a.toLocal8Bit();
    std::vector<char*> argv;
    for (QByteArray& w : words)
        argv.push_back(w.data());
    argv.push_back(nullptr);
    pid_t pid = 0;
    const int failed = posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    ::close(out[1]);
    if (failed) {
        ::close(out[0]);
        std::fprintf(stderr, "bench_app: cannot start %s\n", qPrintable(path));
        return -1;
    }
    QByteArray text;
    const auto collect = [&] {
        char buf[4096];
        for (ssize_t n; (n = ::read(out[0], buf, sizeof buf)) > 0;)
            text.append(buf, int(n));
    };
    // Run the viewer while the simulator sends.
    int status = 0;
    while (::waitpid(pid, &status, WNOHANG) == 0) {
        runEventLoop(50);
        collect();
    }
    collect();
    ::close(out[0]);
    const QRegularExpressionMatch m =
        QRegularExpression(R"(total [0-9.]+ s: (\d+) lines)").match(QString::fromLocal8Bit(text));
    return m.hasMatch() ? m.captured(1).toLongLong() : 0;
}

// Lets the window take in what is still on its way: until nothing waits in
// the hand-over and no line arrived for 200 ms, at most 3 s.
void drain(const vxlindral::StreamDataController& controller)
{
    uint64_t taken = controller.handoverCounters().linesTaken;
    int quiet = 0;
    for (int step = 0; step < 30 && quiet < 2; ++step) {
        runEventLoop(100);
        const vxlindral::LineQueue::Counters c = controller.handoverCounters();
        quiet = c.linesTaken == taken && c.linesWaiting == 0 ? quiet + 1 : 0;
        taken = c.linesTaken;
    }
}

void printLegend()
{
    std::printf("dropped: mem/age = the hand-over's memory/age bound, kern = kernel drops "
                "(datagrams),\n         inc = incomplete messages. delay: send to model, ms. "
                "CPU: %% of one core\n         over the sending time (other = the viewer's "
                "other threads).\n");
}

bool runSet(const QString& set, const Options& opt, const QString& simPath)
{
    {
        QSettings settings;
        settings.clear();
        const bool all = set == "all";
        settings.setValue("View/Gray", all);
        settings.setValue("View/Statistic", all);
        settings.setValue("View/Numeric", all);
        settings.setValue("View/Cut", all);
        settings.setValue("View/ThreeD", set != "none");
    }
    MainWindow window;
    window.resize(1260, 1000);
    window.show();
    window.handleRealign();
    runEventLoop(300);

    std::shared_ptr<vxlindral::StreamDataModel> model = window.dataModel(benchPort);
    std::shared_ptr<vxlindral::StreamDataController> controller = window.controller(benchPort);
    if (!model || !controller || controller->localPort() != benchPort) {
        std::fprintf(stderr, "bench_app: port %d could not be opened\n", benchPort);
        return false;
    }
    ReceiveClock receive;
    const QMetaObject::Connection learning = QObject::connect(
        model.get(), &vxlindral::StreamDataModel::notifyStatistic, model.get(),
        [&receive](const QString&) { receive.learn(); }, Qt::DirectConnection);
    Delays delays;
    QObject::connect(model.get(), &vxlindral::StreamDataModel::newLine,
                     [&delays](const vxlindral::LineType& line) { delays.add(line); });

    const QStringList common = {"--host",           "127.0.0.1",
                                "--port",           QString::number(benchPort),
                                "--pixels",         QString::number(opt.pixels),
                                "--stamp-send-time"};
    // A few lines first: the window's first paints, the line pool and the
    // receive thread's clock are then in place before anything is measured.
    if (runSimulator(simPath, common + QStringList{"--rate", "500", "--count", "100"}) < 0)
        return false;
    drain(*controller);
    // Known by now (or the receive thread's share reads 0): the measured
    // runs go without the extra call per line.
    QObject::disconnect(learning);

    std::printf("\nviews: %s%s (%d pixels per line, %.1f s per rate)\n", qPrintable(set),
                set == "none" ? " = the floor: reception and hand-over only" : "", opt.pixels,
                opt.duration);
    std::printf("%6s %7s %7s %6s | %6s %6s %6s %6s | %7s %7s | %6s %6s | %5s %5s %5s %5s\n",
                "rate/s", "sent", "taken", "taken%", "mem", "age", "kern", "inc", "p50 ms",
                "p99 ms", "rssMiB", "+MiB", "gui", "recv", "other", "sim");
    for (int rate : opt.rates) {
        delays.reset(std::size_t(std::ceil(rate * opt.duration * 1.5)) + 4096);
        const Counts before = Counts::of(*controller);
        const double rssBefore = rssMiB();
        const CpuTimes cpuBefore = CpuTimes::now(receive);
        QElapsedTimer wall;
        wall.start();

        const qint64 sent = runSimulator(
            simPath, common + QStringList{"--rate", QString::number(rate), "--duration",
                                          QString::number(opt.duration)});
        if (sent < 0)
            return false;
        const double wallNs = double(wall.nsecsElapsed());
        const CpuTimes cpu = CpuTimes::now(receive);
        drain(*controller);

        const Counts after = Counts::of(*controller);
        const uint64_t taken = after.handover.linesTaken - before.handover.linesTaken;
        const auto share = [wallNs](int64_t ns) { return 100.0 * double(ns) / wallNs; };
        const int64_t gui = cpu.gui - cpuBefore.gui;
        const int64_t recv = cpu.receive - cpuBefore.receive;
        std::printf(
            "%6d %7lld %7llu %5.1f%% | %6llu %6llu %6llu %6llu | %7.1f %7.1f | %6.0f %+6.0f | "
            "%4.0f%% %4.0f%% %4.0f%% %4.0f%%\n",
            rate, static_cast<long long>(sent), static_cast<unsigned long long>(taken),
            sent > 0 ? 100.0 * double(taken) / double(sent) : 0.0,
            static_cast<unsigned long long>(after.handover.droppedMemory -
                                            before.handover.droppedMemory),
            static_cast<unsigned long long>(after.handover.droppedAge - before.handover.droppedAge),
            static_cast<unsigned long long>(after.socket.kernelDrops - before.socket.kernelDrops),
            static_cast<unsigned long long>(after.socket.incompleteMessages -
                                            before.socket.incompleteMessages),
            delays.quantileMs(0.50), delays.quantileMs(0.99), rssMiB(), rssMiB() - rssBefore,
            share(gui), share(recv), share(cpu.process - cpuBefore.process - gui - recv),
            share(cpu.children - cpuBefore.children));
        std::fflush(stdout);
    }
    window.close();
    return true;
}

// The window opens the port on its own; a port held by another program would
// stop the run at a warning box.
bool portFree()
{
    const int fd = ::socket(AF_INET, SOCK_DGRAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(benchPort);
    const bool bound =
        fd >= 0 && ::bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    if (fd >= 0)
        ::close(fd);
    return bound;
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
        } else if (key == "--views") {
            opt.viewSets.clear();
            for (const QString& v : value.split(',', Qt::SkipEmptyParts))
                opt.viewSets << (v == "both" ? QStringList{"default", "all"} : QStringList{v});
        } else {
            std::fprintf(stderr, "bench_app: unknown option %s\n", qPrintable(key));
            return 2;
        }
    }
    const QStringList sets = {"none", "default", "all"};
    const bool setsKnown = std::all_of(opt.viewSets.begin(), opt.viewSets.end(),
                                       [&sets](const QString& v) { return sets.contains(v); });
    if (opt.duration <= 0 || opt.pixels <= 0 || opt.rates.isEmpty() ||
        std::any_of(opt.rates.begin(), opt.rates.end(), [](int r) { return r <= 0; }) ||
        !setsKnown) {
        std::fprintf(stderr, "bench_app: bad --duration, --pixels, --rates or --views\n");
        return 2;
    }
    if (!portFree()) {
        std::fprintf(stderr, "bench_app: port %d is in use by another program\n", benchPort);
        return 1;
    }
    printLegend();
    const QString simPath = QCoreApplication::applicationDirPath() + "/vxscanner-sim";
    for (const QString& set : opt.viewSets) {
        if (!runSet(set, opt, simPath))
            return 1;
    }
    return 0;
}
