// The controls of a capture being played: the transport bar's texts, its
// shortcuts in a window (and not in a text field), the position slider under
// the user's drag; and the dialog that chooses the port to play.
#include "app/positionslider.h"
#include "app/transportbar.h"
#include "dialogs/captureportdialog.h"

#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QMainWindow>
#include <QVBoxLayout>
#include <QtTest>

using namespace vxlindral;

// A window holding the bar, a text field and a focusable view.
struct Window
{
    QMainWindow main;
    TransportBar* bar = new TransportBar(&main);
    QLineEdit* edit = new QLineEdit;
    QWidget* view = new QWidget;
    QStringList heard; // the bar's signals, as "name argument"

    Window()
    {
        main.addToolBar(bar);
        auto* central = new QWidget;
        auto* layout = new QVBoxLayout(central);
        layout->addWidget(edit);
        layout->addWidget(view);
        view->setFocusPolicy(Qt::StrongFocus);
        main.setCentralWidget(central);
        const auto log = [this](const char* name) {
            return [this, name](auto arg) { heard << QStringLiteral("%1 %2").arg(name).arg(arg); };
        };
        QObject::connect(bar, &TransportBar::playRequested, log("play"));
        QObject::connect(bar, &TransportBar::stepRequested, log("step"));
        QObject::connect(bar, &TransportBar::toStartRequested, [this] { heard << "start"; });
        QObject::connect(bar, &TransportBar::toEndRequested, [this] { heard << "end"; });
        QObject::connect(bar, &TransportBar::seekRequested, log("seek"));
        QObject::connect(bar, &TransportBar::markStartRequested, [this] { heard << "in"; });
        QObject::connect(bar, &TransportBar::markEndRequested, [this] { heard << "out"; });
        main.resize(1200, 300); // room for a slider the drags can move along
        main.show();
    }
};

class TestCaptureControls : public QObject
{
    Q_OBJECT
private slots:
    // The times of a capture over an hour long; the total of lines marked
    // while it may still grow.
    void positionText_data()
    {
        QTest::addColumn<qint64>("ms");
        QTest::addColumn<bool>("final");
        QTest::addColumn<QString>("text");
        QTest::newRow("zero") << qint64(0) << true << "00:00.000 / 62:03.456  line 2,345 of 20,000";
        QTest::newRow("under a second")
            << qint64(999) << false << "00:00.999 / 62:03.456  line 2,345 of 20,000+";
        QTest::newRow("under a minute")
            << qint64(59999) << true << "00:59.999 / 62:03.456  line 2,345 of 20,000";
    }
    void positionText()
    {
        QFETCH(qint64, ms);
        QFETCH(bool, final);
        QFETCH(QString, text);
        TransportBar bar;
        bar.setDuration(3723456);
        bar.setPosition(ms, 2345, 20000, final);
        QCOMPARE(bar.findChild<QLabel*>("positionLabel")->text(), text);
    }

    // Each key acts anywhere in the window, but a text field types it.
    void keys_data()
    {
        QTest::addColumn<QString>("key");
        QTest::addColumn<bool>("inField");
        QTest::addColumn<QString>("outcome"); // the bar's signals, or what the field holds
        QTest::newRow("space pauses") << "Space" << false << "play 0";
        QTest::newRow("comma") << "," << false << "step -1";
        QTest::newRow("full stop") << "." << false << "step 1";
        QTest::newRow("ctrl+home") << "Ctrl+Home" << false << "start";
        QTest::newRow("ctrl+end") << "Ctrl+End" << false << "end";
        QTest::newRow("space in a text field") << "Space" << true << " ";
        QTest::newRow("comma in a text field") << "," << true << ",";
        QTest::newRow("I marks the start") << "I" << false << "in";
        QTest::newRow("O marks the end") << "O" << false << "out";
        QTest::newRow("I in a text field") << "I" << true << "i";
    }
    void keys()
    {
        QFETCH(QString, key);
        QFETCH(bool, inField);
        QFETCH(QString, outcome);
        Window w;
        QVERIFY(QTest::qWaitForWindowExposed(&w.main));
        w.main.activateWindow(); // no window manager does it under Xvfb
        QWidget* focus = inField ? static_cast<QWidget*>(w.edit) : w.view;
        focus->setFocus();
        QTRY_VERIFY(focus->hasFocus());
        QTest::keySequence(focus, QKeySequence(key));
        QCOMPARE(w.heard.join(',') + w.edit->text(), outcome);
    }

    // The marked stretch is drawn over the groove, and only there; a new
    // capture's bar has no marks.
    void marksAreDrawn()
    {
        Window w;
        QVERIFY(QTest::qWaitForWindowExposed(&w.main));
        auto* slider = w.bar->findChild<PositionSlider*>("positionSlider");
        w.bar->setDuration(100000);
        w.bar->setPosition(0, 1, 10, true);
        const QImage plain = slider->grab().toImage();
        w.bar->setMarks(40000, 60000);
        const QImage marked = slider->grab().toImage();
        const auto column = [](const QImage& image, int x) {
            QList<QRgb> pixels;
            for (int y = 0; y < image.height(); ++y)
                pixels << image.pixel(x, y);
            return pixels;
        };
        const int middle = slider->width() / 2, far = slider->width() * 9 / 10;
        QVERIFY(column(marked, middle) != column(plain, middle));
        QCOMPARE(column(marked, far), column(plain, far));
        w.bar->reset();
        QCOMPARE(slider->markStart(), qint64(-1));
        QCOMPARE(slider->markEnd(), qint64(-1));
    }

    // A click in the groove takes the handle there and drags it; the moves
    // of a drag ask for the newest position once per interval, the playback
    // does not move the held handle, and letting go asks for where it is.
    void drag()
    {
        Window w;
        QVERIFY(QTest::qWaitForWindowExposed(&w.main));
        auto* slider = w.bar->findChild<PositionSlider*>("positionSlider");
        w.bar->setDuration(100000);
        const int y = slider->height() / 2, middle = slider->width() / 2;
        const auto send = [&](QEvent::Type type, int x, Qt::MouseButtons held) {
            QMouseEvent e(type, QPoint(x, y), Qt::LeftButton, held, Qt::NoModifier);
            QApplication::sendEvent(slider, &e);
        };
        send(QEvent::MouseButtonPress, middle, Qt::LeftButton);
        QVERIFY2(qAbs(slider->value() - 50000) < 5000, "jumped, not a page step");
        for (int x = middle; x < middle + 60; x += 5)
            send(QEvent::MouseMove, x, Qt::LeftButton);
        QVERIFY(w.heard.isEmpty());
        QTRY_COMPARE(w.heard, QStringList{QStringLiteral("seek %1").arg(slider->value())});
        const int held = slider->value();
        w.bar->setPosition(1000, 1, 10, true);
        QCOMPARE(slider->value(), held);
        send(QEvent::MouseMove, middle + 100, Qt::LeftButton);
        send(QEvent::MouseButtonRelease, middle + 100, Qt::NoButton);
        QVERIFY(slider->value() > held);
        QCOMPARE(w.heard.size(), 2);
        QCOMPARE(w.heard.last(), QStringLiteral("seek %1").arg(slider->value()));
        QTest::qWait(2 * PositionSlider::seekIntervalMs);
        QCOMPARE(w.heard.size(), 2);
        w.bar->setPosition(1000, 1, 10, true);
        QCOMPARE(slider->value(), 1000);
    }

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
