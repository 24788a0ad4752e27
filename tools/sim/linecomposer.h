#pragma once
#include "scanner/wireencoder.h"
#include "tools/sim/scene.h"
#include "tools/sim/simoptions.h"

#include <cstdint>
#include <vector>

namespace vxsim {

// Turns the scene into wire messages: raw-line messages in the protocol,
// layout and record size the options ask for, and the file header that
// tells a receiver the beam angles and the scanner-to-scene transform.
//
// Pixel records: range and intensity sit where the viewer's pixel decoding
// reads them (1.1 long: u16 mm at byte 2, u16 at byte 6; 1.1 short: u16 mm
// at byte 1, u16 at byte 3; 1.2/1.3: 24-bit tenths of a millimetre at byte 0,
// u16 at byte 3, always even). When the column layout of (datatyp, mode)
// agrees with those positions, its further columns (status, quality, echo
// width, ...) are filled too; every other byte is 0.
//
// Line header (32 bytes, u32 words): line counter, 64-bit microsecond
// timestamp (words 1 low, 2 high), encoder position, status flags, exposure,
// temperature, line rate. Every field of line n is a pure function of the
// options and n, but for the timestamp with `stampSendTime`: then words 1
// and 2 hold the CLOCK_MONOTONIC microseconds taken as the last step of
// compose(), right before the caller sends the line.
//
// Ownership: owns its buffers. Threads: one thread at a time.
class LineComposer
{
public:
    static constexpr uint32_t kSeries = 7;
    // 10 ticks per line: 10 per millimetre of belt, 1 per millimetre travelled
    // on the street
    static constexpr int kEncoderTicksPerLine = 10;
    static constexpr uint32_t kStatusLaserOn = 1u << 0;
    static constexpr uint32_t kStatusEncoderValid = 1u << 1;

    explicit LineComposer(const SimOptions& options);

    // The raw-line message of line `line`. The reference stays valid until
    // the next call. With `stampSendTime` it carries the time of this call's
    // end: send it at once.
    const std::vector<char>& compose(uint64_t line);
    // The file-header message (name "vxscanner-sim"); empty with --no-header.
    std::vector<char> fileHeader() const;

    const Scene& scene() const { return world; }
    // The samples of the line composed last.
    const std::vector<Scene::Sample>& samples() const { return sampled; }

    // Scanner clock of line `line`: microseconds since the simulator started,
    // at the nominal line period.
    uint64_t timestamp(uint64_t line) const;
    uint32_t exposure() const;

private:
    enum class Field
    {
        Status,
        Quality,
        EchoWidth,
        TimestampOffset,
        Deviation,
        Flags,
    };
    struct Column
    {
        Field field;
        int byte;  // offset within the record
        int bytes; // width
    };
    void findColumns();
    // Wire values of one sample.
    uint32_t encodeRange(const Scene::Sample& s) const;
    uint16_t encodeIntensity(const Scene::Sample& s) const;
    void writeHeader(uint64_t line, char* p) const;

    SimOptions opt;
    Scene world;
    strmsocket::WireEncoder::RawLine head;
    int rangeByte = 0, intensityByte = 3;
    std::vector<Column> columns;
    std::vector<Scene::Sample> sampled;
    std::vector<char> message; // record header, then the line composed last
    std::size_t lineOffset = 0;
};

} // namespace vxsim
