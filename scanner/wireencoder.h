#pragma once
#include "scanner/wireformat.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace strmsocket {

// Builds messages of the wire protocol and splits them into datagrams. Used by
// the simulator, the tools and the tests. Pure functions; any thread.
class WireEncoder
{
public:
    // Header fields of a raw-line message.
    struct RawLine
    {
        uint32_t series = 0;
        uint32_t protocol = 1;
        uint32_t subProtocol = 2;
        uint32_t device = 0;
        uint32_t datatyp = 2;     // 1.2/1.3: at byte 124; 1.1: word 0
        uint32_t mode = 0;        // 1.2/1.3: word 0
        uint32_t layoutFlag = 0;  // 1.1: word 1 (non-zero: short layout)
        uint32_t lineheadersize = 0;
        uint32_t bpp = 8;
        uint32_t pixel = 0;
        uint32_t extra1 = 0, extra2 = 0, factor = 0; // 1.3
        double parameter = 0.0;                      // 1.2, 1.3
    };

    // A raw-line message: the 92-byte (1.1) or 128-byte (1.2, 1.3) header
    // followed by `lineBytes` (line header, then pixels).
    static std::vector<char> rawLine(const RawLine& h, const char* lineBytes, std::size_t n);
    // A file-header message with (key, value) entries.
    static std::vector<char> fileHeader(uint32_t device, const std::string& name,
                                        const std::vector<std::pair<uint32_t, double>>& entries);
    // Splits a message into datagrams of at most `maxFragment` message bytes.
    static std::vector<std::vector<char>> fragment(uint32_t messageNumber, const char* message,
                                                   std::size_t length,
                                                   std::size_t maxFragment = WireFormat::kMaxFragment);
    // One datagram: the 16-byte framing header and `n` message bytes from
    // `offset`.
    static std::vector<char> datagram(uint32_t messageNumber, uint32_t messageLength,
                                      uint32_t offset, const char* bytes, std::size_t n);
};

} // namespace strmsocket
