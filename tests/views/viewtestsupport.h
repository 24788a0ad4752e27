#pragma once
// Shared helpers of the view tests: line construction, pixel counting and
// the test main.
#include "line/linetype.h"
#include "line/myline.h"
#include "resources/iconresources.h"
#include "views/glformat.h"

#include <QApplication>
#include <QImage>
#include <QPixmap>
#include <QTest>
#include <cmath>
#include <memory>
#include <vector>

namespace viewtest {

// The colour of the cut view's good points.
const QRgb kCutPoint = qRgb(0, 0, 200);

// One point at (y, z) in metres with its intensity, validity and reject mark,
// measured by a scanner at the origin (its range is its distance from there;
// a point at the origin measured nothing).
inline vxs::VxPt pt(double y, double z, uint32_t intensity, bool valid = true, uint16_t reject = 0)
{
    vxs::VxPt p;
    p.y = y;
    p.z = z;
    p.range = std::hypot(y, z);
    p.intensity = intensity;
    p.valid = valid ? 1 : 0;
    p.reject = reject;
    return p;
}

// A drawable line (flag bit 3 set in the default flags) of these points.
inline vxlindral::LineType makeLine(std::vector<vxs::VxPt> pts, int flags = 200)
{
    auto line = std::make_shared<vxlindral::MyLine>();
    line->flags = flags;
    line->pixel = static_cast<int>(pts.size());
    line->points = std::move(pts);
    return line;
}

// The picture as 32-bit RGB, for exact comparison.
inline QImage rgb(const QImage& image)
{
    return image.convertToFormat(QImage::Format_RGB32);
}
inline QImage rgb(const QPixmap& pixmap)
{
    return rgb(pixmap.toImage());
}

// Pixels of the image whose colour satisfies pred.
template <typename Pred> int countPixels(const QImage& img, Pred pred)
{
    int n = 0;
    for (int y = 0; y < img.height(); ++y)
        for (int x = 0; x < img.width(); ++x)
            n += pred(img.pixel(x, y)) ? 1 : 0;
    return n;
}

} // namespace viewtest

// Widget tests without OpenGL run on the offscreen platform unless a platform
// is chosen; the GL test needs an X server and passes offscreen = false. The
// icons live in a static library and are registered as the program does.
#define VIEW_TEST_MAIN(TestClass, offscreen)                                                       \
    int main(int argc, char** argv)                                                                \
    {                                                                                              \
        if ((offscreen) && qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))                         \
            qputenv("QT_QPA_PLATFORM", "offscreen");                                               \
        vxlindral::GlFormat::installDefault();                                                     \
        vxlindral::IconResources::init();                                                          \
        QApplication app(argc, argv);                                                              \
        TestClass tc;                                                                              \
        return QTest::qExec(&tc, argc, argv);                                                      \
    }
