// Prints the cost per line (microseconds) of each view's updateNewLine for
// 2,048-pixel lines at a 640x480 sub-window. The 3D view needs an X server:
//   xvfb-run -a build/bin/bench_views [lines]
#include "stream/myline.h"
#include "views/cutview.h"
#include "views/flatview.h"
#include "views/glformat.h"
#include "views/numericview.h"
#include "views/statisticview.h"
#include "views/threedview.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QSettings>
#include <cmath>
#include <cstdio>
#include <memory>
#include <vector>

using namespace vxlindral;

namespace {

std::vector<LineType> makeLines(int count, int pixels)
{
    std::vector<LineType> lines;
    for (int l = 0; l < count; ++l) {
        auto line = std::make_shared<MyLine>();
        line->pixel = pixels;
        line->points.resize(static_cast<std::size_t>(pixels));
        for (int i = 0; i < pixels; ++i) {
            vxs::VxPt& p = line->points[static_cast<std::size_t>(i)];
            const double a = (i - pixels / 2) * 0.001;
            p.y = 20.0 * std::sin(a);
            p.z = 10.0 + 20.0 * std::cos(a) + 0.01 * l;
            p.intensity = static_cast<uint32_t>(1000 + (i * 37 + l * 11) % 3000);
            p.valid = 1;
        }
        lines.push_back(line);
    }
    return lines;
}

double perLineMicros(BasicView& view, const std::vector<LineType>& lines, int repeat)
{
    for (int i = 0; i < 20; ++i) // warm up
        view.updateNewLine(lines[static_cast<std::size_t>(i) % lines.size()]);
    QApplication::processEvents();
    QElapsedTimer t;
    t.start();
    for (int i = 0; i < repeat; ++i)
        view.updateNewLine(lines[static_cast<std::size_t>(i) % lines.size()]);
    const double us = t.nsecsElapsed() / 1000.0 / repeat;
    QApplication::processEvents();
    return us;
}

template <typename View>
void run(const char* name, const std::vector<LineType>& lines, int repeat)
{
    View view;
    view.resize(640, 480);
    view.show();
    QApplication::processEvents();
    view.resize(641, 481); // lay the picture out at the laid-out size
    QApplication::processEvents();
    std::printf("%-10s %9.1f us/line\n", name, perLineMicros(view, lines, repeat));
    std::fflush(stdout);
}

} // namespace

int main(int argc, char** argv)
{
    GlFormat::installDefault();
    QApplication app(argc, argv);
    QCoreApplication::setOrganizationName("vx-bench");
    QCoreApplication::setApplicationName("bench_views");
    const int repeat = argc > 1 ? std::atoi(argv[1]) : 500;
    const auto lines = makeLines(16, 2048);
    std::printf("updateNewLine, 2048-pixel lines, 640x480 view, %d lines each\n", repeat);
    run<CutView>("cut", lines, repeat);
    run<FlatView>("gray", lines, repeat);
    run<NumericView>("numeric", lines, repeat);
    run<StatisticView>("info", lines, repeat);
    run<ThreeDView>("3d", lines, repeat);
    return 0;
}
