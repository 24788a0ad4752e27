#include "scanner/vxlinedatastream.h"

#include <cmath>

namespace {
constexpr double kDegToRad = 3.14159265358979323846 / 180.0;
constexpr double kDefaultSpreadDeg = 60.0; // -30 .. +30 degrees across the line
constexpr int kMaxTable = 1 << 20;         // pixels per line with cached sin/cos
} // namespace

// Cached geometry of one device: its transform and the sin/cos of every
// pixel's angle, rebuilt when the device's header or the line's pixel count
// changes.
struct VxLinedataStream::Geometry
{
    uint64_t generation = ~uint64_t(0); // header generation of matrix/keys
    bool hasAngle0 = false, hasIncrement = false;
    double angle0 = 0.0, increment = 0.0; // degrees, from keys 100/101
    VxTRMatrix matrix;
    bool identity = true;
    // Table key: the angles the table was computed for.
    int tableCount = -1;
    double tableAngle0 = 0.0, tableIncrement = 0.0;
    std::vector<double> sinT, cosT;
};

VxLinedataStream::VxLinedataStream() = default;

VxLinedataStream::~VxLinedataStream()
{
    // Stop the receive thread while this object's overrides still exist.
    Disconnect(true);
    for (auto& g : geometries)
        delete g.second;
}

void VxLinedataStream::OnRAWData(const strmsocket::VxStreamDeviceInfo& device, const char* packet,
                                 const strmsocket::LineRawInfo& info, const char* data,
                                 const char* end, int count, int length)
{
    current.protocol = info.u32(8);
    current.subProtocol = info.u32(12);
    current.layoutFlag = info.word(1) != 0;
    current.lineheadersize = static_cast<int32_t>(info.word(2));
    current.bpp = static_cast<int32_t>(info.word(3));
    current.bytes = count > 0 ? data : nullptr;
    currentCount = count;
    selected = 0;
    forgetPrepared(); // another line: its pixel count and the headers may differ
    struct Forget
    {
        VxLinedataStream* s;
        ~Forget()
        {
            // The line's buffer is gone after the callback.
            s->current.bytes = nullptr;
            s->currentCount = 0;
            s->forgetPrepared();
        }
    } forget{this};
    UDPLinedataStream::OnRAWData(device, packet, info, data, end, count, length);
}

VxSHeader* VxLinedataStream::GetVxSHeader(unsigned device)
{
    return StoredHeader(device);
}

VxLinedataStream::Geometry& VxLinedataStream::geometryOf(unsigned device)
{
    if (lastGeometry && lastDevice == device && seenGeneration == HeaderGeneration())
        return *lastGeometry;
    seenGeneration = HeaderGeneration();
    auto it = geometries.find(device);
    if (it == geometries.end()) {
        if (geometries.size() >= kMaxGeometries) {
            for (auto& g : geometries)
                delete g.second;
            geometries.clear();
        }
        it = geometries.emplace(device, new Geometry).first;
    }
    Geometry& g = *it->second;
    if (g.generation != seenGeneration)
        refresh(g, device);
    lastGeometry = &g;
    lastDevice = device;
    return g;
}

void VxLinedataStream::refresh(Geometry& g, unsigned device)
{
    g.generation = seenGeneration;
    const VxSHeader* h = StoredHeader(device);
    const double* a0 = h ? h->Find(100) : nullptr;
    const double* inc = h ? h->Find(101) : nullptr;
    g.hasAngle0 = a0 != nullptr;
    g.hasIncrement = inc != nullptr;
    g.angle0 = a0 ? *a0 : 0.0;
    g.increment = inc ? *inc : 0.0;
    double m[16] = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
    if (h && h->Find(320)) {
        for (int k = 0; k < 16; ++k)
            m[k] = h->GetDouble(320 + k, m[k]);
    }
    g.matrix.SetTRMatrix4x4(m);
    g.identity = g.matrix.IsIdentity();
}

void VxLinedataStream::resolveXYZ0(unsigned device, double& x, double& y, double& z)
{
    x = y = z = 0.0;
    forgetPrepared(); // the geometry cache may be rebuilt below
    if (selected < 0 || selected >= currentCount || !current.bytes)
        return;
    Geometry& g = geometryOf(device);
    // A key that is missing takes its default on its own: pixel 0 at -30
    // degrees, the increment spreading the line over 60 degrees.
    // A line of one pixel without either key looks straight ahead.
    const int n = currentCount;
    const bool lone = n == 1 && !g.hasAngle0 && !g.hasIncrement;
    const double a0 = g.hasAngle0 ? g.angle0 : (lone ? 0.0 : -kDefaultSpreadDeg / 2);
    const double step = g.hasIncrement ? g.increment : (n > 1 ? kDefaultSpreadDeg / (n - 1) : 0.0);
    const double r = current.range(selected) * 0.001;
    if (n > kMaxTable) {
        // Only a malformed line (bpp 0) gets here: no table for it.
        const double t = (a0 + selected * step) * kDegToRad;
        y = r * std::sin(t);
        z = r * std::cos(t);
        if (!g.identity)
            g.matrix.Apply(x, y, z);
        return;
    }
    if (g.tableCount != n || g.tableAngle0 != a0 || g.tableIncrement != step) {
        g.sinT.resize(static_cast<std::size_t>(n));
        g.cosT.resize(static_cast<std::size_t>(n));
        for (int i = 0; i < n; ++i) {
            const double t = (a0 + i * step) * kDegToRad;
            g.sinT[static_cast<std::size_t>(i)] = std::sin(t);
            g.cosT[static_cast<std::size_t>(i)] = std::cos(t);
        }
        g.tableCount = n;
        g.tableAngle0 = a0;
        g.tableIncrement = step;
    }
    // Until the line ends, XYZ0 for this device only looks the angle up.
    preparedSin = g.sinT.data();
    preparedCos = g.cosT.data();
    preparedMatrix = g.identity ? nullptr : &g.matrix;
    preparedDevice = device;
    const auto i = static_cast<std::size_t>(selected);
    x = 0.0;
    y = r * g.sinT[i];
    z = r * g.cosT[i];
    if (!g.identity)
        g.matrix.Apply(x, y, z);
}
