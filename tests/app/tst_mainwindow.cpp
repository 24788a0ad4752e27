// The main window's logic in-process, with a private settings store: default
// views, the port limit and its warnings, freezing, view toggling and
// re-tiling, the settings round trip, export and recording, the stream health
// at the end of the status line.
#include "app/mainwindow.h"
#include "app/streamhealthlabel.h"
#include "capture/datagramextractor.h"
#include "models/streamaveragedatamodel.h"
#include "models/streamdatamodel.h"
#include "scanner/udpsocket.h"
#include "scanner/wireencoder.h"
#include "stream/streamdatacontroller.h"
#include "views/basicview.h"
#include "views/cutview.h"
#include "views/flatview.h"
#include "views/myopenglwidget.h"
#include "views/numericview.h"
#include "views/statisticview.h"
#include "views/threedview.h"
#include "windowtest.h"

#include <QtTest>
#include <QtWidgets>
#include <arpa/inet.h>
#include <cstring>
#include <functional>
#include <memory>
#include <sys/resource.h>
#include <sys/socket.h>
#include <tuple>

using namespace vxlindral;
using windowtest::answer;
using windowtest::chooseFile;
using windowtest::makeLine;

namespace {

QString contents(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : "(unreadable)";
}

// Whether `view` shows anything of its port's stream: a numeric view's
// statistics model holds a line, the 3D cloud one, the info view a text, and
// the pictures of the cut and gray views a point (a picture without a line
// is white).
bool showsData(BasicView* view)
{
    if (auto* v = qobject_cast<NumericView*>(view))
        return v->findChild<StreamAverageDataModel*>()->historySize() > 0;
    if (auto* v = qobject_cast<ThreeDView*>(view))
        return v->findChild<MyOpenGLWidget*>()->getLineCount() > 0;
    if (auto* v = qobject_cast<StatisticView*>(view))
        return !v->text().isEmpty();
    auto* cut = qobject_cast<CutView*>(view);
    const QImage picture =
        cut ? cut->image().toImage() : qobject_cast<FlatView*>(view)->image().toImage();
    for (int y = 0; y < picture.height(); ++y)
        for (int x = 0; x < picture.width(); ++x) {
            const QRgb p = picture.pixel(x, y);
            if (cut ? p == qRgb(0, 0, 200) : p != qRgb(255, 255, 255))
                return true;
        }
    return false;
}

// Sends `lines` raw lines of `pixels` 8-byte pixels to `port` on loopback,
// one datagram each; the datagrams sent.
QList<QByteArray> sendLines(int port, uint32_t lines, uint32_t pixels = 100)
{
    strmsocket::UdpSocket out;
    out.open(0, "127.0.0.1", 0, false);
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    to.sin_port = htons(static_cast<uint16_t>(port));
    QList<QByteArray> sent;
    for (uint32_t n = 0; n < lines; ++n) {
        const strmsocket::WireEncoder::RawLine h{n, 1, 2, 0, 2, 0, 0, 0, 8, pixels};
        const std::vector<char> body(8 * pixels, char(n));
        const auto m = strmsocket::WireEncoder::rawLine(h, body.data(), body.size());
        for (const auto& d : strmsocket::WireEncoder::fragment(n, m.data(), m.size())) {
            ::sendto(out.fd(), d.data(), d.size(), 0, reinterpret_cast<sockaddr*>(&to), sizeof to);
            sent << QByteArray(d.data(), int(d.size()));
        }
    }
    return sent;
}

// The payloads of port 6101 in a capture, and whether it read cleanly to its
// end.
std::pair<QList<QByteArray>, bool> readCapture(const QString& path)
{
    vxrec::DatagramExtractor x({6101, -1});
    QList<QByteArray> got;
    if (!x.open(path.toStdString()))
        return {got, false};
    vxrec::UdpDatagram d;
    vxrec::DatagramExtractor::Status end;
    while ((end = x.next(d)) == vxrec::DatagramExtractor::Status::Datagram)
        got << QByteArray(reinterpret_cast<const char*>(d.data), int(d.length));
    return {got, end == vxrec::DatagramExtractor::Status::End};
}

} // namespace

