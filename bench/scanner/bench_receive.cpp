// Lines/s received with zero loss over loopback: 2,048-pixel lines of 8 bytes
// (one 16,512-byte message, one datagram each) sent at a sweep of rates by a
// paced sender thread, received once by the library's VxLinedataStream and
// once by a bare recv loop that copies each datagram, in the same run.
//   usage: bench_receive [seconds per rate, default 2]
#include "scanner/vxlinedatastream.h"
#include "scanner/wireencoder.h"

#include <arpa/inet.h>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <vector>

using Clock = std::chrono::steady_clock;

namespace {

constexpr int kPixels = 2048;
constexpr int kBpp = 8;

struct Result
{
    uint64_t sent = 0, received = 0, drops = 0;
};

class Counting : public VxLinedataStream
{
public:
    ~Counting() override { Disconnect(true); }
    void OnRawLine(const strmsocket::VxStreamDeviceInfo&, const char*,
                   const strmsocket::LineRawInfo&, const char* data, int count) override
    {
        sum += static_cast<unsigned char>(data[count * kBpp - 1]);
        lines.fetch_add(1, std::memory_order_relaxed);
    }
    std::atomic<uint64_t> lines{0};
    unsigned sum = 0;
};

std::vector<std::vector<char>> makeDatagrams()
{
    strmsocket::WireEncoder::RawLine h;
    h.subProtocol = 2;
    h.datatyp = 4;
    h.bpp = kBpp;
    h.pixel = kPixels;
    std::vector<char> px(kPixels * kBpp, 7);
    const auto m = strmsocket::WireEncoder::rawLine(h, px.data(), px.size());
    std::vector<std::vector<char>> out;
    for (uint32_t n = 0; n < 64; ++n)
        out.push_back(strmsocket::WireEncoder::fragment(n, m.data(), m.size()).at(0));
    return out;
}

// Sends `rate` datagrams per second for `seconds`, paced in 1 ms slots.
uint64_t sendAt(int port, int rate, double seconds)
{
    static const auto datagrams = makeDatagrams();
    const int fd = ::socket(AF_INET, SOCK_DGRAM, 0);
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_port = htons(static_cast<uint16_t>(port));
    to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const uint64_t total = static_cast<uint64_t>(rate * seconds);
    const auto start = Clock::now();
    uint64_t sent = 0;
    while (sent < total) {
        const double elapsed = std::chrono::duration<double>(Clock::now() - start).count();
        const auto due = std::min<uint64_t>(total, static_cast<uint64_t>(elapsed * rate) + 1);
        for (; sent < due; ++sent) {
            const auto& d = datagrams[sent % datagrams.size()];
            ::sendto(fd, d.data(), d.size(), 0, reinterpret_cast<const sockaddr*>(&to), sizeof to);
        }
        std::this_thread::sleep_until(
            start + std::chrono::microseconds(static_cast<int64_t>(1e6 * (sent + 1) / rate)));
    }
    ::close(fd);
    return sent;
}

Result runLibrary(int rate, double seconds)
{
    Counting s;
    if (!s.Connect(0, "127.0.0.1"))
        return {};
    Result r;
    r.sent = sendAt(s.LocalPort(), rate, seconds);
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    s.Disconnect(true);
    r.received = s.lines.load();
    r.drops = s.counters().kernelDrops;
    return r;
}

Result runBaseline(int rate, double seconds)
{
    const int fd = ::socket(AF_INET, SOCK_DGRAM, 0);
    const int want = 32 * 1024 * 1024, on = 1;
    if (::setsockopt(fd, SOL_SOCKET, SO_RCVBUFFORCE, &want, sizeof want) != 0)
        ::setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &want, sizeof want);
    ::setsockopt(fd, SOL_SOCKET, SO_RXQ_OVFL, &on, sizeof on);
    sockaddr_in sa{};
    sa.sin_family = AF_INET;
    sa.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ::bind(fd, reinterpret_cast<sockaddr*>(&sa), sizeof sa);
    socklen_t len = sizeof sa;
    ::getsockname(fd, reinterpret_cast<sockaddr*>(&sa), &len);
    std::atomic<bool> stop{false};
    Result r;
    std::thread rx([&] {
        std::vector<char> buf(65536), copy(65536);
        while (!stop.load()) {
            pollfd p{fd, POLLIN, 0};
            if (::poll(&p, 1, 50) <= 0)
                continue;
            char control[64];
            iovec iov{buf.data(), buf.size()};
            msghdr mh{};
            mh.msg_iov = &iov;
            mh.msg_iovlen = 1;
            mh.msg_control = control;
            mh.msg_controllen = sizeof control;
            const ssize_t n = ::recvmsg(fd, &mh, MSG_DONTWAIT);
            if (n <= 0)
                continue;
            std::memcpy(copy.data(), buf.data(), static_cast<std::size_t>(n));
            ++r.received;
            for (cmsghdr* c = CMSG_FIRSTHDR(&mh); c; c = CMSG_NXTHDR(&mh, c))
                if (c->cmsg_type == SO_RXQ_OVFL) {
                    uint32_t d;
                    std::memcpy(&d, CMSG_DATA(c), 4);
                    r.drops = d;
                }
        }
    });
    r.sent = sendAt(ntohs(sa.sin_port), rate, seconds);
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    stop = true;
    rx.join();
    ::close(fd);
    return r;
}

} // namespace

int main(int argc, char** argv)
{
    const double seconds = argc > 1 ? std::atof(argv[1]) : 2.0;
    const int rates[] = {5000, 10000, 20000, 40000, 80000};
    std::printf(
        "2048-pixel lines of 8 bytes (16512-byte datagrams) over loopback, %.1f s per rate\n",
        seconds);
    std::printf("%8s | %-36s | %-36s\n", "", "library (VxLinedataStream)",
                "baseline (recv + copy)");
    std::printf("%8s | %8s %8s %8s %8s | %8s %8s %8s %8s\n", "rate/s", "sent", "received", "lost",
                "drops", "sent", "received", "lost", "drops");
    int bestLib = 0, bestBase = 0;
    for (int rate : rates) {
        const Result l = runLibrary(rate, seconds);
        const Result b = runBaseline(rate, seconds);
        std::printf("%8d | %8llu %8llu %8llu %8llu | %8llu %8llu %8llu %8llu\n", rate,
                    (unsigned long long)l.sent, (unsigned long long)l.received,
                    (unsigned long long)(l.sent - l.received), (unsigned long long)l.drops,
                    (unsigned long long)b.sent, (unsigned long long)b.received,
                    (unsigned long long)(b.sent - b.received), (unsigned long long)b.drops);
        if (l.sent && l.received == l.sent)
            bestLib = rate;
        if (b.sent && b.received == b.sent)
            bestBase = rate;
    }
    std::printf("highest zero-loss rate: library %d lines/s, baseline %d lines/s\n", bestLib,
                bestBase);
    return 0;
}
