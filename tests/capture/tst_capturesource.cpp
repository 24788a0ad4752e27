// A capture played back through the scanner library's receive path: every
// line arrives in order and none is dropped whatever the receiver does,
// the capture's pace, pause, loop, and files that are cut or no capture;
// the index of its lines, and seeking and stepping by it.
#include "tests/capture/capturebuilder.h"
#include "tests/capture/seriestaker.h"
#include "tests/check.h"

#include "capture/captureindex.h"
#include "capture/captureports.h"
#include "capture/capturesource.h"
#include "scanner/vxlinedatastream.h"
#include "scanner/wireencoder.h"

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <mutex>
#include <thread>

using namespace vxrec;
using B = CaptureBuilder;
using strmsocket::WireEncoder;

namespace {

constexpr int kLines = 60;
constexpr int64_t kStepNs = 5000000; // 5 ms between lines in the capture

using Taker = SeriesTaker;

// kLines raw lines to port 6101 over Ethernet, every third one in several
// datagrams, every fourth one's first datagram in IP fragments, with a
// datagram to another port between them.
std::string makeCapture(const std::string& name)
{
    B b(false, true, 1);
    const int64_t t0 = 1700000000LL * 1000000000;
    for (uint32_t n = 0; n < uint32_t(kLines); ++n) {
        const WireEncoder::RawLine h{n, 1, 2, 0, 2, 0, 0, 0, 8, 125};
        const std::vector<char> body(1000, char(n));
        const auto m = WireEncoder::rawLine(h, body.data(), body.size());
        const auto pieces = WireEncoder::fragment(n, m.data(), m.size(), n % 3 ? 60000 : 400);
        for (std::size_t k = 0; k < pieces.size(); ++k) {
            const B::Bytes segment = B::udp(6101, B::Bytes(pieces[k].begin(), pieces[k].end()));
            if (k == 0 && n % 4 == 0) {
                for (const auto& f : B::fragments(segment, 400, uint16_t(n + 1)))
                    b.add(t0 + n * kStepNs, B::link(1, 0x0800, f));
            } else {
                b.add(t0 + n * kStepNs, B::link(1, 0x0800, B::ipv4(segment)));
            }
        }
        b.add(t0 + n * kStepNs + 1, B::link(1, 0x0800, B::ipv4(B::udp(7000, {1, 2, 3}))));
    }
    const std::string path = vxtest::tempPath(name);
    B::save(path, b.bytes());
    return path;
}

template <typename F> bool waitFor(F done, int ms = 5000)
{
    for (int i = 0; i < ms / 5 && !done(); ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    return done();
}

std::vector<uint32_t> upTo(int n)
{
    std::vector<uint32_t> v;
    for (int i = 0; i < n; ++i)
        v.push_back(uint32_t(i % kLines));
    return v;
}

// Plays `path` with `setUp` applied before the receive thread starts.
struct Player
{
    Taker taker;
    CaptureSource* source = nullptr;
    bool start(const std::string& path, double speed, bool paused = false, bool loop = false)
    {
        auto s = std::make_unique<CaptureSource>(6101);
        if (!CHECK(s->open(path)))
            return false;
        s->setSpeed(speed);
        s->setLoop(loop);
        if (paused)
            s->pause();
        source = s.get();
        // Room for about two lines: a source that did not hold back would
        // lose lines while the receiver stalls.
        taker.SetBacklogLimit(2500);
        return CHECK(taker.Connect(std::move(s)));
    }
};

void playback()
{
    const std::string path = makeCapture("lines.pcap");

    vxtest::row = "as fast as possible, the receiver stalling: every line, in order";
    {
        Player p;
        if (p.start(path, 0)) {
            for (int k = 0; k < 6; ++k) {
                p.taker.setReady(k % 2 == 1);
                std::this_thread::sleep_for(std::chrono::milliseconds(20));
            }
            p.taker.setReady(true);
            CHECK(waitFor([&] { return p.source->status().ended; }));
            CHECK(waitFor([&] { return p.taker.count() == std::size_t(kLines); }));
            CHECK(p.taker.taken() == upTo(kLines));
            const auto c = p.taker.counters();
            CHECK(c.backlogDrops + c.incompleteMessages + c.malformedDatagrams == 0);
            CHECK(p.source->status().problem.empty());
        }
    }

    vxtest::row = "at the capture's pace";
    {
        const auto begin = std::chrono::steady_clock::now();
        Player p;
        if (p.start(path, 1.0)) {
            CHECK(waitFor([&] { return p.taker.count() == std::size_t(kLines); }));
            // Line n is due n steps after the first: never earlier.
            CHECK(std::chrono::steady_clock::now() - begin >=
                  std::chrono::nanoseconds((kLines - 1) * kStepNs));
            const auto s = p.source->status();
            CHECK(s.currentNs - s.firstNs >= (kLines - 1) * kStepNs);
        }
    }

    vxtest::row = "paused: nothing; played: everything";
    {
        Player p;
        if (p.start(path, 0, true)) {
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
            CHECK(p.taker.count() == 0 && !p.source->status().playing);
            p.source->play();
            CHECK(waitFor([&] { return p.taker.count() == std::size_t(kLines); }));
        }
    }

    vxtest::row = "looping starts again at the first line";
    {
        Player p;
        if (p.start(path, 0, false, true)) {
            CHECK(waitFor([&] { return p.taker.count() >= std::size_t(2 * kLines); }));
            p.source->pause();
            const auto taken = p.taker.taken();
            CHECK(std::vector<uint32_t>(taken.begin(), taken.begin() + 2 * kLines) ==
                  upTo(2 * kLines));
            CHECK(p.source->status().passes >= 2 && !p.source->status().ended);
        }
    }

    vxtest::row = "a cut file plays up to the cut and says why it ended";
    {
        const std::string cut = vxtest::tempPath("cut.pcap");
        std::filesystem::copy_file(path, cut);
        std::filesystem::resize_file(cut, std::filesystem::file_size(path) / 2 + 7);
        Player p;
        if (p.start(cut, 0)) {
            CHECK(waitFor([&] { return p.source->status().ended; }));
            const std::size_t n = p.taker.count();
            CHECK(n > 10 && n < std::size_t(kLines));
            CHECK(p.taker.taken() == upTo(int(n)));
            CHECK(!p.source->status().problem.empty());
        }
    }

    vxtest::row = "the index finds every line; seeking and stepping go by it";
    {
        CaptureIndex index;
        index.start(path, 6101);
        index.wait();
        CHECK(index.finished() && index.error().empty() && index.progress() == 1.0);
        if (CHECK(index.lines() == std::size_t(kLines))) {
            const int64_t t0 = index.entry(0).timeNs;
            CHECK(index.entry(kLines - 1).timeNs - t0 == (kLines - 1) * kStepNs);
            CHECK(index.find(t0 + 7 * kStepNs + 1) == 7 && index.find(t0 - 1) == 0);
            Player p;
            if (p.start(path, 0, true)) {
                std::vector<uint32_t> expected;
                for (int k : {17, 0, 40, kLines - 1}) {
                    p.source->seek(index.entry(std::size_t(k)).offset, uint64_t(k));
                    // The place is the new one at once, before the thread gets to it.
                    CHECK(p.source->status().nextLine == uint64_t(k));
                    p.source->playLines(k == 40 ? 3 : 1);
                    for (int i = 0; i < (k == 40 ? 3 : 1); ++i)
                        expected.push_back(uint32_t(k + i));
                    CHECK(waitFor([&] { return p.taker.count() == expected.size(); }));
                    // Paused before the next line, or at the end of the file.
                    CHECK(waitFor([&] {
                        const auto st = p.source->status();
                        return !st.playing || st.ended;
                    }));
                    CHECK(p.source->status().nextLine == uint64_t(k + (k == 40 ? 3 : 1)));
                }
                std::this_thread::sleep_for(std::chrono::milliseconds(30));
                CHECK(p.taker.taken() == expected);
                CHECK(p.taker.counters().incompleteMessages == 0);
            }
        }
    }

    vxtest::row = "not a capture";
    {
        const std::string text = vxtest::tempPath("notes.txt");
        B::save(text, B::pattern(4000, 1));
        CaptureSource s(6101);
        CHECK(!s.open(text) && !s.error().empty());
        CHECK(!s.open(vxtest::tempPath("missing.pcap")) && !s.error().empty());
        CaptureIndex index;
        index.start(text, 6101);
        index.wait();
        CHECK(index.ended() && !index.finished() && !index.error().empty() && index.lines() == 0);
    }
}

// 20 one-datagram lines to port 6101, 5 ms apart, with a pause of three
// minutes after line 9 (the scanner stopped, the vehicle waited).
std::string makePausedCapture(const std::string& name)
{
    B b(false, true, 1);
    const int64_t t0 = 1700000000LL * 1000000000;
    for (uint32_t n = 0; n < 20; ++n) {
        const WireEncoder::RawLine h{n, 1, 2, 0, 2, 0, 0, 0, 8, 125};
        const std::vector<char> body(1000, char(n));
        const auto m = WireEncoder::rawLine(h, body.data(), body.size());
        const auto piece = WireEncoder::fragment(n, m.data(), m.size(), 60000).front();
        const int64_t at = t0 + n * kStepNs + (n >= 10 ? 180LL * 1000000000 : 0);
        b.add(at, B::link(1, 0x0800, B::ipv4(B::udp(6101, B::Bytes(piece.begin(), piece.end())))));
    }
    const std::string path = vxtest::tempPath(name);
    B::save(path, b.bytes());
    return path;
}

// Milliseconds until `done`, at most `ms`.
template <typename F> int64_t msUntil(F done, int ms = 2000)
{
    const auto begin = std::chrono::steady_clock::now();
    waitFor(done, ms);
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() -
                                                                 begin)
        .count();
}

// While the playback waits out a pause of minutes in the capture, what the
// user does acts at once, and the playback goes on from there at its pace.
void pauses()
{
    const std::string path = makePausedCapture("paused.pcap");
    CaptureIndex index;
    index.start(path, 6101);
    index.wait();
    if (!CHECK(index.lines() == 20))
        return;
    const auto atPause = [&](Player& p) {
        return p.start(path, 1.0) && CHECK(waitFor([&] { return p.taker.count() == 10; })) &&
               CHECK(p.taker.count() == 10);
    };
    struct Row
    {
        const char* name;
        std::function<void(CaptureSource&)> act;
        std::vector<uint32_t> then; // the lines that follow at once
    };
    const std::vector<Row> rows = {
        {"a jump back plays its line at once",
         [&](CaptureSource& s) {
             s.seek(index.entry(3).offset, 3);
             s.playLines(1);
         },
         {3}},
        {"a jump over the pause plays its line at once",
         [&](CaptureSource& s) {
             s.seek(index.entry(15).offset, 15);
             s.playLines(1);
         },
         {15}},
        {"as fast as possible goes on at once", [](CaptureSource& s) { s.setSpeed(0); },
         {10, 11, 12, 13, 14, 15, 16, 17, 18, 19}},
        {"another speed goes on from the next line",
         [](CaptureSource& s) { s.setSpeed(2.0); },
         {10, 11, 12, 13, 14, 15, 16, 17, 18, 19}},
        {"pause and play go on from the next line",
         [](CaptureSource& s) {
             s.pause();
             s.play();
         },
         {10, 11, 12, 13, 14, 15, 16, 17, 18, 19}},
        {"a step goes on with the next line", [](CaptureSource& s) { s.playLines(1); }, {10}},
    };
    for (const Row& row : rows) {
        vxtest::row = row.name;
        Player p;
        if (!atPause(p))
            continue;
        std::this_thread::sleep_for(std::chrono::milliseconds(50)); // waiting in the pause
        row.act(*p.source);
        // The first line at once, not after minutes (bench_playback measures
        // how soon on a quiet machine); the others then at the capture's pace.
        CHECK(msUntil([&] { return p.taker.count() > 10; }) < 1000);
        CHECK(waitFor([&] { return p.taker.count() == 10 + row.then.size(); }));
        const auto taken = p.taker.taken();
        CHECK(std::vector<uint32_t>(taken.begin() + 10, taken.end()) == row.then);
    }

    vxtest::row = "after a jump into the pause, play goes on at the capture's pace";
    {
        Player p;
        if (atPause(p)) {
            p.source->seek(index.entry(12).offset, 12);
            const auto begin = std::chrono::steady_clock::now();
            CHECK(waitFor([&] { return p.taker.count() == 18; }));
            // Lines 12..19 are 7 steps apart: never sooner, and not minutes.
            const auto took = std::chrono::steady_clock::now() - begin;
            CHECK(took >= std::chrono::nanoseconds(7 * kStepNs));
            CHECK(took < std::chrono::milliseconds(1000));
            // Line 10, read before the seek and minutes away, never goes out.
            std::vector<uint32_t> expected = upTo(10);
            for (uint32_t n = 12; n < 20; ++n)
                expected.push_back(n);
            std::this_thread::sleep_for(std::chrono::milliseconds(30));
            CHECK(p.taker.taken() == expected);
        }
    }
}

// A line to port 6101, `frames` small TCP frames of other traffic (a
// capture taken on a mirror port), another line. Written frame by frame.
std::string makeBusyCapture(const std::string& name, int frames)
{
    const int64_t t0 = 1700000000LL * 1000000000;
    const auto line = [](uint32_t n) {
        const WireEncoder::RawLine h{n, 1, 2, 0, 2, 0, 0, 0, 8, 125};
        const std::vector<char> body(1000, char(n));
        const auto m = WireEncoder::rawLine(h, body.data(), body.size());
        const auto piece = WireEncoder::fragment(n, m.data(), m.size(), 60000).front();
        return B::link(1, 0x0800, B::ipv4(B::udp(6101, B::Bytes(piece.begin(), piece.end()))));
    };
    B first(false, true, 1);
    first.add(t0, line(0));
    const std::string path = vxtest::tempPath(name);
    std::ofstream out(path, std::ios::binary);
    out.write(reinterpret_cast<const char*>(first.bytes().data()),
              std::streamsize(first.bytes().size()));
    const B::Bytes tcp = B::link(1, 0x0800, B::ipv4(B::Bytes(20, 0), 6));
    const B::Bytes record = B::fields(false, "4444", {1700000000, 1000, uint32_t(tcp.size()),
                                                      uint32_t(tcp.size())}, tcp);
    for (int i = 0; i < frames; ++i)
        out.write(reinterpret_cast<const char*>(record.data()), std::streamsize(record.size()));
    B last(false, true, 1);
    last.add(t0 + kStepNs, line(1));
    out.write(reinterpret_cast<const char*>(last.bytes().data()) + 24,
              std::streamsize(last.bytes().size() - 24));
    return path;
}

// Closing, cancelling and seeking answer at once while the reader skips
// other traffic, however much of it there is.
void otherTraffic()
{
    constexpr int kFrames = 3000000; // 180 MB
    const std::string path = makeBusyCapture("busy.pcap", kFrames);
    using Clock = std::chrono::steady_clock;
    const auto ms = [](Clock::time_point since) {
        return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - since).count();
    };

