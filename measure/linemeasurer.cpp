#include "measure/linemeasurer.h"

namespace vxmeasure {

LineMeasurer::LineMeasurer(std::FILE* o, double a, double b,
                           const ProfileMeasure::Settings& settings)
    : out(o), y0(a), y1(b), measure(settings)
{
}

LineMeasurer::~LineMeasurer()
{
    // Stop the receive thread while this object is still whole.
    Disconnect(true);
}

void LineMeasurer::OnRawLine(const strmsocket::VxStreamDeviceInfo& device, const char*,
                             const strmsocket::LineRawInfo& info, const char*, int)
{
    const uint64_t number = done.load(std::memory_order_relaxed);
    if (number >= lineLimit)
        return;
    const ProfileMeasure::Result* result = &none;
    // A negative header size passes the checks, but the viewer cannot
    // build the line: it gives the line up.
    if (format.decode(&info) && format.lineheadersize >= 0) {
        points.clear();
        points.reserve(static_cast<std::size_t>(format.pixel));
        ForEachPoint(device.device, format.pixels(), format.pixel,
                     [this](int, double range, double, double y, double z) {
                         points.add(range, y, z);
                     });
        result = &measure.measure(points, y0, y1);
    }
    std::fwrite(row, 1, MeasureCsv::row(firstLine + number, *result, row), out);
    done.store(number + 1, std::memory_order_relaxed);
}

} // namespace vxmeasure
