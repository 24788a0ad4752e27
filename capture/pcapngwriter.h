#pragma once
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace vxrec {

// Writes received UDP datagrams into a pcapng file: a section header, one
// interface of link type raw IPv4 with nanosecond timestamps (if_tsresol 9),
// and one enhanced packet block per datagram whose IPv4 and UDP headers are
// built exactly as PcapWriter builds them (PcapWriter::buildHeaders), so that
// Wireshark, libpcap and vxscanner-replay read it like a capture taken on the
// wire.
//
// Blocks are collected in a buffer of about 1 MiB and written together.
// When a write fails (a full disk, a file-size limit), the file is cut back
// to the end of its last complete block, so that what it holds stays a valid
// capture, and every later write fails at once.
//
// Ownership: owns the file. Threads: one thread at a time.
class PcapngWriter
{
public:
    // Section header and interface description.
    static constexpr std::size_t kFileHeader = 28 + 32;
    PcapngWriter() = default;
    ~PcapngWriter();
    PcapngWriter(const PcapngWriter&) = delete;
    PcapngWriter& operator=(const PcapngWriter&) = delete;

    // Creates (or truncates) the file and writes its header blocks.
    bool open(const std::string& path);
    // Appends one datagram (addresses in host byte order). False on a write
    // error or a payload above PcapWriter::kMaxPayload.
    bool write(int64_t timeNs, uint32_t source, uint16_t sourcePort, uint32_t destination,
               uint16_t destinationPort, const uint8_t* data, std::size_t n);
    // Writes what is buffered.
    bool flush();
    // Flushes and closes; false when that failed.
    bool close();

    // The bytes one datagram of `payload` bytes takes in the file.
    static uint64_t blockBytes(std::size_t payload);
    // Bytes in the file, whole blocks only (after a failure: what was kept).
    uint64_t fileBytes() const { return written; }
    // Bytes the file will hold once the buffer is written.
    uint64_t totalBytes() const { return written + pending.size(); }
    bool failed() const { return err != 0; }
    // errno of the failure (ENOSPC, EFBIG, ...); 0 while none.
    int errorNumber() const { return err; }
    // Why it failed ("No space left on device"); empty while it has not.
    const std::string& error() const { return message; }

private:
    bool fail(int error);
    // The bytes of the whole blocks among the first `n` of `pending`.
    std::size_t wholeBlocks(std::size_t n) const;
    void put(const void* bytes, std::size_t n);

    int fd = -1;
    uint64_t written = 0;
    uint16_t nextId = 1;
    int err = 0;
    std::string message;
    std::vector<char> pending; // whole blocks not yet written
};

} // namespace vxrec