    vxtest::row = "the reader itself takes long enough to skip the other traffic";
    int64_t skipMs = 0;
    {
        CaptureIndex index;
        const auto begin = Clock::now();
        index.start(path, 6101);
        index.wait();
        skipMs = ms(begin);
        CHECK(index.finished() && index.lines() == 2);
    }
    // A stop answers in a small part of the time the whole skip takes (the
    // skip itself took 0.3 s on a quiet machine, 14 s on a loaded one).
    const auto soon = [&](int64_t took) { return took < std::min<int64_t>(skipMs / 4, 1000); };

    vxtest::row = "cancelling the index while it skips";
    {
        CaptureIndex index;
        index.start(path, 6101);
        waitFor([&] { return index.lines() == 1; });
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        const auto begin = Clock::now();
        index.cancel();
        index.wait();
        CHECK(soon(ms(begin)));
        CHECK(index.lines() == 1 && !index.finished());
    }

    vxtest::row = "closing the playback while it skips";
    {
        Player p;
        if (p.start(path, 0)) {
            CHECK(waitFor([&] { return p.taker.count() == 1; }));
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
            const auto begin = Clock::now();
            p.taker.Disconnect(true);
            CHECK(soon(ms(begin)));
        }
    }

    vxtest::row = "a seek while the playback skips plays its line at once";
    {
        CaptureIndex index;
        index.start(path, 6101);
        index.wait();
        // A seek that waited for the skip is late every time; one that a
        // busy machine delayed once is not: the best of three attempts.
        int64_t best = INT64_MAX;
        for (int attempt = 0; attempt < 3 && !soon(best); ++attempt) {
            Player p;
            if (index.lines() != 2 || !p.start(path, 0))
                break;
            CHECK(waitFor([&] { return p.taker.count() == 1; }));
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
            const auto begin = Clock::now();
            p.source->seek(index.entry(0).offset, 0);
            p.source->playLines(1);
            CHECK(waitFor([&] { return p.taker.count() == 2; }));
            best = std::min<int64_t>(best, ms(begin));
            CHECK(p.taker.taken() == std::vector<uint32_t>({0, 0}));
        }
        CHECK(soon(best));
    }

