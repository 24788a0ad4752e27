#pragma once
#include <QString>
#include <QStringList>
#include <sys/types.h>

namespace vxlindral {
class StreamDataController;
}

// What the benchmarks of the whole window share: running the event loop for a
// while, starting child processes without copying the window's memory, running
// the simulator against the window, and letting a port take in what is still
// on its way.
// Threads: the GUI thread (they run its event loop).
class WindowBench
{
public:
    // Runs the event loop for `ms` milliseconds.
    static void runEventLoop(int ms);
    // Starts `args` (a program path first) without copying this process; its
    // output goes to `outFd` when that is not negative. 0 when it cannot start.
    static pid_t spawn(const QStringList& args, int outFd);
    // Runs the simulator at `path` with `args` to the end, running the event
    // loop meanwhile; its summary's line count, or -1 when it could not be
    // started or failed.
    static qint64 runSimulator(const QString& path, const QStringList& args);
    // Lets the window take in what is still on its way to `controller`'s
    // model: until nothing waits (decoded or not) and no line arrived for
    // 200 ms, at most 5 s.
    static void drain(const vxlindral::StreamDataController& controller);
    // Stores the default views of a view set ("none": no views, "default":
    // the 3D view, "all": all five) in the settings, before the window that
    // opens them is built; returns `set`.
    static QString configureViews(const QString& set);
    // Whether UDP port `port` can be bound: the window opens its port on its
    // own, and a port held by another program would stop the run at a
    // warning box.
    static bool portFree(int port);
};
