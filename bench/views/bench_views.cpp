// Cost of each view on the GUI thread, for 2,048-pixel lines at a 640x480
// sub-window, in rounds of a burst of lines followed by one display frame:
//   per line:  the line handed to the view as the main window wires it, until
//              the queued calls it causes have run (us per line);
//   per frame: the pending work applied at the display frame and the
//              repaint of the whole sub-window (ms per frame).
// The floor is a view that does nothing, driven the same way. The numeric
// view's lines go through the port's data model and the three models the
// view owns; "models" is that chain without the view.
// The 3D view needs an X server:
//   xvfb-run -a -s "-screen 0 1280x1024x24" build/bin/bench_views [lines/frame] [frames] [view]
#include "line/myline.h"
#include "models/streamaveragedatamodel.h"
#include "models/streamdatamodel.h"
#include "models/streamdiffaveragedatamodel.h"
#include "models/streamheaderdatamodel.h"
#include "resources/iconresources.h"
#include "views/cutview.h"
#include "views/flatview.h"
#include "views/framesync.h"
#include "views/glformat.h"
#include "views/numericview.h"
#include "views/statisticview.h"
#include "views/threedview.h"

#include <QApplication>
#include <QElapsedTimer>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <vector>

using namespace vxlindral;

namespace {

constexpr int kPixels = 2048;

// Lines in layout (datatyp 4, peak): range and intensity per pixel, points
// on an arc, a header of 16 words with a running counter.
std::vector<LineType> makeLines(int count)
{
    std::vector<LineType> lines;
    for (int l = 0; l < count; ++l) {
        auto line = std::make_shared<MyLine>();
        line->parser = std::make_shared<vx::RawLineParser>();
        line->parser->detect(4, vx::RawLineParser::MOD_PEAK, false);
        const int bpp = line->parser->bytesPerPixel();
        line->pixel = kPixels;
        line->points.resize(kPixels);
        line->data.resize(static_cast<std::size_t>(kPixels * bpp));
        for (int i = 0; i < kPixels; ++i) {
            vxs::VxPt& p = line->points[static_cast<std::size_t>(i)];
            const double a = (i - kPixels / 2) * 0.001;
            p.y = 20.0 * std::sin(a);
            p.z = 10.0 + 20.0 * std::cos(a) + 0.01 * l;
            p.intensity = static_cast<uint32_t>(1000 + (i * 37 + l * 11) % 3000);
            p.valid = 1;
            const uint32_t range = static_cast<uint32_t>(100000 + i * 3 + l);
            uint8_t* rec = line->data.data() + static_cast<std::size_t>(i * bpp);
            std::memcpy(rec, &range, 3);
            std::memcpy(rec + 3, &p.intensity, 2);
        }
        std::vector<uint32_t> words(16, 0);
        words[0] = 0xA001;
        words[1] = static_cast<uint32_t>(l);
        line->header.resize(words.size() * 4);
        std::memcpy(line->header.data(), words.data(), line->header.size());
        const auto stats =
            line->parser->calc(reinterpret_cast<const char*>(line->data.data()), line->pixel);
        line->avr = stats.avr;
        line->sdev = stats.sdev;
        line->min = stats.min;
        line->max = stats.max;
        lines.push_back(line);
    }
    return lines;
}

// What the receiver sends to the info view with every line.
std::vector<QString> makeTexts(int count)
{
    std::vector<QString> texts;
    for (int l = 0; l < count; ++l)
        texts.push_back(QStringLiteral("frame %1\nip 127.0.0.1\nprotokoll 1 2\ndatatyp 4\n"
                                       "serie %2\npixel %3\nbpp 8\nlineheadersize 64\n"
                                       "mode 0 - peak\n")
                            .arg(l * 7919)
                            .arg(l)
                            .arg(kPixels));
    return texts;
}

class EmptyView : public BasicView
{
public:
    EmptyView() { createContent(); }
    void updateNewLine(vxlindral::LineType) override {}
};

// The data model and the three models of a numeric view, wired as the main
// window wires them; the view is optional.
struct NumericChain
{
    StreamDataModel data;
    StreamAverageDataModel average;
    StreamDiffAverageDataModel bigAverage;
    StreamHeaderDataModel header;

