#include "tools/common/stopsignal.h"

#include <csignal>

namespace vxcommon {

namespace {

std::atomic<bool> flag{false};
static_assert(std::atomic<bool>::is_always_lock_free, "set from a signal handler");

void onSignal(int)
{
    flag.store(true);
}

} // namespace

void StopSignal::install()
{
    struct sigaction sa = {};
    sa.sa_handler = onSignal;
    sigemptyset(&sa.sa_mask);
    sigaction(SIGINT, &sa, nullptr);
    sigaction(SIGTERM, &sa, nullptr);
}

const std::atomic<bool>& StopSignal::requested()
{
    return flag;
}

} // namespace vxcommon
