#pragma once
// Shared helpers of the view tests: line construction and the test main.
#include "stream/linetype.h"
#include "stream/myline.h"
#include "views/glformat.h"

#include <QApplication>
#include <QTest>
#include <memory>
#include <vector>

namespace viewtest {

struct Pt
{
    double y = 0.0;
    double z = 0.0;
    uint32_t intensity = 0;
    uint8_t valid = 1;
    uint16_t reject = 0;
};

inline vxlindral::LineType makeLine(const std::vector<Pt>& pts, int flags = 200)
{
    auto line = std::make_shared<vxlindral::MyLine>();
    line->flags = flags;
    line->pixel = static_cast<int>(pts.size());
    line->points.reserve(pts.size());
    for (const Pt& p : pts) {
        vxs::VxPt v;
        v.y = p.y;
        v.z = p.z;
        v.intensity = p.intensity;
        v.valid = p.valid;
        v.reject = p.reject;
        line->points.push_back(v);
    }
    return line;
}

inline vxlindral::LineType makeIntensityLine(const std::vector<uint32_t>& values)
{
    std::vector<Pt> pts;
    for (std::size_t i = 0; i < values.size(); ++i)
        pts.push_back({0.01 * static_cast<double>(i), 0.5, values[i], 1, 0});
    return makeLine(pts);
}

} // namespace viewtest

// Widget tests without OpenGL run on the offscreen platform unless a platform
// is chosen; the GL test needs an X server and passes offscreen = false.
#define VIEW_TEST_MAIN(TestClass, offscreen)                                                       \
    int main(int argc, char** argv)                                                                \
    {                                                                                              \
        if ((offscreen) && qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))                         \
            qputenv("QT_QPA_PLATFORM", "offscreen");                                               \
        vxlindral::GlFormat::installDefault();                                                     \
        QApplication app(argc, argv);                                                              \
        TestClass tc;                                                                              \
        return QTest::qExec(&tc, argc, argv);                                                      \
    }
