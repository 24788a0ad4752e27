#include "app/capturerecording.h"

#include "app/streamhealthlabel.h"
#include "settings/settingskeys.h"
#include "stream/streamdatacontroller.h"

#include <QAction>
#include <QDir>
#include <QFile>
#include <QFileDialog>
#include <QFileInfo>
#include <QMessageBox>
#include <QSettings>
#include <QStringList>
#include <QTimer>
#include <chrono>

namespace vxlindral {

namespace {

QString pathOf(const vxrec::CaptureRecorder& recorder)
{
    return QFile::decodeName(recorder.path().c_str());
}

} // namespace

CaptureRecording::CaptureRecording(QWidget* parentWindow, QAction* recordAction)
    : QObject(parentWindow), window(parentWindow), action(recordAction), timer(new QTimer(this))
{
    timer->setInterval(StreamHealthLabel::refreshMs);
    connect(timer, &QTimer::timeout, this, &CaptureRecording::refresh);
}

CaptureRecording::~CaptureRecording()
{
    // Quitting while recording keeps the file: the tap is cleared and
    // everything taken is written. The window that listens is going.
    blockSignals(true);
    stop(false);
    finishAll();
}

void CaptureRecording::ask(const std::shared_ptr<StreamDataController>& controller, int port,
                           QSettings& settings)
{
    if (!controller || controller->localPort() == 0) {
        start(controller, port, QString()); // refused with its box
        return;
    }
    QString folder = SettingsKeys::pathCapture.read(settings);
    if (folder.isEmpty())
        folder = QDir::homePath();
    // The dialog asks before an existing file is replaced; the name is taken
    // as given, so that what it confirmed is what is written.
    const QString fileName = QFileDialog::getSaveFileName(window, tr("Record capture"), folder,
                                                          tr("Captures (*.pcapng);;All files (*)"),
                                                          nullptr, QFileDialog::Options());
    if (fileName.isEmpty()) {
        action->setChecked(false);
        return;
    }
    SettingsKeys::pathCapture.write(settings, QFileInfo(fileName).absolutePath());
    start(controller, port, fileName);
}

bool CaptureRecording::refuse(const QString& text)
{
    action->setChecked(false);
    QMessageBox::warning(window, window->windowTitle(), text, QMessageBox::Ok);
    return false;
}

bool CaptureRecording::start(const std::shared_ptr<StreamDataController>& controller, int port,
                             const QString& path)
{
    stop();
    if (!controller || controller->localPort() == 0)
        return refuse(tr("No current port. Connect stream or select an active window."));
    const QString target = QFileInfo(path).absoluteFilePath();
    const QString shown = QDir::toNativeSeparators(path);
    for (const Finishing& f : finishing) {
        if (QFileInfo(pathOf(*f.recorder)).absoluteFilePath() == target)
            return refuse(tr("Could not record to %1: the recording before is still being "
                             "written to it.")
                              .arg(shown));
    }
    auto fresh =
        std::make_unique<vxrec::CaptureRecorder>(static_cast<uint16_t>(controller->localPort()));
    if (!fresh->start(QFile::encodeName(path).toStdString()))
        return refuse(tr("Could not record to %1: %2")
                          .arg(shown, QString::fromLocal8Bit(fresh->status().error.c_str())));
    recorder = std::move(fresh);
    recordingPort = port;
    tapped = controller;
    controller->setTap(recorder.get());
    action->setChecked(true);
    timer->start();
    refresh();
    return true;
}

void CaptureRecording::stop(bool warn)
{
    if (!recorder)
        return;
    // The receive thread lets go of the recorder before it stops; the writer
    // thread then writes what is left and closes the file on its own (a slow
    // disk may take seconds for 256 MiB).
    if (const std::shared_ptr<StreamDataController> c = tapped.lock())
        c->setTap(nullptr);
    tapped.reset();
    recorder->stop();
    finishing.push_back({std::move(recorder), warn});
    recordingPort = 0;
    action->setChecked(false);
    refresh();
}

void CaptureRecording::finishAll()
{
    for (Finishing& f : finishing)
        f.warn = false;
    finish(true);
}

void CaptureRecording::finish(bool wait)
{
    QStringList failures;
    for (auto it = finishing.begin(); it != finishing.end();) {
        if (!wait && !it->recorder->finished()) {
            ++it;
            continue;
        }
        it->recorder->finish();
        const vxrec::CaptureRecorder::Status status = it->recorder->status();
        if (it->warn && status.failed) {
            // The file keeps every block written before the failure.
            failures << tr("Recording to %1 stopped: %2. The file holds what was recorded "
                           "until then.")
                            .arg(QDir::toNativeSeparators(pathOf(*it->recorder)),
                                 QString::fromLocal8Bit(status.error.c_str()));
        }
        it = finishing.erase(it);
    }
    // After the list is settled: a box's loop may call this again.
    for (const QString& text : failures)
        QMessageBox::warning(window, window->windowTitle(), text, QMessageBox::Ok);
}

QString CaptureRecording::text() const
{
    if (!recorder)
        return QString();
    const vxrec::CaptureRecorder::Status s = recorder->status();
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(
                             std::chrono::steady_clock::now() - recorder->startedAt())
                             .count();
    QString duration = QStringLiteral("%1:%2")
                           .arg(seconds / 60 % 60, 2, 10, QLatin1Char('0'))
                           .arg(seconds % 60, 2, 10, QLatin1Char('0'));
    if (seconds >= 3600)
        duration.prepend(QStringLiteral("%1:").arg(seconds / 3600));
    // Sizes in decimal units, as file managers show them.
    const QString size =
        s.bytes < 1000000
            ? QStringLiteral("%1 kB").arg(StreamHealthLabel::grouped(s.bytes / 1000))
            : QStringLiteral("%1 MB").arg(StreamHealthLabel::grouped((s.bytes + 500000) / 1000000));
    QString line = QStringLiteral("\u25cf %1 %2 %3 lines %4")
                       .arg(QFileInfo(pathOf(*recorder)).fileName(), duration,
                            StreamHealthLabel::grouped(s.lines), size);
    if (s.notRecorded)
        line += tr(", %1 datagrams not recorded (the disk fell behind)")
                    .arg(StreamHealthLabel::grouped(s.notRecorded));
    return line;
}

void CaptureRecording::refresh()
{
    if (recorder && recorder->status().failed) {
        stop(); // reported with the file and the reason once it is closed
        return;
    }
    finish(false);
    QStringList texts;
    if (recorder)
        texts << text();
    for (const Finishing& f : finishing) {
        const vxrec::CaptureRecorder::Status s = f.recorder->status();
        const uint64_t left = s.bytes > s.written ? s.bytes - s.written : 0;
        texts << tr("Finishing %1: %2 MB to write")
                     .arg(QFileInfo(pathOf(*f.recorder)).fileName(),
                          StreamHealthLabel::grouped((left + 500000) / 1000000));
    }
    if (texts.isEmpty()) {
        timer->stop();
        emit textChanged(QString());
        emit idle();
    } else {
        if (!timer->isActive())
            timer->start();
        emit textChanged(texts.join(QStringLiteral(", ")));
    }
}

} // namespace vxlindral
