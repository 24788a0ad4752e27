#include "stream/myvxlinedatastream.h"

#include "models/streamdatamodel.h"
#include "scanner/tickcount.h"
#include "stream/devicetransform.h"
#include "stream/globallineparser.h"
#include "stream/linetype.h"
#include "stream/myline.h"

#include <QMetaObject>
#include <QModelIndex>
#include <QMutexLocker>
#include <QString>
#include <QVariant>
#include <algorithm>
#include <cstring>
#include <stdexcept>

namespace vxlindral {

std::atomic<uint32_t> MyVxLinedataStream::lastTick{0};

MyVxLinedataStream::MyVxLinedataStream() : inFlight(std::make_shared<std::atomic<int>>(0)) {}

MyVxLinedataStream::~MyVxLinedataStream()
{
    // Join the receive thread while this object is still whole: the base
    // destructor would do it only after our members are gone.
    Disconnect(true);
}

bool MyVxLinedataStream::setModel(std::shared_ptr<StreamDataModel> newModel, int port)
{
    std::atomic_store(&model, std::move(newModel));
    return Connect(port, std::string());
}

void MyVxLinedataStream::stop()
{
    // Stopping a stream leaves the line socket open on purpose: lines keep
    // arriving at the model.
}

void MyVxLinedataStream::OnMessagesLost(int) {}

void MyVxLinedataStream::OnRawLine(const strmsocket::VxStreamDeviceInfo& device, const char* packet,
                                   const strmsocket::LineRawInfo& info, const char* data, int count)
{
    const std::shared_ptr<StreamDataModel> target = std::atomic_load(&model);
    const uint32_t thisFrame = frame.load(std::memory_order_relaxed);
    frame.store(thisFrame + 1, std::memory_order_relaxed);

    // The GUI thread has not taken in the lines already handed over: drop
    // this one before any work, so that a slow GUI bounds memory and load.
    if (inFlight->load(std::memory_order_acquire) >= kMaxInFlight) {
        skipped.fetch_add(1, std::memory_order_relaxed);
        return;
    }

    if (!format.decode(&info)) {
        if (target) {
            // The text of a rejected line is handed over like a line: it takes
            // a slot until the GUI thread has delivered it, so a fast stream of
            // undecodable lines cannot pile up texts without bound either.
            inFlight->fetch_add(1, std::memory_order_acq_rel);
            emit target->notifyStatistic(QStringLiteral("unknown data\n") +
                                         QStringLiteral("frame %1\n").arg(thisFrame));
            // Queued behind the text's own delivery to the same thread.
            QMetaObject::invokeMethod(
                target.get(),
                [pending = inFlight] { pending->fetch_sub(1, std::memory_order_acq_rel); },
                Qt::QueuedConnection);
        }
        return;
    }

    uint32_t serie = 0;
    if (packet)
        std::memcpy(&serie, packet + 4, sizeof serie);

    // The layout is brought up to date here, but the text names the mode of
    // the layout detected before this line.
    const char* modeName = nullptr;
    std::shared_ptr<vx::RawLineParser> layout =
        GlobalLineParser::instance().update(format.datatyp, format.mode, format.bpp, &modeName);

    QString text;
    text.reserve(192);
    text += QStringLiteral("frame %1\n").arg(thisFrame);
    text += QStringLiteral("ip %1\n").arg(
        QString::fromLatin1(device.ip, static_cast<int>(strnlen(device.ip, sizeof device.ip))));
    text += QStringLiteral("protokoll %1 %2\n").arg(format.protocol).arg(format.subProtocol);
    text += QStringLiteral("datatyp %1\n").arg(format.datatyp);
    text += QStringLiteral("serie %1\n").arg(serie);
    text += QStringLiteral("pixel %1\n").arg(format.pixel);
    text += QStringLiteral("bpp %1\n").arg(format.bpp);
    text += QStringLiteral("lineheadersize %1\n").arg(format.lineheadersize);
    text += QStringLiteral("mode %1 - %2\n")
                .arg(format.mode)
                .arg(modeName ? QString::fromLatin1(modeName) : QString());

    if (target) {
        target->setSeries(static_cast<int>(serie));
        emit target->notifyStatistic(text);
    }

    // A negative header size passes the decode limits but cannot be copied.
    if (format.lineheadersize < 0)
        throw std::length_error("cannot create std::vector larger than max_size()");

    const int32_t headerSize = format.lineheadersize;
    const int32_t bpp = format.bpp;
    const int32_t pixel = format.pixel;
    const char* lineBytes = data ? data : format.bytes;

    auto line = std::make_unique<MyLine>();
    line->header.assign(lineBytes, lineBytes + headerSize);
    // The line's layout reads whole records of the line's bpp, and never
    // beyond one: a layout wider than the records reads its missing columns
    // as 0 instead of reading into the next pixel (or past the line).
    layout->setStride(bpp);
    line->parser = std::move(layout);
    line->pixel = pixel;
    const std::size_t pixelBytes =
        static_cast<std::size_t>(std::max(count, 0)) * static_cast<std::size_t>(bpp);
    line->data.assign(lineBytes + headerSize, lineBytes + headerSize + pixelBytes);

    const vxs::RawPixel px = format.pixels();
    line->points.reserve(static_cast<std::size_t>(pixel));
    for (int i = 0; i < pixel; ++i) {
        line->points.emplace_back();
        vxs::VxPt& pt = line->points.back();
        pt.raw.assign(px.pixel(i), static_cast<std::size_t>(bpp));
        pt.intensity = px.intensity(i);
        pt.range = px.range(i) * 0.001;
        double x = 0.0, y = 0.0, z = 0.0;
        Set(device.device, i);
        XYZ0(device.device, x, y, z);
        pt.x = x;
        pt.y = y;
        pt.z = z;
        pt.valid = 1;
    }

    // Statistics over the records actually copied (the announced pixel count
    // and the delivered count agree for every line the library hands out).
    const int records = std::min(pixel, count);
    vx::RawLineParser::AvrStd stats =
        line->parser->calc(reinterpret_cast<const char*>(line->data.data()), std::max(records, 0));
    line->avr = std::move(stats.avr);
    line->sdev = std::move(stats.sdev);
    line->min = std::move(stats.min);
    line->max = std::move(stats.max);

    lastTick.store(static_cast<uint32_t>(vxtools::gettickcount()), std::memory_order_relaxed);

    deliverLine(std::move(line), target);
}

void MyVxLinedataStream::deliverLine(std::unique_ptr<MyLine> line,
                                     const std::shared_ptr<StreamDataModel>& to)
{
    if (!line || !to)
        return; // the line is freed here
    // The slot is taken before the hand-over and given back when the model
    // takes the line in, or when the line dies on the way.
    inFlight->fetch_add(1, std::memory_order_acq_rel);
    line->inFlight = inFlight;
    const LineType handle(line.release());
    registerLineType();
    std::lock_guard<std::mutex> handover(lineHandoverLock());
    QMetaObject::invokeMethod(to.get(), "setData", Qt::QueuedConnection,
                              Q_ARG(QModelIndex, QModelIndex()),
                              Q_ARG(QVariant, QVariant::fromValue(handle)));
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