class TestMainWindow : public QObject
{
    Q_OBJECT
private slots:
    void init()
    {
        QSettings().clear();
        QSettings().sync();
        window = std::make_unique<MainWindow>();
        window->show();
        window->activateWindow();
        QVERIFY(QTest::qWaitForWindowExposed(window.get()));
    }
    void cleanup()
    {
        window.reset();
        warnings.clear();
        QCoreApplication::processEvents();
    }

    void viewKinds_data()
    {
        QTest::addColumn<QStringList>("slotNameClass");
        // The names are crossed on purpose: the info view is "_cut", the cut
        // view "_3d" and the 3D view "_info".
        QTest::newRow("info") << QStringList{"toggleStaticView", "6101_cut", "StatisticView"};
        QTest::newRow("numeric") << QStringList{"toggleNumericView", "6101_num", "NumericView"};
        QTest::newRow("cut") << QStringList{"toggleCutView", "6101_3d", "CutView"};
        QTest::newRow("gray") << QStringList{"toggleGrayView", "6101_gray", "FlatView"};
        QTest::newRow("3d") << QStringList{"toggle3DView", "6101_info", "ThreeDView"};
    }
    // Each toggle slot, reached by name as the tool-bar form without argument,
    // finds or makes the view of its kind under the kind's name, which takes
    // the port's lines in. Every kind deletes itself when closed: the next
    // press builds a new view with fresh models (a numeric view in decimal
    // again).
    void viewKinds()
    {
        QFETCH(QStringList, slotNameClass);
        const QByteArray slot = slotNameClass[0].toLatin1();
        const QString name = slotNameClass[1];
        closeAllViews(); // so that the slot has to create its view
        QVERIFY(QMetaObject::invokeMethod(window.get(), slot));
        QCOMPARE(viewNames(), QStringList{name});
        auto* view = window->findChild<BasicView*>(name);
        QCOMPARE(QString(view->metaObject()->className()), "vxlindral::" + slotNameClass[2]);
        if (auto* numeric = qobject_cast<NumericView*>(view))
            numeric->handleHex();
        feed(40);
        QVERIFY(showsData(view));
        QPointer<BasicView> closed = view;
        view->close();
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        QVERIFY(closed.isNull());

        QVERIFY(QMetaObject::invokeMethod(window.get(), slot));
        view = window->findChild<BasicView*>(name);
        QVERIFY(view && view->isVisible());
        // (A cut view's picture is undefined until its first line.)
        QVERIFY(qobject_cast<CutView*>(view) || !showsData(view));
        if (auto* numeric = qobject_cast<NumericView*>(view)) {
            QVERIFY(!numeric->isHex());
            QCOMPARE(window->dataModel(6101)->displayMode(), StreamDataModel::DISPLAY_DEC);
        }
        feed(40);
        QVERIFY(showsData(view));
    }

    // A first start opens the 3D view alone, maximised. A port that is open
    // is refused, and since entries are never erased, so is a fourth port
    // after two more were opened, even when one was stopped.
    void firstStartAndPortRefusals()
    {
        QMdiSubWindow* sub = mdi()->currentSubWindow();
        QVERIFY(qobject_cast<ThreeDView*>(sub) && sub->isMaximized());
        expectWarning();
        window->openStream(6101, 6102);
        // Titled as the window now is (a maximised view extends the title).
        QVERIFY2(warnings.size() == 1 && warnings[0].startsWith("Vx Lindral") &&
                     warnings[0].endsWith(": Socket already connected."),
                 qPrintable(warnings.join('|')));
        QCOMPARE(viewNames(), QStringList{"6101_info"});

        window->openStream(47811, 47812);
        window->openStream(47813, 47814);
        QCOMPARE(window->portEntries(), 3);
        QVERIFY(window->findChild<BasicView*>("47813_info"));
        QMetaObject::invokeMethod(window.get(), "handleStopStream");
        QVERIFY(!window->dataModel(window->currentPort()));

        expectWarning();
        window->openStream(47815, 47816);
        QCOMPARE(warnings.size(), 2);
        QCOMPARE(window->portEntries(), 3);
        QVERIFY(!window->findChild<BasicView*>("47815_info"));
    }

