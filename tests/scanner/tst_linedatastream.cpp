// The real receive path over loopback: the safety promise under randomised and
// mutated datagrams, pause, a throwing callback, Connect/Disconnect rules and
// that no receive thread outlives Disconnect.
#include "check.h"
#include "scanner/linerawinfo.h"
#include "scanner/vxlinedatastream.h"
#include "scanner/wireencoder.h"

#include <arpa/inet.h>
#include <atomic>
#include <chrono>
#include <cstring>
#include <dirent.h>
#include <netinet/in.h>
#include <random>
#include <stdexcept>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

using strmsocket::LineRawInfo;
using strmsocket::WireEncoder;

namespace {

// Reads everything the promise allows and checks the zero padding.
class Reader : public VxLinedataStream
{
public:
    ~Reader() override { Disconnect(true); }
    void OnRawLine(const strmsocket::VxStreamDeviceInfo& device, const char*,
                   const LineRawInfo& info, const char* data, int count) override
    {
        lines.fetch_add(1);
        if (throwNext.exchange(false))
            throw std::runtime_error("bad line");
        unsigned sum = 0;
        for (std::size_t i = 0; i < LineRawInfo::kMinSize; ++i)
            sum += static_cast<unsigned char>(info.bytes[i]);
        lastDevice = device.device;
        std::memcpy(lastIp, device.ip, sizeof lastIp);
        lastCount = count;
        if (count > 0) {
            const int32_t lhs = static_cast<int32_t>(info.word(2));
            const std::size_t declared = std::size_t(lhs) + std::size_t(count) * info.word(3);
            for (std::size_t i = 0; i < declared; ++i)
                sum += static_cast<unsigned char>(data[i]);
            for (std::size_t i = declared; i < declared + 8; ++i)
                if (data[i] != 0)
                    badPadding.fetch_add(1);
            for (int i = 0; i < count && i < 4096; ++i) {
                double x, y, z;
                Set(device.device, i);
                XYZ0(device.device, x, y, z);
                sum += static_cast<unsigned>(std::isfinite(y));
            }
        }
        checksum += sum;
    }
    std::atomic<int> lines{0};
    std::atomic<int> badPadding{0};
    std::atomic<bool> throwNext{false};
    unsigned checksum = 0;
    unsigned lastDevice = 0;
    char lastIp[16] = {};
    int lastCount = -1;
};

struct Sender
{
    int fd = ::socket(AF_INET, SOCK_DGRAM, 0);
    sockaddr_in to{};
    explicit Sender(int port)
    {
        to.sin_family = AF_INET;
        to.sin_port = htons(static_cast<uint16_t>(port));
        to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    }
    ~Sender() { ::close(fd); }
    void send(const std::vector<char>& d)
    {
        ::sendto(fd, d.data(), d.size(), 0, reinterpret_cast<const sockaddr*>(&to), sizeof to);
    }
    void message(uint32_t number, const std::vector<char>& m, std::size_t piece = 60000)
    {
        for (const auto& d : WireEncoder::fragment(number, m.data(), m.size(), piece))
            send(d);
    }
};

// Waits (bounded) until the stream has read `n` datagrams.
bool waitDatagrams(const strmsocket::UDPLinedataStream& s, uint64_t n)
{
    for (int i = 0; i < 500; ++i) {
        const auto c = s.counters();
        if (c.datagrams + c.kernelDrops >= n)
            return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return false;
}

int threadCount()
{
    int n = 0;
    if (DIR* d = opendir("/proc/self/task")) {
        while (dirent* e = readdir(d))
            n += e->d_name[0] != '.';
        closedir(d);
    }
    return n;
}

std::vector<char> line(uint32_t sub, uint32_t pixel, uint32_t bpp, uint32_t lhs, uint32_t device,
                       std::size_t bytes)
{
    WireEncoder::RawLine h;
    h.subProtocol = sub;
    h.pixel = pixel;
    h.bpp = bpp;
    h.lineheadersize = lhs;
    h.device = device;
    h.datatyp = sub == 1 ? 2 : 4;
    std::vector<char> body(bytes, 0x5A);
    return WireEncoder::rawLine(h, body.data(), body.size());
}

void safetyPromise()
{
    vxtest::row = "randomised and mutated";
    Reader r;
    CHECK(r.Connect(0, "127.0.0.1"));
    Sender s(r.LocalPort());
    std::mt19937 rng(12345);
    auto pick = [&](uint32_t lo, uint32_t hi) {
        return std::uniform_int_distribution<uint32_t>(lo, hi)(rng);
    };
    uint64_t sent = 0;
    for (uint32_t n = 0; n < 1500; ++n) {
        const uint32_t sub = pick(0, 4);
        const uint32_t pixel = pick(0, 3000), bpp = pick(0, 16), lhs = pick(0, 64);
        const std::size_t exact = std::size_t(lhs) + std::size_t(pixel) * bpp;
        // Mostly the exact size, sometimes a few bytes short or long.
        const std::size_t bytes = pick(0, 3) ? exact : exact + pick(0, 8) - 4 + 4 * (exact < 4);
        auto m = line(sub, pixel, bpp, lhs, pick(0, 3), bytes);
        switch (pick(0, 5)) {
        case 0: // a random header byte
            m[pick(0, 127) % m.size()] = static_cast<char>(pick(0, 255));
            break;
        case 1: // negative or huge line header size
            std::memcpy(m.data() + 32, &(const uint32_t&)pick(0x80000000u, 0xFFFFFFFFu), 4);
            break;
        case 2: // cut short
            m.resize(pick(1, static_cast<uint32_t>(m.size())));
            break;
        default:
            break;
        }
        const std::size_t piece = pick(0, 1) ? 60000 : pick(100, 2000);
        const auto frags = WireEncoder::fragment(n, m.data(), m.size(), piece);
        for (const auto& d : frags)
            s.send(d);
        sent += frags.size();
        if (n % 50 == 0)
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    CHECK(waitDatagrams(r, sent));
    r.Disconnect(true);
    const auto c = r.counters();
    CHECK(r.badPadding == 0);
    CHECK(r.lines > 100);
    CHECK(c.truncatedMessages > 100);
    CHECK(c.rawLines == uint64_t(r.lines));
    CHECK(c.malformedDatagrams == 0);
}

void delivery()
{
    vxtest::row = "fields";
    Reader r;
    CHECK(r.Connect(0, ""));
    CHECK(!r.Connect(0, "")); // already connected
    Sender s(r.LocalPort());
    s.message(1, line(2, 100, 8, 32, 7, 832));
    s.message(2, line(2, 50000, 8, 0, 1, 400000), 1400); // a 400 KB line in many pieces
    CHECK(waitDatagrams(r, 1 + (400128 + 1399) / 1400));
    r.Disconnect(true);
    CHECK(r.lines == 2);
    CHECK(r.lastCount == 50000 && r.lastDevice == 1);
    CHECK(std::string(r.lastIp) == "127.0.0.1");
    CHECK(r.counters().receiveBufferSize > 0);
}

void pauseAndErrors()
{
    Reader r;
    CHECK(r.Connect(0, "127.0.0.1"));
    Sender s(r.LocalPort());

    vxtest::row = "pause";
    r.pause = true;
    for (uint32_t i = 0; i < 5; ++i)
        s.message(i, line(3, 10, 4, 0, 0, 40));
    s.message(9, WireEncoder::fileHeader(0, "head", {{100, -10.0}}));
    CHECK(waitDatagrams(r, 6));
    CHECK(r.lines == 0);
    CHECK(r.counters().pausedDiscards == 5);
    r.pause = false;

    vxtest::row = "throwing callback";
    r.throwNext = true;
    s.message(10, line(3, 10, 4, 0, 0, 40));
    s.message(11, line(3, 10, 4, 0, 0, 40));
    CHECK(waitDatagrams(r, 8));
    r.Disconnect(true);
    CHECK(r.lines == 2);
    CHECK(r.counters().callbackErrors == 1);
    CHECK(r.GetVxSHeader(0) && r.GetVxSHeader(0)->GetDouble(100, 0) == -10.0);
}

void connectRules()
{
    vxtest::row = "busy port";
    const int before = threadCount();
    {
        Reader a, b;
        CHECK(a.Connect(0, ""));
        CHECK(!b.Connect(a.LocalPort(), ""));
        CHECK(!b.IsConnected());
        CHECK(!b.Connect(a.LocalPort(), "127.0.0.1"));
        CHECK(threadCount() == before + 1);
        a.Disconnect(true);
        CHECK(threadCount() == before);
        CHECK(!a.IsConnected() && a.LocalPort() == 0);
        CHECK(b.Connect(0, "127.0.0.1")); // reconnect on another stream
        b.Disconnect(true);
        b.Disconnect(true);      // twice is harmless
        CHECK(a.Connect(0, "")); // left connected: the destructor joins
    }
    CHECK(threadCount() == before);

    vxtest::row = "bad address";
    Reader c;
    CHECK(!c.Connect(0, "not an address"));
    CHECK(!c.Connect(70000, ""));
    c.Disconnect(false); // never connected
}

} // namespace

int main()
{
    RUN(safetyPromise);
    RUN(delivery);
    RUN(pauseAndErrors);
    RUN(connectRules);
    return vxtestResult("tst_linedatastream");
}
