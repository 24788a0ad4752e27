#include "stream/myvxlinedatastream.h"

#include "line/myline.h"
#include "models/streamdatamodel.h"
#include "scanner/tickcount.h"
#include "stream/devicetransform.h"
#include "stream/globallineparser.h"
#include "stream/linepool.h"

#include <QMutexLocker>
#include <QString>
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <stdexcept>

namespace vxlindral {

std::atomic<uint32_t> MyVxLinedataStream::lastTick{0};

namespace {
// Every information text fits: nine lines of short numbers, the sender's
// address and a mode name.
constexpr int kTextBuffer = 512;
} // namespace

MyVxLinedataStream::MyVxLinedataStream() : MyVxLinedataStream(LineQueue::Limits()) {}

MyVxLinedataStream::MyVxLinedataStream(const LineQueue::Limits& handover)
    : queue(std::make_unique<LineQueue>(handover)), pool(LinePool::create())
{
    // The drain (GUI thread) lets the receive thread decode again.
    queue->setResumeCallback([this] { ResumeDelivery(); });
}

bool MyVxLinedataStream::ReadyForMessage()
{
    // While the GUI thread is behind, lines wait undecoded: a decoded line
    // takes about thirteen times the memory of its message.
    return queue->hasRoom() || queue->waitForRoom();
}

MyVxLinedataStream::~MyVxLinedataStream()
{
    // Join the receive thread while this object is still whole: the base
    // destructor would do it only after our members are gone.
    Disconnect(true);
}

bool MyVxLinedataStream::setModel(std::shared_ptr<StreamDataModel> newModel, int port)
{
    queue->setModel(std::move(newModel));
    return Connect(port, std::string());
}

bool MyVxLinedataStream::setSource(std::shared_ptr<StreamDataModel> newModel,
                                   std::unique_ptr<strmsocket::DatagramSource> source)
{
    queue->setModel(std::move(newModel));
    return Connect(std::move(source));
}

void MyVxLinedataStream::disconnectAndDiscard()
{
    Disconnect(true);
    queue->discard();
}

void MyVxLinedataStream::stop()
{
    // Stopping a stream leaves the line socket open on purpose: lines keep
    // arriving at the model.
}

void MyVxLinedataStream::OnMessagesLost(int) {}

void MyVxLinedataStream::OnSourceRestarted()
{
    QMutexLocker locker(&mutex);
    VxLinedataStream::OnSourceRestarted();
    std::lock_guard<std::mutex> tableGuard(DeviceTransform::tableLock());
    for (unsigned d = 0; d < DeviceTransform::kDevices; ++d)
        if (DeviceTransform::entry(d).receiver == this)
            DeviceTransform::entry(d) = DeviceTransform();
}

void MyVxLinedataStream::OnRawLine(const strmsocket::VxStreamDeviceInfo& device, const char* packet,
                                   const strmsocket::LineRawInfo& info, const char* data, int count)
{
    const std::shared_ptr<StreamDataModel> target = queue->model();
    const uint32_t thisFrame = frame.load(std::memory_order_relaxed);
    frame.store(thisFrame + 1, std::memory_order_relaxed);

    if (!format.decode(&info)) {
        if (target) {
            char text[64];
            const int n = std::snprintf(text, sizeof text, "unknown data\nframe %u\n", thisFrame);
            queue->postText(QString::fromLatin1(text, n));
        }
        return;
    }

    uint32_t serie = 0;
    if (packet)
        std::memcpy(&serie, packet + 4, sizeof serie);

    // The layout is brought up to date here, but the text names the mode of
    // the layout detected before this line. A copy of the previous line's
    // layout serves again while nothing changed (its stride included).
    const int32_t bpp = format.bpp;
    const char* modeName = nullptr;
    layout = GlobalLineParser::instance().update(
        format.datatyp, format.mode, bpp, &modeName,
        layout && layout->stride() == bpp ? std::move(layout) : nullptr);
    // The line's layout reads whole records of the line's bpp, and never
    // beyond one: a layout wider than the records reads its missing columns
    // as 0 instead of reading into the next pixel (or past the line).
    if (layout->stride() != bpp)
        layout->setStride(bpp); // a new copy, not yet shared

    if (target) {
        target->setSeries(static_cast<int>(serie));
        queue->postText(streamText(thisFrame, device, serie, modeName));
    }

    LineType line = buildLine(device, data, count, serie);
    line->frame = thisFrame;
    lastTick.store(static_cast<uint32_t>(vxtools::gettickcount()), std::memory_order_relaxed);

    // Without a model the line goes straight back to the pool.
    if (target)
        queue->push(std::move(line));
}

QString MyVxLinedataStream::streamText(uint32_t thisFrame,
                                       const strmsocket::VxStreamDeviceInfo& device, uint32_t serie,
                                       const char* modeName) const
{
    // Formatted in one go into one buffer: the same text as QString::arg
    // with decimal numbers gives, built with one allocation.
    char text[kTextBuffer];
    const int n =
        std::snprintf(text, sizeof text,
                      "frame %u\nip %.*s\nprotokoll %u %u\ndatatyp %d\nserie %u\npixel %d\nbpp %d\n"
                      "lineheadersize %d\nmode %d - %s\n",
                      thisFrame, static_cast<int>(strnlen(device.ip, sizeof device.ip)), device.ip,
                      format.protocol, format.subProtocol, format.datatyp, serie, format.pixel,
                      format.bpp, format.lineheadersize, format.mode, modeName ? modeName : "");
    return QString::fromLatin1(text, std::min(n, kTextBuffer - 1));
}

LineType MyVxLinedataStream::buildLine(const strmsocket::VxStreamDeviceInfo& device,
                                       const char* data, int count, uint32_t serie)
{
    const int32_t bpp = format.bpp;
    // A negative header size passes the decode limits but cannot be copied.
    if (format.lineheadersize < 0)
        throw std::length_error("cannot create std::vector larger than max_size()");

    const int32_t headerSize = format.lineheadersize;
    const int32_t pixel = format.pixel;
    // As bytes of the vectors' own type, so that the copies are plain
    // memory copies.
    const auto* lineBytes = reinterpret_cast<const uint8_t*>(data ? data : format.bytes);

    LineType handle = pool->acquire();
    MyLine& line = *handle;
    line.header.assign(lineBytes, lineBytes + headerSize);
    line.parser = layout;
    line.pixel = pixel;
    line.series = serie;
    const std::size_t pixelBytes =
        static_cast<std::size_t>(std::max(count, 0)) * static_cast<std::size_t>(bpp);
    line.data.assign(lineBytes + headerSize, lineBytes + headerSize + pixelBytes);

    // A recycled line keeps its points' storage: every point is overwritten.
    const vxs::RawPixel px = format.pixels();
    line.points.resize(static_cast<std::size_t>(pixel));
    vxs::VxPt* points = line.points.data();
    ForEachPoint(device.device, px, pixel, [&](int i, double range, double x, double y, double z) {
        vxs::VxPt& pt = points[i];
        pt.raw.assign(px.pixel(i), static_cast<std::size_t>(bpp));
        pt.intensity = px.intensity(i);
        pt.range = range;
        pt.x = x;
        pt.y = y;
        pt.z = z;
        pt.valid = 1;
        pt.reject = 0;
    });

    // Statistics over the records actually copied (the announced pixel count
    // and the delivered count agree for every line the library hands out).
    const int records = std::min(pixel, count);
    layout->calc(reinterpret_cast<const char*>(line.data.data()), std::max(records, 0), stats);
    // Swapped, not copied: the working arrays take the recycled line's storage.
    line.avr.swap(stats.avr);
    line.sdev.swap(stats.sdev);
    line.min.swap(stats.min);
    line.max.swap(stats.max);
    return handle;
}

void MyVxLinedataStream::OnRAWFileHeaderBuf(const strmsocket::VxStreamDeviceInfo& device,
                                            const char* name, const char* buffer, int length)
{
    QMutexLocker locker(&mutex);
    VxLinedataStream::OnRAWFileHeaderBuf(device, name, buffer, length);
    if (length == 0 || device.device >= DeviceTransform::kDevices)
        return;

    // The entries are shared by every receiver of the process.
    std::lock_guard<std::mutex> tableGuard(DeviceTransform::tableLock());
    DeviceTransform& entry = DeviceTransform::entry(device.device);
    entry.receiver = this;
    entry.device = device.device;

    const VxSHeader* header = GetVxSHeader(device.device);
    if (header && header->Find(320)) {
        double m[16];
        for (int k = 0; k < 16; ++k)
            m[k] = header->GetDouble(320 + k, 0.0);
        entry.matrix.SetTRMatrix4x4(m);
    }
    // The translation column is read even without a matrix; without a header
    // it is 0.
    const auto get = [header](int key) { return header ? header->GetDouble(key, 0.0) : 0.0; };
    entry.x = get(323);
    entry.y = get(327);
    entry.z = get(331);
}

} // namespace vxlindral
