#pragma once
#include <string>
#include <sys/types.h>
#include <vector>

// Runs the built vxscanner-sim binary (path from the VX_SIM_BINARY compile
// definition) as a child process with its stdout and stderr captured in
// temporary files. Used by the tests from one thread.
class SimProcess
{
public:
    SimProcess() = default;
    ~SimProcess();
    SimProcess(const SimProcess&) = delete;
    SimProcess& operator=(const SimProcess&) = delete;

    bool start(const std::vector<std::string>& args);
    // Exit code, or -1 when the process did not end within `timeoutMs` (it is
    // killed then) or ended by a signal.
    int wait(int timeoutMs);
    // Sends `sig` to the running process.
    void signal(int sig);
    std::string output() const { return read(outFd); }
    std::string errorOutput() const { return read(errFd); }

    // Starts, waits and returns the exit code.
    static int run(const std::vector<std::string>& args, int timeoutMs, std::string* out = nullptr,
                   std::string* err = nullptr);

private:
    static std::string read(int fd);
    pid_t pid = -1;
    int outFd = -1, errFd = -1;
};
