#pragma once
#include "app/stretchexport.h"
#include "export/cloudwriter.h"
#include "line/linetype.h"
#include "settings/settingskeys.h"

#include <QObject>
#include <QString>
#include <functional>
#include <memory>

class QAction;
class QIODevice;
class QImage;
class QProgressBar;
class QProgressDialog;
class QSettings;
class QWidget;

namespace vxlindral {

class CapturePlayback;
class MeasureExport;
class ThreeDView;

// The window's exports to files: asking for the file (the dialog opens where
// the last export went), writing it whole or not at all, and saying why when
// it fails ("Export failed"). The line's text, a view's picture, a 3D view's
// cloud, and the marked stretch of a capture as a cloud or as the measures
// of a region (in the background, with progress and Cancel); the measures
// of the lines a live port still holds.
//
// Ownership: owned by the window, parented to it; owns the stretch or
// measurement export under way and its progress dialog; `settings` is the
// window's. Threads: GUI thread only.
class ExportFiles : public QObject
{
    Q_OBJECT
public:
    ExportFiles(QWidget* window, QSettings& settings);
    ~ExportFiles() override;

    // Edit > "Export points without echo": whether cloud exports keep the
    // pixels that measured nothing; checkable, remembered in the settings.
    QAction* keepNoEchoAction() const { return keepNoEcho; }

    // Asks for a file and writes `text` to it.
    void exportLine(const QString& text);
    // Asks for a PNG file and writes `picture` to it.
    void saveImage(const QImage& picture);
    // Asks for a file and writes the cloud `view` holds now to it.
    void exportCloud(ThreeDView* view);
    // Starts exporting every point of the playback's marked stretch of lines
    // (the whole capture when nothing is marked) to a cloud file asked for.
    void exportStretch(const CapturePlayback& playback);
    // Starts writing the measures of the region y0 .. y1 (metres) of every
    // line of the playback's marked stretch to a CSV file asked for.
    void exportMeasurements(const CapturePlayback& playback, double y0, double y1);
    // Asks for a CSV file and writes the measures of the region y0 .. y1
    // (metres) of `lines` (a live port's held lines, oldest first) to it,
    // one row per line numbered as its receiver counted it.
    void exportMeasurements(const std::vector<LineType>& lines, double y0, double y1);
    // The export of a stretch of lines under way; null when none is.
    StretchExport* runningStretch() const { return stretch.get(); }
    MeasureExport* runningMeasurements() const { return measures.get(); }
    // A stretch or measurement export is under way (one at a time).
    bool running() const { return stretch || measures; }

    // Writes a file of an export through a temporary file beside it that
    // replaces it only once `write` succeeded; otherwise no file is left and
    // the "Export failed" box names the file and the reason. On success the
    // path is stored under "Path/Last".
    bool write(const QString& fileName, const QString& openFailure,
               const std::function<bool(QIODevice&, QString& reason)>& writeTo);
    // Where an export dialog opens: the folder that `key` remembers (the path
    // it holds, or the folder that path lies in; the home folder when
    // nothing is stored or the folder is gone), with the name the key holds
    // when it has the extension of `fresh`, else `fresh`.
    QString startPath(const SettingsKeys::Key<QString>& key, const QString& fresh) const;
    // The "Export failed" box: `text`, then the file and the reason.
    void failed(const QString& text, const QString& fileName, const QString& reason);

signals:
    // A stretch or measurement export began (true) or ended (false).
    void stretchRunning(bool running);

private:
    // Asks for a cloud file: its name (with the chosen filter's extension
    // when it has none) and its format. False when cancelled or refused.
    bool askCloudFile(const QString& title, QString& fileName, CloudWriter::Format& format);
    // Asks for the CSV file of a measurement export; empty when cancelled.
    QString askMeasurementsFile();
    // The lines of the playback's marked stretch; false when an export runs
    // already, or (with a box) when the capture has no known line yet.
    bool markedLines(const CapturePlayback& playback, StretchExport::Stretch& lines);
    // Starts `job` (a stretch or measurement export of `lines` lines of the
    // capture at `capturePath`) with its progress dialog; when it cannot
    // start, drops it and says why.
    template <class Job>
    void launch(std::unique_ptr<Job>& job, const QString& title, uint64_t lines,
                const QString& capturePath);
    // The progress dialog of `job` writing `lines` lines to `fileName`.
    void showProgress(QObject* job, const QString& title, uint64_t lines, const QString& fileName);
    // The end of a stretch or measurement export: a box on failure,
    // "Path/Last" on success.
    void jobEnded(bool ok, const QString& reason);

    QWidget* window;
    QSettings& settings;
    QAction* keepNoEcho;
    std::unique_ptr<StretchExport> stretch;
    std::unique_ptr<MeasureExport> measures;
    QProgressDialog* progress = nullptr;
    QProgressBar* progressBar = nullptr; // the progress dialog's
};

} // namespace vxlindral
