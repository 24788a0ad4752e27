#pragma once
#include "scanner/rawlineparser.h"
#include "scanner/vxptline.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <vector>

namespace vxlindral {

// One received scan line: header bytes, pixel bytes, decoded points, its own
// copy of the column layout and the per-column statistics.
// Ownership: shared through LineType; freed when the last holder lets go.
// Threads: built on the receive thread, then read-only and readable from any
// thread.
class MyLine : public vxs::VxPtLine
{
public:
    MyLine();
    ~MyLine() override;

    int rowCount() const { return pixel; }

    std::vector<uint8_t> data;                  // count x bpp pixel bytes
    std::shared_ptr<vx::RawLineParser> parser;  // layout current when the line arrived
    int pixel = 0;                              // pixel count announced by the line
    std::vector<double> avr;                    // per-column mean
    std::vector<double> sdev;                   // per-column standard deviation
    std::vector<double> min;                    // per-column minimum
    std::vector<double> max;                    // per-column maximum

    // Overload bound: set by the receiver when it hands the line over; the
    // model releases it when it takes the line in (see LineTicket).
    std::shared_ptr<std::atomic<int>> inFlight;
    // Releases the in-flight slot once (acquire-release, so the GUI thread
    // sees everything the receive thread wrote). Safe to call more than once.
    void releaseInFlight();

private:
    std::atomic<bool> released{false};
};

} // namespace vxlindral
