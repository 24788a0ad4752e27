// The settings dialog against a private settings store: what it shows on a
// first start, what it writes, and how unparsable numbers are stored.
#include "dialogs/dlgpropertiesimpl.h"
#include "dialogs/dlgsettings.h"

#include <QApplication>
#include <QCheckBox>
#include <QLineEdit>
#include <QSettings>
#include <QTemporaryDir>
#include <QtTest>

class TestDialogs : public QObject
{
    Q_OBJECT
private slots:
    void firstStartShowsCutChecked();
    void saveWritesEveryKey_data();
    void saveWritesEveryKey();
    void connectionDialogForm();

private:
    QTemporaryDir dir;
};

// With nothing stored the dialog shows "Cut View" checked and everything else
// unchecked (a new stream meanwhile opens the 3D view: the two defaults differ
// on purpose).
void TestDialogs::firstStartShowsCutChecked()
{
    QSettings settings(dir.filePath("empty.ini"), QSettings::IniFormat);
    DlgSettings dialog(nullptr, settings);
    QCOMPARE(dialog.windowTitle(), QString("Settings"));
    const QStringList boxes = {"checkBoxCut", "checkBoxNumeric", "checkBox3D", "checkBoxGray",
                               "checkBoxStatistic"};
    for (const QString& name : boxes)
        QCOMPARE(dialog.findChild<QCheckBox*>(name)->isChecked(), name == "checkBoxCut");
    QCOMPARE(dialog.findChild<QLineEdit*>("lineEditPointsPerLine")->text(), QString("1000"));
    QCOMPARE(dialog.findChild<QLineEdit*>("lineEditMaximalPoints")->text(), QString("100000"));
}

void TestDialogs::saveWritesEveryKey_data()
{
    QTest::addColumn<QString>("points");
    QTest::addColumn<QString>("maxPoints");
    QTest::addColumn<int>("storedPoints");
    QTest::addColumn<int>("storedMax");
    QTest::newRow("plain") << "250"
                           << "5000" << 250 << 5000;
    QTest::newRow("unparsable is 0") << "abc"
                                     << "12x" << 0 << 0;
    QTest::newRow("no range check") << "-7"
                                    << "0" << -7 << 0;
}

// Saving writes all seven keys from the widgets, and loading them again
// restores the same state (a flipped default must survive the round trip).
void TestDialogs::saveWritesEveryKey()
{
    QFETCH(QString, points);
    QFETCH(QString, maxPoints);
    QFETCH(int, storedPoints);
    QFETCH(int, storedMax);

    const QString file = dir.filePath(QString("%1.ini").arg(QTest::currentDataTag()));
    {
        QSettings settings(file, QSettings::IniFormat);
        DlgSettings dialog(nullptr, settings);
        dialog.findChild<QCheckBox*>("checkBoxCut")->setChecked(false);
        dialog.findChild<QCheckBox*>("checkBox3D")->setChecked(true);
        dialog.findChild<QCheckBox*>("checkBoxGray")->setChecked(true);
        dialog.findChild<QLineEdit*>("lineEditPointsPerLine")->setText(points);
        dialog.findChild<QLineEdit*>("lineEditMaximalPoints")->setText(maxPoints);
        dialog.saveSettings(settings);
    }
    QSettings settings(file, QSettings::IniFormat);
    QCOMPARE(settings.allKeys().size(), 7);
    QCOMPARE(settings.value("View/Cut").toBool(), false);
    QCOMPARE(settings.value("View/ThreeD").toBool(), true);
    QCOMPARE(settings.value("View/Gray").toBool(), true);
    QCOMPARE(settings.value("View/Numeric").toBool(), false);
    QCOMPARE(settings.value("View/Statistic").toBool(), false);
    QCOMPARE(settings.value("ThreeD/pointsPerLine").toInt(), storedPoints);
    QCOMPARE(settings.value("ThreeD/maxPoints").toInt(), storedMax);

    DlgSettings again(nullptr, settings);
    QCOMPARE(again.findChild<QCheckBox*>("checkBoxCut")->isChecked(), false);
    QCOMPARE(again.findChild<QCheckBox*>("checkBox3D")->isChecked(), true);
    QCOMPARE(again.findChild<QLineEdit*>("lineEditPointsPerLine")->text(),
             QString::number(storedPoints));
}

// The connection dialog's buttons end it (they are wired by the constructor,
// not by the form).
void TestDialogs::connectionDialogForm()
{
    DlgPropertiesImpl dialog(nullptr);
    QCOMPARE(dialog.lineEditPortLine->text(), QString("6101"));
    QVERIFY(dialog.lineEditPortStatus->text().isEmpty());
    QVERIFY(dialog.lineEditPortLine->validator() == nullptr);
    QTimer::singleShot(0, &dialog, [&dialog] { emit dialog.buttonBox->accepted(); });
    QCOMPARE(dialog.exec(), int(QDialog::Accepted));
    QTimer::singleShot(0, &dialog, [&dialog] { emit dialog.buttonBox->rejected(); });
    QCOMPARE(dialog.exec(), int(QDialog::Rejected));
}

QTEST_MAIN(TestDialogs)
#include "tst_dialogs.moc"
