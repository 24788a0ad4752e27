#include "app/exportfiles.h"

#include "app/captureplayback.h"
#include "app/measureexport.h"
#include "app/streamhealthlabel.h"
#include "app/stretchexport.h"
#include "line/myline.h"
#include "measure/measurecsv.h"
#include "measure/profilemeasure.h"
#include "measure/profilepoints.h"
#include "views/myopenglwidget.h"
#include "views/threedview.h"

#include <QAction>
#include <QDir>
#include <QFileDialog>
#include <QFileInfo>
#include <QImage>
#include <QMessageBox>
#include <QProgressBar>
#include <QProgressDialog>
#include <QSaveFile>
#include <QSettings>
#include <QTextStream>
#include <algorithm>

namespace vxlindral {

namespace {

// The file types of the cloud export; the extension decides the format, the
// filter only whether PLY and PCD are written as text.
const char* const cloudFilters[] = {
    QT_TRANSLATE_NOOP("vxlindral::ExportFiles", "PLY binary (*.ply)"),
    QT_TRANSLATE_NOOP("vxlindral::ExportFiles", "PLY text (*.ply)"),
    QT_TRANSLATE_NOOP("vxlindral::ExportFiles", "PCD binary (*.pcd)"),
    QT_TRANSLATE_NOOP("vxlindral::ExportFiles", "PCD text (*.pcd)"),
    QT_TRANSLATE_NOOP("vxlindral::ExportFiles", "CSV (*.csv)")};

// The extension of a filter such as "PLY text (*.ply)": "ply".
QString filterSuffix(const QString& filter)
{
    const int dot = filter.lastIndexOf(QLatin1String("*."));
    return dot < 0 ? QString() : filter.mid(dot + 2).chopped(1);
}

} // namespace

ExportFiles::ExportFiles(QWidget* parentWindow, QSettings& windowSettings)
    : QObject(parentWindow), window(parentWindow), settings(windowSettings),
      keepNoEcho(new QAction(tr("Export points without echo"), parentWindow))
{
    keepNoEcho->setObjectName(QStringLiteral("actionKeepNoEcho"));
    keepNoEcho->setToolTip(
        tr("Cloud exports also write the pixels that measured nothing (range 0), at the "
           "scanner's position."));
    keepNoEcho->setCheckable(true);
    keepNoEcho->setChecked(SettingsKeys::keepNoEcho.read(settings));
    connect(keepNoEcho, &QAction::toggled, this,
            [this](bool on) { SettingsKeys::keepNoEcho.write(settings, on); });
}

ExportFiles::~ExportFiles() = default;

QString ExportFiles::startPath(const SettingsKeys::Key<QString>& key, const QString& fresh) const
{
    // The folder the key remembers: the file's folder, or the folder itself;
    // the home folder before anything was stored.
    const QString last =
        settings.contains(QLatin1String(key.name)) ? key.read(settings) : QString();
    const QFileInfo info(last);
    QDir folder = info.isDir() ? QDir(last) : info.dir();
    if (last.isEmpty() || !folder.exists())
        folder = QDir::home();
    // The name the key remembers when it was a file of this kind (the same
    // extension): the next export overwrites it only when asked; else a
    // fresh name, never another kind's.
    const QString suffix = QFileInfo(fresh).suffix();
    const bool sameKind = !info.isDir() && !info.fileName().isEmpty() && info.dir().exists() &&
                          info.suffix().compare(suffix, Qt::CaseInsensitive) == 0;
    return folder.filePath(sameKind ? info.fileName() : fresh);
}

void ExportFiles::failed(const QString& text, const QString& fileName, const QString& reason)
{
    QMessageBox box(QMessageBox::Warning, tr("Export failed"), text, QMessageBox::Ok, window);
    box.setInformativeText(
        QStringLiteral("%1\n%2").arg(QDir::toNativeSeparators(fileName), reason));
    box.exec();
}

bool ExportFiles::write(const QString& fileName, const QString& openFailure,
                        const std::function<bool(QIODevice&, QString&)>& writeTo)
{
    // The temporary file lies beside the target, so that the final rename
    // stays on one file system; it is removed unless committed.
    QSaveFile file(fileName);
    if (!file.open(QIODevice::WriteOnly)) {
        failed(openFailure, fileName, file.errorString());
        return false;
    }
    QString reason;
    if (!writeTo(file, reason) || !file.commit()) {
        if (reason.isEmpty())
            reason = file.errorString();
        file.cancelWriting();
        failed(tr("Could not write the file"), fileName, reason);
        return false;
    }
    SettingsKeys::pathLast.write(settings, QFileInfo(fileName).absoluteFilePath());
    return true;
}

void ExportFiles::exportLine(const QString& text)
{
    const QString fileName =
        QFileDialog::getSaveFileName(window, tr("Save line to file"),
                                     startPath(SettingsKeys::pathLast, QStringLiteral("line.txt")),
                                     QString(), nullptr, QFileDialog::Options());
    if (fileName.isEmpty())
        return;
    write(fileName, tr("Could not open file for writing"),
          [&text](QIODevice& file, QString& reason) {
              QTextStream out(&file);
              out << text;
              out.flush();
              if (out.status() == QTextStream::Ok)
                  return true;
              reason = file.errorString();
              return false;
          });
}

void ExportFiles::saveImage(const QImage& picture)
{
    QString fileName =
        QFileDialog::getSaveFileName(window, tr("Save view image"),
                                     startPath(SettingsKeys::pathLast, QStringLiteral("view.png")),
                                     tr("PNG image (*.png)"), nullptr, QFileDialog::Options());
    if (fileName.isEmpty())
        return;
    if (QFileInfo(fileName).suffix().isEmpty())
        fileName += QLatin1String(".png");
    write(fileName, tr("Could not open file for writing"),
          [&picture](QIODevice& file, QString& reason) {
              if (picture.save(&file, "PNG"))
                  return true;
              reason = picture.isNull() ? tr("The view shows no picture yet.") : file.errorString();
              return false;
          });
}

bool ExportFiles::askCloudFile(const QString& title, QString& fileName, CloudWriter::Format& format)
{
    QStringList filters;
    for (const char* f : cloudFilters)
        filters << tr(f);
    QString filter = filters.first();
    fileName = QFileDialog::getSaveFileName(
        window, title, startPath(SettingsKeys::pathLast, QStringLiteral("cloud.ply")),
        filters.join(";;"), &filter, QFileDialog::Options());
    if (fileName.isEmpty())
        return false;
    if (QFileInfo(fileName).suffix().isEmpty())
        fileName += QLatin1Char('.') + filterSuffix(filter);
    const bool text = filter.contains(QLatin1String(" text ")) &&
                      QFileInfo(fileName).suffix().toLower() == filterSuffix(filter);
    if (!CloudWriter::formatOf(fileName, text, format)) {
        failed(tr("Unknown cloud file type"), fileName, tr("Name the file .ply, .pcd or .csv."));
        return false;
    }
    return true;
}

void ExportFiles::exportCloud(ThreeDView* view)
{
    // Taken now: the cloud the view holds when the command was given.
    std::vector<CloudWriter::Point> points = view->glWidget()->cloud();
    const bool keep = SettingsKeys::keepNoEcho.read(settings);
    if (!keep) {
        points.erase(std::remove_if(points.begin(), points.end(),
                                    [](const CloudWriter::Point& p) { return p.range == 0.0f; }),
                     points.end());
    }
    QString fileName;
    CloudWriter::Format format;
    if (!askCloudFile(tr("Save cloud to file"), fileName, format))
        return;
    write(fileName, tr("Could not open file for writing"), [&](QIODevice& file, QString& reason) {
        CloudWriter writer(file, format, points.size());
        writer.setNote(CloudWriter::echoNote(keep));
        if (writer.writeHeader() && writer.writePoints(points.data(), points.size()) &&
            writer.finish())
            return true;
        reason = writer.errorString();
        return false;
    });
}

bool ExportFiles::markedLines(const CapturePlayback& playback, StretchExport::Stretch& lines)
{
    if (running())
        return false;
    // The stretch as marked when the command was given.
    uint64_t first = 0;
    uint64_t last = 0;
    if (!playback.markedStretch(first, last)) {
        QMessageBox::warning(window, tr("Export failed"),
                             tr("No line of the capture is known yet."), QMessageBox::Ok);
        return false;
    }
    const vxrec::CaptureIndex& index = playback.index();
    lines.first = first;
    lines.count = last - first + 1;
    lines.offset = index.entry(first).offset;
    lines.prelude = vxrec::CaptureSource::kNoPrelude;
    index.headerBefore(first, lines.prelude);
    return true;
}

void ExportFiles::exportStretch(const CapturePlayback& playback)
{
    StretchExport::Stretch lines;
    if (!markedLines(playback, lines))
        return;
    const QString capturePath = playback.path();

    QString fileName;
    CloudWriter::Format format;
    if (!askCloudFile(tr("Export lines as cloud"), fileName, format))
        return;
    stretch = std::make_unique<StretchExport>(capturePath, playback.port(), lines, fileName, format,
                                              this);
    stretch->setKeepNoEcho(SettingsKeys::keepNoEcho.read(settings));
    launch(stretch, tr("Export lines as cloud"), lines.count, capturePath);
}

void ExportFiles::exportMeasurements(const CapturePlayback& playback, double y0, double y1)
{
    StretchExport::Stretch lines;
    if (!markedLines(playback, lines))
        return;
    const QString capturePath = playback.path();
    const QString fileName = askMeasurementsFile();
    if (fileName.isEmpty())
        return;
    measures = std::make_unique<MeasureExport>(capturePath, playback.port(), lines, y0, y1,
                                               fileName, this);
    launch(measures, tr("Export measurements"), lines.count, capturePath);
}

QString ExportFiles::askMeasurementsFile()
{
    return QFileDialog::getSaveFileName(
        window, tr("Export measurements"),
        startPath(SettingsKeys::pathLast, QStringLiteral("measurements.csv")),
        tr("CSV files (*.csv);;All files (*)"));
}

void ExportFiles::exportMeasurements(const std::vector<LineType>& lines, double y0, double y1)
{
    const QString fileName = askMeasurementsFile();
    if (fileName.isEmpty())
        return;
    // A handful of lines: measured here, with the library and the rows the
    // cut view's panel and the capture export use.
    write(fileName, tr("Could not open file for writing"), [&](QIODevice& file, QString& reason) {
        vxmeasure::ProfilePoints points;
        vxmeasure::ProfileMeasure measure;
        char row[vxmeasure::MeasureCsv::kRowBytes];
        bool ok = file.write(vxmeasure::MeasureCsv::header()) >= 0;
        for (const LineType& line : lines) {
            points.assign(line->points.data(), line->points.size());
            const auto n = static_cast<qint64>(
                vxmeasure::MeasureCsv::row(line->frame, measure.measure(points, y0, y1), row));
            ok = ok && file.write(row, n) == n;
        }
        if (!ok)
            reason = file.errorString();
        return ok;
    });
}

template <class Job>
void ExportFiles::launch(std::unique_ptr<Job>& job, const QString& title, uint64_t lines,
                         const QString& capturePath)
{
    QString error;
    bool targetFailed = false;
    if (!job->start(error, targetFailed)) {
        const QString fileName = job->target();
        job.reset();
        failed(targetFailed ? tr("Could not open file for writing")
                            : tr("Could not read the capture"),
               targetFailed ? fileName : capturePath, error);
        return;
    }
    showProgress(job.get(), title, lines, job->target());
    connect(progress, &QProgressDialog::canceled, job.get(), &Job::cancel);
    connect(job.get(), &Job::progressed, progressBar, &QProgressBar::setValue);
    // Queued: the failure box opens from the event loop, not from the export.
    connect(job.get(), &Job::finished, this, &ExportFiles::jobEnded, Qt::QueuedConnection);
}

void ExportFiles::showProgress(QObject* job, const QString& title, uint64_t lines,
                               const QString& fileName)
{
    emit stretchRunning(true);
    // Shown only when the export takes longer than a second.
    progress = new QProgressDialog(
        tr("Writing %1 lines to %2 ...")
            .arg(StreamHealthLabel::grouped(lines), QFileInfo(fileName).fileName()),
        tr("Cancel"), 0, 1000, window);
    progress->setObjectName(job == stretch.get() ? "stretchProgress" : "measureProgress");
    progress->setWindowTitle(title);
    progress->setWindowModality(Qt::WindowModal);
    progress->setMinimumDuration(1000);
    progress->setAutoReset(false);
    progress->setAutoClose(false);
    // The dialog's own setValue() runs a nested event loop when the dialog is
    // modal, inside the export's code, where a queued close or quit could
    // delete what called it: the progress goes to a bar of its own instead,
    // and the dialog only shows itself after its minimum duration.
    progressBar = new QProgressBar(progress);
    progressBar->setRange(0, 1000);
    progress->setBar(progressBar);
    progress->setValue(0);
}

void ExportFiles::jobEnded(bool ok, const QString& reason)
{
    const QString fileName = stretch    ? stretch->target()
                             : measures ? measures->target()
                                        : QString();
    // Delivered queued: the export's own code has returned.
    stretch.reset();
    measures.reset();
    if (progress) {
        progress->disconnect(this);
        progress->deleteLater();
        progress = nullptr;
        progressBar = nullptr;
    }
    emit stretchRunning(false);
    if (ok)
        SettingsKeys::pathLast.write(settings, QFileInfo(fileName).absoluteFilePath());
    else if (!reason.isEmpty())
        failed(tr("Could not write the file"), fileName, reason);
}

} // namespace vxlindral
