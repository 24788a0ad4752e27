// The capture writers' failure rule, in both formats: whatever stops the
// writing (a file-size limit inside the header, on a record's end, inside a
// record, several buffers in; a full device; a full file system), the file
// holds the header and exactly the records that reached it whole, libpcap
// reads it to a clean end, and so do tshark and capinfos; the writer refuses
// every later write with the system's reason.
#include "tests/check.h"

#include "capture/capturewriter.h"
#include "capture/datagramextractor.h"

#include <filesystem>
#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>

using namespace vxrec;
using Bytes = std::vector<uint8_t>;
using Format = CaptureWriter::Format;

namespace {

constexpr uint16_t kPort = 6101;
constexpr int64_t kT0 = 1700000000LL * 1000000000 + 5;

// Record i's payload: `size` bytes that name it.
Bytes payload(std::size_t i, std::size_t size)
{
    Bytes b(size);
    for (std::size_t k = 0; k < size; ++k)
        b[k] = uint8_t(i * 7 + k);
    return b;
}

// The payloads libpcap reads from `path`, and whether it read to a clean end.
std::vector<Bytes> readBack(const std::string& path, bool& clean)
{
    std::vector<Bytes> out;
    DatagramExtractor x({kPort, -1});
    clean = false;
    if (!CHECK(x.open(path)))
        return out;
    UdpDatagram d;
    DatagramExtractor::Status s;
    while ((s = x.next(d)) == DatagramExtractor::Status::Datagram)
        out.emplace_back(d.data, d.data + d.length);
    clean = s == DatagramExtractor::Status::End;
    return out;
}

// Runs `command`; its exit status and what it printed (its errors, too, when
// `errors` says so).
int run(const std::string& command, std::string& out, const char* errors = " 2>&1")
{
    out.clear();
    std::FILE* p = popen((command + errors).c_str(), "r");
    for (int c; (c = std::fgetc(p)) != EOF;)
        out += char(c);
    const int status = pclose(p);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

bool haveTshark()
{
    std::string out;
    static const bool have = run("command -v tshark && command -v capinfos", out) == 0;
    return have;
}

// tshark and capinfos read `path` without a complaint and count `packets`.
void foreignReaders(const std::string& path, std::size_t packets)
{
    if (!haveTshark())
        return;
    // No user profile of the machine's may interfere. A damaged file makes
    // both fail (tshark: "cut short in the middle of a packet").
    const std::string env = "HOME=" + vxtest::tempPath("home") + " ";
    std::string out;
    CHECK_EQ(run(env + "tshark -n -r '" + path + "' -T fields -e udp.dstport", out, " 2>/dev/null"),
             0);
    std::size_t lines = 0, port = 0;
    for (std::size_t at = 0; (at = out.find('\n', at)) != std::string::npos; ++at)
        ++lines;
    for (std::size_t at = 0; (at = out.find("6101\n", at)) != std::string::npos; ++at)
        ++port;
    if (!CHECK(lines == packets && port == packets))
        std::fprintf(stderr, "  tshark: %s\n", out.substr(0, 400).c_str());
    CHECK_EQ(run(env + "capinfos -c -M '" + path + "'", out, " 2>/dev/null"), 0);
    if (!CHECK(out.find("Number of packets:   " + std::to_string(packets) + "\n") !=
               std::string::npos))
        std::fprintf(stderr, "  capinfos: %s\n", out.c_str());
}

// A directory on a file system of `bytes`, private to this process; empty
// when the process may not make one (not privileged).
std::string tinyFileSystem(std::size_t bytes)
{
    const std::string dir = vxtest::tempPath("tiny");
    ::mkdir(dir.c_str(), 0700);
    if (::unshare(CLONE_NEWNS) != 0 ||
        ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        ::mount("tmpfs", dir.c_str(), "tmpfs", 0, ("size=" + std::to_string(bytes)).c_str()) != 0)
        return std::string();
    return dir;
}

struct Row
{
    const char* name;
    // Where the file goes: "file", "/dev/full" or "tmpfs".
    const char* sink;
    // The file-size limit in bytes, as header + records * record + extra
    // (records < 0: no limit).
    double records;
    std::size_t extra;
    std::size_t payload; // bytes of each datagram
    std::size_t count;   // datagrams written
    bool opens;
    const char* reason; // of the failure; empty: none
};

void failureRule()
{
    const Row rows[] = {
        {"no failure", "file", -1, 0, 1000, 40, true, ""},
        {"limit inside the header", "file", 0, 0, 1000, 10, false, "File too large"},
        {"limit on a record's end", "file", 3, 0, 1000, 10, true, "File too large"},
        {"limit inside a record", "file", 3.5, 0, 1000, 10, true, "File too large"},
        {"limit several buffers in", "file", 260.5, 0, 9000, 1000, true, "File too large"},
        {"full device", "/dev/full", -1, 0, 1000, 10, false, "No space left on device"},
        {"full file system", "tmpfs", -1, 0, 1000, 1000, true, "No space left on device"},
    };
    std::string tiny;
    for (const Row& row : rows)
        for (const Format format : {Format::Pcap, Format::Pcapng}) {
            vxtest::row = std::string(row.name) + (format == Format::Pcap ? " pcap" : " pcapng");
            const uint64_t header = CaptureWriter::headerSize(format);
            const uint64_t record = CaptureWriter::recordSize(format, row.payload);
            std::string path = vxtest::tempPath("w.cap");
            if (std::string(row.sink) == "/dev/full") {
                path = row.sink;
            } else if (std::string(row.sink) == "tmpfs") {
                if (tiny.empty())
                    tiny = tinyFileSystem(256 << 10);
                if (tiny.empty()) {
                    std::fprintf(stderr, "[%s] skipped: no tmpfs may be mounted here\n",
                                 vxtest::row.c_str());
                    continue;
                }
                path = tiny + "/w.cap";
            }
            // The limit: half the header for "inside the header".
            rlimit before{};
            ::getrlimit(RLIMIT_FSIZE, &before);
            rlimit limited = before;
            if (row.records >= 0)
                limited.rlim_cur = row.records == 0
                                       ? header / 2
                                       : rlim_t(double(header) + row.records * double(record));
            ::setrlimit(RLIMIT_FSIZE, &limited);
            std::unique_ptr<CaptureWriter> w = CaptureWriter::create(format);
            const bool opened = w->open(path);
            std::size_t accepted = 0;
            bool refusedAfter = true, closed = false;
            std::vector<Bytes> sent;
            if (opened) {
                for (std::size_t i = 0; i < row.count; ++i) {
                    sent.push_back(payload(i, row.payload));
                    if (!w->write(kT0 + int64_t(i) * 1000, 0x0a000002, 5000, 0x7f000001, kPort,
                                  sent.back().data(), row.payload))
                        break;
                    ++accepted;
                }
                if (w->failed()) // every later write is refused at once
                    refusedAfter = !w->write(kT0, 1, 1, 1, kPort, sent[0].data(), row.payload);
                closed = w->close();
            }
            ::setrlimit(RLIMIT_FSIZE, &before);

            CHECK_EQ(opened, row.opens);
            CHECK_EQ(w->error(), std::string(row.reason));
            CHECK_EQ(w->failed(), *row.reason != 0);
            CHECK(refusedAfter);
            if (path == "/dev/full")
                continue;
            const uint64_t size = std::filesystem::file_size(path);
            CHECK_EQ(size, w->fileBytes());
            if (!opened) { // no header written: nothing, rather than a wrong one
                CHECK_EQ(size, uint64_t(0));
                continue;
            }
            CHECK_EQ(closed, *row.reason == 0);
            CHECK(accepted >= 1);
            // Whole records only, and every one of them read back in order.
            CHECK_EQ((size - header) % record, uint64_t(0));
            const std::size_t kept = std::size_t((size - header) / record);
            if (row.records > 0)
                CHECK_EQ(kept, std::size_t(row.records));
            else if (row.records < 0 && !*row.reason)
                CHECK_EQ(kept, row.count);
            else
                CHECK(kept >= 1 && size <= (256u << 10));
            bool clean = false;
            const std::vector<Bytes> got = readBack(path, clean);
            CHECK(clean);
            CHECK(kept <= sent.size() &&
                  got == std::vector<Bytes>(sent.begin(), sent.begin() + long(kept)));
            foreignReaders(path, kept);
        }
    if (!tiny.empty())
        ::umount(tiny.c_str());
}

} // namespace

int main()
{
    failureRule();
    if (!haveTshark())
        std::fprintf(stderr,
                     "tst_capturewriter: tshark or capinfos missing, their checks skipped\n");
    return vxtest::result("tst_capturewriter");
}
