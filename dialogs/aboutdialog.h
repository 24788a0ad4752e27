#pragma once
#include "ui_aboutdialog.h"

#include <QDialog>

// The About box. The main window creates it, sets up the form and fills the
// texts; the dialog being shown is reachable through `shown`, which the
// close slot uses.
// Ownership: heap object of the main window's handleAbout(), deleted when
// exec() returns. Threads: GUI only.
class AboutDialog : public QDialog, public Ui_AboutDialog
{
    Q_OBJECT
public:
    explicit AboutDialog(QWidget* parent = nullptr);

    // The About dialog currently shown, or null.
    static AboutDialog* shown;

    // Shows the About box of version `version` modally (Help > About).
    static void showAbout(const QString& version);

public slots:
    void closeDialog();
};
