#include "views/ringimage.h"

#include <QPainter>
#include <algorithm>
#include <cstring>

namespace vxlindral {

void RingImage::reset(QSize size, Axis axis)
{
    if (ring.size() != size)
        ring = QImage(size, QImage::Format_RGB32);
    along = axis;
    attach();
}

void RingImage::resetScaledToWidth(int width, Axis axis)
{
    // The size a scaled pixmap would get; its content is cleared anyway.
    ring = ring.scaledToWidth(width, Qt::FastTransformation);
    along = axis;
    attach();
}

void RingImage::attach()
{
    origin = 0;
    if (ring.isNull()) {
        bits = nullptr;
        stride = 0;
        return;
    }
    if (ring.format() != QImage::Format_RGB32)
        ring = ring.convertToFormat(QImage::Format_RGB32);
    ring.fill(Qt::white);
    bits = ring.bits();
    stride = ring.bytesPerLine();
}

void RingImage::scroll(int count)
{
    if (ring.isNull() || count <= 0)
        return;
    const int w = ring.width();
    const int h = ring.height();
    const int length = along == Rows ? h : w;
    const int old = origin;
    origin = static_cast<int>((static_cast<long long>(origin) + count) % length);
    // The exposed stripe keeps what it showed. In increasing order a slot is
    // only overwritten after it has been read.
    for (int p = std::max(0, length - count); p < length; ++p) {
        const int from = (old + p) % length;
        const int to = (origin + p) % length;
        if (from == to)
            continue;
        if (along == Rows) {
            std::memcpy(bits + static_cast<qsizetype>(to) * stride,
                        bits + static_cast<qsizetype>(from) * stride, static_cast<size_t>(w) * 4);
        } else {
            for (int y = 0; y < h; ++y) {
                auto* row = reinterpret_cast<QRgb*>(bits + static_cast<qsizetype>(y) * stride);
                row[to] = row[from];
            }
        }
    }
}

void RingImage::composeInto(QPaintDevice& target) const
{
    if (ring.isNull())
        return;
    const int w = ring.width();
    const int h = ring.height();
    QPainter painter(&target);
    painter.setCompositionMode(QPainter::CompositionMode_Source);
    if (along == Rows) {
        painter.drawImage(QPoint(0, 0), ring, QRect(0, origin, w, h - origin));
        if (origin > 0)
            painter.drawImage(QPoint(0, h - origin), ring, QRect(0, 0, w, origin));
    } else {
        painter.drawImage(QPoint(0, 0), ring, QRect(origin, 0, w - origin, h));
        if (origin > 0)
            painter.drawImage(QPoint(w - origin, 0), ring, QRect(0, 0, origin, h));
    }
}

QImage RingImage::toImage() const
{
    QImage picture(ring.size(), QImage::Format_RGB32);
    composeInto(picture);
    return picture;
}

} // namespace vxlindral
