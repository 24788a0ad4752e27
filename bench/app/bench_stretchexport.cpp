// "Export lines as cloud ..." figures: a stretch of a capture's lines written
// as every point (StretchExport, as the window runs it), beside floors
// measured in the same run on the same lines:
//
//   decode    the stretch played once through a controller and model of its
//             own, as fast as possible, nothing written: one pass of the
//             export's two (it counts the points in the first, writes them in
//             the second)
//   writer    the same number of points written by CloudWriter from a buffer
//             filled once, through QSaveFile: the writing alone
//
// For each format: points per second over the whole export (both passes), the
// share of the counting pass, and how far the peak resident memory grew,
// which must not depend on the stretch's length. Target: binary PLY at least
// 1 million points per second.
//
// usage: bench_stretchexport [--lines 5000] [--pixels 2048]
//            [--dir /tmp]   (where the capture and the clouds go)
#include "app/stretchexport.h"
#include "bench/app/simcapture.h"
#include "capture/captureindex.h"
#include "capture/capturesource.h"
#include "models/streamdatamodel.h"
#include "stream/streamdatacontroller.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>
#include <QTemporaryDir>
#include <cstdio>
#include <cstring>
#include <memory>
#include <vector>

using vxlindral::CloudWriter;
using vxlindral::StretchExport;

