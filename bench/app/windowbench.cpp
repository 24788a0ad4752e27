#include "bench/app/windowbench.h"

#include "stream/streamdatacontroller.h"

#include <QEventLoop>
#include <QRegularExpression>
#include <QSettings>
#include <QTimer>
#include <cstdio>
#include <fcntl.h>
#include <netinet/in.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

void WindowBench::runEventLoop(int ms)
{
    QEventLoop loop;
    QTimer::singleShot(ms, &loop, &QEventLoop::quit);
    loop.exec();
}

pid_t WindowBench::spawn(const QStringList& args, int outFd)
{
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    if (outFd >= 0) {
        posix_spawn_file_actions_adddup2(&actions, outFd, STDOUT_FILENO);
        posix_spawn_file_actions_adddup2(&actions, outFd, STDERR_FILENO);
    }
    QList<QByteArray> words;
    for (const QString& a : args)
        words << a.toLocal8Bit();
    std::vector<char*> argv;
    for (QByteArray& w : words)
        argv.push_back(w.data());
    argv.push_back(nullptr);
    pid_t pid = 0;
    const int failed = posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    return failed ? 0 : pid;
}

// The simulator is started with posix_spawn, which does not copy this
// process: after a fork (QProcess's way) every page of the window's large
// buffers is shared copy-on-write, and its next writes fault page by page, a
// stall of a few hundred milliseconds at the start of each rate that a real
// scanner never causes.
qint64 WindowBench::runSimulator(const QString& path, const QStringList& args)
{
    int out[2];
    if (::pipe2(out, O_CLOEXEC | O_NONBLOCK) != 0)
        return -1;
    const pid_t pid = spawn(QStringList{path} + args, out[1]);
    ::close(out[1]);
    if (!pid) {
        ::close(out[0]);
        std::fprintf(stderr, "cannot start %s\n", qPrintable(path));
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
    // A simulator that refused its options (a bad --scene, say) would
    // otherwise leave rows of zeros.
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
        std::fprintf(stderr, "the simulator failed:\n%s", text.constData());
        return -1;
    }
    const QRegularExpressionMatch m =
        QRegularExpression(R"(total [0-9.]+ s: (\d+) lines)").match(QString::fromLocal8Bit(text));
    return m.hasMatch() ? m.captured(1).toLongLong() : 0;
}

void WindowBench::drain(const vxlindral::StreamDataController& controller)
{
    uint64_t taken = controller.handoverCounters().linesTaken;
    int quiet = 0;
    for (int step = 0; step < 50 && quiet < 2; ++step) {
        runEventLoop(100);
        const vxlindral::LineQueue::Counters c = controller.handoverCounters();
        quiet = c.linesTaken == taken && c.linesWaiting == 0 &&
                        controller.counters().backlogMessages == 0
                    ? quiet + 1
                    : 0;
        taken = c.linesTaken;
    }
}

QString WindowBench::configureViews(const QString& set)
{
    QSettings settings;
    settings.clear();
    const bool all = set == "all" || set == "measure";
    settings.setValue("View/Gray", all);
    settings.setValue("View/Statistic", all);
    settings.setValue("View/Numeric", all);
    settings.setValue("View/Cut", all);
    settings.setValue("View/ThreeD", set != "none");
    return set;
}

bool WindowBench::portFree(int port)
{
    const int fd = ::socket(AF_INET, SOCK_DGRAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(uint16_t(port));
    const bool bound =
        fd >= 0 && ::bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    if (fd >= 0)
        ::close(fd);
    return bound;
}
