// Prints what the simulator costs and reaches: lines composed per second for
// a few line formats, and, for several target rates, the rate the paced
// sender achieves over loopback into a bare receiving socket, with the
// datagrams that arrived.
#include "tools/sim/linecomposer.h"
#include "tools/sim/simulator.h"

#include <atomic>
#include <chrono>
#include <cstdio>
#include <netinet/in.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

using Clock = std::chrono::steady_clock;

namespace {

vxsim::SimOptions optionsOf(std::vector<const char*> args)
{
    args.insert(args.begin(), "bench_sim");
    vxsim::SimOptions o;
    std::string error;
    if (vxsim::SimOptions::parse(static_cast<int>(args.size()), args.data(), o, error) !=
        vxsim::SimOptions::Outcome::Run) {
        std::fprintf(stderr, "bench_sim: %s\n", error.c_str());
        std::exit(1);
    }
    return o;
}

void composeRate(const char* label, std::vector<const char*> args)
{
    vxsim::LineComposer composer(optionsOf(args));
    const auto start = Clock::now();
    uint64_t n = 0;
    std::size_t bytes = 0;
    while (Clock::now() - start < std::chrono::seconds(1))
        for (int k = 0; k < 100; ++k)
            bytes += composer.compose(n++).size();
    const double s = std::chrono::duration<double>(Clock::now() - start).count();
    std::printf("compose %-28s %9.0f lines/s  %6.2f us/line  (%zu bytes/line)\n", label, n / s,
                1e6 * s / n, bytes / n);
}

// A socket that counts what arrives until told to stop.
struct Sink
{
    int fd = -1;
    int port = 0;
    std::atomic<bool> stop{false};
    std::atomic<uint64_t> datagrams{0};
    std::thread thread;

    Sink()
    {
        fd = ::socket(AF_INET, SOCK_DGRAM, 0);
        int size = 32 * 1024 * 1024;
        if (::setsockopt(fd, SOL_SOCKET, SO_RCVBUFFORCE, &size, sizeof size) != 0)
            ::setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &size, sizeof size);
        timeval tv{0, 100000};
        ::setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &tv, sizeof tv);
        sockaddr_in a{};
        a.sin_family = AF_INET;
        a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        ::bind(fd, reinterpret_cast<sockaddr*>(&a), sizeof a);
        socklen_t len = sizeof a;
        ::getsockname(fd, reinterpret_cast<sockaddr*>(&a), &len);
        port = ntohs(a.sin_port);
        thread = std::thread([this] {
            static char buf[65536];
            while (!stop.load())
                if (::recv(fd, buf, sizeof buf, 0) > 0)
                    datagrams.fetch_add(1, std::memory_order_relaxed);
        });
    }
    ~Sink()
    {
        stop = true;
        thread.join();
        ::close(fd);
    }
};

void pacedRate(const char* rate, const char* pixels)
{
    Sink sink;
    const std::string port = std::to_string(sink.port);
    vxsim::SimOptions o =
        optionsOf({"--rate", rate, "--pixels", pixels, "--duration", "2", "--port", port.c_str()});
    std::FILE* quiet = std::fopen("/dev/null", "w");
    vxsim::Simulator sim(o, quiet);
    std::string error;
    if (!sim.open(error)) {
        std::fprintf(stderr, "bench_sim: %s\n", error.c_str());
        std::exit(1);
    }
    std::atomic<bool> never{false};
    const auto start = Clock::now();
    sim.run(never);
    const double s = std::chrono::duration<double>(Clock::now() - start).count();
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    std::fclose(quiet);
    std::printf("paced   target %6s lines/s, %6s pixels: %9.0f lines/s sent, %llu/%llu "
                "datagrams received, %llu send errors\n",
                rate, pixels, sim.lines() / s,
                static_cast<unsigned long long>(sink.datagrams.load()),
                static_cast<unsigned long long>(sim.sender().datagrams()),
                static_cast<unsigned long long>(sim.sender().errors()));
}

} // namespace

int main()
{
    composeRate("1.2, 2048 x 8 bytes (street)", {});
    composeRate("1.2, 2048 x 8 bytes, conveyor", {"--scene", "conveyor"});
    composeRate("1.1 short, 2048 x 5 bytes", {"--protocol", "1.1", "--layout", "short"});
    composeRate("1.3, 51200 x 8 bytes", {"--protocol", "1.3", "--pixels", "51200"});
    pacedRate("2000", "2048");
    pacedRate("20000", "2048");
    pacedRate("20000", "512");
    return 0;
}
