#include "app/stretchexport.h"

#include "capture/capturesource.h"
#include "line/myline.h"
#include "models/streamdatamodel.h"
#include "stream/streamdatacontroller.h"
#include "views/linepoints.h"

#include <QFile>
#include <QTimer>
#include <algorithm>
#include <climits>

namespace vxlindral {

namespace {

// How often a pass looks whether its lines are all in (only needed when some
// line of the stretch cannot be decoded: otherwise the last line ends it).
constexpr int kTickMs = 20;
// Ticks the source must stand still with nothing on its way before a pass
// that took fewer lines than it asked for counts as complete.
constexpr int kQuietTicks = 3;

} // namespace

StretchExport::StretchExport(const QString& path, uint16_t udpPort, const Stretch& s,
                             const QString& targetFile, CloudWriter::Format f, QObject* parent)
    : QObject(parent), capturePath(path), port(udpPort), stretch(s), targetPath(targetFile),
      format(f), model(std::make_shared<StreamDataModel>()),
      controller(std::make_shared<StreamDataController>(model)), file(targetFile)
{
    // The model hands its lines over on the GUI thread, inside the drain of
    // the hand-over: taken here directly.
    connect(model.get(), &StreamDataModel::newLine, this, &StretchExport::takeLine);
}

StretchExport::~StretchExport()
{
    stopReceiving();
    if (file.isOpen())
        file.cancelWriting(); // the temporary file goes; the target stays as it was
}

bool StretchExport::start(QString& error, bool& targetFailed)
{
    targetFailed = false;
    if (stretch.count == 0) {
        error = tr("The marked stretch holds no lines.");
        return false;
    }
    // The temporary file lies beside the target, so that the final rename
    // stays on one file system.
    if (!file.open(QIODevice::WriteOnly)) {
        targetFailed = true;
        error = file.errorString();
        return false;
    }
    if (!beginPass(error)) {
        file.cancelWriting();
        return false;
    }
    timer = new QTimer(this);
    timer->setInterval(kTickMs);
    connect(timer, &QTimer::timeout, this, &StretchExport::check);
    timer->start();
    return true;
}

bool StretchExport::beginPass(QString& error)
{
    source = std::make_shared<vxrec::CaptureSource>(port);
    if (!source->open(QFile::encodeName(capturePath).toStdString())) {
        error = QString::fromLocal8Bit(source->error().c_str());
        return false;
    }
    linesTaken = 0;
    quietTicks = 0;
    source->seek(stretch.offset, stretch.first, stretch.prelude);
    source->setSpeed(0);
    source->playLines(stretch.count);
    controller->setFrames(static_cast<uint32_t>(stretch.first));
    if (!controller->startSource(vxrec::CaptureSource::shared(source))) {
        error = tr("the capture could not be read");
        return false;
    }
    return true;
}

void StretchExport::cancel()
{
    if (pass == Pass::Done)
        return;
    pass = Pass::Done;
    stopReceiving();
    file.cancelWriting();
    emit finished(false, QString());
}

void StretchExport::linePoints(const MyLine& line, uint64_t lineNumber,
                               std::vector<CloudWriter::Point>& out, bool keepNoEcho)
{
    const int n = std::max(line.pixel, 0);
    out.resize(static_cast<std::size_t>(n));
    // As the 3D view draws a line.
    const LinePoints::Range range = LinePoints::rangeOf(line);
    const float x = LinePoints::lineX(static_cast<int64_t>(std::min<uint64_t>(lineNumber, INT_MAX)));
    std::size_t kept = 0;
    for (int i = 0; i < n; ++i) {
        const vxs::VxPt& pt = line.points[static_cast<std::size_t>(i)];
        if (!keepNoEcho && !hasEcho(pt))
            continue;
        const LinePoints::Point drawn = LinePoints::point(pt, x, range);
        CloudWriter::Point& p = out[kept++];
        p.x = drawn.x;
        p.y = drawn.y;
        p.z = drawn.z;
        p.gray = LinePoints::gray8(drawn.colour);
        p.intensity = pt.intensity;
        p.range = static_cast<float>(pt.range);
        p.series = line.series;
        p.pixel = static_cast<uint32_t>(i);
    }
    out.resize(kept);
}

void StretchExport::takeLine(const LineType& line)
{
    if (!line)
        return;
    const uint64_t expected = pass == Pass::Counting ? stretch.count : linesCounted;
    if (pass == Pass::Done || linesTaken >= expected)
        return;
    if (pass == Pass::Counting) {
        if (keepNoEcho) {
            total += static_cast<uint64_t>(std::max(line->pixel, 0));
        } else {
            const int n = std::max(line->pixel, 0);
            for (int i = 0; i < n; ++i)
                total += hasEcho(line->points[static_cast<std::size_t>(i)]) ? 1 : 0;
        }
    } else {
        linePoints(*line, stretch.first + linesTaken, points, keepNoEcho);
        if (!writer->writePoints(points.data(), points.size())) {
            // Not from inside the hand-over's drain, which called us.
            QMetaObject::invokeMethod(
                this, [this, reason = writer->errorString()] { fail(reason); },
                Qt::QueuedConnection);
            pass = Pass::Done;
            return;
        }
        written += points.size();
    }
    ++linesTaken;
    if (linesTaken == expected) // the last line: the pass ends (after the drain)
        QMetaObject::invokeMethod(this, &StretchExport::endPass, Qt::QueuedConnection);
}

void StretchExport::check()
{
    if (pass == Pass::Done)
        return;
    const uint64_t expected = pass == Pass::Counting ? stretch.count : linesCounted;
    if (linesTaken < expected) {
        // Some line did not come: once the source has handed out all it will
        // and nothing is left on the way to the model, the pass is over.
        const vxrec::CaptureSource::Status s = source->status();
        const bool sourceDone = s.ended || !s.playing;
        const bool nothingWaiting = controller->handoverCounters().linesWaiting == 0 &&
                                    controller->counters().backlogMessages == 0;
        quietTicks = sourceDone && nothingWaiting ? quietTicks + 1 : 0;
        if (quietTicks >= kQuietTicks) {
            if (pass == Pass::Writing && !s.problem.empty())
                fail(tr("the capture could not be read to the end of the stretch: %1")
                         .arg(QString::fromLocal8Bit(s.problem.c_str())));
            else
                endPass();
            return;
        }
    }
    // Counting is the first half, writing the second. Last: a modal progress
    // dialog handles events while it takes the value.
    const int permille = (pass == Pass::Counting ? 0 : 500) +
                         static_cast<int>(linesTaken * 500 / std::max<uint64_t>(expected, 1));
    if (permille != lastPermille) {
        lastPermille = permille;
        emit progressed(std::min(permille, 1000));
    }
}

void StretchExport::endPass()
{
    if (pass == Pass::Done)
        return;
    stopReceiving();
    if (pass == Pass::Counting) {
        linesCounted = linesTaken;
        if (linesCounted == 0) {
            fail(tr("No line of the marked stretch could be read."));
            return;
        }
        writer.emplace(file, format, total);
        writer->setNote(CloudWriter::echoNote(keepNoEcho));
        QString error;
        if (!writer->writeHeader()) {
            fail(writer->errorString());
            return;
        }
        pass = Pass::Writing;
        if (!beginPass(error))
            fail(error);
        return;
    }
    if (linesTaken != linesCounted) {
        fail(tr("the capture changed while it was read"));
        return;
    }
    if (!writer->finish()) {
        fail(writer->errorString());
        return;
    }
    if (!file.commit()) {
        const QString reason = file.errorString();
        pass = Pass::Done;
        emit finished(false, reason);
        return;
    }
    pass = Pass::Done;
    emit finished(true, QString());
}

void StretchExport::fail(const QString& reason)
{
    pass = Pass::Done;
    stopReceiving();
    file.cancelWriting();
    emit finished(false, reason.isEmpty() ? file.errorString() : reason);
}

void StretchExport::stopReceiving()
{
    if (timer && pass == Pass::Done)
        timer->stop();
    if (controller)
        controller->stopSource();
}

} // namespace vxlindral