    // Freezing follows the button; without a sub-window nothing is paused
    // and the click's check state stays.
    void freeze()
    {
        QAction* freeze = action("actionFreeze");
        std::shared_ptr<StreamDataController> controller = window->controller(6101);
        freeze->trigger();
        QVERIFY(freeze->isChecked() && controller->isPaused());
        freeze->trigger();
        QVERIFY(!freeze->isChecked() && !controller->isPaused());
        closeAllViews();
        freeze->trigger();
        QVERIFY(freeze->isChecked() && !controller->isPaused());
    }

    // Tiled: a second press hides the view, a third shows the same view again.
    // Maximised: a hidden view comes back maximised, a new view is added so.
    void toggling()
    {
        action("actionRealign")->trigger(); // leave the maximised layout
        action("actionCut")->trigger();
        auto* cut = window->findChild<BasicView*>("6101_3d");
        QVERIFY(cut && cut->isVisible() && !cut->isMaximized());
        action("actionCut")->trigger();
        QVERIFY(!cut->isVisible());
        action("actionCut")->trigger();
        QVERIFY(cut->isVisible());
        QCOMPARE(window->findChildren<CutView*>().size(), 1);

        action("actionCut")->trigger();
        auto* threeD = window->findChild<BasicView*>("6101_info");
        mdi()->setActiveSubWindow(threeD);
        threeD->showMaximized();
        action("actionCut")->trigger();
        QVERIFY(cut->isVisible() && cut->isMaximized());
        action("actionNumeric")->trigger();
        QVERIFY(window->findChild<BasicView*>("6101_num")->isMaximized());
    }

    void closingAViewRetiles()
    {
        action("actionInfo")->trigger();
        action("actionRealign")->trigger();
        auto* threeD = window->findChild<BasicView*>("6101_info");
        const QRect area = mdi()->viewport()->rect();
        QVERIFY(threeD->geometry().width() * threeD->geometry().height() <
                area.width() * area.height() * 3 / 4);

        window->findChild<BasicView*>("6101_cut")->close();
        // Tiling is queued behind the close, so the area fills only afterwards.
        // The area as it is then: the status line may have changed its height.
        QTRY_COMPARE(threeD->geometry(), mdi()->viewport()->rect());
        QCOMPARE(viewNames(), QStringList{"6101_info"});
    }

    // First start: the dialog offers Cut and not 3D although the window
    // opened the 3D view. Accepting it unchanged stores that, emits
    // configChanged, and the next stream opens the cut view instead of the 3D
    // view. Cancelling stores and emits nothing. "Follow" starts checked, as
    // the open 3D view follows; unchecked, it reaches the view and the next
    // dialog.
    void settingsDialogRoundTrip()
    {
        QSignalSpy changed(window.get(), &MainWindow::configChanged);
        answer<QDialog>(false);
        action("actionSettings")->trigger();
        QCOMPARE(changed.count(), 0);
        QVERIFY(!QSettings().contains("View/Cut"));

        QString shown; // Cut, 3D and Follow as the dialog showed them
        const auto read = [&shown](QDialog* dialog) {
            for (const char* box : {"checkBoxCut", "checkBox3D", "checkBoxFollow"})
                shown += dialog->findChild<QCheckBox*>(box)->isChecked() ? '1' : '0';
        };
        answer<QDialog>(true, [&](QDialog* dialog) {
            read(dialog);
            dialog->findChild<QLineEdit*>("lineEditPointsPerLine")->setText("abc");
            dialog->findChild<QCheckBox*>("checkBoxFollow")->setChecked(false);
        });
        QVERIFY(window->findChild<ThreeDView*>("6101_info")->glWidget()->isFollowing());
        action("actionSettings")->trigger();
        QCOMPARE(changed.count(), 1);
        QVERIFY(!window->findChild<ThreeDView*>("6101_info")->glWidget()->isFollowing());
        answer<QDialog>(false, read);
        action("actionSettings")->trigger();
        QCOMPARE(shown, QString("101100"));

        QStringList stored; // "abc" points per line read as 0
        for (const char* key : {"View/Cut", "View/ThreeD", "ThreeD/pointsPerLine", "ThreeD/follow"})
            stored << QSettings().value(key).toString();
        QCOMPARE(stored, (QStringList{"true", "false", "0", "false"}));
        window->openStream(47821, 47822);
        QVERIFY(window->findChild<CutView*>("47821_3d"));
        QVERIFY(!window->findChild<BasicView*>("47821_info"));
    }

