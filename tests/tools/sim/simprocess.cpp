#include "simprocess.h"

#include <csignal>
#include <cstdlib>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace {

// A temporary file without a name: it goes away with its last descriptor.
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
    wait(0); // kills a process still running
    for (const int fd : {outFd, errFd})
        if (fd >= 0)
            ::close(fd);
}

bool SimProcess::start(const std::vector<std::string>& args)
{
    outFd = tempFile();
    errFd = tempFile();
    if (outFd < 0 || errFd < 0)
        return false;
    std::vector<char*> argv{const_cast<char*>(VX_SIM_BINARY)};
    for (const std::string& a : args)
        argv.push_back(const_cast<char*>(a.c_str()));
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
    int status = 0;
    pid_t reaped = 0;
    for (int waited = 0; pid > 0 && (reaped = ::waitpid(pid, &status, WNOHANG)) == 0; waited += 5) {
        if (waited >= timeoutMs)
            ::kill(pid, SIGKILL); // reaped on a later turn, as ended by a signal
        ::usleep(5000);
    }
    const bool exited = pid > 0 && reaped == pid && WIFEXITED(status);
    pid = -1;
    return exited ? WEXITSTATUS(status) : -1;
}

void SimProcess::signal(int sig)
{
    if (pid > 0)
        ::kill(pid, sig);
}

std::string SimProcess::read(int fd)
{
    std::string text;
    char buf[4096];
    ssize_t n = 0;
    for (off_t at = 0; fd >= 0 && (n = ::pread(fd, buf, sizeof buf, at)) > 0; at += n)
        text.append(buf, static_cast<std::size_t>(n));
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
