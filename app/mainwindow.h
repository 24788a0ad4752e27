#pragma once
#include "export/cloudwriter.h"
#include "line/linetype.h"
#include "settings/settingskeys.h"

#include <QMainWindow>
#include <QSettings>
#include <QString>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <vector>

class QAction;
class QDragEnterEvent;
class QDropEvent;
class QIODevice;
class QLabel;
class QProgressBar;
class QProgressDialog;
class QMdiSubWindow;
class QTimer;
class Ui_MainWindow;

namespace vxrec {
class CaptureRecorder;
}

namespace vxlindral {
class BasicView;
class CapturePlayback;
class TransportBar;
class NumericView;
class StreamDataController;
class StreamDataModel;
class StreamHealthLabel;
class StretchExport;
class ThreeDView;
} // namespace vxlindral

// The one top-level window: an MDI area with one sub-window per view and port,
// a status line, the actions, and per line port one model and one controller.
// It opens line port 6101 (status port 6102) with its default views when it
// is built; views are found again by their object name. The right end of the
// status line shows the health of every open port (StreamHealthLabel).
//
// File > Open capture (also a file named on the command line or dropped on
// the window) plays the lines one UDP port of a capture file holds as a
// source of its own beside the live ports, under a key above every port
// number (firstCaptureKey and up), with the default views of a new port
// titled with the file's name and the transport bar (CapturePlayback).
//
// File > Record capture records the raw stream of a port into a pcapng file
// (vxrec::CaptureRecorder, set as the port's datagram tap), while the status
// line shows its file, duration, lines and size.
//
// Ownership: the window owns its form, the capture being played and its
// transport bar, the per-port models and controllers
// (shared pointers in maps whose entries are never erased), the recording
// timer, the capture recorder, the health label, and the views through the
// MDI area (each view deletes itself when closed). Threads: GUI thread only;
// lines reach the models and views through queued connections; the capture
// recorder's counters are atomics, read here twice a second.
class MainWindow : public QMainWindow
{
    Q_OBJECT
public:
    // View kinds as the factory takes them.
    enum ViewKind
    {
        Info = 0,
        Numeric = 1,
        Cut = 2,
        Gray = 3,
        ThreeD = 4,
    };

    explicit MainWindow(QWidget* parent = nullptr);
    ~MainWindow() override;

    // Opens a line port with its model, controller and default views; at most
    // three distinct line ports can be used in one run.
    void openStream(int portLine, int portStatus);
    // The key under which a capture's model, controller and views are kept,
    // in place of a port number: above every port, so that it never clashes
    // with one and never counts toward the line ports of a run.
    static constexpr int firstCaptureKey = 65536;
    // Plays the lines of capture `path` sent to UDP port `port` (0: 6101,
    // else the port with the most lines, asking when there are several) as a
    // source of its own, replacing a capture that is open. False, with a
    // warning box naming the file and the reason, when it cannot be played.
    bool openCapture(const QString& path, int port = 0);
    // Ends the capture's playback and closes its views.
    void closeCapture();
    vxlindral::CapturePlayback* capturePlayback() const { return playback.get(); }
    // The export of a stretch of lines under way; null when none is.
    vxlindral::StretchExport* runningStretchExport() const { return stretchExport.get(); }
    vxlindral::TransportBar* transportBar() const { return transport; }
    // Key of the open capture (its views' port); 0 when none is open.
    int captureSource() const { return captureKey; }

    // Port of the first view among the window's descendants; 6101 without views.
    int currentPort();
    // The source an action acts on: the capture when the active sub-window
    // shows one, else the current port.
    int actionPort();
    // `portLine` when positive, else the active capture or the current port;
    // warns when that is not usable.
    int resolvePort(int portLine);
    void stopRecording();

    // The view factory: builds the view of `kind` for `port`, parented to
    // `parent`, and names it. Throws std::invalid_argument for an unknown kind.
    static vxlindral::BasicView* createView(int kind, int port, MainWindow* parent);
    // Object-name pattern of a view kind ("%1" is the line port).
    static QString viewNamePattern(int kind);

