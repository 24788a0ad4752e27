// The main window's logic in-process, with a private settings store: default
// views, the port limit and its warnings, freezing, view toggling and
// re-tiling, the settings round trip, export and recording, the stream health
// at the end of the status line.
#include "app/mainwindow.h"
#include "app/streamhealthlabel.h"
#include "models/streamaveragedatamodel.h"
#include "models/streamdatamodel.h"
#include "stream/streamdatacontroller.h"
#include "views/basicview.h"
#include "views/cutview.h"
#include "views/flatview.h"
#include "views/myopenglwidget.h"
#include "views/numericview.h"
#include "views/statisticview.h"
#include "views/threedview.h"
#include "windowtest.h"

#include <QAction>
#include <QApplication>
#include <QCheckBox>
#include <QFileDialog>
#include <QGridLayout>
#include <QInputDialog>
#include <QLabel>
#include <QLineEdit>
#include <QMdiArea>
#include <QMdiSubWindow>
#include <QMessageBox>
#include <QPointer>
#include <QPushButton>
#include <QRegularExpression>
#include <QSettings>
#include <QTemporaryDir>
#include <QtTest>
#include <functional>
#include <memory>

using namespace vxlindral;

namespace {

// Runs `f` on the first visible top-level widget of type W as soon as one
// shows up (modal dialogs block the caller inside exec()).
template <typename W> void whenShown(std::function<void(W*)> f)
{
    auto* timer = new QTimer;
    timer->setInterval(10);
    QObject::connect(timer, &QTimer::timeout, [timer, f] {
        for (QWidget* w : QApplication::topLevelWidgets()) {
            auto* target = qobject_cast<W*>(w);
            if (target && target->isVisible()) {
                timer->stop();
                timer->deleteLater();
                f(target);
                return;
            }
        }
    });
    timer->start();
}

// Answers the next warning box with Ok and keeps its title and text.
struct WarningCatcher
{
    QString title;
    QString text;
    int count = 0;
    void arm()
    {
        whenShown<QMessageBox>([this](QMessageBox* box) {
            title = box->windowTitle();
            text = box->text();
            ++count;
            box->button(QMessageBox::Ok)->click();
        });
    }
};

// Answers the next file dialog with `path`, or cancels it when `path` is empty.
void answerFileDialog(const QString& path)
{
    whenShown<QFileDialog>([path](QFileDialog* dialog) {
        if (path.isEmpty()) {
            dialog->reject();
            return;
        }
        dialog->selectFile(path);
        static_cast<QDialog*>(dialog)->accept(); // QFileDialog's own is protected
    });
}

// A line of `pixels` records in the (datatyp 2, peak) layout: range 1000 + i,
// intensity 100 + i.
LineType makeLine(int pixels)
{
    auto line = std::make_shared<MyLine>();
    line->parser = std::make_shared<vx::RawLineParser>();
    if (!line->parser->detect(2, vx::RawLineParser::MOD_PEAK, false))
        return nullptr;
    const int bpp = line->parser->bytesPerPixel();
    line->pixel = pixels;
    line->flags = 8;
    line->data.resize(std::size_t(pixels) * bpp);
    line->points.resize(pixels);
    for (int i = 0; i < pixels; ++i) {
        const uint32_t range = 1000 + i;
        const uint32_t intensity = 100 + i;
        uint8_t* rec = line->data.data() + std::size_t(i) * bpp;
        rec[0] = range & 0xff;
        rec[1] = (range >> 8) & 0xff;
        rec[2] = (range >> 16) & 0xff;
        rec[3] = intensity & 0xff;
        rec[4] = (intensity >> 8) & 0xff;
        vxs::VxPt& p = line->points[i];
        p.intensity = intensity;
        p.range = range / 10000.0;
        p.y = (i - pixels / 2) * 0.001;
        p.z = p.range;
        p.valid = 1;
    }
    const vx::RawLineParser::AvrStd s =
        line->parser->calc(reinterpret_cast<const char*>(line->data.data()), pixels);
    line->avr = s.avr;
    line->sdev = s.sdev;
    line->min = s.min;
    line->max = s.max;
    return line;
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

} // namespace

class TestMainWindow : public QObject
{
    Q_OBJECT
private slots:
    void init();
    void cleanup();

