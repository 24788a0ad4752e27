#pragma once
#include "capture/capturewriter.h"

#include <cstddef>
#include <cstdint>

namespace vxrec {

// A CaptureWriter of classic pcap files: nanosecond timestamps (magic
// a1b23c4d) in host byte order, snap length 65535, link type raw IPv4, a
// 16-byte record header before each packet. The failure rule and the
// threads are CaptureWriter's.
//
// Ownership: owns the file. Threads: one thread at a time.
class PcapWriter : public CaptureWriter
{
public:
    static constexpr std::size_t kFileHeader = 24;
    static constexpr std::size_t kRecordHeader = 16;

    PcapWriter() = default;
    ~PcapWriter() override = default;

    Format format() const override { return Format::Pcap; }
    // The bytes one datagram of `payload` bytes takes in the file.
    static uint64_t recordBytes(std::size_t payload)
    {
        return kRecordHeader + kIpUdpHeaders + payload;
    }

protected:
    void putHeader() override;
    void putRecord(int64_t timeNs, const uint8_t* headers, const uint8_t* data,
                   std::size_t n) override;
};

} // namespace vxrec