    vxtest::row = "the port count stops when asked";
    {
        std::atomic<bool> stop{false};
        std::thread stopper([&] {
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
            stop = true;
        });
        CapturePorts ports;
        const auto begin = Clock::now();
        const bool read = ports.scan(path, UINT64_MAX, &stop);
        CHECK(soon(ms(begin)));
        stopper.join();
        CHECK(!read && ports.partial() && !ports.error().empty());
    }
    std::filesystem::remove(path);
}

// Notes, per line taken, the angle increment (key 101) of the device's file
// header in force, or 0 without a header.
class HeaderTaker : public Taker
{
public:
    ~HeaderTaker() override { Disconnect(true); }
    void OnRawLine(const strmsocket::VxStreamDeviceInfo& device, const char* packet,
                   const strmsocket::LineRawInfo& info, const char* data, int count) override
    {
        const VxSHeader* h = GetVxSHeader(device.device);
        {
            std::lock_guard<std::mutex> guard(lock);
            increments.push_back(h ? h->GetDouble(101, 0.0) : 0.0);
        }
        Taker::OnRawLine(device, packet, info, data, count);
    }
    std::vector<double> seen()
    {
        std::lock_guard<std::mutex> guard(lock);
        return increments;
    }

private:
    std::mutex lock;
    std::vector<double> increments;
};

