#include "dialogs/dlgpropertiesimpl.h"

DlgPropertiesImpl::DlgPropertiesImpl(QWidget* parent) : QDialog(parent, Qt::WindowFlags())
{
    setupUi(this);
    connect(buttonBox, &QDialogButtonBox::accepted, this, &QDialog::accept);
    connect(buttonBox, &QDialogButtonBox::rejected, this, &QDialog::reject);
}
