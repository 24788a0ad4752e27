// Indexes a large capture (written first, like one taken on site: Ethernet,
// 2,048-pixel lines of 8 bytes, each line's 16 KiB datagram in IPv4
// fragments of 1,480 bytes) and prints, beside a plain read of the same file
// from the page cache (the floor):
//
//   read      the floor: MB/s of read() in 1 MiB blocks
//   index     MB/s of CaptureIndex over the whole file, lines found, the
//             memory its entries take (bytes per line) and the growth of
//             the resident set
//   seek      the library's part of a jump: from CaptureSource::seek() to the
//             line's arrival in the receiver (as fast as possible, paused
//             after one line), p50 and p99 over random lines
//
// usage: build/bin/bench_capture [--size-mb 2048] [--file /tmp/bench.pcap] [--seeks 200]
#include "capture/captureindex.h"
#include "capture/capturesource.h"
#include "scanner/vxlinedatastream.h"
#include "scanner/wireencoder.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <random>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

double rssMiB()
{
    long pages = 0, resident = 0;
    if (FILE* f = std::fopen("/proc/self/statm", "r")) {
        if (std::fscanf(f, "%ld %ld", &pages, &resident) != 2)
            resident = 0;
        std::fclose(f);
    }
    return double(resident) * 4096.0 / (1024.0 * 1024.0);
}

void put16(std::vector<uint8_t>& b, uint16_t v) // big-endian
{
    b.push_back(uint8_t(v >> 8));
    b.push_back(uint8_t(v));
}

void put32le(uint8_t* p, uint32_t v)
{
    std::memcpy(p, &v, 4);
}

// Writes a classic pcap of Ethernet frames until `bytes`; returns the lines.
uint64_t writeCapture(const std::string& path, uint64_t bytes)
{
    FILE* f = std::fopen(path.c_str(), "wb");
    if (!f)
        return 0;
    const uint32_t header[6] = {0xa1b23c4d, 0x00040002, 0, 0, 262144, 1};
    std::fwrite(header, 1, sizeof header, f);
    std::vector<char> body(2048 * 8, 7);
    uint64_t written = sizeof header, lines = 0;
    std::vector<uint8_t> frame;
    const int64_t t0 = 1700000000LL * 1000000000;
    while (written < bytes) {
        const strmsocket::WireEncoder::RawLine h{uint32_t(lines), 1, 2, 0, 2, 0, 0, 0, 8, 2048};
        const auto message = strmsocket::WireEncoder::rawLine(h, body.data(), body.size());
        const auto datagram =
            strmsocket::WireEncoder::fragment(uint32_t(lines), message.data(), message.size())[0];
        std::vector<uint8_t> udp;
        put16(udp, 5000);
        put16(udp, 6101);
        put16(udp, uint16_t(8 + datagram.size()));
        put16(udp, 0);
        udp.insert(udp.end(), datagram.begin(), datagram.end());
        const int64_t t = t0 + int64_t(lines) * 200000; // 5,000 lines/s
        for (std::size_t at = 0; at < udp.size(); at += 1480) {
            const std::size_t n = std::min<std::size_t>(1480, udp.size() - at);
            frame.assign(12, 0xaa);
            put16(frame, 0x0800);
            frame.insert(frame.end(), {0x45, 0});
            put16(frame, uint16_t(20 + n));
            put16(frame, uint16_t(lines));
            put16(frame, uint16_t((at + n < udp.size() ? 0x2000 : 0) | at / 8));
            frame.insert(frame.end(), {64, 17, 0, 0, 192, 168, 0, 100, 192, 168, 0, 1});
            frame.insert(frame.end(), udp.begin() + long(at), udp.begin() + long(at + n));
            uint8_t record[16];
            put32le(record, uint32_t(t / 1000000000));
            put32le(record + 4, uint32_t(t % 1000000000));
            put32le(record + 8, uint32_t(frame.size()));
            put32le(record + 12, uint32_t(frame.size()));
            std::fwrite(record, 1, 16, f);
            std::fwrite(frame.data(), 1, frame.size(), f);
            written += 16 + frame.size();
        }
        ++lines;
    }
    std::fclose(f);
    return lines;
}

