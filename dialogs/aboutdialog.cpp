#include "dialogs/aboutdialog.h"

AboutDialog* AboutDialog::shown = nullptr;

AboutDialog::AboutDialog(QWidget* parent) : QDialog(parent, Qt::WindowFlags()) {}

void AboutDialog::closeDialog()
{
    if (shown)
        shown->reject();
}
