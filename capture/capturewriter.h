#pragma once
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace vxrec {

// Writes received UDP datagrams into a capture file, one record per datagram
// as one unfragmented IPv4 packet with synthesised IPv4 and UDP headers
// (buildHeaders: the real sender address and port, the local address the
// datagram arrived on and the recorded port), so that Wireshark, libpcap and
// vxscanner-replay read it like a capture taken on the wire. The formats
// (PcapWriter: classic pcap; PcapngWriter: pcapng) differ only in how they
// frame the header and the records; both time stamps are in nanoseconds and
// the link type is raw IPv4.
//
// Records are collected in a buffer of about 1 MiB and written together
// (flush() writes it at once, close() writes it and closes the file).
//
// The failure rule, the same for every format: a write error (a full disk,
// a file-size limit, any other) leaves a valid capture. The file is cut back
// (ftruncate) to the end of the last record that reached it whole, so it
// holds the file header and exactly the records written before the failure,
// never a record cut in two; the writer then refuses every later write and
// says why (error(), errorNumber()). A header that cannot be written leaves
// the file empty and open() fails. SIGXFSZ is ignored from the first open()
// on (process-wide), so that a file-size limit fails the write (EFBIG)
// instead of ending the process in the middle of a record. The cut needs a
// file that can be truncated; a pipe keeps what it took.
//
// Ownership: owns the file. Threads: one thread at a time.
class CaptureWriter
{
public:
    enum class Format
    {
        Pcap,
        Pcapng,
    };
    static constexpr std::size_t kIpUdpHeaders = 28;
    static constexpr std::size_t kMaxPayload = 65535 - kIpUdpHeaders;

    // A writer of `format`.
    static std::unique_ptr<CaptureWriter> create(Format format);
    // The bytes the header of a file of `format` takes, and one datagram of
    // `payload` bytes.
    static uint64_t headerSize(Format format);
    static uint64_t recordSize(Format format, std::size_t payload);

    virtual ~CaptureWriter();
    CaptureWriter(const CaptureWriter&) = delete;
    CaptureWriter& operator=(const CaptureWriter&) = delete;

    virtual Format format() const = 0;

    // Creates (or truncates) the file and writes its header. False with the
    // reason in error() when the file cannot be created or its header not
    // written.
    bool open(const std::string& path);
    // Appends one datagram (addresses in host byte order). False on a write
    // error (the writer has failed) or a payload above kMaxPayload (it has
    // not: the datagram is left out).
    bool write(int64_t timeNs, uint32_t source, uint16_t sourcePort, uint32_t destination,
               uint16_t destinationPort, const uint8_t* data, std::size_t n);
    // Writes what is buffered.
    bool flush();
    // Flushes and closes; false when that failed or the writer had failed.
    bool close();

    // Bytes in the file, whole records only (after a failure: what was kept).
    uint64_t fileBytes() const { return written; }
    // Bytes the file will hold once the buffer is written.
    uint64_t totalBytes() const { return written + pending.size(); }
    bool failed() const { return err != 0; }
    // errno of the failure (ENOSPC, EFBIG, ...); 0 while none.
    int errorNumber() const { return err; }
    // Why it failed ("No space left on device"), or why the last write was
    // refused; empty while neither happened.
    const std::string& error() const { return message; }

    // Fills the 28 bytes of IPv4 and UDP header for a datagram: DF, TTL 64,
    // IP id `ipId`, correct IP and UDP checksums.
    static void buildHeaders(uint8_t* out, uint16_t ipId, uint32_t source, uint16_t sourcePort,
                             uint32_t destination, uint16_t destinationPort, const uint8_t* data,
                             std::size_t n);

protected:
    CaptureWriter() = default;
    // Append the file header, or the record of one datagram (its IPv4 and
    // UDP headers in `headers`), to the buffer through put().
    virtual void putHeader() = 0;
    virtual void putRecord(int64_t timeNs, const uint8_t* headers, const uint8_t* data,
                           std::size_t n) = 0;
    void put(const void* bytes, std::size_t n);

private:
    bool fail(int error);
    // Ends the unit (the header or a record) appended since the last one.
    void endUnit() { ends.push_back(pending.size()); }
    // The bytes of the whole units among the first `n` of `pending`.
    std::size_t wholeUnits(std::size_t n) const;

    int fd = -1;
    uint64_t written = 0;
    uint16_t nextId = 1;
    int err = 0;
    std::string message;
    std::vector<char> pending;     // whole units not yet written
    std::vector<std::size_t> ends; // where each unit in `pending` ends
};

} // namespace vxrec
