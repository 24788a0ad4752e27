// vxscanner-sim: streams a simulated scene (a street or a conveyor) as raw lines over UDP.
#include "tools/common/stopsignal.h"
#include "tools/sim/simoptions.h"
#include "tools/sim/simulator.h"

#include <cstdio>
#include <string>

namespace {

// Streams the scene as `options` say; the exit status.
int simulate(const vxsim::SimOptions& options)
{
    vxsim::Simulator simulator(options);
    std::string error;
    if (!simulator.open(error)) {
        std::fprintf(stderr, "vxscanner-sim: %s\n", error.c_str());
        return 2;
    }
    // A signal interrupts the sleep, so that the loop ends promptly with its
    // final summary.
    vxcommon::StopSignal::install();
    simulator.run(vxcommon::StopSignal::requested());
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    return vxcommon::CommandLine::run(argc, argv, "vxscanner-sim", "Try 'vxscanner-sim --help'.",
                                      simulate);
}
