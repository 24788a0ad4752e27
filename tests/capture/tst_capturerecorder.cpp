// Recording datagrams into a pcapng or pcap file from a "receive thread": the
// file read back through libpcap holds every datagram byte for byte with its
// time, addresses and ports; a disk that does not keep up costs counted
// datagrams, never a wait; a file-size limit ends the recording with a file
// that still reads cleanly to its end.
#include "tests/check.h"

#include "capture/capturerecorder.h"
#include "capture/datagramextractor.h"
#include "scanner/wireencoder.h"

#include <fcntl.h>
#include <filesystem>
#include <sys/resource.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

using namespace vxrec;
using Datagram = strmsocket::DatagramSource::Datagram;
using Bytes = std::vector<uint8_t>;

namespace {

constexpr uint16_t kPort = 6101;
constexpr int64_t kT0 = 1700000000LL * 1000000000 + 123456789;

struct Sent
{
    Bytes payload;
    Datagram d;
};

// `n` datagrams: raw lines in one or several pieces, and datagrams that are
// no message at all, empty or of the largest payload; several senders,
// times a nanosecond apart or more.
std::vector<Sent> traffic(int n)
{
    std::vector<Sent> out;
    for (uint32_t i = 0; int(out.size()) < n; ++i) {
        const strmsocket::WireEncoder::RawLine h{i, 1, 2, 0, 2, 0, 0, 0, 8, 100 + i % 7};
        const std::vector<char> body(8 + 8 * (100 + i % 7), char(i));
        const auto m = strmsocket::WireEncoder::rawLine(h, body.data(), body.size());
        std::vector<std::vector<char>> pieces =
            strmsocket::WireEncoder::fragment(i, m.data(), m.size(), i % 3 ? 65491 : 300);
        if (i % 5 == 4)
            pieces.push_back(std::vector<char>(i % 10 == 4 ? 0 : 65507, char(0xA5)));
        for (const auto& p : pieces) {
            Datagram d;
            d.length = p.size();
            d.sender = 0x0A000001 + i % 3;
            d.senderPort = static_cast<uint16_t>(40000 + i % 3);
            d.local = 0x7F000001;
            d.receivedNs = kT0 + int64_t(out.size()) * 1000 + (i % 2);
            out.push_back({Bytes(p.begin(), p.end()), d});
        }
    }
    out.resize(std::size_t(n));
    return out;
}

// Feeds `sent` from a thread of its own, as a receive thread would.
void feed(CaptureRecorder& recorder, const std::vector<Sent>& sent)
{
    std::thread receiver([&] {
        for (const Sent& s : sent)
            recorder.onDatagram(reinterpret_cast<const char*>(s.payload.data()), s.d);
    });
    receiver.join();
}

struct ReadBack
{
    std::vector<Sent> datagrams;
    DatagramExtractor::Status end = DatagramExtractor::Status::Error;
};

ReadBack readBack(const std::string& path)
{
    ReadBack r;
    DatagramExtractor x({kPort, -1});
    if (!CHECK(x.open(path)))
        return r;
    UdpDatagram u;
    while ((r.end = x.next(u)) == DatagramExtractor::Status::Datagram) {
        Datagram d;
        d.length = u.length;
        d.sender = u.source;
        d.senderPort = u.sourcePort;
        d.local = u.destination;
        d.receivedNs = u.timeNs;
        r.datagrams.push_back({Bytes(u.data, u.data + u.length), d});
    }
    return r;
}

// The first `n` of `sent` are what was read back, in order, to the byte.
bool same(const std::vector<Sent>& sent, const std::vector<Sent>& got, std::size_t n)
{
    if (!CHECK_EQ(got.size(), n))
        return false;
    for (std::size_t i = 0; i < n; ++i) {
        const Datagram &a = sent[i].d, &b = got[i].d;
        if (!CHECK(sent[i].payload == got[i].payload && a.sender == b.sender &&
                   a.senderPort == b.senderPort && a.local == b.local &&
                   a.receivedNs == b.receivedNs))
            return false;
    }
    return true;
}

const char* name(CaptureWriter::Format format)
{
    return format == CaptureWriter::Format::Pcap ? "pcap" : "pcapng";
}

// Everything fed is in the file, in either format, however the buffer is
// cut into chunks (the smallest chunk holds one largest datagram), and the
// counters match the file.
void roundTrip()
{
    const std::size_t chunkRows[] = {0, std::size_t(1) << 20};
    for (const auto format : {CaptureWriter::Format::Pcapng, CaptureWriter::Format::Pcap})
        for (std::size_t chunk : chunkRows) {
            vxtest::row = "chunks of " + std::to_string(chunk) + " " + name(format);
            const std::vector<Sent> sent = traffic(400);
            const std::string path = vxtest::tempPath("round.cap");
            CaptureRecorder recorder(kPort, {std::size_t(64) << 20, chunk});
            if (!CHECK(recorder.start(path, format)))
                continue;
            feed(recorder, sent);
            CHECK(recorder.finish());
            const CaptureRecorder::Status s = recorder.status();
            CHECK_EQ(s.datagrams, uint64_t(sent.size()));
            CHECK_EQ(s.notRecorded, uint64_t(0));
            CHECK_EQ(s.written, s.bytes);
            CHECK_EQ(uint64_t(std::filesystem::file_size(path)), s.bytes);
            const ReadBack r = readBack(path);
            same(sent, r.datagrams, sent.size());
            CHECK(r.end == DatagramExtractor::Status::End);
        }
}

// A writer that cannot write (a pipe that nobody reads yet) with a buffer of
// two chunks: the receive thread goes on, what did not fit is counted, and
// once the pipe is read everything taken is in it, in order.
void overflowIsCounted()
{
    vxtest::row = "overflow";
    const std::string path = vxtest::tempPath("slow.pcapng");
    if (!CHECK(::mkfifo(path.c_str(), 0600) == 0))
        return;
    // Holding the reading end open lets the recorder open the pipe.
    const int reader = ::open(path.c_str(), O_RDONLY | O_NONBLOCK);
    CaptureRecorder recorder(kPort, {0, 0}); // two chunks of the smallest size
    if (!CHECK(recorder.start(path)))
        return;
    const std::vector<Sent> sent = traffic(300);
    feed(recorder, sent);
    const CaptureRecorder::Status during = recorder.status();
    CHECK(during.notRecorded > 0);
    CHECK_EQ(during.datagrams + during.notRecorded, uint64_t(sent.size()));

    // Read the pipe into a file while the recorder finishes.
    const std::string copy = vxtest::tempPath("slow-copy.pcapng");
    std::thread drain([&] {
        ::fcntl(reader, F_SETFL, 0);
        std::FILE* out = std::fopen(copy.c_str(), "wb");
        char buffer[65536];
        ssize_t n;
        while ((n = ::read(reader, buffer, sizeof buffer)) > 0)
            std::fwrite(buffer, 1, std::size_t(n), out);
        std::fclose(out);
    });
    CHECK(recorder.finish());
    drain.join();
    ::close(reader);
    const ReadBack r = readBack(copy);
    // What was taken is the first datagrams: the buffer filled and stayed
    // full while the pipe was not read.
    same(sent, r.datagrams, std::size_t(during.datagrams));
    CHECK(r.end == DatagramExtractor::Status::End);
}

// A file-size limit below what is fed: the recording fails with the
// system's reason, the file is cut back to its last whole record, and it
// reads cleanly to its end, in either format.
void fileSizeLimit(CaptureWriter::Format format)
{
    vxtest::row = std::string("file-size limit ") + name(format);
    rlimit before{};
    ::getrlimit(RLIMIT_FSIZE, &before);
    rlimit limited = before;
    limited.rlim_cur = 3u << 20;
    if (!CHECK(::setrlimit(RLIMIT_FSIZE, &limited) == 0))
        return;
    const std::string path = vxtest::tempPath("limited.cap");
    CaptureRecorder recorder(kPort);
    const bool started = recorder.start(path, format);
    const std::vector<Sent> sent = traffic(1000); // some 10 MB
    if (started)
        feed(recorder, sent);
    const bool finished = recorder.finish();
    ::setrlimit(RLIMIT_FSIZE, &before);
    if (!CHECK(started))
        return;
    CHECK(!finished);
    const CaptureRecorder::Status s = recorder.status();
    CHECK(s.failed);
    CHECK_EQ(s.error, std::string("File too large"));
    // Within the limit, and short of it by less than the largest record: the
    // records of a buffer that reached the file whole stay.
    CHECK(s.written <= limited.rlim_cur);
    CHECK(s.written + CaptureWriter::recordSize(format, 65507) > limited.rlim_cur);
    CHECK_EQ(uint64_t(std::filesystem::file_size(path)), s.written);
    const ReadBack r = readBack(path);
    CHECK(r.end == DatagramExtractor::Status::End);
    CHECK(!r.datagrams.empty());
    same(sent, r.datagrams, r.datagrams.size());
}

} // namespace

int main()
{
    roundTrip();
    overflowIsCounted();
    fileSizeLimit(CaptureWriter::Format::Pcapng);
    fileSizeLimit(CaptureWriter::Format::Pcap);
    return vxtest::result("tst_capturerecorder");
}
