#pragma once
#include <cstdint>
#include <string>

typedef struct pcap pcap_t;

namespace vxrec {

// Reads the frames of a pcap or pcapng file (either byte order, microsecond
// or nanosecond timestamps) through libpcap, keeping nanosecond resolution.
//
// Ownership: owns the libpcap handle; a Frame's bytes belong to the reader
// and stay valid until the next call of next() or close(). Threads: one
// thread at a time.
class PcapReader
{
public:
    struct Frame
    {
        int64_t timeNs = 0; // capture time, nanoseconds since the epoch
        const uint8_t* data = nullptr;
        uint32_t capturedLength = 0; // bytes present in the file
        uint32_t originalLength = 0; // bytes on the wire
        uint64_t offset = 0;         // where its record starts in the file
    };
    enum class Status
    {
        Frame, // `frame` holds the next frame
        End,   // the file ended cleanly
        Error, // the file is damaged or truncated: error() says how
    };

    PcapReader() = default;
    ~PcapReader();
    PcapReader(const PcapReader&) = delete;
    PcapReader& operator=(const PcapReader&) = delete;

    // False when the file is missing, unreadable or not a capture; error()
    // says why.
    bool open(const std::string& path);
    Status next(Frame& frame);
    // Goes on reading at `offset`, the start of a record that next() gave
    // before (pcapng too, within the interfaces already read). False when
    // the file cannot be positioned there.
    bool seek(uint64_t offset);
    // The file's size in bytes; 0 when unknown.
    uint64_t size() const { return bytesInFile; }
    void close();

    // libpcap's DLT_ value of the file's link type.
    int linkType() const { return dlt; }
    uint64_t framesRead() const { return frames; }
    const std::string& error() const { return message; }

private:
    pcap_t* handle = nullptr;
    int dlt = -1;
    uint64_t frames = 0;
    uint64_t bytesInFile = 0;
    std::string message;
};

} // namespace vxrec
