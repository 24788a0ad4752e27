#pragma once
#include "capture/ipv4reassembler.h"
#include "capture/linkdecoder.h"
#include "capture/pcapreader.h"
#include "capture/skipcounters.h"
#include "capture/udpdatagram.h"

#include <atomic>
#include <string>

namespace vxrec {

// Reads a capture file down to the UDP datagrams sent to one port, or to
// any port (and, optionally, from one source port): link layer, IPv4 with
// reassembly of fragments, UDP. Everything else is skipped and counted by
// kind. Reading may be bounded to the first bytes of the file.
//
// Ownership: owns the reader and the reassembler. Threads: one thread at a
// time.
class DatagramExtractor
{
public:
    struct Filter
    {
        uint16_t port = 6101; // 0: any destination port
        int sourcePort = -1;  // -1: any
        // Frames whose record starts at or past this offset are not read:
        // next() ends there as at the end of the file (see limitReached()).
        uint64_t endOffset = UINT64_MAX;
    };
    enum class Status
    {
        Datagram, // `out` holds the next matching datagram
        End,      // the file ended cleanly
        Error,    // open failed, unsupported link type, or a damaged file
        Stopped,  // the stop flag was set: next() goes on from here when called again
    };

    explicit DatagramExtractor(Filter filter);

    // False when the file cannot be read or its link type is not supported;
    // error() says why.
    bool open(const std::string& path);
    // `out.data` stays valid until the next call.
    Status next(UdpDatagram& out);
    // next() looks at `flag` before each frame it reads, also while it skips
    // frames of other traffic (gigabytes of it in a capture taken on a
    // mirror port), and returns Stopped once it is set. Null: never stops.
    // The flag is read from the extractor's thread, set from any.
    void setStop(const std::atomic<bool>* flag) { stop = flag; }
    // Goes on at `offset`, a datagram's offset that next() gave before;
    // pieces of datagrams read so far are forgotten. False with error().
    bool seek(uint64_t offset);
    // The file's size in bytes (0 when unknown) and where reading stands.
    uint64_t fileSize() const { return reader.size(); }
    uint64_t position() const { return lastOffset; }

    const SkipCounters& skipped() const { return skips; }
    // Capture time of the file's first frame (0 before one was read).
    int64_t firstFrameNs() const { return firstNs; }
    uint64_t framesRead() const { return reader.framesRead(); }
    // next() ended at Filter::endOffset with more of the file unread.
    bool limitReached() const { return limited; }
    const std::string& error() const { return message; }

private:
    Filter filter;
    PcapReader reader;
    LinkDecoder link{-1};
    SkipCounters skips;
    Ipv4Reassembler reassembler{skips};
    const std::atomic<bool>* stop = nullptr;
    int64_t firstNs = 0;
    uint64_t lastOffset = 0;
    bool finished = false;
    bool limited = false;
    std::string message;
};

} // namespace vxrec
