#include "dialogs/aboutdialog.h"

AboutDialog* AboutDialog::shown = nullptr;

AboutDialog::AboutDialog(QWidget* parent) : QDialog(parent, Qt::WindowFlags()) {}

void AboutDialog::closeDialog()
{
    if (shown)
        shown->reject();
}

void AboutDialog::showAbout(const QString& version)
{
    AboutDialog* dialog = new AboutDialog();
    dialog->setupUi(dialog);
    dialog->adjustSize();
    shown = dialog;
    dialog->copyrightLabel->setText(tr("Copyright (C) 2026 the Vx Lindral developers"));
    dialog->applicationName->setText(tr("Vx Lindral %1").arg(version));
    connect(dialog->ok, &QPushButton::clicked, dialog, &AboutDialog::closeDialog);
    dialog->setWindowTitle(tr("About "));
    dialog->exec();
    shown = nullptr;
    delete dialog;
}
