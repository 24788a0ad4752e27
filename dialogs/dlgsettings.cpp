#include "dialogs/dlgsettings.h"
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

// The defaults of "View/Cut" (true) and "View/ThreeD" (false) differ from the
// ones a new stream uses when it opens its views; accepting the dialog
// unchanged therefore switches new streams from the 3D view to the cut view.
// The mismatch is intended and kept.
void DlgSettings::loadSettings(QSettings& settings)
{
    ui->checkBoxCut->setChecked(settings.value("View/Cut", true).toBool());
    ui->checkBoxNumeric->setChecked(settings.value("View/Numeric", false).toBool());
    ui->checkBox3D->setChecked(settings.value("View/ThreeD", false).toBool());
    ui->checkBoxGray->setChecked(settings.value("View/Gray", false).toBool());
    ui->checkBoxStatistic->setChecked(settings.value("View/Statistic", false).toBool());
    ui->lineEditPointsPerLine->setText(
        QString("%1").arg(settings.value("ThreeD/pointsPerLine", 1000).toInt()));
    ui->lineEditMaximalPoints->setText(
        QString("%1").arg(settings.value("ThreeD/maxPoints", 100000).toInt()));
    ui->checkBoxFollow->setChecked(settings.value("ThreeD/follow", false).toBool());
}

// Numbers that do not parse are stored as 0; there is no range check (the 3D
// view decides what to do with such a value).
void DlgSettings::saveSettings(QSettings& settings)
{
    settings.setValue("View/Cut", ui->checkBoxCut->isChecked());
    settings.setValue("View/Numeric", ui->checkBoxNumeric->isChecked());
    settings.setValue("View/ThreeD", ui->checkBox3D->isChecked());
    settings.setValue("View/Gray", ui->checkBoxGray->isChecked());
    settings.setValue("View/Statistic", ui->checkBoxStatistic->isChecked());
    settings.setValue("ThreeD/pointsPerLine", ui->lineEditPointsPerLine->text().toInt(nullptr, 10));
    settings.setValue("ThreeD/maxPoints", ui->lineEditMaximalPoints->text().toInt(nullptr, 10));
    settings.setValue("ThreeD/follow", ui->checkBoxFollow->isChecked());
}
