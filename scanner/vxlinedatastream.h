#pragma once
#include "scanner/rawpixel.h"
#include "scanner/udplinedatastream.h"
#include "scanner/vxsheader.h"
#include "scanner/vxtrmatrix.h"

#include <map>
#include <vector>

// The line-data stream: per-device file headers and the range-to-XYZ
// conversion of the line being delivered.
//
// Geometry of pixel i of a device: range r (metres) decoded by vxs::RawPixel
// and scaled by 0.001; angle theta = key 100 (angle of pixel 0, degrees) +
// i * key 101 (increment, degrees), by default spread evenly over -30..+30
// degrees across the line; scanner point (0, r sin theta, r cos theta); then
// the device's 4x4 matrix from keys 320..335 (identity without them).
//
// Threads: GetVxSHeader, Set and XYZ0 are for the callbacks, on the thread
// that delivers them.
class VxLinedataStream : public strmsocket::UDPLinedataStream
{
public:
    VxLinedataStream();
    ~VxLinedataStream() override;

    // Remembers the line being delivered, then calls OnRawLine.
    void OnRAWData(const strmsocket::VxStreamDeviceInfo& device, const char* packet,
                   const strmsocket::LineRawInfo& info, const char* data, const char* end,
                   int count, int length) override;

    // The device's file header, or null without one.
    VxSHeader* GetVxSHeader(unsigned device);
    // Selects the pixel of the current line whose coordinates XYZ0 gives.
    void Set(unsigned /*device*/, int pixel) { selected = pixel; }
    // Coordinates in metres of the pixel last selected by Set. The first call
    // of a line resolves the device's geometry and angle table for the line;
    // every further call for that device is a table look-up.
    void XYZ0(unsigned device, double& x, double& y, double& z)
    {
        double r = 0.0;
        if (!preparedXYZ(device, r, x, y, z))
            resolveXYZ0(device, x, y, z);
    }

    // Calls point(i, range, x, y, z) for the pixels 0 .. pixel-1 of the line
    // being delivered, in order: the range in metres as `px` decodes it,
    // the coordinates from Set and XYZ0. The one way a line becomes points,
    // for the viewer's receiver and the measuring tool alike, so that both
    // give the same numbers for the same line. Once XYZ0 has prepared the
    // line's table, the range it decodes is taken as the point's: `px`
    // describes the same bytes of the line being delivered, so the two are
    // equal, and each pixel is decoded once.
    template <class Point>
    void ForEachPoint(unsigned device, const vxs::RawPixel& px, int pixel, Point&& point)
    {
        for (int i = 0; i < pixel; ++i) {
            double r = 0.0, x = 0.0, y = 0.0, z = 0.0;
            Set(device, i);
            if (!preparedXYZ(device, r, x, y, z)) {
                resolveXYZ0(device, x, y, z);
                r = px.range(i) * 0.001;
            }
            point(i, r, x, y, z);
        }
    }

    // Devices whose geometry is cached at once; beyond, the cache starts over.
    static constexpr std::size_t kMaxGeometries = 64;

private:
    // XYZ0 by the prepared table of the current line, with the range (in
    // metres) it decoded; false when no table is prepared for `device` and
    // the selected pixel.
    bool preparedXYZ(unsigned device, double& r, double& x, double& y, double& z) const
    {
        const auto i = static_cast<unsigned>(selected);
        if (!preparedSin || device != preparedDevice || i >= static_cast<unsigned>(currentCount))
            return false;
        r = current.range(selected) * 0.001;
        x = 0.0;
        y = r * preparedSin[i];
        z = r * preparedCos[i];
        if (preparedMatrix)
            preparedMatrix->Apply(x, y, z);
        return true;
    }
    struct Geometry;
    Geometry& geometryOf(unsigned device);
    void refresh(Geometry& g, unsigned device);
    // XYZ0 without a prepared table: resolves the geometry, prepares the
    // table for the current line when it can, and gives the coordinates.
    void resolveXYZ0(unsigned device, double& x, double& y, double& z);
    void forgetPrepared() { preparedSin = preparedCos = nullptr; }
    std::map<unsigned, Geometry*> geometries;
    Geometry* lastGeometry = nullptr; // the one XYZ0 used last
    unsigned lastDevice = 0;
    uint64_t seenGeneration = 0; // header generation the cache was built for
    vxs::RawPixel current;
    int currentCount = 0;
    int selected = 0;
    // The current line's angle table and transform for preparedDevice (null
    // sin/cos: nothing prepared; null matrix: identity).
    const double* preparedSin = nullptr;
    const double* preparedCos = nullptr;
    const VxTRMatrix* preparedMatrix = nullptr;
    unsigned preparedDevice = 0;
};