// After a jump, and on every pass of a loop, each line is decoded with the
// file header that playing the capture from its start has in force there.
void headersAfterJumps()
{
    // Lines 0..3 before any header, a header (increment 0.5) before line 4,
    // another (0.25) before line 8; lines 0..11.
    B b(false, true, 1);
    const int64_t t0 = 1700000000LL * 1000000000;
    const auto put = [&](int64_t at, const std::vector<char>& message, uint32_t number) {
        const auto piece = WireEncoder::fragment(number, message.data(), message.size(), 60000);
        b.add(at, B::link(1, 0x0800,
                          B::ipv4(B::udp(6101, B::Bytes(piece[0].begin(), piece[0].end())))));
    };
    for (uint32_t n = 0; n < 12; ++n) {
        if (n == 4 || n == 8)
            put(t0 + n * kStepNs - 1, WireEncoder::fileHeader(0, "device", {{101, n == 4 ? 0.5 : 0.25}}),
                1000 + n);
        const WireEncoder::RawLine h{n, 1, 2, 0, 2, 0, 0, 0, 8, 125};
        const std::vector<char> body(1000, char(n));
        put(t0 + n * kStepNs, WireEncoder::rawLine(h, body.data(), body.size()), n);
    }
    const std::string path = vxtest::tempPath("headers.pcap");
    B::save(path, b.bytes());
    const auto expected = [](uint32_t line) { return line < 4 ? 0.0 : line < 8 ? 0.5 : 0.25; };
    CaptureIndex index;
    index.start(path, 6101);
    index.wait();
    if (!CHECK(index.lines() == 12))
        return;

    vxtest::row = "a jump back before the first header, one between, one on";
    {
        auto s = std::make_unique<CaptureSource>(6101);
        CaptureSource* source = s.get();
        HeaderTaker taker;
        if (CHECK(source->open(path))) {
            source->setSpeed(0);
            CHECK(taker.Connect(std::move(s)));
            CHECK(waitFor([&] { return taker.count() == 12; }));
            std::vector<uint32_t> lines = upTo(12);
            for (uint32_t k : {2u, 6u, 1u, 10u, 0u}) {
                uint64_t prelude = CaptureSource::kNoPrelude;
                index.headerBefore(k, prelude);
                source->seek(index.entry(k).offset, k, prelude);
                source->playLines(1);
                lines.push_back(k);
                CHECK(waitFor([&] { return taker.count() == lines.size(); }));
            }
            CHECK(taker.taken() == lines);
            const std::vector<double> seen = taker.seen();
            for (std::size_t i = 0; i < seen.size() && i < lines.size(); ++i)
                CHECK(seen[i] == expected(lines[i]));
        }
    }

    vxtest::row = "every pass of a loop";
    {
        auto s = std::make_unique<CaptureSource>(6101);
        CaptureSource* source = s.get();
        HeaderTaker taker;
        if (CHECK(source->open(path))) {
            source->setSpeed(0);
            source->setLoop(true);
            CHECK(taker.Connect(std::move(s)));
            CHECK(waitFor([&] { return taker.count() >= 30; }));
            source->pause();
            const std::vector<double> seen = taker.seen();
            for (std::size_t i = 0; i < 30; ++i)
                CHECK(seen[i] == expected(uint32_t(i % 12)));
        }
    }
}

