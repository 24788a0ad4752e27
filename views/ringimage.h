#pragma once
#include <QImage>
#include <QSize>

class QPaintDevice;

namespace vxlindral {

// A picture that scrolls without moving its pixels. Its rows (scrolling
// toward the top) or its columns (scrolling toward the left) are kept in ring
// order: scrolling moves the ring's origin and copies only the exposed stripe,
// which keeps its old pixels as a scrolled pixmap's does. The picture in
// display order is composed from the ring's two parts when it is shown (two
// block copies, or two copies per row for columns).
// Ownership: owned by its view. Threads: any one thread at a time; painting
// into a QPixmap with composeInto() needs the GUI thread.
class RingImage
{
public:
    RingImage() = default;
    // Not copyable: the ring's pixels are written through a kept pointer.
    RingImage(const RingImage&) = delete;
    RingImage& operator=(const RingImage&) = delete;

    enum Axis
    {
        Rows,
        Columns,
    };

    // A white picture of this size, scrolling along `axis`.
    void reset(QSize size, Axis axis);
    // The picture scaled to this width (fast transformation), cleared white.
    void resetScaledToWidth(int width, Axis axis);

    QSize size() const { return ring.size(); }
    int width() const { return ring.width(); }
    int height() const { return ring.height(); }
    bool isNull() const { return ring.isNull(); }
    Axis axis() const { return along; }

    // Scrolls by `count` rows toward the top or columns toward the left. The
    // last `count` rows or columns are exposed and keep their old pixels.
    void scroll(int count);
    // A point drawn with a 2-pixel pen at (x, y) of the picture: the pixels
    // x - 1 .. x and y - 1 .. y, as far as they lie inside.
    void plot(int x, int y, QRgb colour)
    {
        const int w = ring.width();
        const int h = ring.height();
        for (int py = y - 1; py <= y; ++py) {
            if (py < 0 || py >= h)
                continue;
            for (int px = x - 1; px <= x; ++px)
                if (px >= 0 && px < w)
                    *pixel(px, py) = colour;
        }
    }

    // Paints the picture in display order into `target` (of the same size).
    void composeInto(QPaintDevice& target) const;
    // The picture in display order.
    QImage toImage() const;

private:
    QRgb* pixel(int x, int y)
    {
        if (along == Rows) {
            int r = origin + y;
            if (r >= ring.height())
                r -= ring.height();
            return reinterpret_cast<QRgb*>(bits + static_cast<qsizetype>(r) * stride) + x;
        }
        int c = origin + x;
        if (c >= ring.width())
            c -= ring.width();
        return reinterpret_cast<QRgb*>(bits + static_cast<qsizetype>(y) * stride) + c;
    }
    void attach();

    QImage ring;
    uchar* bits = nullptr; // the ring's pixels, detached once at reset
    qsizetype stride = 0;  // bytes per ring row
    Axis along = Columns;
    int origin = 0; // ring row or column of the picture's row or column 0
};

} // namespace vxlindral
