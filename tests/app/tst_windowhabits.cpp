// What a user takes for granted in the window: every prescribed key acts
// (a view's own where the focus is in that view, the window's elsewhere),
// the window comes back where it was, file dialogs open where the user was,
// and the actions act on the capture whose view is active.
#include "app/captureplayback.h"
#include "app/mainwindow.h"
#include "capturefile.h"
#include "models/streamdatamodel.h"
#include "stream/streamdatacontroller.h"
#include "views/basicview.h"
#include "views/cutview.h"
#include "views/threedview.h"
#include "windowtest.h"

#include <QtTest>
#include <QtWidgets>

using namespace vxlindral;
using windowtest::answer;

class TestWindowHabits : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase()
    {
        QVERIFY(dir.isValid());
        capture = dir.filePath("scan.pcap");
        QVERIFY(writeCapture(capture, {{{"--pixels", "700", "--scene", "conveyor"}, 300}}) > 0);
    }
    void init()
    {
        QSettings().clear();
        window = std::make_unique<MainWindow>();
        window->show();
        window->activateWindow();
        QVERIFY(QTest::qWaitForWindowExposed(window.get()));
        QTRY_VERIFY(window->isActiveWindow());
    }
    void cleanup()
    {
        window.reset();
        QCoreApplication::processEvents();
    }

    // Each key that a view shares with the window or with another view acts
    // once, in the view that has the focus; with the focus in no view, the
    // window's action (if any) acts.
    void sharedKeys_data()
    {
        QTest::addColumn<int>("key");
        QTest::addColumn<int>("focus");     // view kind with the focus; -1: none
        QTest::addColumn<QString>("fires"); // action text, or object name
        const int ctrlP = Qt::CTRL | Qt::Key_P, ctrlH = Qt::CTRL | Qt::Key_H,
                  ctrlM = Qt::CTRL | Qt::Key_M;
        QTest::newRow("Ctrl+P, cut view") << ctrlP << int(MainWindow::Cut) << "Increase point size";
        QTest::newRow("Ctrl+P, no view") << ctrlP << -1 << "actionFreeze";
        QTest::newRow("Ctrl+P, 3D view") << ctrlP << int(MainWindow::ThreeD) << "actionFreeze";
        QTest::newRow("Ctrl+H, cut view") << ctrlH << int(MainWindow::Cut) << "Home";
        QTest::newRow("Ctrl+H, numeric view") << ctrlH << int(MainWindow::Numeric) << "Header";
        QTest::newRow("Ctrl+H, 3D view") << ctrlH << int(MainWindow::ThreeD) << "Home";
        QTest::newRow("Ctrl+M, numeric view") << ctrlM << int(MainWindow::Numeric) << "Hex";
        QTest::newRow("Ctrl+M, gray view") << ctrlM << int(MainWindow::Gray) << "Waterfall";
    }
    void sharedKeys()
    {
        QFETCH(int, key);
        QFETCH(int, focus);
        QFETCH(QString, fires);
        for (int kind : {MainWindow::Numeric, MainWindow::Cut, MainWindow::Gray})
            window->findChild<QAction*>(actionNames[kind])->trigger();
        QMdiArea* mdi = window->findChild<QMdiArea*>("mdiArea");
        mdi->tileSubWindows();
        const QKeySequence sequence(key);
        // Every action with the key, watched.
        QList<QAction*> sharing;
        for (QAction* a : window->findChildren<QAction*>())
            if (a->shortcuts().contains(sequence))
                sharing << a;
        QVERIFY(sharing.size() >= 2);
        QStringList names; // before the key: an action may rename itself
        for (QAction* a : sharing)
            names << (a->objectName().isEmpty() ? a->text() : a->objectName());
        QList<std::shared_ptr<QSignalSpy>> spies;
        for (QAction* a : sharing)
            spies << std::make_shared<QSignalSpy>(a, &QAction::triggered);

        QWidget* target = window.get();
        if (focus >= 0) {
            auto* view =
                window->findChild<BasicView*>(MainWindow::viewNamePattern(focus).arg(6101));
            QVERIFY(view);
            mdi->setActiveSubWindow(view);
            QTRY_VERIFY(QApplication::focusWidget() &&
                        view->isAncestorOf(QApplication::focusWidget()));
            target = QApplication::focusWidget();
        } else {
            mdi->setActiveSubWindow(nullptr);
            window->setFocus();
            QTRY_VERIFY(QApplication::focusWidget() == window.get());
        }
        QTest::keyClick(target, Qt::Key(key & ~Qt::KeyboardModifierMask),
                        Qt::KeyboardModifiers(key & Qt::KeyboardModifierMask));
        QList<QAction*> fired;
        for (int i = 0; i < sharing.size(); ++i)
            if (!spies[i]->isEmpty())
                fired << sharing[i];
        QCOMPARE(fired.size(), 1);
        QAction* acted = fired.front();
        QCOMPARE(names[int(sharing.indexOf(acted))], fires);
        // A view's own action: the one of the view with the focus.
        if (acted->objectName().isEmpty())
            QVERIFY(
                QApplication::focusWidget() &&
                static_cast<QWidget*>(acted->parent())->isAncestorOf(QApplication::focusWidget()));
        QVERIFY(window->findChild<QMenu*>("menuEdit")
                    ->actions()
                    .contains(window->findChild<QAction*>("actionFreeze")));
    }

    // Size, place and maximised state come back on the next start.
    void windowRemembersItself_data()
    {
        QTest::addColumn<bool>("maximised");
        QTest::newRow("normal") << false;
        QTest::newRow("maximised") << true;
    }
    void windowRemembersItself()
    {
        QFETCH(bool, maximised);
        const QRect where(37, 54, 900, 610);
        window->setGeometry(where);
        QTRY_COMPARE(window->geometry(), where);
        if (maximised)
            window->setWindowState(window->windowState() | Qt::WindowMaximized);
        window->close();
        window.reset(); // its port goes with it
        window = std::make_unique<MainWindow>();
        QCOMPARE(window->isMaximized(), maximised);
        if (!maximised)
            QCOMPARE(window->geometry(), where);
        else
            QCOMPARE(window->normalGeometry(), where);
    }

    // Each dialog opens in the folder its key remembers, with a name of its
    // own kind: never another export's file.
    void fileDialogsOpenWhereTheUserWas_data()
    {
        QTest::addColumn<QString>("action");
        QTest::addColumn<QString>("key");
        QTest::addColumn<QString>("stored"); // relative to the test folder; "" nothing
        QTest::addColumn<QString>("opens");  // relative; "~/": the home folder
        QTest::newRow("line, nothing stored") << "actionExportLine"
                                              << "Path/Last"
                                              << ""
                                              << "~/line.txt";
        QTest::newRow("line after an image") << "actionExportLine"
                                             << "Path/Last"
                                             << "a/view.png"
                                             << "a/line.txt";
        QTest::newRow("line after a line") << "actionExportLine"
                                           << "Path/Last"
                                           << "a/scan.txt"
                                           << "a/scan.txt";
        QTest::newRow("lines, a folder stored") << "actionExportLines"
                                                << "Path/Recording"
                                                << "b"
                                                << "b/lines.txt";
        QTest::newRow("cloud after an image") << "actionExportCloud"
                                              << "Path/Last"
                                              << "a/view.png"
                                              << "a/cloud.ply";
        QTest::newRow("image after a cloud") << "actionSaveImage"
                                             << "Path/Last"
                                             << "a/cloud.ply"
                                             << "a/view.png";
        QTest::newRow("folder gone") << "actionExportLine"
                                     << "Path/Last"
                                     << "gone/x.txt"
                                     << "~/line.txt";
    }
    void fileDialogsOpenWhereTheUserWas()
    {
        QFETCH(QString, action);
        QFETCH(QString, key);
        QFETCH(QString, stored);
        QFETCH(QString, opens);
        QDir(dir.path()).mkpath("a");
        QDir(dir.path()).mkpath("b");
        if (!stored.isEmpty())
            QSettings().setValue(key, dir.filePath(stored));
        QString offered;
        answer<QFileDialog>(
            false, [&](QFileDialog* dialog) { offered = dialog->selectedFiles().value(0); });
        window->findChild<QAction*>(action)->trigger();
        const QString want =
            opens.startsWith("~/") ? QDir::home().filePath(opens.mid(2)) : dir.filePath(opens);
        QCOMPARE(offered, want);
    }

    // With a capture's view active, the actions act on the capture; with a
    // live view active, on the live port as before.
    void actionsActOnTheActiveCapture()
    {
        QVERIFY(window->openCapture(capture));
        CapturePlayback* playback = window->capturePlayback();
        playback->setSpeed(0);
        QTRY_VERIFY(playback->index().finished());
        QTRY_COMPARE(int(window->controller(window->captureSource())->frames()), 300);
        const int key = window->captureSource();
        const auto viewOf = [&](int port, int kind) {
            return window->findChild<BasicView*>(MainWindow::viewNamePattern(kind).arg(port));
        };
        QMdiArea* mdi = window->findChild<QMdiArea*>("mdiArea");
        mdi->setActiveSubWindow(viewOf(key, MainWindow::ThreeD));

        // A view button opens the capture's view, not the live port's.
        window->findChild<QAction*>("actionCut")->trigger();
        QVERIFY(viewOf(key, MainWindow::Cut));
        QVERIFY(!viewOf(6101, MainWindow::Cut));

        // Export line writes the capture's current line.
        mdi->setActiveSubWindow(viewOf(key, MainWindow::Cut));
        const QString target = dir.filePath("line.txt");
        answer<QFileDialog>(true, [&](QFileDialog* d) { windowtest::chooseFile(d, target); });
        // The line is taken when the command is given; lines drawn while the
        // dialog is open do not change it.
        const QString current = window->dataModel(key)->currentLineText();
        window->findChild<QAction*>("actionExportLine")->trigger();
        QFile file(target);
        QVERIFY(file.open(QIODevice::ReadOnly));
        const QString text = QString::fromUtf8(file.readAll());
        QVERIFY(!text.isEmpty());
        QCOMPARE(text, current);

        // Freeze pauses the capture, not the live port.
        playback->setPlaying(true);
        window->findChild<QAction*>("actionFreeze")->trigger();
        QVERIFY(!playback->isPlaying());
        QVERIFY(!window->controller(6101)->isPaused());

    }

    // A capture opened before the window is on the screen (as a file named
    // on the command line is) hands out no line until the window is shown
    // and laid out (a view resized later would start its picture afresh),
    // then plays every line from the first.
    void captureOpenedAtStartWaitsForTheWindow()
    {
        QSettings().setValue("View/Gray", true);
        window.reset();
        window = std::make_unique<MainWindow>();
        QVERIFY(window->openCapture(capture));
        QVERIFY(!window->capturePlayback()->isPlaying());
        const auto c = window->controller(window->captureSource());
        QTest::qWait(200);
        QCOMPARE(int(c->frames()), 0);
        window->show();
        QTRY_VERIFY(window->capturePlayback()->isPlaying());
        window->capturePlayback()->setSpeed(0);
        QTRY_COMPARE_WITH_TIMEOUT(int(c->frames()), 300, 20000);
        QCOMPARE(c->handoverCounters().droppedMemory, 0u);
    }

    // While a capture plays, the status line and the transport bar name the
    // same line at every moment.
    void statusLineAndBarAgree()
    {
        QVERIFY(window->openCapture(capture));
        window->capturePlayback()->setSpeed(0.25);
        auto* health = window->findChild<QLabel*>("labelStreamHealth");
        auto* bar = window->findChild<QLabel*>("positionLabel");
        const QRegularExpression line("line ([\\d,]+) of");
        int samples = 0;
        for (int i = 0; i < 40; ++i) {
            QTest::qWait(30);
            const QString a = line.match(health->text()).captured(1);
            const QString b = line.match(bar->text()).captured(1);
            if (a.isEmpty() || b.isEmpty())
                continue;
            QCOMPARE(a, b);
            ++samples;
        }
        QVERIFY(samples > 10);
    }

private:
    static inline const char* const actionNames[] = {"actionInfo", "actionNumeric", "actionCut",
                                                     "actionGray", "action3D"};
    QTemporaryDir dir;
    QString capture;
    std::unique_ptr<MainWindow> window;
};

int main(int argc, char* argv[])
{
    return runWindowTest<TestWindowHabits>(argc, argv);
}

#include "tst_windowhabits.moc"
