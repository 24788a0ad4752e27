#pragma once
#include "capture/captureports.h"

#include <QDialog>
#include <vector>

class QListWidget;

// Asks which port of a capture to play: one row a port that carries lines,
// "6101  (20,000 lines)", ascending, the port CapturePorts::choose() offers
// selected. A count marked "+" ("20,000+ lines") is of the file's first part
// only (a partial scan). A double click on a row chooses it.
//
// Ownership: lives on the stack of ask() (or of its caller); its widgets are
// its children. Threads: GUI only.
class CapturePortDialog : public QDialog
{
    Q_OBJECT
public:
    // The title is that of `parent`'s window, as in the application's other
    // boxes; `fileName` is named in the question.
    CapturePortDialog(QWidget* parent, const QString& fileName,
                      const std::vector<vxrec::CapturePorts::Port>& ports, bool partial = false);

    // The port of the selected row; 0 when none is selected.
    int port() const;

    // Shows the dialog modally and returns the chosen port, or 0 when the
    // user cancelled. With no ports it shows nothing and returns 0.
    static int ask(QWidget* parent, const QString& fileName,
                   const std::vector<vxrec::CapturePorts::Port>& ports, bool partial = false);

    // The line port of the capture at `path` to play: `port` when it holds
    // lines for it (or the file could not be read to its end), for 0 the
    // only port with lines or the one the user chooses. 0 when the user
    // cancelled, -1 with the reason in `refusal` when the capture cannot be
    // read or holds no scanner lines (for `port`).
    static int choose(QWidget* parent, const QString& path, int port, QString& refusal);

private:
    QListWidget* list;
};