namespace {

constexpr int kPort = SimCapture::kPort;

// Peak resident memory of this process so far, MiB.
double peakMiB()
{
    QFile status("/proc/self/status");
    if (!status.open(QIODevice::ReadOnly))
        return 0;
    for (const QByteArray& line : status.readAll().split('\n'))
        if (line.startsWith("VmHWM:"))
            return line.mid(6).trimmed().split(' ').front().toDouble() / 1024.0;
    return 0;
}

// The whole capture as one stretch, found as the window finds it: by the
// capture's index.
StretchExport::Stretch wholeCapture(const QString& capture, uint64_t& lines)
{
    vxrec::CaptureIndex index;
    index.start(QFile::encodeName(capture).toStdString(), kPort);
    index.wait();
    StretchExport::Stretch s;
    lines = s.count = index.lines();
    if (lines == 0)
        return s;
    s.offset = index.entry(0).offset;
    s.prelude = vxrec::CaptureSource::kNoPrelude;
    index.headerBefore(0, s.prelude);
    return s;
}

struct Run
{
    bool ok = false;
    double seconds = 0;
    double countingSeconds = 0;
    uint64_t points = 0;
    QString error;
};

Run exportStretch(const QString& capture, const StretchExport::Stretch& stretch,
                  const QString& target, CloudWriter::Format format)
{
    Run run;
    StretchExport job(capture, kPort, stretch, target, format);
    QEventLoop loop;
    QElapsedTimer clock;
    QObject::connect(&job, &StretchExport::progressed, &loop, [&](int permille) {
        if (permille >= 500 && run.countingSeconds == 0)
            run.countingSeconds = clock.nsecsElapsed() * 1e-9;
    });
    QObject::connect(&job, &StretchExport::finished, &loop, [&](bool ok, const QString& reason) {
        run.ok = ok;
        run.error = reason;
        loop.quit();
    });
    clock.start();
    bool targetFailed = false;
    if (!job.start(run.error, targetFailed))
        return run;
    loop.exec();
    run.seconds = clock.nsecsElapsed() * 1e-9;
    run.points = job.pointsWritten();
    return run;
}

// One pass of the stretch through a controller and model, nothing written.
double decodeOnly(const QString& capture, uint64_t lines)
{
    auto model = std::make_shared<vxlindral::StreamDataModel>();
    vxlindral::StreamDataController controller(model);
    uint64_t taken = 0;
    QEventLoop loop;
    QObject::connect(model.get(), &vxlindral::StreamDataModel::newLine, &loop, [&] {
        if (++taken == lines)
            loop.quit();
    });
    auto source = std::make_unique<vxrec::CaptureSource>(kPort);
    if (!source->open(QFile::encodeName(capture).toStdString()))
        return -1;
    source->setSpeed(0);
    QElapsedTimer clock;
    clock.start();
    if (!controller.startSource(std::move(source)))
        return -1;
    loop.exec();
    const double s = clock.nsecsElapsed() * 1e-9;
    controller.stopSource();
    return s;
}

// The same number of points written from a buffer filled once.
double writerOnly(const QString& target, uint64_t points, int pixels)
{
    std::vector<CloudWriter::Point> line(static_cast<std::size_t>(pixels));
    for (std::size_t i = 0; i < line.size(); ++i)
        line[i] = {0.1f,   -0.5f + i * 4.9e-4f, 0.25f, uint8_t(i), uint32_t(i * 13), 1.0f,
                   123456, uint32_t(i)};
    QElapsedTimer clock;
    clock.start();
    QSaveFile file(target);
    if (!file.open(QIODevice::WriteOnly))
        return -1;
    CloudWriter writer(file, CloudWriter::Format::PlyBinary, points);
    if (!writer.writeHeader())
        return -1;
    for (uint64_t left = points; left > 0;) {
        const std::size_t n = std::min<uint64_t>(left, line.size());
        if (!writer.writePoints(line.data(), n))
            return -1;
        left -= n;
    }
    if (!writer.finish() || !file.commit())
        return -1;
    return clock.nsecsElapsed() * 1e-9;
}

} // namespace

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    uint64_t lines = 5000;
    int pixels = 2048;
    QString folder = QStringLiteral("/tmp");
    const QStringList args = app.arguments();
    for (int i = 1; i + 1 < args.size(); i += 2) {
        if (args[i] == "--lines")
            lines = args[i + 1].toULongLong();
        else if (args[i] == "--pixels")
            pixels = args[i + 1].toInt();
        else if (args[i] == "--dir")
            folder = args[i + 1];
        else {
            std::fprintf(stderr, "usage: bench_stretchexport [--lines N] [--pixels N] [--dir D]\n");
            return 2;
        }
    }
    QTemporaryDir dir(folder + QStringLiteral("/bench_stretchexport-XXXXXX"));
    const QString capture = dir.filePath("stretch.pcap");
    if (!dir.isValid() || !SimCapture::write(capture, lines, pixels)) {
        std::fprintf(stderr, "cannot write the capture in %s\n", qPrintable(folder));
        return 1;
    }
    uint64_t indexed = 0;
    const StretchExport::Stretch stretch = wholeCapture(capture, indexed);
    if (indexed != lines) {
        std::fprintf(stderr, "the index found %llu lines, not %llu\n",
                     static_cast<unsigned long long>(indexed),
                     static_cast<unsigned long long>(lines));
        return 1;
    }
    const uint64_t points = lines * uint64_t(pixels);
    std::printf("stretch of %llu lines of %d pixels: %llu points, capture %.0f MB\n",
                static_cast<unsigned long long>(lines), pixels,
                static_cast<unsigned long long>(points), QFileInfo(capture).size() * 1e-6);

    const double decode = decodeOnly(capture, lines);
    const double writer = writerOnly(dir.filePath("floor.ply"), points, pixels);
    QFile::remove(dir.filePath("floor.ply"));
    std::printf("floor  decode, one pass   %8.2f M points/s %9.0f lines/s %7.3f s\n",
                points / decode * 1e-6, lines / decode, decode);
    std::printf("floor  writer, binary PLY %8.2f M points/s %27.3f s\n", points / writer * 1e-6,
                writer);

    struct Case
    {
        const char* name;
        CloudWriter::Format format;
        const char* file;
    } cases[] = {{"PLY binary", CloudWriter::Format::PlyBinary, "stretch.ply"},
                 {"PCD binary", CloudWriter::Format::PcdBinary, "stretch.pcd"},
                 {"CSV", CloudWriter::Format::Csv, "stretch.csv"}};
    int status = 0;
    for (const Case& c : cases) {
        const double peakBefore = peakMiB();
        const QString target = dir.filePath(c.file);
        const Run run = exportStretch(capture, stretch, target, c.format);
        if (!run.ok || run.points != points) {
            std::printf("export %-18s failed: %s\n", c.name, qPrintable(run.error));
            status = 1;
            continue;
        }
        std::printf("export %-18s %8.2f M points/s %7.3f s (counting %.3f s) file %6.0f MB, "
                    "peak memory +%.1f MiB\n",
                    c.name, points / run.seconds * 1e-6, run.seconds, run.countingSeconds,
                    QFileInfo(target).size() * 1e-6, peakMiB() - peakBefore);
        QFile::remove(target);
    }
    return status;
}
