#include "childprocess.h"

#include <csignal>
#include <cstdlib>
#include <ctime>
#include <sys/wait.h>
#include <unistd.h>

namespace {
int tempFile()
{
    char name[] = "/tmp/tst_pcap_child.XXXXXX";
    const int fd = mkstemp(name);
    if (fd >= 0)
        unlink(name);
    return fd;
}

std::string readAll(int fd)
{
    std::string s;
    char buf[4096];
    ssize_t n;
    off_t at = 0;
    while ((n = pread(fd, buf, sizeof buf, at)) > 0) {
        s.append(buf, std::size_t(n));
        at += n;
    }
    return s;
}

void sleepMs(int ms)
{
    const timespec t{0, ms * 1000000L};
    nanosleep(&t, nullptr);
}
} // namespace

ChildProcess::~ChildProcess()
{
    if (pid > 0) {
        kill(pid, SIGKILL);
        waitpid(pid, nullptr, 0);
    }
    if (outFd >= 0)
        close(outFd);
    if (errFd >= 0)
        close(errFd);
}

bool ChildProcess::start(const std::vector<std::string>& argv, const std::vector<std::string>& env)
{
    outFd = tempFile();
    errFd = tempFile();
    pid = fork();
    if (pid < 0)
        return false;
    if (pid == 0) {
        dup2(outFd, 1);
        dup2(errFd, 2);
        for (const std::string& e : env)
            putenv(const_cast<char*>(e.c_str()));
        std::vector<char*> args;
        for (const std::string& a : argv)
            args.push_back(const_cast<char*>(a.c_str()));
        args.push_back(nullptr);
        execv(args[0], args.data());
        _exit(127);
    }
    return true;
}

int ChildProcess::wait(int timeoutMs)
{
    if (pid <= 0)
        return -1;
    int status = 0;
    for (int waited = 0;; waited += 10) {
        const pid_t r = waitpid(pid, &status, WNOHANG);
        if (r == pid)
            break;
        if (waited >= timeoutMs) {
            kill(pid, SIGKILL);
            waitpid(pid, &status, 0);
            pid = -1;
            return -1;
        }
        sleepMs(10);
    }
    pid = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

void ChildProcess::signal(int sig)
{
    if (pid > 0)
        kill(pid, sig);
}

std::string ChildProcess::output() const
{
    return readAll(outFd);
}

std::string ChildProcess::errors() const
{
    return readAll(errFd);
}

bool ChildProcess::waitForOutput(const std::string& text, int timeoutMs) const
{
    for (int waited = 0; waited < timeoutMs; waited += 10) {
        if (output().find(text) != std::string::npos)
            return true;
        sleepMs(10);
    }
    return false;
}

int ChildProcess::run(const std::vector<std::string>& argv, int timeoutMs, std::string* out,
                      std::string* err, const std::vector<std::string>& env)
{
    ChildProcess p;
    if (!p.start(argv, env))
        return -1;
    const int code = p.wait(timeoutMs);
    if (out)
        *out = p.output();
    if (err)
        *err = p.errors();
    return code;
}
