#pragma once
#include "settings/settingskeys.h"
#include "export/cloudwriter.h"

#include <QObject>
#include <QString>
#include <functional>
#include <memory>

class QAction;
class QIODevice;
class QImage;
class QProgressDialog;
class QSettings;
class QWidget;

namespace vxlindral {

class CapturePlayback;
class StretchExport;
class ThreeDView;

// The window's exports to files: asking for the file (the dialog opens where
// the last export went), writing it whole or not at all, and saying why when
// it fails ("Export failed"). The line's text, a view's picture, a 3D view's
// cloud, and the marked stretch of a capture as a cloud (in the background,
// with progress and Cancel).
//
// Ownership: owned by the window, parented to it; owns the stretch export
// under way and its progress dialog; `settings` is the window's. Threads:
// GUI thread only.
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
    // The export of a stretch of lines under way; null when none is.
    StretchExport* runningStretch() const { return stretch.get(); }

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
    // A stretch export began (true) or ended (false).
    void stretchRunning(bool running);

private:
    // Asks for a cloud file: its name (with the chosen filter's extension
    // when it has none) and its format. False when cancelled or refused.
    bool askCloudFile(const QString& title, QString& fileName, CloudWriter::Format& format);
    // The end of the stretch export: a box on failure, "Path/Last" on success.
    void stretchEnded(bool ok, const QString& reason);

    QWidget* window;
    QSettings& settings;
    QAction* keepNoEcho;
    std::unique_ptr<StretchExport> stretch;
    QProgressDialog* progress = nullptr;
};

} // namespace vxlindral
