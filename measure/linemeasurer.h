#pragma once
#include "measure/measurecsv.h"
#include "measure/profilemeasure.h"
#include "measure/profilepoints.h"
#include "scanner/lineformat.h"
#include "scanner/vxlinedatastream.h"

#include <atomic>
#include <cstdint>
#include <cstdio>

namespace vxmeasure {

// A receiver of the scanner library that measures every raw line it is
// given and writes the line's CSV row. Lines are accepted and turned into
// points as the viewer's receiver does it (LineFormat::decode, then
// ForEachPoint), so that the window and this tool give the same numbers for
// the same line.
//
// Lines are numbered in the order they are delivered, from 0 or from the
// number of the first line of a stretch, whether or not their header passes
// the checks: a line the viewer would give up ("unknown data") gets a row
// with 0 points and empty measures, so that row n is always line n. With a
// limit, lines after the limit are not measured (a stretch that a source
// delivers a line or two past).
//
// Ownership: writes to `out`, which the caller keeps open. Threads: the
// callbacks on the receive thread (or the thread of DeliverMessage); lines()
// from any thread; `out` is the receive thread's until it is disconnected.
class LineMeasurer : public VxLinedataStream
{
public:
    LineMeasurer(std::FILE* out, double y0, double y1,
                 const ProfileMeasure::Settings& settings = ProfileMeasure::Settings());
    // Numbers the rows from `first` on and measures at most `limit` lines.
    // Before the measurer is connected.
    void setStretch(uint64_t first, uint64_t limit)
    {
        firstLine = first;
        lineLimit = limit;
    }
    ~LineMeasurer() override;

    void OnRawLine(const strmsocket::VxStreamDeviceInfo& device, const char* packet,
                   const strmsocket::LineRawInfo& info, const char* data, int count) override;

    // Lines measured (rows written) so far.
    uint64_t lines() const { return done.load(std::memory_order_relaxed); }

private:
    std::FILE* out;
    const double y0, y1;
    vxlindral::LineFormat format;
    ProfilePoints points;
    ProfileMeasure measure;
    const ProfileMeasure::Result none; // of a line that is given up
    char row[MeasureCsv::kRowBytes];
    uint64_t firstLine = 0;
    uint64_t lineLimit = UINT64_MAX;
    std::atomic<uint64_t> done{0};
};

} // namespace vxmeasure