// 30 lines, every third in pieces of 400 bytes; line 9 lacks a middle piece
// and line 21 its last: the receiver gives both up.
std::string makeGappedCapture(const std::string& name)
{
    B b(false, true, 1);
    const int64_t t0 = 1700000000LL * 1000000000;
    for (uint32_t n = 0; n < 30; ++n) {
        const WireEncoder::RawLine h{n, 1, 2, 0, 2, 0, 0, 0, 8, 125};
        const std::vector<char> body(1000, char(n));
        const auto m = WireEncoder::rawLine(h, body.data(), body.size());
        const auto pieces = WireEncoder::fragment(n, m.data(), m.size(), n % 3 ? 60000 : 400);
        for (std::size_t k = 0; k < pieces.size(); ++k) {
            if ((n == 9 && k == 1) || (n == 21 && k + 1 == pieces.size()))
                continue;
            const B::Bytes segment = B::udp(6101, B::Bytes(pieces[k].begin(), pieces[k].end()));
            b.add(t0 + n * kStepNs, B::link(1, 0x0800, B::ipv4(segment)));
        }
    }
    const std::string path = vxtest::tempPath(name);
    B::save(path, b.bytes());
    return path;
}

// A line with pieces missing is no line wherever it is met: the index, the
// playing source and the receiver count the same lines, so that line n is
// the same line played to, jumped to or stepped to.
void incompleteLines()
{
    const std::string path = makeGappedCapture("gapped.pcap");
    std::vector<uint32_t> whole;
    for (uint32_t n = 0; n < 30; ++n)
        if (n != 9 && n != 21)
            whole.push_back(n);
    CaptureIndex index;
    index.start(path, 6101);
    index.wait();
    vxtest::row = "the index counts whole lines and the incomplete apart";
    CHECK(index.finished());
    CHECK(index.lines() == whole.size());
    CHECK(index.incomplete() == 2);

    vxtest::row = "played from the start";
    Player p;
    if (!p.start(path, 0))
        return;
    CHECK(waitFor([&] { return p.source->status().ended; }));
    CHECK(waitFor([&] { return p.taker.count() == whole.size(); }));
    CHECK(p.taker.taken() == whole);
    CHECK(p.source->status().nextLine == whole.size());
    CHECK(p.source->status().lines == whole.size());

    vxtest::row = "jumped to, then stepped on across the incomplete ones";
    std::vector<uint32_t> expected = whole;
    for (std::size_t k : {std::size_t(8), std::size_t(0), std::size_t(19), whole.size() - 1}) {
        p.source->seek(index.entry(k).offset, k);
        const std::size_t n = std::min<std::size_t>(3, whole.size() - k);
        p.source->playLines(n);
        for (std::size_t i = 0; i < n; ++i)
            expected.push_back(whole[k + i]);
        CHECK(waitFor([&] { return p.taker.count() == expected.size(); }));
        CHECK(waitFor([&] {
            const auto st = p.source->status();
            return (!st.playing || st.ended) && st.nextLine == k + n;
        }));
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
    CHECK(p.taker.taken() == expected);
}

} // namespace

int main()
{
    playback();
    pauses();
    otherTraffic();
    headersAfterJumps();
    incompleteLines();
    return vxtest::result("tst_capturesource");
}
