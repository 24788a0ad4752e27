#include "app/measureexport.h"

#include "capture/capturesource.h"
#include "measure/measurecsv.h"

#include <QFile>
#include <QTimer>
#include <algorithm>
#include <unistd.h>

namespace vxlindral {

namespace {

// How often the progress and the end are checked.
constexpr int kTickMs = 20;
// Ticks the source must have stood still, with no row coming, before the
// stretch is taken as ended short of its last line.
constexpr int kQuietTicks = 3;

} // namespace

MeasureExport::MeasureExport(const QString& path, uint16_t p, const StretchExport::Stretch& s,
                             double a, double b, const QString& target, QObject* parent)
    : QObject(parent), capturePath(path), port(p), stretch(s), y0(a), y1(b),
      targetPath(target), file(target)
{
}

MeasureExport::~MeasureExport()
{
    stopMeasuring();
    if (!done)
        file.cancelWriting();
}

bool MeasureExport::start(QString& error, bool& targetFailed)
{
    targetFailed = false;
    source = std::make_shared<vxrec::CaptureSource>(port);
    if (!source->open(QFile::encodeName(capturePath).toStdString())) {
        error = QString::fromLocal8Bit(source->error().c_str());
        return false;
    }
    if (!file.open(QIODevice::WriteOnly)) {
        error = file.errorString();
        targetFailed = true;
        return false;
    }
    // The measurer writes through stdio on the receive thread; the save file
    // keeps its own descriptor for committing.
    const int fd = ::dup(file.handle());
    out = fd >= 0 ? ::fdopen(fd, "wb") : nullptr;
    if (!out) {
        if (fd >= 0)
            ::close(fd);
        error = tr("the file could not be written");
        targetFailed = true;
        file.cancelWriting();
        return false;
    }
    std::fputs(vxmeasure::MeasureCsv::header(), out);
    measurer = std::make_unique<vxmeasure::LineMeasurer>(out, y0, y1);
    measurer->setStretch(stretch.first, stretch.count);
    source->seek(stretch.offset, stretch.first, stretch.prelude);
    source->setSpeed(0);
    source->playLines(stretch.count);
    measurer->Connect(vxrec::CaptureSource::shared(source));
    timer = new QTimer(this);
    timer->setInterval(kTickMs);
    connect(timer, &QTimer::timeout, this, &MeasureExport::check);
    timer->start();
    return true;
}

uint64_t MeasureExport::rows() const
{
    return measurer ? measurer->lines() : 0;
}

void MeasureExport::check()
{
    if (done)
        return;
    const uint64_t n = rows();
    if (n >= stretch.count) {
        finish();
        return;
    }
    const vxrec::CaptureSource::Status s = source->status();
    const bool sourceDone = s.ended || !s.playing;
    quietTicks = sourceDone && n == lastRows ? quietTicks + 1 : 0;
    lastRows = n;
    if (quietTicks >= kQuietTicks) {
        if (!s.problem.empty())
            fail(tr("the capture could not be read to the end of the stretch: %1")
                     .arg(QString::fromLocal8Bit(s.problem.c_str())));
        else if (n == 0)
            fail(tr("No line of the marked stretch could be read."));
        else
            finish();
        return;
    }
    const int permille = static_cast<int>(n * 1000 / std::max<uint64_t>(stretch.count, 1));
    if (permille != lastPermille) {
        lastPermille = permille;
        emit progressed(std::min(permille, 1000));
    }
}

void MeasureExport::finish()
{
    done = true;
    timer->stop();
    if (!stopMeasuring()) {
        file.cancelWriting();
        emit finished(false, tr("the file could not be written"));
        return;
    }
    if (!file.commit()) {
        emit finished(false, file.errorString());
        return;
    }
    emit progressed(1000);
    emit finished(true, QString());
}

void MeasureExport::fail(const QString& reason)
{
    done = true;
    timer->stop();
    stopMeasuring();
    file.cancelWriting();
    emit finished(false, reason);
}

void MeasureExport::cancel()
{
    if (done)
        return;
    fail(QString());
}

bool MeasureExport::stopMeasuring()
{
    if (measurer)
        measurer->Disconnect(true);
    if (!out)
        return false;
    const bool written = std::fflush(out) == 0 && !std::ferror(out);
    std::fclose(out);
    out = nullptr;
    return written;
}

} // namespace vxlindral
