#include "capture/pcapngwriter.h"

#include "capture/pcapwriter.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace vxrec {

namespace {
constexpr uint32_t kSectionHeader = 0x0A0D0D0A;
constexpr uint32_t kInterfaceDescription = 1;
constexpr uint32_t kEnhancedPacket = 6;
constexpr uint32_t kByteOrderMagic = 0x1A2B3C4D;
constexpr uint16_t kLinkTypeRaw = 101; // the frame is the IP packet
constexpr uint16_t kOptionTsResol = 9;
constexpr std::size_t kEnhancedPacketFixed = 28 + 4; // block up to the data, trailing length
// The buffer is written once it holds this much.
constexpr std::size_t kFlushAt = std::size_t(1) << 20;

std::size_t pad4(std::size_t n)
{
    return (n + 3) & ~std::size_t(3);
}
} // namespace

PcapngWriter::~PcapngWriter()
{
    close();
}

uint64_t PcapngWriter::blockBytes(std::size_t payload)
{
    return kEnhancedPacketFixed + pad4(PcapWriter::kIpUdpHeaders + payload);
}

bool PcapngWriter::fail(int error)
{
    err = error ? error : EIO;
    message = std::strerror(err);
    pending.clear();
    return false;
}

void PcapngWriter::put(const void* bytes, std::size_t n)
{
    if (!n)
        return; // an empty datagram may come without bytes
    const char* p = static_cast<const char*>(bytes);
    pending.insert(pending.end(), p, p + n);
}

bool PcapngWriter::open(const std::string& path)
{
    close();
    err = 0;
    message.clear();
    written = 0;
    nextId = 1;
    pending.clear();
    pending.reserve(kFlushAt + blockBytes(PcapWriter::kMaxPayload));
    fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0)
        return fail(errno);
    // Section header: no options, section length unknown (-1). The file is
    // written in host byte order, which the magic announces.
    const uint32_t shb[] = {kSectionHeader, 28, kByteOrderMagic, 1 /* 1.0 */, 0xffffffffu,
                            0xffffffffu,    28};
    put(shb, sizeof shb);
    // Interface 0: raw IPv4, no snap length, timestamps in nanoseconds.
    const uint32_t idbHead[] = {kInterfaceDescription, 32};
    const uint16_t link[] = {kLinkTypeRaw, 0};
    const uint32_t snapLength = 0;
    const uint16_t tsresol[] = {kOptionTsResol, 1};
    const uint8_t nanoseconds[4] = {9, 0, 0, 0};
    const uint32_t idbTail[] = {0 /* end of options */, 32};
    put(idbHead, sizeof idbHead);
    put(link, sizeof link);
    put(&snapLength, sizeof snapLength);
    put(tsresol, sizeof tsresol);
    put(nanoseconds, sizeof nanoseconds);
    put(idbTail, sizeof idbTail);
    return flush();
}

bool PcapngWriter::write(int64_t timeNs, uint32_t source, uint16_t sourcePort, uint32_t destination,
                         uint16_t destinationPort, const uint8_t* data, std::size_t n)
{
    if (fd < 0 || err)
        return false;
    if (n > PcapWriter::kMaxPayload) {
        message = "datagram of " + std::to_string(n) + " bytes is too large for one IPv4 packet";
        return false;
    }
    const auto packet = static_cast<uint32_t>(PcapWriter::kIpUdpHeaders + n);
    const auto length = static_cast<uint32_t>(blockBytes(n));
    const auto ts = static_cast<uint64_t>(timeNs);
    const uint32_t head[] = {kEnhancedPacket, length, 0,     uint32_t(ts >> 32),
                             uint32_t(ts),    packet, packet};
    put(head, sizeof head);
    uint8_t headers[PcapWriter::kIpUdpHeaders];
    PcapWriter::buildHeaders(headers, nextId++, source, sourcePort, destination, destinationPort,
                             data, n);
    put(headers, sizeof headers);
    put(data, n);
    const char zeros[3] = {};
    put(zeros, pad4(packet) - packet);
    put(&length, sizeof length);
    return pending.size() < kFlushAt || flush();
}

bool PcapngWriter::flush()
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
            // Part of the buffer may be on disk, ending inside a block: the
            // blocks that reached it whole stay, the rest is cut off.
            written += wholeBlocks(done);
            [[maybe_unused]] const int cut = ::ftruncate(fd, static_cast<off_t>(written));
            return fail(why);
        }
        done += std::size_t(w);
    }
    written += pending.size();
    pending.clear();
    return true;
}

std::size_t PcapngWriter::wholeBlocks(std::size_t n) const
{
    // Every block gives its total length at its byte 4.
    std::size_t end = 0;
    while (end + 8 <= n) {
        uint32_t length = 0;
        std::memcpy(&length, pending.data() + end + 4, sizeof length);
        if (end + length > n)
            break;
        end += length;
    }
    return end;
}

bool PcapngWriter::close()
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
