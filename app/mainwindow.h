#pragma once
#include "app/capturerecording.h"
#include "app/capturesession.h"
#include "app/exportfiles.h"
#include "app/linerecording.h"
#include "app/viewfactory.h"

#include <QMainWindow>
#include <QSettings>
#include <QString>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>

class QAction;
class QDragEnterEvent;
class QDropEvent;
class Ui_MainWindow;

namespace vxlindral {
class BasicView;
class SourceSession;
class StatusRow;
class StreamDataController;
class StreamDataModel;
class MeasureExport;
class StretchExport;
class TransportBar;
class ViewArea;
} // namespace vxlindral

// The one top-level window, a shell: the menus and tool bar, the MDI area
// with one sub-window per view, the status line, and the routing of each
// action to the source session it acts on. Each live line port and the
// capture being played is a session (SourceSession, CaptureSession) that
// owns its model, controller, views and playback; the window keeps them by
// key: a port number, or for a capture a key above every port
// (firstCaptureKey and up). It opens line port 6101 (status port 6102) with
// its default views when it is built; views are found again by their object
// name.
//
// File > Open capture (also a file named on the command line or dropped on
// the window) plays a capture beside the live ports with the transport bar;
// File > Record capture records a port's raw stream (CaptureRecording);
// File > Export lines writes the current line at an interval (LineRecording);
// the other exports go through ExportFiles.
//
// Ownership: the window owns its form, the sessions (the live ports' entries
// are never erased: a stopped port keeps an empty session, and openStream
// refuses a fourth port entry; the capture's goes when it closes),
// the transport bar, the status row, the recordings and the exports; the
// views belong to the MDI area (each deletes itself when closed). Threads:
// GUI thread only; lines reach the models and views through queued
// connections.
class MainWindow : public QMainWindow
{
    Q_OBJECT
public:
    // View kinds as the factory takes them.
    enum ViewKind
    {
        Info = vxlindral::ViewFactory::Info,
        Numeric = vxlindral::ViewFactory::Numeric,
        Cut = vxlindral::ViewFactory::Cut,
        Gray = vxlindral::ViewFactory::Gray,
        ThreeD = vxlindral::ViewFactory::ThreeD,
    };

    explicit MainWindow(QWidget* parent = nullptr);
    ~MainWindow() override;

    // Opens a line port with its session and default views; at most three
    // distinct line ports can be used in one run.
    void openStream(int portLine, int portStatus);
    // The key under which a capture's session is kept, in place of a port
    // number: above every port, so that it never clashes with one and never
    // counts toward the line ports of a run.
    static constexpr int firstCaptureKey = 65536;
    // Plays the lines of capture `path` sent to UDP port `port` (0: 6101,
    // else the port with the most lines, asking when there are several) as a
    // source of its own, replacing a capture that is open. False, with a
    // warning box naming the file and the reason, when it cannot be played.
    bool openCapture(const QString& path, int port = 0);
    // Ends the capture's playback and closes its views.
    void closeCapture();
    vxlindral::CapturePlayback* capturePlayback() const
    {
        return captureSession() ? captureSession()->playback() : nullptr;
    }
    // The export of a stretch of lines under way; null when none is.
    vxlindral::StretchExport* runningStretchExport() const { return exports->runningStretch(); }
    vxlindral::MeasureExport* runningMeasureExport() const
    {
        return exports->runningMeasurements();
    }
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

    // The view factory.
    static vxlindral::BasicView* createView(int kind, int port, MainWindow* parent)
    {
        return vxlindral::ViewFactory::create(kind, port, parent);
    }
    static QString viewNamePattern(int kind) { return vxlindral::ViewFactory::namePattern(kind); }

    // Read-only look-ups (they add no session), for tests and benchmarks.
    std::shared_ptr<vxlindral::StreamDataModel> dataModel(int port) const;
    std::shared_ptr<vxlindral::StreamDataController> controller(int port) const;
    int portEntries() const { return static_cast<int>(sessions.size()); }
    bool isRecording() const { return lineRecording->isRunning(); }

    // Records the raw stream of `port` into `path` (replacing the file), as
    // "Record capture ..." does after its dialog. False, with a warning box,
    // when the port is not open or the file cannot be created.
    bool startCapture(int port, const QString& path);
    // Ends the capture being recorded at once; its writer thread writes what
    // it has taken and closes the file in the background, while the status
    // line says so. Warns when the file failed (with `warn`) once it is
    // closed.
    void stopCapture(bool warn = true) { captureRecording->stop(warn); }
    bool isCapturing() const { return captureRecording->isRecording(); }
    // Stopped recordings whose files are still being written.
    bool isFinishingCaptures() const { return captureRecording->isFinishing(); }
    // The port being recorded; 0 when none is.
    int capturePort() const { return captureRecording->port(); }

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
    // File > "Export measurements ...": the capture's marked stretch, measured
    // in the region of the capture's cut view (the active one first).
    void handleExportMeasurements();
    // Save or copy what the active view shows as an image.
    void handleSaveImage();
    void handleCopyImage();
    void handleStopStream();
    void handleClose();
    void handleAbout();
    void handleRealign();
    // Writes the next file of "Export lines ..." now.
    void recording() { lineRecording->recordNow(); }
    void stopRecording();
    void handleRecordCapture(bool checked);
    void handleOpenCapture();

protected:
    void closeEvent(QCloseEvent* event) override;
    // A capture file dropped on the window is opened.
    void dragEnterEvent(QDragEnterEvent* event) override;
    void dropEvent(QDropEvent* event) override;

private:
    // Common body of the five toggle slots.
    void toggleView(int kind, QAction* action, int portLine);
    // The session under `key`; null when there is none.
    vxlindral::SourceSession* session(int key) const;
    vxlindral::CaptureSession* captureSession() const
    {
        return static_cast<vxlindral::CaptureSession*>(captureKey ? session(captureKey) : nullptr);
    }
    // The status row at the right end of the status line.
    void addStatusRow();
    // The default views of a new port or capture (by the settings), tiled.
    void openDefaultViews(int key);

    QSettings settings;
    Ui_MainWindow* ui;
    std::map<int, std::unique_ptr<vxlindral::SourceSession>> sessions;
    std::unique_ptr<vxlindral::ViewArea> area;
    vxlindral::StatusRow* statusRow = nullptr;
    vxlindral::CaptureRecording* captureRecording = nullptr;
    vxlindral::LineRecording* lineRecording = nullptr;
    vxlindral::ExportFiles* exports = nullptr;
    bool quitWhenFinished = false;

    int captureKey = 0;
    int nextCaptureKey = firstCaptureKey;
    vxlindral::TransportBar* transport = nullptr;
};
