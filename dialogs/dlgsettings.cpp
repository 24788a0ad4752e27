#include "dialogs/dlgsettings.h"
#include "settings/settingskeys.h"
#include "ui_dlgsettings.h"

#include <QSettings>

DlgSettings::DlgSettings(QWidget* parent, QSettings& settings)
    : QDialog(parent, Qt::WindowFlags()), ui(new Ui_DlgSettings)
{
    ui->setupUi(this);
    loadSettings(settings);
}

DlgSettings::~DlgSettings()
{
    delete ui;
}

// "View/Cut" and "View/ThreeD" are read with the dialog's own defaults, which
// differ from the ones a new stream uses (see SettingsKeys).
void DlgSettings::loadSettings(QSettings& settings)
{
    using K = SettingsKeys;
    ui->checkBoxCut->setChecked(K::viewCutInDialog.read(settings));
    ui->checkBoxNumeric->setChecked(K::viewNumeric.read(settings));
    ui->checkBox3D->setChecked(K::viewThreeDInDialog.read(settings));
    ui->checkBoxGray->setChecked(K::viewGray.read(settings));
    ui->checkBoxStatistic->setChecked(K::viewStatistic.read(settings));
    ui->lineEditPointsPerLine->setText(QString("%1").arg(K::pointsPerLine.read(settings)));
    ui->lineEditMaximalPoints->setText(QString("%1").arg(K::maxPoints.read(settings)));
    ui->checkBoxFollow->setChecked(K::follow.read(settings));
}

// Numbers that do not parse are stored as 0; there is no range check (the 3D
// view decides what to do with such a value).
void DlgSettings::saveSettings(QSettings& settings)
{
    using K = SettingsKeys;
    K::viewCutInDialog.write(settings, ui->checkBoxCut->isChecked());
    K::viewNumeric.write(settings, ui->checkBoxNumeric->isChecked());
    K::viewThreeDInDialog.write(settings, ui->checkBox3D->isChecked());
    K::viewGray.write(settings, ui->checkBoxGray->isChecked());
    K::viewStatistic.write(settings, ui->checkBoxStatistic->isChecked());
    K::pointsPerLine.write(settings, ui->lineEditPointsPerLine->text().toInt(nullptr, 10));
    K::maxPoints.write(settings, ui->lineEditMaximalPoints->text().toInt(nullptr, 10));
    K::follow.write(settings, ui->checkBoxFollow->isChecked());
}