    explicit NumericChain(NumericView* view)
    {
        const auto queued = Qt::QueuedConnection;
        QObject::connect(&data, &StreamDataModel::newLine, &average,
                         &StreamAverageDataModel::updateNewLine, queued);
        QObject::connect(&data, &StreamDataModel::newLine, &bigAverage,
                         &StreamDiffAverageDataModel::updateNewLine, queued);
        QObject::connect(&data, &StreamDataModel::newLine, &header,
                         &StreamHeaderDataModel::updateNewLine, queued);
        if (!view)
            return;
        view->setDataModel(&data);
        view->setAverageModel(&average);
        view->setBigAverageModel(&bigAverage);
        view->setHeaderModel(&header);
        header.setExpandHeader(false);
        QObject::connect(&data, &StreamDataModel::newLine, view, &NumericView::updateNewLine,
                         queued);
    }
    void feed(const LineType& line) { data.setData(QModelIndex(), QVariant::fromValue(line)); }
};

struct Figures
{
    double usPerLine = 0;
    double msPerFrame = 0;
};

// Rounds of `burst` lines and one frame; `deliver(i)` hands over line i.
Figures measure(QWidget* view, int burst, int frames, const std::function<void(int)>& deliver)
{
    auto frame = [view] {
        FrameSync::flushAll();
        view->repaint();
        QCoreApplication::processEvents();
    };
    for (int i = 0; i < 2 * burst; ++i) { // warm up
        deliver(i);
        QCoreApplication::sendPostedEvents(nullptr, QEvent::MetaCall);
    }
    frame();
    qint64 lineNs = 0;
    qint64 frameNs = 0;
    QElapsedTimer t;
    int n = 0;
    for (int f = 0; f < frames; ++f) {
        t.start();
        for (int i = 0; i < burst; ++i, ++n) {
            deliver(n);
            QCoreApplication::sendPostedEvents(nullptr, QEvent::MetaCall);
        }
        lineNs += t.nsecsElapsed();
        t.start();
        frame();
        frameNs += t.nsecsElapsed();
    }
    return {lineNs / 1000.0 / n, frameNs / 1e6 / frames};
}

void show(QWidget& view)
{
    view.resize(640, 480);
    view.show();
    QApplication::processEvents();
    view.resize(641, 481); // lay the picture out at the laid-out size
    QApplication::processEvents();
}

void print(const char* name, const Figures& f)
{
    std::printf("%-8s %10.1f %12.2f\n", name, f.usPerLine, f.msPerFrame);
    std::fflush(stdout);
}

template <typename View>
void runLineView(const char* name, const std::vector<LineType>& lines, int burst, int frames)
{
    View view;
    show(view);
    print(name, measure(&view, burst, frames,
                        [&](int i) { view.updateNewLine(lines[std::size_t(i) % lines.size()]); }));
}

} // namespace

int main(int argc, char** argv)
{
    GlFormat::installDefault();
    IconResources::init();
    QApplication app(argc, argv);
    QCoreApplication::setOrganizationName("vx-bench");
    QCoreApplication::setApplicationName("bench_views");
    const int burst = argc > 1 ? std::max(1, std::atoi(argv[1])) : 25;
    const int frames = argc > 2 ? std::max(1, std::atoi(argv[2])) : 40;
    const auto lines = makeLines(16);
    const auto texts = makeTexts(16);
    std::printf("%d-pixel lines, 640x480 views, %d frames of %d lines each\n", kPixels, frames,
                burst);
    std::printf("%-8s %10s %12s\n", "view", "us/line", "ms/frame");

    const QString only = argc > 3 ? QString::fromLocal8Bit(argv[3]) : QString();
    auto wanted = [&only](const char* name) { return only.isEmpty() || only == name; };
    if (wanted("floor")) {
        EmptyView view;
        show(view);
        print("floor", measure(&view, burst, frames, [&](int i) {
                  view.updateNewLine(lines[std::size_t(i) % lines.size()]);
              }));
    }
    if (wanted("models")) {
        EmptyView view;
        show(view);
        NumericChain chain(nullptr);
        print("models", measure(&view, burst, frames,
                                [&](int i) { chain.feed(lines[std::size_t(i) % lines.size()]); }));
    }
    if (wanted("cut"))
        runLineView<CutView>("cut", lines, burst, frames);
    if (wanted("gray"))
        runLineView<FlatView>("gray", lines, burst, frames);
    if (wanted("numeric")) {
        NumericView view;
        NumericChain chain(&view);
        show(view);
        print("numeric", measure(&view, burst, frames,
                                 [&](int i) { chain.feed(lines[std::size_t(i) % lines.size()]); }));
    }
    if (wanted("info")) {
        StatisticView view;
        show(view);
        print("info", measure(&view, burst, frames, [&](int i) {
                  view.updateStatistic(texts[std::size_t(i) % texts.size()]);
              }));
    }
    if (wanted("3d"))
        runLineView<ThreeDView>("3d", lines, burst, frames);
    return 0;
}