double readAllMBs(const std::string& path)
{
    const int fd = ::open(path.c_str(), O_RDONLY);
    std::vector<char> block(1 << 20);
    uint64_t total = 0;
    const auto start = Clock::now();
    for (ssize_t n; (n = ::read(fd, block.data(), block.size())) > 0;)
        total += uint64_t(n);
    const double s = std::chrono::duration<double>(Clock::now() - start).count();
    ::close(fd);
    return double(total) / 1e6 / s;
}

class Counter : public VxLinedataStream
{
public:
    ~Counter() override { Disconnect(true); }
    void OnRawLine(const strmsocket::VxStreamDeviceInfo&, const char*,
                   const strmsocket::LineRawInfo&, const char*, int) override
    {
        lines.fetch_add(1);
    }
    std::atomic<uint64_t> lines{0};
};

} // namespace

int main(int argc, char** argv)
{
    uint64_t sizeMb = 2048;
    std::string path = "/tmp/bench_capture.pcap";
    int seeks = 200;
    for (int i = 1; i + 1 < argc; i += 2) {
        const std::string key = argv[i];
        if (key == "--size-mb")
            sizeMb = std::stoull(argv[i + 1]);
        else if (key == "--file")
            path = argv[i + 1];
        else if (key == "--seeks")
            seeks = std::stoi(argv[i + 1]);
    }
    std::printf("writing %llu MB of 2,048-pixel lines to %s ...\n",
                static_cast<unsigned long long>(sizeMb), path.c_str());
    const uint64_t written = writeCapture(path, sizeMb * 1000000);
    readAllMBs(path); // warm the page cache
    const double floor = readAllMBs(path);

    const double rssBefore = rssMiB();
    vxrec::CaptureIndex index;
    const auto start = Clock::now();
    index.start(path, 6101);
    index.wait();
    const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
    const double mb = double(sizeMb);
    std::printf("read   %8.0f MB/s (the floor)\n", floor);
    std::printf("index  %8.0f MB/s, %llu of %llu lines, %.1f bytes per line, %s, resident +%.0f "
                "MiB\n",
                mb / seconds, static_cast<unsigned long long>(index.lines()),
                static_cast<unsigned long long>(written),
                double(index.bytes()) / double(std::max<std::size_t>(index.lines(), 1)),
                index.finished() ? "complete" : index.error().c_str(), rssMiB() - rssBefore);

    auto source = std::make_unique<vxrec::CaptureSource>(6101);
    if (!source->open(path) || index.lines() == 0)
        return 1;
    vxrec::CaptureSource* player = source.get();
    player->setSpeed(0);
    player->pause();
    Counter counter;
    counter.Connect(std::move(source));
    std::mt19937 rng(1);
    std::vector<double> ms;
    for (int k = 0; k < seeks; ++k) {
        const std::size_t line =
            std::uniform_int_distribution<std::size_t>(0, index.lines() - 1)(rng);
        const uint64_t before = counter.lines.load();
        const auto t = Clock::now();
        player->seek(index.entry(line).offset);
        player->playLines(1);
        while (counter.lines.load() == before)
            std::this_thread::yield();
        ms.push_back(std::chrono::duration<double, std::milli>(Clock::now() - t).count());
        while (player->status().playing && !player->status().ended)
            std::this_thread::yield();
    }
    std::sort(ms.begin(), ms.end());
    std::printf("seek   %8.2f ms p50, %.2f ms p99 (%d random lines, the library's part)\n",
                ms[ms.size() / 2], ms[std::min(ms.size() - 1, ms.size() * 99 / 100)], seeks);
    std::remove(path.c_str());
    return 0;
}
