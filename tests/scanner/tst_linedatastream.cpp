// The real receive path over loopback: the safety promise under randomised and
// mutated datagrams, pause, a throwing callback, Connect/Disconnect rules,
// that no receive thread outlives Disconnect, and the backlog that holds
// messages undecoded while the receiver has no room.
#include "scanner/linerawinfo.h"
#include "scanner/vxlinedatastream.h"
#include "scanner/wireencoder.h"
#include "tests/check.h"

#include <arpa/inet.h>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstring>
#include <filesystem>
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
        for (unsigned char b : info.bytes)
            checksum += b;
        last = device;
        lastCount = count;
        if (count <= 0)
            return;
        const std::size_t declared =
            std::size_t(int32_t(info.word(2))) + std::size_t(count) * info.word(3);
        for (std::size_t i = 0; i < declared + 8; ++i) {
            checksum += static_cast<unsigned char>(data[i]);
            badPadding += i >= declared && data[i] != 0;
        }
        for (int i = 0; i < count && i < 4096; ++i) {
            double x, y, z;
            Set(device.device, i);
            XYZ0(device.device, x, y, z);
            checksum += std::isfinite(y);
        }
    }
    std::atomic<int> lines{0}, badPadding{0};
    std::atomic<bool> throwNext{false};
    unsigned checksum = 0;
    strmsocket::VxStreamDeviceInfo last;
    int lastCount = -1;
};

struct Sender
{
    int fd = ::socket(AF_INET, SOCK_DGRAM, 0);
    sockaddr_in to;
    explicit Sender(int port) : to{AF_INET, htons(uint16_t(port)), {htonl(INADDR_LOOPBACK)}, {}} {}
    ~Sender() { ::close(fd); }
    // Sends message `m` in datagrams of at most `piece` bytes; returns how many.
    std::size_t send(uint32_t number, const std::vector<char>& m, std::size_t piece = 60000)
    {
        const auto frags = WireEncoder::fragment(number, m.data(), m.size(), piece);
        for (const auto& d : frags)
            ::sendto(fd, d.data(), d.size(), 0, reinterpret_cast<const sockaddr*>(&to), sizeof to);
        return frags.size();
    }
};