    // The dialog offers the stored ports; what it was given is stored even
    // when the port is refused.
    void connectDialogSavesPortsEvenWhenRefused()
    {
        QString offered;
        answer<QDialog>(true, [&](QDialog* dialog) {
            auto* line = dialog->findChild<QLineEdit*>("lineEditPortLine");
            auto* statusPort = dialog->findChild<QLineEdit*>("lineEditPortStatus");
            offered = line->text() + ' ' + statusPort->text();
            statusPort->setText("7777");
            expectWarning();
        });
        action("actionConnect")->trigger();
        QCOMPARE(offered, QString("6101 6102"));
        QVERIFY(warnings.value(0).endsWith(": Socket already connected."));
        QCOMPARE(QSettings().value("Ports/Line").toString() + ' ' +
                     QSettings().value("Ports/Status").toString(),
                 QString("6101 7777"));
        QCOMPARE(window->portEntries(), 1);
    }

    // The file holds exactly the model's line text, of the line current when
    // the command was given, not of one arriving while the dialog is open.
    void exportWritesTheLineText()
    {
        feed(37);
        const QString expected = window->dataModel(6101)->currentLineText();
        const QString path = files.filePath("line.txt");
        answer<QFileDialog>(true, [&](QFileDialog* dialog) {
            window->dataModel(6101)->setData(QModelIndex(), QVariant::fromValue(makeLine(3)));
            chooseFile(dialog, path);
        });
        action("actionExportLine")->trigger();
        QVERIFY(window->dataModel(6101)->currentLineText() != expected);

        QCOMPARE(contents(path), expected); // a header line naming the columns, one row per pixel
        QCOMPARE(QSettings().value("Path/Last").toString(), QFileInfo(path).absoluteFilePath());
    }

    void recordingWritesNumberedParts()
    {
        feed(5);
        const QString start = files.filePath("rec.txt");
        answer<QFileDialog>(true, [&](QFileDialog* dialog) { chooseFile(dialog, start); });
        answer<QInputDialog>(true, [](QInputDialog* dialog) { dialog->setIntValue(40); });
        QAction* lines = action("actionExportLines");
        lines->trigger();
        QVERIFY(lines->isChecked() && window->isRecording());
        QCOMPARE(QSettings().value("Path/Recording").toString(),
                 QFileInfo(start).absoluteFilePath());

        QTRY_VERIFY(QFile::exists(start + "-part3.cvs"));
        QVERIFY(status()->text().startsWith("Recording "));
        feed(9); // later parts take the line current at their tick
        QTRY_VERIFY(QFile::exists(start + "-part6.cvs"));

        lines->trigger();
        QVERIFY(!lines->isChecked() && !window->isRecording());
        QCOMPARE(status()->text(), QString());

        // Parts 1 to n, the last of the line current then; none once stopped.
        const auto parts = [this] { return QDir(files.path()).entryList({"rec.txt-part*.cvs"}); };
        const QStringList written = parts();
        for (int n = 1; n <= written.size(); ++n)
            QVERIFY2(written.contains(QString("rec.txt-part%1.cvs").arg(n)),
                     qPrintable(written.join(',')));
        QCOMPARE(contents(start + QString("-part%1.cvs").arg(written.size())),
                 window->dataModel(6101)->currentLineText());
        QTest::qWait(120);
        QCOMPARE(parts(), written);
    }

    void recordingCancelRules_data()
    {
        QTest::addColumn<bool>("cancelFile");
        QTest::addColumn<bool>("checkedAfter");
        // Cancelling the start file keeps the action checked; cancelling the
        // interval unchecks it.
        QTest::newRow("file dialog cancelled") << true << true;
        QTest::newRow("interval cancelled") << false << false;
    }
    void recordingCancelRules()
    {
        QFETCH(bool, cancelFile);
        QFETCH(bool, checkedAfter);
        const QString path = files.filePath("cancel.txt");
        answer<QFileDialog>(!cancelFile, [&](QFileDialog* dialog) { chooseFile(dialog, path); });
        if (!cancelFile)
            answer<QInputDialog>(false);
        QAction* lines = action("actionExportLines");
        lines->trigger();
        QCOMPARE(lines->isChecked(), checkedAfter);
        QVERIFY(!window->isRecording());
        QVERIFY(!QSettings().contains("Path/Recording"));
    }