    void firstStartOpensOnlyThe3DView();
    void viewKinds_data();
    void viewKinds();
    void portRefusals();
    void freeze();
    void toggling();
    void closingAViewRetiles();
    void settingsDialogRoundTrip();
    void connectDialogSavesPortsEvenWhenRefused();
    void exportWritesTheLineText();
    void recordingWritesNumberedParts();
    void recordingCancelRules_data();
    void recordingCancelRules();
    void streamHealth_data();
    void streamHealth();

private:
    QStringList viewNames() const;
    QMdiArea* mdi() const { return window->findChild<QMdiArea*>("mdiArea"); }
    QAction* action(const char* name) const { return window->findChild<QAction*>(name); }
    QLabel* status() const { return window->findChild<QLabel*>("labelStatus"); }
    // Hands `line` to the port's model as the receiver does, and lets the
    // queued deliveries run.
    void feed(int port, const LineType& line);

    std::unique_ptr<MainWindow> window;
    QTemporaryDir files;
};

void TestMainWindow::init()
{
    QSettings().clear();
    QSettings().sync();
    window = std::make_unique<MainWindow>();
    window->show();
    window->activateWindow();
    QVERIFY(QTest::qWaitForWindowExposed(window.get()));
}

void TestMainWindow::cleanup()
{
    window.reset();
    QCoreApplication::processEvents();
}

QStringList TestMainWindow::viewNames() const
{
    QStringList names;
    for (BasicView* view : window->findChildren<BasicView*>())
        names << view->objectName();
    names.sort();
    return names;
}

void TestMainWindow::feed(int port, const LineType& line)
{
    std::shared_ptr<StreamDataModel> model = window->dataModel(port);
    QVERIFY(model);
    QVERIFY(line);
    model->setData(QModelIndex(), QVariant::fromValue(line));
    QCoreApplication::processEvents();
}

void TestMainWindow::firstStartOpensOnlyThe3DView()
{
    QCOMPARE(viewNames(), QStringList{"6101_info"});
    QMdiSubWindow* sub = mdi()->currentSubWindow();
    QVERIFY(qobject_cast<ThreeDView*>(sub));
    QVERIFY(sub->isMaximized());
    QVERIFY(window->dataModel(6101));
    QVERIFY(window->controller(6101));
    QCOMPARE(window->portEntries(), 1);
    QCOMPARE(window->currentPort(), 6101);
}

void TestMainWindow::viewKinds_data()
{
    QTest::addColumn<QString>("slot");
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("className");
    // The names are crossed on purpose: the info view is "_cut", the cut view
    // "_3d" and the 3D view "_info".
    QTest::newRow("info") << "toggleStaticView"
                          << "6101_cut"
                          << "vxlindral::StatisticView";
    QTest::newRow("numeric") << "toggleNumericView"
                             << "6101_num"
                             << "vxlindral::NumericView";
    QTest::newRow("cut") << "toggleCutView"
                         << "6101_3d"
                         << "vxlindral::CutView";
    QTest::newRow("gray") << "toggleGrayView"
                          << "6101_gray"
                          << "vxlindral::FlatView";
    QTest::newRow("3d") << "toggle3DView"
                        << "6101_info"
                        << "vxlindral::ThreeDView";
}

// Each toggle slot, reached by name as the tool-bar form without argument,
// finds or makes the view of its kind under the kind's name; a closed view is
// gone, and the slot makes a new one.
void TestMainWindow::viewKinds()
{
    QFETCH(QString, slot);
    QFETCH(QString, name);
    QFETCH(QString, className);

    // Start from no view, so that the slot has to create its view.
    mdi()->closeAllSubWindows();
    QCoreApplication::processEvents();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    QVERIFY(viewNames().isEmpty());

    QVERIFY(QMetaObject::invokeMethod(window.get(), slot.toLatin1().constData()));
    QCOMPARE(viewNames(), QStringList{name});
    auto* view = window->findChild<BasicView*>(name);
    QCOMPARE(QString(view->metaObject()->className()), className);
    QCOMPARE(view->getPort(), 6101);
    QVERIFY_EXCEPTION_THROWN(MainWindow::viewNamePattern(5), std::invalid_argument);

    // Every kind deletes itself when closed: the next press builds a new view
    // with fresh models (a numeric view in decimal again), which takes the
    // port's lines in.
    std::shared_ptr<StreamDataModel> model = window->dataModel(6101);
    if (auto* numeric = qobject_cast<NumericView*>(view))
        numeric->handleHex();
    feed(6101, makeLine(40));
    model->emitStatistic(QStringLiteral("frame 1\n"));
    QCoreApplication::processEvents();
    QVERIFY(showsData(view));
    QPointer<BasicView> closed = view;
    view->close();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    QVERIFY(closed.isNull());

    QVERIFY(QMetaObject::invokeMethod(window.get(), slot.toLatin1().constData()));
    view = window->findChild<BasicView*>(name);
    QVERIFY(view);
    QVERIFY(view->isVisible());
    // (A cut view's picture is undefined until its first line.)
    if (!qobject_cast<CutView*>(view))
        QVERIFY(!showsData(view));
    if (auto* numeric = qobject_cast<NumericView*>(view)) {
        QVERIFY(!numeric->isHex());
        QCOMPARE(model->displayMode(), StreamDataModel::DISPLAY_DEC);
    }
    feed(6101, makeLine(40));
    model->emitStatistic(QStringLiteral("frame 2\n"));
    QCoreApplication::processEvents();
    QVERIFY(showsData(view));
}

// A port that is open is refused, and since entries are never erased, so is
// a fourth port after two more were opened, even when one was stopped.
void TestMainWindow::portRefusals()
{
    WarningCatcher warning;
    warning.arm();
    window->openStream(6101, 6102);
    QCOMPARE(warning.text, QString("Socket already connected."));
    // The window's current title (which a maximised view extends).
    QVERIFY(warning.title.startsWith("Vx Lindral"));
    QCOMPARE(viewNames(), QStringList{"6101_info"});

    window->openStream(47811, 47812);
    window->openStream(47813, 47814);
    QCOMPARE(window->portEntries(), 3);
    QVERIFY(window->findChild<BasicView*>("47813_info"));
    QMetaObject::invokeMethod(window.get(), "handleStopStream");
    QVERIFY(!window->dataModel(window->currentPort()));

    warning.arm();
    window->openStream(47815, 47816);
    QCOMPARE(warning.count, 2);
    QCOMPARE(warning.text, QString("Socket already connected."));
    QCOMPARE(window->portEntries(), 3);
    QVERIFY(!window->findChild<BasicView*>("47815_info"));
}

void TestMainWindow::freeze()
{
    QAction* freeze = action("actionFreeze");
    std::shared_ptr<StreamDataController> controller = window->controller(6101);

    freeze->trigger();
    QVERIFY(freeze->isChecked());
    QVERIFY(controller->isPaused());
    freeze->trigger();
    QVERIFY(!freeze->isChecked());
    QVERIFY(!controller->isPaused());

    // Without a sub-window nothing is paused and the click's check state stays.
    mdi()->closeAllSubWindows();
    QCoreApplication::processEvents();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    QVERIFY(!mdi()->currentSubWindow());
    freeze->trigger();
    QVERIFY(freeze->isChecked());
    QVERIFY(!controller->isPaused());
}

// Tiled: a second press hides the view, a third shows the same view again.
// Maximised: a hidden view comes back maximised, a new view is added so.
void TestMainWindow::toggling()
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

void TestMainWindow::closingAViewRetiles()
{
    action("actionInfo")->trigger();
    action("actionRealign")->trigger();
    auto* info = window->findChild<BasicView*>("6101_cut");
    auto* threeD = window->findChild<BasicView*>("6101_info");
    const QRect area = mdi()->viewport()->rect();
    QVERIFY(threeD->geometry().width() * threeD->geometry().height() <
            area.width() * area.height() * 3 / 4);

    info->close();
    // Tiling is queued behind the close, so the area fills only afterwards.
    QTRY_COMPARE(threeD->geometry(), area);
    QCOMPARE(viewNames(), QStringList{"6101_info"});
}

// First start: the dialog offers Cut and not 3D although the window opened the
// 3D view. Accepting it unchanged stores that, emits configChanged, and the
// next stream opens the cut view instead of the 3D view. Cancelling stores and
// emits nothing. "Follow" starts unchecked; checked, it reaches the open 3D
// view and the next dialog.
void TestMainWindow::settingsDialogRoundTrip()
{
    QSignalSpy changed(window.get(), &MainWindow::configChanged);

    whenShown<QDialog>([](QDialog* dialog) { dialog->reject(); });
    action("actionSettings")->trigger();
    QCOMPARE(changed.count(), 0);
    QVERIFY(!QSettings().contains("View/Cut"));

    bool cutShown = false, threeDShown = true, followShown = true;
    whenShown<QDialog>([&](QDialog* dialog) {
        cutShown = dialog->findChild<QCheckBox*>("checkBoxCut")->isChecked();
        threeDShown = dialog->findChild<QCheckBox*>("checkBox3D")->isChecked();
        followShown = dialog->findChild<QCheckBox*>("checkBoxFollow")->isChecked();
        dialog->findChild<QLineEdit*>("lineEditPointsPerLine")->setText("abc");
        dialog->findChild<QCheckBox*>("checkBoxFollow")->setChecked(true);
        dialog->accept();
    });
    action("actionSettings")->trigger();
    QVERIFY(cutShown);
    QVERIFY(!threeDShown);
    QVERIFY(!followShown);
    QCOMPARE(changed.count(), 1);
    // The open 3D view follows at once, and the dialog shows the stored choice.
    QVERIFY(window->findChild<ThreeDView*>("6101_info")->glWidget()->isFollowing());
    whenShown<QDialog>([&](QDialog* dialog) {
        followShown = dialog->findChild<QCheckBox*>("checkBoxFollow")->isChecked();
        dialog->reject();
    });
    action("actionSettings")->trigger();
    QVERIFY(followShown);

    QSettings stored;
    stored.sync();
    QCOMPARE(stored.value("View/Cut").toBool(), true);
    QCOMPARE(stored.value("View/ThreeD").toBool(), false);
    QCOMPARE(stored.value("ThreeD/pointsPerLine").toInt(), 0);
    QCOMPARE(stored.value("ThreeD/maxPoints").toInt(), 100000);
    QCOMPARE(stored.value("ThreeD/follow").toBool(), true);

    window->openStream(47821, 47822);
    QVERIFY(window->findChild<CutView*>("47821_3d"));
    QVERIFY(!window->findChild<BasicView*>("47821_info"));
}

void TestMainWindow::connectDialogSavesPortsEvenWhenRefused()
{
    WarningCatcher warning;
    whenShown<QDialog>([&warning](QDialog* dialog) {
        auto* line = dialog->findChild<QLineEdit*>("lineEditPortLine");
        auto* statusPort = dialog->findChild<QLineEdit*>("lineEditPortStatus");
        if (line->text() != "6101" || statusPort->text() != "6102")
            dialog->reject(); // wrong presets: the test then fails below
        line->setText("6101");
        statusPort->setText("7777");
        warning.arm();
        dialog->accept();
    });
    action("actionConnect")->trigger();
    QCOMPARE(warning.text, QString("Socket already connected."));
    QCOMPARE(QSettings().value("Ports/Line").toUInt(), 6101u);
    QCOMPARE(QSettings().value("Ports/Status").toUInt(), 7777u);
    QCOMPARE(window->portEntries(), 1);
}

// The file holds exactly the model's line text: a header line naming the
// columns, then one row per pixel. The line is the one current when the
// command was given.
void TestMainWindow::exportWritesTheLineText()
{
    const int pixels = 37;
    feed(6101, makeLine(pixels));
    const QString expected = window->dataModel(6101)->currentLineText();
    const QString path = files.filePath("line.txt");

    std::shared_ptr<StreamDataModel> model = window->dataModel(6101);
    whenShown<QFileDialog>([&](QFileDialog* dialog) {
        // A line arriving while the dialog is open is not the one exported.
        model->setData(QModelIndex(), QVariant::fromValue(makeLine(3)));
        dialog->selectFile(path);
        static_cast<QDialog*>(dialog)->accept(); // QFileDialog's own is protected
    });
    action("actionExportLine")->trigger();
    QVERIFY(model->currentLineText() != expected);

    QFile file(path);
    QVERIFY(file.open(QIODevice::ReadOnly));
    const QString text = QString::fromUtf8(file.readAll());
    QCOMPARE(text, expected);
    QCOMPARE(text.count('\n'), pixels + 1); // header line, one row per pixel
    QCOMPARE(QSettings().value("Path/Last").toString(), QFileInfo(path).absoluteFilePath());
}

void TestMainWindow::recordingWritesNumberedParts()
{
    feed(6101, makeLine(5));
    const QString start = files.filePath("rec.txt");
    answerFileDialog(start);
    whenShown<QInputDialog>([](QInputDialog* dialog) {
        dialog->setIntValue(40);
        dialog->accept();
    });
    QAction* lines = action("actionExportLines");
    lines->trigger();
    QVERIFY(lines->isChecked());
    QVERIFY(window->isRecording());
    QCOMPARE(QSettings().value("Path/Recording").toString(), QFileInfo(start).absoluteFilePath());

    QTRY_VERIFY(QFile::exists(start + "-part3.cvs"));
    QVERIFY(status()->text().startsWith("Recording "));
    feed(6101, makeLine(9)); // later parts take the line current at their tick
    QTRY_VERIFY(QFile::exists(start + "-part6.cvs"));

    lines->trigger();
    QVERIFY(!lines->isChecked());
    QVERIFY(!window->isRecording());
    QCOMPARE(status()->text(), QString());

    const QStringList parts = QDir(files.path()).entryList({"rec.txt-part*.cvs"}, QDir::Files);
    for (int n = 1; n <= parts.size(); ++n)
        QVERIFY2(parts.contains(QString("rec.txt-part%1.cvs").arg(n)), qPrintable(parts.join(',')));

    QFile last(start + QString("-part%1.cvs").arg(parts.size()));
    QVERIFY(last.open(QIODevice::ReadOnly));
    QCOMPARE(QString::fromUtf8(last.readAll()), window->dataModel(6101)->currentLineText());

    // Nothing is written once stopped.
    QTest::qWait(120);
    QCOMPARE(QDir(files.path()).entryList({"rec.txt-part*.cvs"}, QDir::Files).size(), parts.size());
}

void TestMainWindow::recordingCancelRules_data()
{
    QTest::addColumn<bool>("cancelFile");
    QTest::addColumn<bool>("checkedAfter");
    // Cancelling the start file keeps the action checked; cancelling the
    // interval unchecks it.
    QTest::newRow("file dialog cancelled") << true << true;
    QTest::newRow("interval cancelled") << false << false;
}

void TestMainWindow::recordingCancelRules()
{
    QFETCH(bool, cancelFile);
    QFETCH(bool, checkedAfter);
    answerFileDialog(cancelFile ? QString() : files.filePath("cancel.txt"));
    if (!cancelFile)
        whenShown<QInputDialog>([](QInputDialog* dialog) { dialog->reject(); });
    QAction* lines = action("actionExportLines");
    lines->trigger();
    QCOMPARE(lines->isChecked(), checkedAfter);
    QVERIFY(!window->isRecording());
    QVERIFY(!QSettings().contains("Path/Recording"));
}

void TestMainWindow::streamHealth_data()
{
    QTest::addColumn<QStringList>("steps");
    QTest::addColumn<QList<int>>("ports"); // shown, in this order
    QTest::newRow("one port") << QStringList() << QList<int>{6101};
    QTest::newRow("two ports") << QStringList{"open"} << QList<int>{6101, 47821};
    // Stopping acts on the port of the first view, 6101's.
    QTest::newRow("stopped port") << QStringList{"open", "stop"} << QList<int>{47821};
    QTest::newRow("no port left") << QStringList{"stop"} << QList<int>{};
}

// Each open port's entry at the right end of the status line's row, beside
// the status text and not over it, in the form's own layout cell.
void TestMainWindow::streamHealth()
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
    const QRegularExpression pattern(QRegularExpression::anchoredPattern(entries.join(" \\| ")));
    QVERIFY2(pattern.match(health->text()).hasMatch(), qPrintable(health->text()));

    // The form's cells stay; the label shares the status label's.
    auto* grid = window->findChild<QGridLayout*>("gridLayout");
    for (QWidget* w : {static_cast<QWidget*>(mdi()), static_cast<QWidget*>(status()),
                       static_cast<QWidget*>(health)}) {
        int row = -1, column = -1, rows = 0, columns = 0;
        grid->getItemPosition(grid->indexOf(w), &row, &column, &rows, &columns);
        QCOMPARE((QList<int>{row, column, rows, columns}), (QList<int>{w != mdi(), 0, 1, 1}));
    }
    status()->setText("u: 1024 v: 2000 x: 0.123456m y: -0.654321m a: 12.3456deg");
    grid->activate();
    const int statusTextEnd = status()->geometry().left() + status()->contentsRect().right();
    QVERIFY(ports.isEmpty() || statusTextEnd < health->geometry().left());
    QCOMPARE(health->geometry().right(), status()->geometry().right());
}

int main(int argc, char* argv[])
{
    return runWindowTest<TestMainWindow>(argc, argv);
}

#include "tst_mainwindow.moc"
