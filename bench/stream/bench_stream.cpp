// Line reception figures:
//  1. decode cost per line on the receive path (message dispatch, decode,
//     information text, MyLine with points and statistics, queued hand-over),
//     for 1,024, 2,048 and 4,096 pixels. The model's queue is drained after
//     every line (outside the timed part), so the overload bound never skips.
//  2. lines/s delivered to a model over loopback UDP from the simulator with
//     nothing else on the GUI thread: the highest tried rate at which no line
//     was skipped.
// Usage: bench_stream [lines per size (default 2000)]
#include "models/streamdatamodel.h"
#include "scanner/messageplayer.h"
#include "scanner/wireencoder.h"
#include "stream/myvxlinedatastream.h"
#include "stream/streamdatacontroller.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QProcess>
#include <QTimer>
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>

using namespace vxlindral;

namespace {

std::vector<char> rawLine(int pixels)
{
    strmsocket::WireEncoder::RawLine h;
    h.subProtocol = 2;
    h.datatyp = 2;
    h.mode = 0;
    h.bpp = 8;
    h.lineheadersize = 32;
    h.pixel = static_cast<uint32_t>(pixels);
    std::vector<char> bytes(32 + std::size_t(pixels) * 8);
    for (int i = 0; i < pixels; ++i) {
        const uint32_t range = 10000 + uint32_t(i) * 7;
        const uint16_t intensity = uint16_t(i * 13);
        std::memcpy(bytes.data() + 32 + std::size_t(i) * 8, &range, 3);
        std::memcpy(bytes.data() + 32 + std::size_t(i) * 8 + 3, &intensity, 2);
    }
    return strmsocket::WireEncoder::rawLine(h, bytes.data(), bytes.size());
}

void decodeCost(int lines)
{
    std::printf("decode cost per line (receive path, queue drained between lines):\n");
    for (int pixels : {1024, 2048, 4096}) {
        auto model = std::make_shared<StreamDataModel>();
        MyVxLinedataStream receiver;
        receiver.setModel(model, 0);
        receiver.Disconnect(true); // played into, not connected
        const std::vector<char> message = rawLine(pixels);
        strmsocket::VxStreamDeviceInfo sender;
        std::strcpy(sender.ip, "127.0.0.1");
        std::vector<double> times;
        times.reserve(static_cast<std::size_t>(lines));
        for (int i = 0; i < lines; ++i) {
            const auto t0 = std::chrono::steady_clock::now();
            receiver.DeliverMessage(sender, message.data(), message.size());
            const auto t1 = std::chrono::steady_clock::now();
            QCoreApplication::sendPostedEvents();
            times.push_back(std::chrono::duration<double, std::micro>(t1 - t0).count());
        }
        // Median and 90th percentile: a shared machine adds rare long stalls.
        std::sort(times.begin(), times.end());
        std::printf("  %5d pixels: %8.1f us median, %8.1f us p90, %8.1f us best, %llu skipped\n",
                    pixels, times[times.size() / 2], times[times.size() * 9 / 10], times.front(),
                    static_cast<unsigned long long>(receiver.skippedLines()));
    }
}

#ifdef VX_SIM_PATH
template <typename F> void runUntil(F done, int ms)
{
    QEventLoop loop;
    QTimer poll;
    QObject::connect(&poll, &QTimer::timeout, &loop, [&] {
        if (done())
            loop.quit();
    });
    poll.start(2);
    QTimer::singleShot(ms, &loop, &QEventLoop::quit);
    loop.exec();
}

void loopbackRate()
{
    std::printf("lines/s delivered over loopback (2,048 pixels, protocol 1.2, bpp 8):\n");
    int best = 0;
    for (int rate : {250, 500, 1000, 2000, 4000, 8000, 16000, 32000}) {
        const int count = std::max(rate, 1000); // at least one second per rate
        auto model = std::make_shared<StreamDataModel>();
        StreamDataController controller(model);
        if (!controller.startStream(0, 0)) {
            std::printf("  cannot open a socket\n");
            return;
        }
        int delivered = 0;
        QObject::connect(model.get(), &StreamDataModel::newLine, [&](LineType) { ++delivered; });
        QProcess sim;
        QElapsedTimer clock;
        clock.start();
        sim.start(QStringLiteral(VX_SIM_PATH),
                  {"--port", QString::number(controller.localPort()), "--rate",
                   QString::number(rate), "--count", QString::number(count), "--pixels", "2048"});
        runUntil([&] { return sim.state() == QProcess::NotRunning; }, 60000);
        runUntil([&] { return controller.frames() == delivered + controller.skippedLines(); },
                 2000);
        const double seconds = clock.nsecsElapsed() / 1e9;
        const auto c = controller.counters();
        std::printf("  sent %6d at %6d/s: %6d delivered (%8.0f lines/s), %llu skipped, "
                    "%llu lost before the receiver\n",
                    count, rate, delivered, delivered / seconds,
                    static_cast<unsigned long long>(controller.skippedLines()),
                    static_cast<unsigned long long>(count - c.rawLines));
        if (controller.skippedLines() == 0 && delivered == count)
            best = rate;
        else
            break;
    }
    std::printf("  highest rate with every line delivered and none skipped: %d lines/s\n", best);
}
#endif

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    registerLineType();
    const int lines = argc > 1 ? std::max(10, std::atoi(argv[1])) : 2000;
    decodeCost(lines);
#ifdef VX_SIM_PATH
    loopbackRate();
#endif
    return 0;
}