    // "Record capture ..." through its dialog records the port of the active
    // view, frozen or not, shows the recording in the status line and
    // remembers the folder; each way of ending it leaves a whole file.
    void recordCapture_data()
    {
        QTest::addColumn<QString>("end");
        QTest::newRow("unchecked") << "uncheck";
        QTest::newRow("port stopped") << "stop";
        QTest::newRow("quit") << "quit";
    }
    void recordCapture()
    {
        QFETCH(QString, end);
        const QString path = files.filePath(end + ".pcapng");
        answer<QFileDialog>(true, [&](QFileDialog* dialog) { chooseFile(dialog, path); });
        QAction* record = action("actionRecordCapture");
        record->trigger();
        QVERIFY(record->isChecked() && window->isCapturing());
        QCOMPARE(window->capturePort(), 6101);
        QCOMPARE(QSettings().value("Path/Capture").toString(), files.path());

        window->controller(6101)->pauseStream(true);
        const QList<QByteArray> sent = sendLines(6101, 50);
        QTRY_COMPARE(window->controller(6101)->counters().pausedDiscards, uint64_t(50));
        auto* label = window->findChild<QLabel*>("labelCapture");
        const QRegularExpression text("^\u25cf " + end + ".pcapng 00:0\\d 50 lines 50 kB$");
        QTRY_VERIFY2(text.match(label->text()).hasMatch(), qPrintable(label->text()));
        QVERIFY(label->isVisible());
        QVERIFY(window->findChild<QLabel*>("labelStreamHealth")
                    ->toolTip()
                    .contains("recording: 50 datagrams, 50 lines"));

        if (end == "uncheck") {
            record->trigger();
            // The file is finished in the background; the label says so
            // until it is complete.
            QTRY_VERIFY(label->isHidden());
        } else if (end == "stop") {
            QVERIFY(QMetaObject::invokeMethod(window.get(), "handleStopStream"));
        } else {
            window->close();
            window.reset();
        }
        QVERIFY(!window || (!window->isCapturing() && !record->isChecked()));
        QTRY_VERIFY(!window || !window->isFinishingCaptures());
        const auto [got, clean] = readCapture(path);
        QVERIFY(clean);
        QCOMPARE(got, sent);
    }

    // An existing file is replaced only when the dialog's question is
    // answered yes: answered no (and the dialog then cancelled), the file
    // stays as it was and nothing is recorded.
    void recordCaptureKeepsAnExistingFile()
    {
        const QString path = files.filePath("kept.pcapng");
        QFile kept(path);
        QVERIFY(kept.open(QIODevice::WriteOnly) && kept.write("keep me") == 7);
        kept.close();
        answer<QFileDialog>(true, [&](QFileDialog* dialog) { chooseFile(dialog, path); });
        answer<QMessageBox>(false, [](QMessageBox*) { answer<QFileDialog>(false); });
        action("actionRecordCapture")->trigger();
        QVERIFY(!window->isCapturing() && !action("actionRecordCapture")->isChecked());
        QCOMPARE(contents(path), QString("keep me"));
    }

    // A file-size limit ends the recording with a warning that names the
    // file and the reason; the file keeps a valid start of the stream.
    void captureFailureWarns()
    {
        const QString path = files.filePath("limited.pcapng");
        rlimit before{};
        ::getrlimit(RLIMIT_FSIZE, &before);
        rlimit limited = before;
        limited.rlim_cur = 1u << 20;
        QVERIFY(::setrlimit(RLIMIT_FSIZE, &limited) == 0);
        const bool started = window->startCapture(6101, path);
        expectWarning();
        const QList<QByteArray> sent = sendLines(6101, 200, 2000); // 3.2 MB
        QTRY_VERIFY(!window->isCapturing());
        ::setrlimit(RLIMIT_FSIZE, &before);
        QVERIFY(started);
        QTRY_COMPARE(warnings.size(), 1);
        QVERIFY2(warnings[0].startsWith("Vx Lindral") &&
                     warnings[0].contains(": Recording to " + path + " stopped") &&
                     warnings[0].contains("File too large"),
                 qPrintable(warnings[0]));
        QVERIFY(!action("actionRecordCapture")->isChecked());
        const auto [got, clean] = readCapture(path);
        QVERIFY(clean && !got.isEmpty() && got.size() < sent.size());
        QCOMPARE(got, sent.mid(0, got.size()));
    }