    // Read-only look-ups (they add no map entry), for tests and benchmarks.
    std::shared_ptr<vxlindral::StreamDataModel> dataModel(int port) const;
    std::shared_ptr<vxlindral::StreamDataController> controller(int port) const;
    int portEntries() const { return static_cast<int>(dataModels.size()); }
    bool isRecording() const { return recordTimer != nullptr; }

    // Records the raw stream of `port` into `path` (replacing the file), as
    // "Record capture ..." does after its dialog. False, with a warning box,
    // when the port is not open or the file cannot be created.
    bool startCapture(int port, const QString& path);
    // Ends the capture being recorded at once; its writer thread writes what
    // it has taken and closes the file in the background, while the status
    // line says so. Warns when the file failed (with `warn`) once it is
    // closed.
    void stopCapture(bool warn = true);
    bool isCapturing() const { return capture != nullptr; }
    // Stopped recordings whose files are still being written.
    bool isFinishingCaptures() const { return !finishing.empty(); }
    // The port being recorded; 0 when none is.
    int capturePort() const { return capturingPort; }
    // The status line's text for the capture being recorded.
    QString captureText() const;

signals:
    void configChanged();

public slots:
    void toggleVisibility(QAction* a, vxlindral::BasicView* view);
    void addView(QAction* action, vxlindral::BasicView* view);
    void toggleCutView(int portLine = -1);
    void toggleNumericView(int portLine = -1);
    void toggleStaticView(int portLine = -1);
    void toggle3DView(int portLine = -1);
    void toggleGrayView(int portLine = -1);
    void handleConnect(bool);
    void handleSettings(bool);
    void handlePause(bool pause);
    void handleFilterDisplay();
    void handleExport();
    void handleExportLines();
    // Exports the cloud of the active 3D view (or the 3D view active last).
    void handleExportCloud();
    // Exports every point of the capture's marked stretch of lines.
    void handleExportStretch();
    // Save or copy what the active view shows as an image.
    void handleSaveImage();
    void handleCopyImage();
    void handleStopStream();
    void handleClose();
    void handleAbout();
    void handleRealign();
    void recording();
    void handleRecordCapture(bool checked);
    void handleOpenCapture();

protected:
    void closeEvent(QCloseEvent* event) override;
    void showEvent(QShowEvent* event) override;
    bool eventFilter(QObject* watched, QEvent* event) override;
    // A capture file dropped on the window is opened.
    void dragEnterEvent(QDragEnterEvent* event) override;
    void dropEvent(QDropEvent* event) override;

private:
    // Common body of the five toggle slots.
    void toggleView(int kind, QAction* action, int portLine);
    // Wires a new view to the port's model (queued for lines) and the window.
    void connectView(int kind, vxlindral::BasicView* view, int port);
    // The numeric view's part of connectView: its three own models (average,
    // big average, header), each fed by the port's model, and the view's
    // switches to the models. `model` may be null (no lines then).
    void connectNumericView(vxlindral::NumericView* view, vxlindral::StreamDataModel* model);
    // The text of the port's current line; empty when the port has no model.
    QString lineText(int port);
    // Asks for a file and writes the cloud that `view` holds now to it.
    void exportCloud(vxlindral::ThreeDView* view);
    // Asks for a cloud file: its name (with the chosen filter's extension
    // when it has none) and its format. False when cancelled or refused.
    bool askCloudFile(const QString& title, QString& fileName,
                      vxlindral::CloudWriter::Format& format);
    // The end of the stretch export: a box on failure, "Path/Last" on success.
    void stretchExported(bool ok, const QString& reason);
    // The active view, else the view active last that passes `accept`
    // (visible ones only when `visible`); null when there is none.
    vxlindral::BasicView* recentView(const std::function<bool(vxlindral::BasicView*)>& accept,
                                     bool visible) const;
    // Writes a file of an export through a temporary file beside it that
    // replaces it only once `write` succeeded; otherwise no file is left and
    // the "Export failed" box names the file and the reason. On success the
    // path is stored under "Path/Last".
    bool writeExport(const QString& fileName, const QString& openFailure,
                     const std::function<bool(QIODevice&, QString& reason)>& write);
    void exportFailed(const QString& text, const QString& fileName, const QString& reason);
    // Where an export dialog opens: the folder that `key` remembers (the path
    // it holds, or the folder that path lies in; the home folder when
    // nothing is stored or the folder is gone), with the name the key holds
    // when it has the extension of `fresh`, else `fresh`.
    QString exportStart(const SettingsKeys::Key<QString>& key, const QString& fresh) const;
    vxlindral::BasicView* currentView() const;
    void tileViews();
    // Puts the capture and health labels at the right end of the status
    // line's row.
    void addStreamHealth();
    // Twice a second while recording: the capture's text, or the end of a
    // recording whose file failed.
    void refreshCapture();
    // Ends the stopped recordings whose files are closed (all of them, waiting
    // for their writer threads, with `wait`); warns of failed files.
    void finishCaptures(bool wait);
    // The controller of `port` when its socket is open; else unchecks
    // "Record capture ...", warns and gives null.
    std::shared_ptr<vxlindral::StreamDataController> recordable(int port);
    // Keeps the status label's own text clear of the labels at its right.
    void reserveStatusRoom();
    // The default views of a new port or capture (by the settings), tiled.
    void openDefaultViews(int key);
    // Line ports opened in this run (captures are not ports).
    int linePortEntries() const;
    // The views of `key`, hidden ones included.
    std::vector<vxlindral::BasicView*> viewsOf(int key) const;
    // The capture's views and models forget their lines, counting on as if
    // `before` lines had been taken in; the difference reference becomes the
    // capture's first line, as if every line had been played.
    void forgetCaptureLines(uint64_t before);
    // How many of the newest lines the capture's views and models can show.
    int captureReachBack() const;
    // The transport bar and the index progress follow the playback.
    void refreshPlace();
    void captureStopped(const QString& reason, bool fatal);

