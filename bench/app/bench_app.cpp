// The real main window in-process, fed over loopback UDP by vxscanner-sim at
// a series of rates, once with the default views and once with all five open.
// For each rate it prints the lines the simulator sent, the lines the port's
// model took in, the lines the hand-over to the GUI thread dropped because
// the window fell behind (by memory or by age), the peak resident memory and
// the share of wall time the GUI thread spent on the CPU.
//
// usage (needs a display for the 3D view):
//   xvfb-run -a -s "-screen 0 1280x1024x24" build/bin/bench_app [--duration S]
//       [--rates 250,1000,...] [--pixels N] [--views default|all|both]
#include "app/applicationsetup.h"
#include "app/mainwindow.h"
#include "models/streamdatamodel.h"
#include "stream/linetype.h"
#include "stream/streamdatacontroller.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QProcess>
#include <QRegularExpression>
#include <QSettings>
#include <QTemporaryDir>
#include <QTimer>
#include <cstdio>
#include <ctime>
#include <sys/resource.h>

namespace {

struct Options
{
    double duration = 3.0;
    int pixels = 2048;
    QList<int> rates = {250, 1000, 2000, 5000, 10000, 20000};
    QStringList viewSets = {"default", "all"};
};

// Peak resident set size of the process so far, in MiB.
double peakRssMiB()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss / 1024.0;
}

// Current resident set size, in MiB.
double rssMiB()
{
    QFile statm("/proc/self/statm");
    if (!statm.open(QIODevice::ReadOnly))
        return 0;
    const QList<QByteArray> fields = statm.readAll().split(' ');
    return fields.size() > 1 ? fields[1].toDouble() * 4096.0 / (1024.0 * 1024.0) : 0;
}

// CPU time of the calling thread, in nanoseconds. The GUI thread's share of
// wall time is what the window costs: waking and blocking of the event loop
// cannot be used for it, since the 3D view schedules repaints back to back
// and the loop then never blocks, although the thread mostly waits for the
// OpenGL driver.
qint64 threadCpuNs()
{
    timespec ts{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
    return qint64(ts.tv_sec) * 1000000000 + ts.tv_nsec;
}

void runEventLoop(int ms)
{
    QEventLoop loop;
    QTimer::singleShot(ms, &loop, &QEventLoop::quit);
    loop.exec();
}

void runSet(const QString& set, const Options& opt, const QString& simPath)
{
    {
        QSettings settings;
        settings.clear();
        const bool all = set == "all";
        settings.setValue("View/Gray", all);
        settings.setValue("View/Statistic", all);
        settings.setValue("View/Numeric", all);
        settings.setValue("View/Cut", all);
        settings.setValue("View/ThreeD", true);
    }
    MainWindow window;
    window.resize(1260, 1000);
    window.show();
    window.handleRealign();
    runEventLoop(300);

    std::shared_ptr<vxlindral::StreamDataModel> model = window.dataModel(6101);
    std::shared_ptr<vxlindral::StreamDataController> controller = window.controller(6101);
    if (!model || !controller) {
        std::fprintf(stderr, "bench_app: port 6101 could not be opened\n");
        return;
    }
    quint64 taken = 0;
    QObject::connect(model.get(), &vxlindral::StreamDataModel::newLine,
                     [&taken](const vxlindral::LineType&) { ++taken; });

    std::printf("\nviews: %s (%d pixels per line, %.1f s per rate)\n", qPrintable(set), opt.pixels,
                opt.duration);
    const auto dropped = [&controller] {
        const vxlindral::LineQueue::Counters c = controller->handoverCounters();
        return c.droppedMemory + c.droppedAge;
    };
    std::printf("%8s %9s %9s %9s %8s %9s %9s %8s\n", "rate/s", "sent", "taken", "dropped", "taken%",
                "rss MiB", "peak MiB", "gui busy");
    for (int rate : opt.rates) {
        const quint64 takenBefore = taken;
        const quint64 droppedBefore = dropped();
        QProcess sim;
        sim.setProcessChannelMode(QProcess::MergedChannels);
        sim.start(simPath, {"--host", "127.0.0.1", "--port", "6101", "--rate",
                            QString::number(rate), "--pixels", QString::number(opt.pixels),
                            "--duration", QString::number(opt.duration)});
        if (!sim.waitForStarted(5000)) {
            std::fprintf(stderr, "bench_app: cannot start %s\n", qPrintable(simPath));
            return;
        }
        QElapsedTimer wall;
        wall.start();
        const qint64 cpuBefore = threadCpuNs();
        // Run the viewer while the simulator sends, then drain what is queued.
        while (sim.state() != QProcess::NotRunning)
            runEventLoop(50);
        runEventLoop(500);
        const double busyShare = double(threadCpuNs() - cpuBefore) / double(wall.nsecsElapsed());

        const QString out = QString::fromLocal8Bit(sim.readAll());
        const QRegularExpressionMatch m =
            QRegularExpression(R"(total [0-9.]+ s: (\d+) lines)").match(out);
        const quint64 sent = m.hasMatch() ? m.captured(1).toULongLong() : 0;
        const quint64 got = taken - takenBefore;
        const quint64 lost = dropped() - droppedBefore;
        std::printf("%8d %9llu %9llu %9llu %7.1f%% %9.1f %9.1f %7.1f%%\n", rate,
                    static_cast<unsigned long long>(sent), static_cast<unsigned long long>(got),
                    static_cast<unsigned long long>(lost), sent ? 100.0 * got / sent : 0.0,
                    rssMiB(), peakRssMiB(), 100.0 * busyShare);
        std::fflush(stdout);
    }
    window.close();
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
    for (int i = 1; i + 1 < args.size(); i += 2) {
        const QString& key = args[i];
        const QString& value = args[i + 1];
        if (key == "--duration") {
            opt.duration = value.toDouble();
        } else if (key == "--pixels") {
            opt.pixels = value.toInt();
        } else if (key == "--rates") {
            opt.rates.clear();
            for (const QString& r : value.split(',', Qt::SkipEmptyParts))
                opt.rates << r.toInt();
        } else if (key == "--views") {
            opt.viewSets = value == "both" ? QStringList{"default", "all"} : QStringList{value};
        } else {
            std::fprintf(stderr, "bench_app: unknown option %s\n", qPrintable(key));
            return 2;
        }
    }
    const QString simPath = QCoreApplication::applicationDirPath() + "/vxscanner-sim";
    for (const QString& set : opt.viewSets)
        runSet(set, opt, simPath);
    return 0;
}
