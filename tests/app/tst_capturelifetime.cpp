// What a posted call may do while a capture is being sought, indexed,
// exported or recorded: close the capture, open another file, quit. Neither
// may run inside the work under way (which would then go on with a deleted
// playback, export or window), and each must still take effect once that
// work has returned. The scripts run this test under AddressSanitizer, which
// turns any use of a deleted object into a failure.
#include "app/captureplayback.h"
#include "app/mainwindow.h"
#include "app/stretchexport.h"
#include "capture/datagramextractor.h"
#include "capturefile.h"
#include "views/basicview.h"
#include "windowtest.h"

#include <QtTest>
#include <QtWidgets>

using namespace vxlindral;

class TestCaptureLifetime : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase()
    {
        QVERIFY(dir.isValid());
        big = dir.filePath("big.pcap");
        other = dir.filePath("other.pcap");
        // Large enough that its index and an export of it are still running
        // when the posted calls come.
        QVERIFY(writeCapture(big, {{{"--pixels", "1024"}, 1500}}) > 0);
        QVERIFY(writeCapture(other, {{{"--pixels", "512", "--scene", "conveyor"}, 50}}) > 0);
    }
    void init()
    {
        QSettings().clear();
        // The cut view alone: the views' drawing is not what is tested.
        QSettings().setValue("View/ThreeD", false);
        QSettings().setValue("View/Cut", true);
    }
    void cleanup()
    {
        window.reset();
        QCoreApplication::processEvents();
    }

    void postedCallsWaitForTheWork_data()
    {
        QTest::addColumn<QString>("work");
        QTest::addColumn<QString>("posted");
        for (const char* work : {"seek", "index", "stretch export", "recording"})
            for (const char* posted : {"close capture", "drop a file", "quit"})
                QTest::newRow(qPrintable(QStringLiteral("%1, %2").arg(work, posted)))
                    << QString(work) << QString(posted);
    }
    void postedCallsWaitForTheWork()
    {
        QFETCH(QString, work);
        QFETCH(QString, posted);
        for (int round = 0; round < 2; ++round) {
            window = std::make_unique<MainWindow>();
            window->show();
            QVERIFY(QTest::qWaitForWindowExposed(window.get()));
            QVERIFY(window->openCapture(big));
            CapturePlayback* playback = window->capturePlayback();
            const QString recorded = dir.filePath(QStringLiteral("rec%1.pcapng").arg(round));
            if (work == "seek") {
                QTRY_VERIFY(playback->index().lines() > 400);
            } else if (work == "stretch export") {
                QTRY_VERIFY(playback->index().lines() > 400);
                // An earlier export's file would make the dialog ask first.
                const QString target = dir.filePath("stretch.ply");
                QFile::remove(target);
                windowtest::answer<QFileDialog>(
                    true, [&](QFileDialog* dialog) { windowtest::chooseFile(dialog, target); });
                window->findChild<QAction*>("actionExportStretch")->trigger();
                QVERIFY(window->runningStretchExport());
                // Shown at once, so that its progress is taken while it shows.
                window->findChild<QProgressDialog*>("stretchProgress")->setMinimumDuration(0);
                QTest::qWait(30);
            } else if (work == "recording") {
                QVERIFY(window->startCapture(6101, recorded));
            }

            // No box is expected; one that comes says why in the failure.
            QString box;
            QObject waiting;
            windowtest::answer<QMessageBox>(
                true, [&](QMessageBox* b) { box = b->text() + " " + b->informativeText(); },
                &waiting);
            post(posted);
            if (work == "seek") {
                playback->seekLine(300);
                // The posted call came after the seek, not inside it.
                QCOMPARE(window->capturePlayback(), playback);
            }
            if (posted == "quit") {
                QTRY_VERIFY(!window->isVisible());
                QVERIFY(!window->isFinishingCaptures());
                window.reset();
            } else if (posted == "close capture") {
                QTRY_VERIFY(!window->capturePlayback());
            } else {
                QTRY_VERIFY2_WITH_TIMEOUT(
                    window->capturePlayback() && window->capturePlayback()->path() == other,
                    qPrintable(box + " " +
                               (window->capturePlayback() ? window->capturePlayback()->path()
                                                          : QString("no capture"))),
                    20000);
            }
            QVERIFY2(box.isEmpty(), qPrintable(box));
            if (window && work == "stretch export")
                QTRY_VERIFY_WITH_TIMEOUT(!window->runningStretchExport(), 60000);
            if (window && work == "recording") {
                window->stopCapture();
                QTRY_VERIFY(!window->isFinishingCaptures());
            }
            if (work == "recording") {
                // However it ended, the file is whole.
                vxrec::DatagramExtractor file({6101, -1});
                QVERIFY(file.open(QFile::encodeName(recorded).toStdString()));
                vxrec::UdpDatagram d;
                vxrec::DatagramExtractor::Status end;
                while ((end = file.next(d)) == vxrec::DatagramExtractor::Status::Datagram) {
                }
                QVERIFY(end == vxrec::DatagramExtractor::Status::End);
            }
            window.reset();
        }
    }

private:
    // Posts what the user would do: closes the capture's views (their last
    // close ends the capture by a queued call), drops a file on the window
    // (it is opened by a posted call once the drop ended) or quits.
    void post(const QString& what)
    {
        if (what == "close capture") {
            for (BasicView* view : window->findChildren<BasicView*>()) {
                if (view->getPort() == window->captureSource())
                    view->close();
            }
        } else if (what == "drop a file") {
            QMimeData data;
            data.setUrls({QUrl::fromLocalFile(other)});
            QDragEnterEvent enter(QPoint(5, 5), Qt::CopyAction, &data, Qt::LeftButton,
                                  Qt::NoModifier);
            QCoreApplication::sendEvent(window.get(), &enter);
            QDropEvent drop(QPointF(5, 5), Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
            QCoreApplication::sendEvent(window.get(), &drop);
        } else {
            QMetaObject::invokeMethod(window.get(), "close", Qt::QueuedConnection);
        }
    }

    QTemporaryDir dir;
    QString big, other;
    std::unique_ptr<MainWindow> window;
};

int main(int argc, char* argv[])
{
    return runWindowTest<TestCaptureLifetime>(argc, argv);
}

#include "tst_capturelifetime.moc"
