#pragma once
#include "ui_dlgproperties.h"

#include <QDialog>
#include <QSettings>

// The connection dialog: asks for the line-data and the status port. The main
// window presets and reads the two line edits itself.
// Ownership: lives on the stack of the slot that shows it. Threads: GUI only.
class DlgPropertiesImpl : public QDialog, public Ui::DlgProperties
{
    Q_OBJECT
public:
    explicit DlgPropertiesImpl(QWidget* parent);

    // Asks for the line and status ports, offering those `settings` holds,
    // and stores the answer there. Decimal, unchecked: text that does not
    // parse becomes port 0. False when cancelled.
    static bool askPorts(QWidget* parent, QSettings& settings, int& portLine, int& portStatus);
};
