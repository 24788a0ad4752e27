#pragma once
#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

namespace vxrec {

// Which UDP ports of a capture carry scanner lines, and how many lines each:
// what the user chooses from before a capture is played. A line is counted
// as CaptureIndex counts it: a datagram that begins a raw-line message.
// Ports whose datagrams begin no line are left out.
//
// The scan reads at most the first kScanBytes (64 MiB) of the file, so that
// a capture of many gigabytes offers its ports in well under a second; the
// counts are then those of that first part and partial() says so. Scanner
// traffic is steady, so the first part shows every port a real recording
// carries; the full count of the chosen port comes from its CaptureIndex.
//
// Ownership: a plain value; holds no file open after scan(). Threads: one
// thread at a time (the scan is synchronous, call it where a short wait is
// acceptable).
class CapturePorts
{
public:
    struct Port
    {
        uint16_t port = 0;
        uint64_t lines = 0; // datagrams that begin a raw line
    };
    static constexpr uint64_t kScanBytes = uint64_t(64) << 20;
    static constexpr uint16_t kLinePort = 6101; // the scanner's own line port

    // Reads the frames that start within the first `maxBytes` of `path`.
    // False when the file cannot be read at all (missing, unreadable, not a
    // capture, a link type that is not read), with the reason in error().
    // A file damaged after its start gives true, the lines before the
    // damage (all that would play) and the reason in error(). Once `stop`
    // is set (from any thread), the scan ends within a frame, with the
    // counts so far, partial() and false.
    bool scan(const std::string& path, uint64_t maxBytes = kScanBytes,
              const std::atomic<bool>* stop = nullptr);

    // By port, ascending.
    const std::vector<Port>& ports() const { return found; }
    // The scan stopped at its bound with more of the file unread.
    bool partial() const { return cut; }
    const std::string& error() const { return message; }

    // The port to offer first: kLinePort when present, otherwise the port with
    // the most lines (the lowest of equals); 0 for no ports.
    static uint16_t choose(const std::vector<Port>& ports);

private:
    std::vector<Port> found;
    bool cut = false;
    std::string message;
};

} // namespace vxrec
