// A capture played back through the scanner library's receive path: every
// line arrives in order and none is dropped whatever the receiver does,
// the capture's pace, pause, loop, and files that are cut or no capture;
// the index of its lines, and seeking and stepping by it.
#include "tests/capture/capturebuilder.h"
#include "tests/check.h"

#include "capture/captureindex.h"
#include "capture/capturesource.h"
#include "scanner/vxlinedatastream.h"
#include "scanner/wireencoder.h"

#include <atomic>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <mutex>
#include <thread>

using namespace vxrec;
using B = CaptureBuilder;
using strmsocket::WireEncoder;

namespace {

constexpr int kLines = 60;
constexpr int64_t kStepNs = 5000000; // 5 ms between lines in the capture

// Takes lines only while `ready`; remembers their series numbers.
class Taker : public VxLinedataStream
{
public:
    ~Taker() override { Disconnect(true); }
    void OnRawLine(const strmsocket::VxStreamDeviceInfo&, const char* packet,
                   const strmsocket::LineRawInfo&, const char*, int) override
    {
        uint32_t serie = 0;
        std::memcpy(&serie, packet + 4, sizeof serie);
        std::lock_guard<std::mutex> guard(lock);
        series.push_back(serie);
    }
    bool ReadyForMessage() override { return ready.load(); }
    void setReady(bool on)
    {
        ready = on;
        if (on)
            ResumeDelivery();
    }
    std::size_t count()
    {
        std::lock_guard<std::mutex> guard(lock);
        return series.size();
    }
    std::vector<uint32_t> taken()
    {
        std::lock_guard<std::mutex> guard(lock);
        return series;
    }

private:
    std::atomic<bool> ready{true};
    std::mutex lock;
    std::vector<uint32_t> series;
};

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

} // namespace

int main()
{
    playback();
    return vxtest::result("tst_capturesource");
}