// Waits (bounded) until the stream has read `n` datagrams. The receive thread
// counts a datagram before it dispatches what it completes: only messages
// before the last one are surely dispatched, the last one after Disconnect.
bool waitDatagrams(const strmsocket::UDPLinedataStream& s, uint64_t n)
{
    const auto read = [&] { return s.counters().datagrams + s.counters().kernelDrops; };
    for (int i = 0; i < 500 && read() < n; ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    return read() >= n;
}

long threadCount()
{
    namespace fs = std::filesystem;
    return std::distance(fs::directory_iterator("/proc/self/task"), fs::directory_iterator());
}

std::vector<char> line(uint32_t sub, uint32_t pixel, uint32_t bpp, uint32_t lhs, uint32_t device,
                       std::size_t bytes)
{
    // series, protocol, sub-protocol, device, datatyp, mode, layout flag, then as named
    const WireEncoder::RawLine h{0, 1, sub, device, 2, 0, 0, lhs, bpp, pixel};
    const std::vector<char> body(bytes, 0x5A);
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
        const uint32_t sub = pick(0, 4), pixel = pick(0, 3000), bpp = pick(0, 16),
                       lhs = pick(0, 64);
        const std::size_t exact = std::size_t(lhs) + std::size_t(pixel) * bpp;
        // Mostly the exact size, sometimes a few bytes short or long.
        const std::size_t bytes = pick(0, 3) ? exact : exact + pick(0, 8) - 4 + 4 * (exact < 4);
        auto m = line(sub, pixel, bpp, lhs, pick(0, 3), bytes);
        const uint32_t mutation = pick(0, 5);
        if (mutation == 0) // a random header byte
            m[pick(0, 127) % m.size()] = static_cast<char>(pick(0, 255));
        else if (mutation == 1) // negative or huge line header size
            m = vxtest::patched(m, 32, pick(0x80000000u, 0xFFFFFFFFu));
        else if (mutation == 2) // cut short
            m.resize(pick(1, static_cast<uint32_t>(m.size())));
        sent += s.send(n, m, pick(0, 1) ? 60000 : pick(100, 2000));
        if (n % 50 == 0)
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    CHECK(waitDatagrams(r, sent));
    r.Disconnect(true);
    const auto c = r.counters();
    CHECK(r.badPadding == 0 && r.lines > 100 && c.rawLines == uint64_t(r.lines));
    CHECK(c.truncatedMessages > 100 && c.malformedDatagrams == 0);
}

void lifecycleAndDelivery()
{
    vxtest::row = "connect rules";
    const long before = threadCount();
    {
        Reader r, b;
        b.Disconnect(false); // never connected
        CHECK(!b.Connect(0, "not an address") && !b.Connect(70000, ""));
        CHECK(r.Connect(0, ""));
        CHECK(!r.Connect(0, ""));                                 // already connected
        CHECK(!b.Connect(r.LocalPort(), "") && !b.IsConnected()); // port in use
        CHECK(threadCount() == before + 1);

        vxtest::row = "pause: lines discarded, file headers applied";
        Sender s(r.LocalPort());
        std::size_t sent = 0;
        r.pause = true;
        sent += s.send(10, line(3, 10, 4, 0, 0, 40));
        sent += s.send(20, WireEncoder::fileHeader(0, "head", {{100, -10.0}}));
        CHECK(waitDatagrams(r, sent));
        CHECK(r.lines == 0 && r.counters().pausedDiscards == 1);
        r.pause = false;

        vxtest::row = "a throwing callback, then a 400 KB line in many pieces";
        r.throwNext = true;
        sent += s.send(30, line(3, 10, 4, 0, 0, 40));
        sent += s.send(31, line(2, 50000, 8, 0, 1, 400000), 1400);
        CHECK(waitDatagrams(r, sent));
        r.Disconnect(true);
        CHECK(r.lines == 2 && r.counters().callbackErrors == 1);
        CHECK(r.lastCount == 50000 && r.last.device == 1 && std::string(r.last.ip) == "127.0.0.1");
        CHECK(r.GetVxSHeader(0) && r.GetVxSHeader(0)->GetDouble(100, 0) == -10.0);

        vxtest::row = "no thread outlives Disconnect or the stream";
        CHECK(threadCount() == before && !r.IsConnected() && r.LocalPort() == 0);
        CHECK(b.Connect(0, "127.0.0.1")); // after its failed attempts
        b.Disconnect(true);
        b.Disconnect(true);      // twice is harmless
        CHECK(r.Connect(0, "")); // again, left connected: the destructor joins
    }
    CHECK(threadCount() == before);
}

// A reader that takes messages only while `ready` is set, and remembers the
// series number of every line it was given.
class Gated : public Reader
{
public:
    void OnRawLine(const strmsocket::VxStreamDeviceInfo& device, const char* packet,
                   const LineRawInfo& info, const char* data, int count) override
    {
        uint32_t serie = 0;
        std::memcpy(&serie, packet + 4, sizeof serie);
        series.push_back(serie);
        Reader::OnRawLine(device, packet, info, data, count);
    }
    bool ReadyForMessage() override { return ready.load(); }
    void resume()
    {
        ready = true;
        ResumeDelivery();
    }
    std::atomic<bool> ready{false};
    std::vector<uint32_t> series; // receive thread; read after Disconnect
};

std::vector<char> seriesLine(uint32_t serie, std::size_t bytes)
{
    const WireEncoder::RawLine h{serie, 1, 2, 0, 2, 0, 0, 0, 8, uint32_t(bytes / 8)};
    const std::vector<char> body(bytes, char(serie));
    return WireEncoder::rawLine(h, body.data(), body.size());
}

// Waits (bounded) until `done` holds.
template <typename F> bool waitFor(F done)
{
    for (int i = 0; i < 500 && !done(); ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    return done();
}

// Lines 0..99 (the first ten larger, so that reused buffers held longer
// messages) with a file header after the first: while the receiver has no
// room nothing is dispatched; once it has, every line that the backlog
// could hold comes in order, with its padding zero. A backlog too small for
// all gives up the oldest lines, applies the file header among them, and
// still lets the newest in.
void backlog()
{
    const std::size_t lineBytes = seriesLine(0, 1000).size(); // lines 10..99
    struct Row
    {
        const char* name;
        std::size_t limit;
    } const rows[] = {
        {"room again: every line, in order", 4u << 20},
        {"a full backlog gives up the oldest", 31 * lineBytes + 100},
    };
    for (const Row& row : rows) {
        vxtest::row = row.name;
        // The oldest line still delivered: a small backlog keeps the newest
        // lines that fit (the header is applied when its turn to go comes).
        const uint32_t firstKept =
            100 - uint32_t(std::min<std::size_t>(100, row.limit / lineBytes));
        Gated r;
        r.SetBacklogLimit(row.limit);
        CHECK(r.Connect(0, "127.0.0.1"));
        Sender s(r.LocalPort());
        std::size_t sent = 0;
        for (uint32_t n = 0; n < 100; ++n) {
            sent += s.send(n, seriesLine(n, n < 10 ? 4000 : 1000));
            if (n == 0)
                sent += s.send(1000, WireEncoder::fileHeader(0, "head", {{100, 7.0}}));
            if (n % 20 == 0)
                std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
        CHECK(waitDatagrams(r, sent));
        // The header waits too, unless its turn to go came.
        const uint64_t waiting = 100 - firstKept + (firstKept ? 0 : 1);
        CHECK(waitFor([&] { return r.counters().backlogMessages == waiting; }));
        const auto held = r.counters();
        CHECK(r.lines == 0 && held.kernelDrops == 0);
        CHECK(held.backlogDrops == firstKept);
        CHECK(held.backlogBytes <= row.limit && held.backlogPeakBytes >= held.backlogBytes);
        r.resume();
        CHECK(waitFor([&] { return r.lines == int(100 - firstKept); }));
        r.Disconnect(true);
        std::vector<uint32_t> expected;
        for (uint32_t n = firstKept; n < 100; ++n)
            expected.push_back(n);
        CHECK(r.series == expected);
        CHECK(r.badPadding == 0);
        CHECK(r.GetVxSHeader(0) && r.GetVxSHeader(0)->GetDouble(100, 0) == 7.0);
        CHECK(r.counters().backlogMessages == 0);
    }
}

} // namespace

int main()
{
    safetyPromise();
    lifecycleAndDelivery();
    backlog();
    return vxtest::result("tst_linedatastream");
}
