#include "capture/capturewriter.h"

#include "capture/netbytes.h"
#include "capture/pcapngwriter.h"
#include "capture/pcapwriter.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace vxrec {

namespace {
// The buffer is written once it holds this much.
constexpr std::size_t kFlushAt = std::size_t(1) << 20;
} // namespace

std::unique_ptr<CaptureWriter> CaptureWriter::create(Format format)
{
    if (format == Format::Pcapng)
        return std::make_unique<PcapngWriter>();
    return std::make_unique<PcapWriter>();
}

uint64_t CaptureWriter::headerSize(Format format)
{
    return format == Format::Pcapng ? PcapngWriter::kFileHeader : PcapWriter::kFileHeader;
}

uint64_t CaptureWriter::recordSize(Format format, std::size_t payload)
{
    return format == Format::Pcapng ? PcapngWriter::blockBytes(payload)
                                    : PcapWriter::recordBytes(payload);
}

CaptureWriter::~CaptureWriter()
{
    close();
}

bool CaptureWriter::fail(int error)
{
    err = error ? error : EIO;
    message = std::strerror(err);
    pending.clear();
    ends.clear();
    return false;
}

void CaptureWriter::put(const void* bytes, std::size_t n)
{
    if (!n)
        return; // an empty datagram may come without bytes
    const char* p = static_cast<const char*>(bytes);
    pending.insert(pending.end(), p, p + n);
}

bool CaptureWriter::open(const std::string& path)
{
    close();
    // A file-size limit then fails the write (EFBIG) instead of killing the
    // process with a record half written.
    std::signal(SIGXFSZ, SIG_IGN);
    err = 0;
    message.clear();
    written = 0;
    nextId = 1;
    pending.clear();
    ends.clear();
    pending.reserve(kFlushAt + recordSize(format(), kMaxPayload));
    fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0)
        return fail(errno);
    putHeader();
    endUnit();
    if (flush())
        return true;
    ::close(fd);
    fd = -1;
    return false;
}

void CaptureWriter::buildHeaders(uint8_t* h, uint16_t ipId, uint32_t source, uint16_t sourcePort,
                                 uint32_t destination, uint16_t destinationPort,
                                 const uint8_t* data, std::size_t n)
{
    const auto udpLength = static_cast<uint16_t>(8 + n);
    h[0] = 0x45; // IPv4, 20-byte header
    h[1] = 0;
    putBe16(h + 2, static_cast<uint16_t>(20 + udpLength));
    putBe16(h + 4, ipId);
    putBe16(h + 6, 0x4000); // don't fragment, offset 0: one whole datagram
    h[8] = 64;              // TTL
    h[9] = 17;              // UDP
    putBe16(h + 10, 0);
    putBe32(h + 12, source);
    putBe32(h + 16, destination);
    putBe16(h + 10, foldChecksum(onesSum(h, 20)));

    uint8_t* u = h + 20;
    putBe16(u, sourcePort);
    putBe16(u + 2, destinationPort);
    putBe16(u + 4, udpLength);
    putBe16(u + 6, 0);
    // UDP checksum over the pseudo header (addresses, protocol, length),
    // the UDP header and the data; 0 is sent as 0xffff.
    uint32_t sum = onesSum(h + 12, 8);
    sum += 17 + udpLength;
    sum = onesSum(u, 8, sum);
    sum = onesSum(data, n, sum);
    const uint16_t c = foldChecksum(sum);
    putBe16(u + 6, c ? c : 0xffff);
}

bool CaptureWriter::write(int64_t timeNs, uint32_t source, uint16_t sourcePort,
                          uint32_t destination, uint16_t destinationPort, const uint8_t* data,
                          std::size_t n)
{
    if (err)
        return false;
    if (fd < 0) {
        message = "no file open";
        return false;
    }
    if (n > kMaxPayload) {
        message = "datagram of " + std::to_string(n) + " bytes is too large for one IPv4 packet";
        return false;
    }
    uint8_t headers[kIpUdpHeaders];
    buildHeaders(headers, nextId++, source, sourcePort, destination, destinationPort, data, n);
    putRecord(timeNs, headers, data, n);
    endUnit();
    return pending.size() < kFlushAt || flush();
}

bool CaptureWriter::flush()
{
    if (fd < 0 || err)
        return !err;
    std::size_t done = 0;
    while (done < pending.size()) {
        const ssize_t w = ::write(fd, pending.data() + done, pending.size() - done);
        if (w < 0 && errno == EINTR)
            continue;
        if (w <= 0) {
            const int why = w < 0 ? errno : ENOSPC;
            // Part of the buffer may be in the file, ending inside a record:
            // the records that reached it whole stay, the rest is cut off.
            written += wholeUnits(done);
            [[maybe_unused]] const int cut = ::ftruncate(fd, static_cast<off_t>(written));
            return fail(why);
        }
        done += std::size_t(w);
    }
    written += pending.size();
    pending.clear();
    ends.clear();
    return true;
}

std::size_t CaptureWriter::wholeUnits(std::size_t n) const
{
    const auto after = std::upper_bound(ends.begin(), ends.end(), n);
    return after == ends.begin() ? 0 : *(after - 1);
}

bool CaptureWriter::close()
{
    if (fd < 0)
        return !err;
    const bool ok = flush();
    const bool closed = ::close(fd) == 0;
    fd = -1;
    if (ok && !closed)
        return fail(errno);
    return ok && closed;
}

} // namespace vxrec
