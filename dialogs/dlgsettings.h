#pragma once
#include <QDialog>

class QSettings;
class Ui_DlgSettings;

// The application settings dialog: which views a newly opened stream shows,
// the two limits of the 3D view and whether it follows the newest line. It
// reads the store when it is built and writes it only when the caller asks
// (after the dialog was accepted).
// Ownership: lives on the stack of the slot that shows it; owns its form.
// Threads: GUI only.
class DlgSettings : public QDialog
{
    Q_OBJECT
public:
    DlgSettings(QWidget* parent, QSettings& settings);
    ~DlgSettings() override;

    void saveSettings(QSettings& settings);

private:
    void loadSettings(QSettings& settings);

    Ui_DlgSettings* ui;
};
