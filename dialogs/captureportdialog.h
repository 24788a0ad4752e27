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

private:
    QListWidget* list;
};
