// vxscanner-sim: streams a simulated conveyor scene as raw lines over UDP.
#include "tools/sim/simoptions.h"
#include "tools/sim/simulator.h"

#include <atomic>
#include <csignal>
#include <cstdio>
#include <string>

namespace {

std::atomic<bool> stopRequested{false};
static_assert(std::atomic<bool>::is_always_lock_free, "set from a signal handler");

void onSignal(int)
{
    stopRequested.store(true);
}

} // namespace

int main(int argc, char** argv)
{
    vxsim::SimOptions options;
    std::string error;
    switch (vxsim::SimOptions::parse(argc, argv, options, error)) {
    case vxsim::SimOptions::Outcome::Help:
        std::fputs(vxsim::SimOptions::usage().c_str(), stdout);
        return 0;
    case vxsim::SimOptions::Outcome::Error:
        std::fprintf(stderr, "vxscanner-sim: %s\nTry 'vxscanner-sim --help'.\n", error.c_str());
        return 2;
    case vxsim::SimOptions::Outcome::Run:
        break;
    }

    vxsim::Simulator simulator(options);
    if (!simulator.open(error)) {
        std::fprintf(stderr, "vxscanner-sim: %s\n", error.c_str());
        return 2;
    }

    // No SA_RESTART: a signal interrupts the sleep so that the loop ends
    // promptly with its final summary.
    struct sigaction sa
    {
    };
    sa.sa_handler = onSignal;
    sigemptyset(&sa.sa_mask);
    sigaction(SIGINT, &sa, nullptr);
    sigaction(SIGTERM, &sa, nullptr);

    simulator.run(stopRequested);
    return 0;
}
