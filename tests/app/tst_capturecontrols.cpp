// The controls of a capture being played: the dialog that chooses the port
// to play.
#include "dialogs/captureportdialog.h"

#include <QListWidget>
#include <QtTest>

class TestCaptureControls : public QObject
{
    Q_OBJECT
private slots:
    // The rows show each port's count (grouped, "+" when partial), the
    // offered port is selected, OK gives the selected port and Cancel 0; the
    // title is the parent window's.
    void portDialog_data()
    {
        QTest::addColumn<int>("first"); // the other port is 7000, with 20,000 lines
        QTest::addColumn<bool>("partial");
        QTest::addColumn<bool>("ok");
        QTest::addColumn<QString>("rows");
        QTest::addColumn<int>("port");
        QTest::newRow("busiest offered")
            << 6102 << false << true << "6102  (1 line)|7000  (20,000 lines)" << 7000;
        QTest::newRow("6101 offered, partial")
            << 6101 << true << true << "6101  (1+ lines)|7000  (20,000+ lines)" << 6101;
        QTest::newRow("cancelled")
            << 6101 << false << false << "6101  (1 line)|7000  (20,000 lines)" << 0;
    }
    void portDialog()
    {
        QFETCH(int, first);
        QFETCH(bool, partial);
        QFETCH(bool, ok);
        QFETCH(QString, rows);
        QFETCH(int, port);
        QWidget parent;
        parent.setWindowTitle("Vx Lindral");
        QStringList shown;
        QString title;
        QTimer::singleShot(0, [&] {
            auto* dialog = qobject_cast<CapturePortDialog*>(QApplication::activeModalWidget());
            QVERIFY(dialog);
            title = dialog->windowTitle();
            for (const QListWidgetItem* item :
                 dialog->findChild<QListWidget*>()->findItems("*", Qt::MatchWildcard))
                shown << item->text();
            ok ? dialog->accept() : dialog->reject();
        });
        QCOMPARE(CapturePortDialog::ask(&parent, "/tmp/x.pcapng",
                                        {{uint16_t(first), 1}, {7000, 20000}}, partial),
                 port);
        QCOMPARE(shown.join('|'), rows);
        QCOMPARE(title, parent.windowTitle());
    }
};

QTEST_MAIN(TestCaptureControls)
#include "tst_capturecontrols.moc"
