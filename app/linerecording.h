#pragma once
#include <QObject>
#include <QString>
#include <functional>

class QAction;
class QSettings;
class QTimer;
class QWidget;

namespace vxlindral {

// File > Export lines: at a fixed interval, the text of the line current at
// that moment written to a file of its own ("<name>-part<n>.cvs", n from 1).
// A file that cannot be opened is skipped and its number used up.
//
// Ownership: owned by the window; owns its timer. Threads: GUI thread only.
class LineRecording : public QObject
{
    Q_OBJECT
public:
    // At each tick, `lineText` gives the text to write.
    using LineText = std::function<QString()>;

    explicit LineRecording(QObject* parent);

    // Asks for the file (opening at `startPath`) and the interval, remembers
    // the file under "Path/Recording" and starts. Cancelling the file dialog
    // leaves `action` ("Export lines ...") checked: the next trigger unchecks
    // it and only clears the status line; cancelling the interval unchecks it.
    void ask(QWidget* window, QAction* action, QSettings& settings, const QString& startPath,
             int source, LineText lineText);
    // Starts writing every `intervalMs` from the first tick on, replacing a
    // recording under way; `source` is the key the caller records (see
    // source()).
    void start(const QString& fileName, int intervalMs, int source, LineText lineText);
    void stop();
    bool isRunning() const { return timer != nullptr; }
    // The key given to start: the capture being recorded, or 0 for the
    // current port.
    int source() const { return sourceKey; }

    // Writes the next file now.
    void recordNow();

signals:
    // File `part` is being written.
    void recorded(int part);

private:
    QTimer* timer = nullptr;
    QString baseName;
    int interval = 0;
    int part = 0;
    int sourceKey = 0;
    LineText text;
};

} // namespace vxlindral
