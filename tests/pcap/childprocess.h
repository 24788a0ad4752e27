#pragma once
#include <string>
#include <sys/types.h>
#include <vector>

// Runs a program as a child process with stdout and stderr going to
// temporary files, for the tool tests. One thread.
class ChildProcess
{
public:
    ChildProcess() = default;
    ~ChildProcess();
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    // argv[0] is the program path; `env` entries "NAME=value" are added.
    bool start(const std::vector<std::string>& argv, const std::vector<std::string>& env = {});
    // Exit code; -1 when it did not end within `timeoutMs` (then killed) or
    // died of a signal.
    int wait(int timeoutMs);
    void signal(int sig);
    std::string output() const;
    std::string errors() const;
    // Waits until stdout contains `text`; false after `timeoutMs`.
    bool waitForOutput(const std::string& text, int timeoutMs) const;

    static int run(const std::vector<std::string>& argv, int timeoutMs, std::string* out = nullptr,
                   std::string* err = nullptr, const std::vector<std::string>& env = {});

private:
    pid_t pid = -1;
    int outFd = -1, errFd = -1;
};
