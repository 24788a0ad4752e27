#include "simprocess.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace {

int tempFile()
{
    char name[] = "/tmp/vxsimtest-XXXXXX";
    const int fd = ::mkstemp(name);
    if (fd >= 0)
        ::unlink(name);
    return fd;
}

} // namespace

SimProcess::~SimProcess()
{
    if (pid > 0) {
        ::kill(pid, SIGKILL);
        ::waitpid(pid, nullptr, 0);
    }
    if (outFd >= 0)
        ::close(outFd);
    if (errFd >= 0)
        ::close(errFd);
}

bool SimProcess::start(const std::vector<std::string>& args)
{
    outFd = tempFile();
    errFd = tempFile();
    if (outFd < 0 || errFd < 0)
        return false;
    std::vector<std::string> all{VX_SIM_BINARY};
    all.insert(all.end(), args.begin(), args.end());
    std::vector<char*> argv;
    for (auto& a : all)
        argv.push_back(a.data());
    argv.push_back(nullptr);
    posix_spawn_file_actions_t fa;
    posix_spawn_file_actions_init(&fa);
    posix_spawn_file_actions_adddup2(&fa, outFd, 1);
    posix_spawn_file_actions_adddup2(&fa, errFd, 2);
    const int rc = posix_spawn(&pid, argv[0], &fa, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&fa);
    if (rc != 0)
        pid = -1;
    return rc == 0;
}

int SimProcess::wait(int timeoutMs)
{
    if (pid <= 0)
        return -1;
    for (int waited = 0;; waited += 5) {
        int status = 0;
        const pid_t r = ::waitpid(pid, &status, WNOHANG);
        if (r == pid) {
            pid = -1;
            return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        }
        if (waited >= timeoutMs) {
            ::kill(pid, SIGKILL);
            ::waitpid(pid, nullptr, 0);
            pid = -1;
            return -1;
        }
        const timespec ts{0, 5 * 1000 * 1000};
        ::nanosleep(&ts, nullptr);
    }
}

void SimProcess::signal(int sig)
{
    if (pid > 0)
        ::kill(pid, sig);
}

std::string SimProcess::read(int fd)
{
    std::string text;
    if (fd < 0)
        return text;
    char buf[4096];
    ssize_t n;
    off_t at = 0;
    while ((n = ::pread(fd, buf, sizeof buf, at)) > 0) {
        text.append(buf, static_cast<std::size_t>(n));
        at += n;
    }
    return text;
}

int SimProcess::run(const std::vector<std::string>& args, int timeoutMs, std::string* out,
                    std::string* err)
{
    SimProcess p;
    if (!p.start(args))
        return -1;
    const int code = p.wait(timeoutMs);
    if (out)
        *out = p.output();
    if (err)
        *err = p.errorOutput();
    return code;
}
