#pragma once
#include "capture/capturewriter.h"

#include <cstddef>
#include <cstdint>

namespace vxrec {

// A CaptureWriter of pcapng files: a section header, one interface of link
// type raw IPv4 with no snap length and nanosecond timestamps (if_tsresol 9),
// and one enhanced packet block per datagram, in host byte order. The
// failure rule and the threads are CaptureWriter's.
//
// Ownership: owns the file. Threads: one thread at a time.
class PcapngWriter : public CaptureWriter
{
public:
    // Section header and interface description.
    static constexpr std::size_t kFileHeader = 28 + 32;

    PcapngWriter() = default;
    ~PcapngWriter() override = default;

    Format format() const override { return Format::Pcapng; }
    // The bytes one datagram of `payload` bytes takes in the file.
    static uint64_t blockBytes(std::size_t payload);

protected:
    void putHeader() override;
    void putRecord(int64_t timeNs, const uint8_t* headers, const uint8_t* data,
                   std::size_t n) override;
};

} // namespace vxrec
