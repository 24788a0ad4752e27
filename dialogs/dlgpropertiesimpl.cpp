#include "dialogs/dlgpropertiesimpl.h"
#include "settings/settingskeys.h"

DlgPropertiesImpl::DlgPropertiesImpl(QWidget* parent) : QDialog(parent, Qt::WindowFlags())
{
    setupUi(this);
    connect(buttonBox, &QDialogButtonBox::accepted, this, &QDialog::accept);
    connect(buttonBox, &QDialogButtonBox::rejected, this, &QDialog::reject);
}

bool DlgPropertiesImpl::askPorts(QWidget* parent, QSettings& settings, int& portLine,
                                 int& portStatus)
{
    DlgPropertiesImpl dialog(parent);
    dialog.lineEditPortLine->setText(QString("%1").arg(SettingsKeys::portLine.read(settings)));
    dialog.lineEditPortStatus->setText(QString("%1").arg(SettingsKeys::portStatus.read(settings)));
    if (dialog.exec() != QDialog::Accepted)
        return false;
    const uint line = dialog.lineEditPortLine->text().toUInt(nullptr, 10);
    const uint status = dialog.lineEditPortStatus->text().toUInt(nullptr, 10);
    SettingsKeys::portLine.write(settings, line);
    SettingsKeys::portStatus.write(settings, status);
    portLine = static_cast<int>(line);
    portStatus = static_cast<int>(status);
    return true;
}