    QSettings settings;
    Ui_MainWindow* ui;
    std::map<int32_t, std::shared_ptr<vxlindral::StreamDataModel>> dataModels;
    std::map<int32_t, std::shared_ptr<vxlindral::StreamDataController>> controllers;
    QTimer* recordTimer = nullptr;
    int32_t recordInterval = 0;
    bool recordingStopped = false;
    int32_t recordPart = 0;
    QString recordFileName;
    int recordSource = 0; // the capture "Export lines ..." records; 0: the current port
    vxlindral::StreamHealthLabel* health = nullptr;
    QWidget* statusRight = nullptr; // holds labelCapture and the health label
    QLabel* labelCapture = nullptr;
    std::unique_ptr<vxrec::CaptureRecorder> capture;
    int capturingPort = 0;
    // Recordings stopped whose writer threads still write and close the file.
    struct Finishing
    {
        std::unique_ptr<vxrec::CaptureRecorder> recorder;
        bool warn = true; // a failed file is reported once it is closed
    };
    std::vector<Finishing> finishing;
    bool quitWhenFinished = false;
    QTimer* captureTimer = nullptr;

    std::unique_ptr<vxlindral::CapturePlayback> playback;
    int captureKey = 0;
    int nextCaptureKey = firstCaptureKey;
    QString captureName;
    QString shownPlace; // the capture's place as the transport bar last showed it
    vxlindral::TransportBar* transport = nullptr;
    // A capture opened before the window was on the screen plays once it is.
    bool playWhenShown = false;
    QWidget* indexBox = nullptr; // the index's progress and its Cancel button
    QProgressBar* indexProgress = nullptr;
    // The capture's first line, the difference reference after a seek, and
    // whether the next line the capture's model takes is the first line.
    vxlindral::LineType captureFirst;
    bool expectFirst = false;
    // "Export lines as cloud ..." under way, and its progress dialog.
    std::unique_ptr<vxlindral::StretchExport> stretchExport;
    QProgressDialog* stretchProgress = nullptr;
    QAction* keepNoEchoAction = nullptr; // Edit > "Export points without echo"
};
