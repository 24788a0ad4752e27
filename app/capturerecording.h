#pragma once
#include "capture/capturerecorder.h"

#include <QObject>
#include <QString>
#include <memory>
#include <vector>

class QAction;
class QSettings;
class QTimer;
class QWidget;

namespace vxlindral {

class StreamDataController;

// File > Record capture: the raw stream of one port recorded into a pcapng
// file (vxrec::CaptureRecorder, set as the port's datagram tap). Stopping
// never waits for the disk: the recorder's writer thread writes what it has
// taken and closes the file in the background, while the status line says
// so ("Finishing"); twice a second the recording's text is refreshed and the
// recordings whose files are closed are ended.
//
// It keeps File > "Record capture ..." checked while a recording is under
// way, and says in a box, parented to the window, why one could not start or
// why its file failed.
//
// Ownership: owned by the window; owns the recorder being written and those
// still finishing; shares no controller (it keeps a weak reference, to clear
// the tap). Threads: GUI thread only; the recorders' counters are atomics.
class CaptureRecording : public QObject
{
    Q_OBJECT
public:
    // `action` is the window's "Record capture ..." action.
    CaptureRecording(QWidget* window, QAction* action);
    ~CaptureRecording() override;

    // Asks for the file to record the stream of `controller` (port `port`)
    // into, in the folder `settings` remembers, and starts.
    void ask(const std::shared_ptr<StreamDataController>& controller, int port,
             QSettings& settings);
    // Records the stream `controller` receives on `port` into `path`,
    // replacing the file, after stopping a recording under way. False, with
    // a warning box, when there is no open port, or the file is still being
    // finished by an earlier recording or cannot be created.
    bool start(const std::shared_ptr<StreamDataController>& controller, int port,
               const QString& path);
    // Ends the recording under way, if any; its file is reported (failed())
    // once closed if it failed and `warn`.
    void stop(bool warn = true);
    // Waits for every stopped recording's file, reporting none.
    void finishAll();

    bool isRecording() const { return recorder != nullptr; }
    bool isFinishing() const { return !finishing.empty(); }
    int port() const { return recordingPort; }
    // The recorder under way (null when none is), for the health label.
    const vxrec::CaptureRecorder* current() const { return recorder.get(); }
    // The status line's text of the recording under way.
    QString text() const;

    // Ends the stopped recordings whose files are closed and refreshes the
    // status text; ends a recording whose file failed.
    void refresh();

signals:
    // The status line's text: the recording, the files being finished;
    // empty once nothing is recorded or finished.
    void textChanged(const QString& text);
    // Nothing is recorded or being finished any longer.
    void idle();

private:
    // Ends the stopped recordings whose files are closed (all of them,
    // waiting for their writer threads, with `wait`).
    void finish(bool wait);

    // Unchecks the action and says why in a box; false.
    bool refuse(const QString& text);

    QWidget* window;
    QAction* action;
    std::unique_ptr<vxrec::CaptureRecorder> recorder;
    std::weak_ptr<StreamDataController> tapped;
    int recordingPort = 0;
    // Recordings stopped whose writer threads still write and close the file.
    struct Finishing
    {
        std::unique_ptr<vxrec::CaptureRecorder> recorder;
        bool warn = true; // a failed file is reported once it is closed
    };
    std::vector<Finishing> finishing;
    QTimer* timer;
};

} // namespace vxlindral