    void streamHealth_data()
    {
        QTest::addColumn<QStringList>("steps");
        QTest::addColumn<QList<int>>("ports"); // shown, in this order
        QTest::newRow("two ports") << QStringList{"open"} << QList<int>{6101, 47821};
        // Stopping acts on the port of the first view, 6101's.
        QTest::newRow("stopped port") << QStringList{"open", "stop"} << QList<int>{47821};
        QTest::newRow("no port left") << QStringList{"stop"} << QList<int>{};
    }
    // Each open port's entry at the right end of the status line's row,
    // beside the status text and not over it, in the form's own layout cell.
    void streamHealth()
    {
        QFETCH(QStringList, steps);
        QFETCH(QList<int>, ports);
        for (const QString& step : steps) {
            if (step == "open")
                window->openStream(47821, 47822);
            else
                QMetaObject::invokeMethod(window.get(), "handleStopStream");
        }
        auto* health = window->findChild<StreamHealthLabel*>("labelStreamHealth");
        QVERIFY(health);
        health->refresh();

        QStringList entries;
        for (int port : ports)
            entries << QString("%1: [0-9,]+ lines/s, [0-9,]+ dropped").arg(port);
        const QRegularExpression pattern(
            QRegularExpression::anchoredPattern(entries.join(" \\| ")));
        QVERIFY2(pattern.match(health->text()).hasMatch(), qPrintable(health->text()));

        // The form's cells stay; the label (beside the capture's) shares the
        // status label's.
        auto* grid = window->findChild<QGridLayout*>("gridLayout");
        QWidget* right = health->parentWidget();
        for (QWidget* w : {static_cast<QWidget*>(mdi()), static_cast<QWidget*>(status()), right}) {
            int row = -1, column = -1, rows = 0, columns = 0;
            grid->getItemPosition(grid->indexOf(w), &row, &column, &rows, &columns);
            QCOMPARE((QList<int>{row, column, rows, columns}), (QList<int>{w != mdi(), 0, 1, 1}));
        }
        status()->setText("u: 1024 v: 2000 x: 0.123456m y: -0.654321m a: 12.3456deg");
        grid->activate();
        const int statusTextEnd = status()->geometry().left() + status()->contentsRect().right();
        QVERIFY(ports.isEmpty() || statusTextEnd < right->geometry().left());
        QCOMPARE(right->geometry().right(), status()->geometry().right());
    }

private:
    QStringList viewNames() const
    {
        QStringList names;
        for (BasicView* view : window->findChildren<BasicView*>())
            names << view->objectName();
        names.sort();
        return names;
    }
    QMdiArea* mdi() const { return window->findChild<QMdiArea*>("mdiArea"); }
    QAction* action(const char* name) const { return window->findChild<QAction*>(name); }
    QLabel* status() const { return window->findChild<QLabel*>("labelStatus"); }
    // Answers the next warning box, keeping "title: text" in `warnings`.
    void expectWarning()
    {
        answer<QMessageBox>(true, [this](QMessageBox* box) {
            warnings << box->windowTitle() + ": " + box->text();
        });
    }
    void closeAllViews()
    {
        mdi()->closeAllSubWindows();
        QCoreApplication::processEvents();
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        QVERIFY(viewNames().isEmpty());
    }
    void feed(int pixels) { windowtest::feed(*window, pixels); }

    std::unique_ptr<MainWindow> window;
    QStringList warnings;
    QTemporaryDir files;
};

int main(int argc, char* argv[])
{
    return runWindowTest<TestMainWindow>(argc, argv);
}

#include "tst_mainwindow.moc"
