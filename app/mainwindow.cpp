#include "app/mainwindow.h"
#include "ui_mainwindow.h"

#include "app/captureplayback.h"
#include "app/capturerecording.h"
#include "app/capturesession.h"
#include "app/exportfiles.h"
#include "app/linerecording.h"
#include "app/shortcutresolver.h"
#include "app/sourcesession.h"
#include "app/statusrow.h"
#include "app/transportbar.h"
#include "app/viewarea.h"
#include "capture/captureports.h"
#include "dialogs/aboutdialog.h"
#include "dialogs/captureportdialog.h"
#include "dialogs/dlgpropertiesimpl.h"
#include "dialogs/dlgsettings.h"
#include "models/streamdatamodel.h"
#include "settings/settingskeys.h"
#include "stream/streamdatacontroller.h"
#include "views/basicview.h"
#include "views/cutview.h"
#include "views/threedview.h"

#include <QApplication>
#include <QClipboard>
#include <QCloseEvent>
#include <QDir>
#include <QDragEnterEvent>
#include <QDropEvent>
#include <QFileDialog>
#include <QFileInfo>
#include <QGuiApplication>
#include <QLabel>
#include <QMdiSubWindow>
#include <QMessageBox>
#include <QMimeData>
#include <QTimer>
#include <QUrl>
#include <QWindow>
#include <algorithm>

using vxlindral::BasicView;
using vxlindral::CapturePlayback;
using vxlindral::CaptureSession;
using vxlindral::SourceSession;
using vxlindral::StreamDataController;
using vxlindral::StreamDataModel;
using vxlindral::ThreeDView;

namespace {

constexpr int defaultLinePort = 6101;
constexpr int defaultStatusPort = 6102;
const char* const versionText = "11.0.2503";

} // namespace

MainWindow::MainWindow(QWidget* parent)
    : QMainWindow(parent, Qt::WindowFlags()), settings(), ui(new Ui_MainWindow)
{
    ui->setupUi(this);
    area = std::make_unique<vxlindral::ViewArea>(ui->mdiArea);
    exports = new vxlindral::ExportFiles(this, settings);
    lineRecording = new vxlindral::LineRecording(this);
    connect(lineRecording, &vxlindral::LineRecording::recorded, this,
            [this](int part) { ui->labelStatus->setText(tr("Recording %1").arg(part)); });
    ui->menuEdit->insertAction(ui->actionSaveImage, exports->keepNoEchoAction());
    // Keys the window shares with a view go to the view that has the focus.
    qApp->installEventFilter(new vxlindral::ShortcutResolver(this));

    connect(ui->actionExportLine, &QAction::triggered, this, &MainWindow::handleExport);
    connect(ui->actionExportLines, &QAction::triggered, this, &MainWindow::handleExportLines);
    connect(ui->actionExportCloud, &QAction::triggered, this, &MainWindow::handleExportCloud);
    connect(ui->actionSaveImage, &QAction::triggered, this, &MainWindow::handleSaveImage);
    connect(ui->actionCopyImage, &QAction::triggered, this, &MainWindow::handleCopyImage);
    connect(ui->actionRecordCapture, &QAction::triggered, this, &MainWindow::handleRecordCapture);
    connect(ui->actionOpenCapture, &QAction::triggered, this, &MainWindow::handleOpenCapture);
    connect(ui->actionCloseCapture, &QAction::triggered, this, &MainWindow::closeCapture);
    connect(ui->actionExportStretch, &QAction::triggered, this, &MainWindow::handleExportStretch);
    connect(ui->actionExportMeasurements, &QAction::triggered, this,
            &MainWindow::handleExportMeasurements);
    connect(ui->actionFreeze, &QAction::triggered, this, &MainWindow::handlePause);
    connect(ui->actionConnect, &QAction::triggered, this, &MainWindow::handleConnect);
    connect(ui->actionFilterDisplay, &QAction::triggered, this, &MainWindow::handleFilterDisplay);
    connect(ui->actionClose, &QAction::triggered, this, &MainWindow::handleClose);
    connect(ui->actionSettings, &QAction::triggered, this, &MainWindow::handleSettings);
    connect(ui->actionAbout, &QAction::triggered, this, &MainWindow::handleAbout);
    connect(ui->actionRealign, &QAction::triggered, this, &MainWindow::handleRealign);
    // The view buttons act on the current port (-1), not on the check state.
    connect(ui->actionNumeric, &QAction::triggered, this, [this] { toggleNumericView(); });
    connect(ui->actionCut, &QAction::triggered, this, [this] { toggleCutView(); });
    connect(ui->actionInfo, &QAction::triggered, this, [this] { toggleStaticView(); });
    connect(ui->action3D, &QAction::triggered, this, [this] { toggle3DView(); });
    connect(ui->actionGray, &QAction::triggered, this, [this] { toggleGrayView(); });
    // Activating a sub-window triggers nothing on purpose: freezing, filtering
    // and export look the view up when they run.
    connect(exports, &vxlindral::ExportFiles::stretchRunning, this, [this](bool running) {
        ui->actionExportStretch->setEnabled(!running && captureSession());
        ui->actionExportMeasurements->setEnabled(!running);
    });
    addStatusRow();
    setAcceptDrops(true);
    // The transport bar, shown while a capture is open.
    transport = new vxlindral::TransportBar(this);
    addToolBar(Qt::BottomToolBarArea, transport);
    transport->hide();

    // Always the fixed default ports; "Ports/Line" and "Ports/Status" are only
    // what the connection dialog offers.
    openStream(defaultLinePort, defaultStatusPort);
    // Where and how large the window was when it last closed (a first start
    // keeps the size the views gave it).
    const QByteArray geometry = SettingsKeys::windowGeometry.read(settings);
    if (!geometry.isEmpty())
        restoreGeometry(geometry);
}

MainWindow::~MainWindow()
{
    // The capture's receive thread ends before anything it feeds goes.
    if (CaptureSession* capture = captureSession())
        capture->playback()->stop();
    // The status row reads the sessions and the recording: it goes first.
    delete statusRow;
    // Quitting while recording keeps the file: the tap is cleared and
    // everything taken is written before the controllers go.
    delete captureRecording;
    ui->mdiArea->closeAllSubWindows();
    // The sessions release their controllers (closing their receivers)
    // before the models, and `settings` writes what is pending.
    sessions.clear();
    delete ui;
    ui = nullptr;
}

// ---- sources ------------------------------------------------------------------

void MainWindow::addStatusRow()
{
    // The open sources in ascending order; a stopped port is left out.
    const auto openSources = [this] {
        std::vector<vxlindral::StreamHealthLabel::Port> ports;
        for (const auto& entry : sessions) {
            vxlindral::StreamHealthLabel::Port port;
            if (!entry.second->health(port))
                continue;
            if (captureRecording->isRecording() && entry.first == captureRecording->port())
                port.recording = captureRecording->current()->status();
            ports.push_back(std::move(port));
        }
        return ports;
    };
    captureRecording = new vxlindral::CaptureRecording(this, ui->actionRecordCapture);
    statusRow = new vxlindral::StatusRow(openSources, ui->labelStatus, ui->centralwidget);
    // In the status label's own cell, at its right end: the form's layout
    // keeps its two items where they are, and no column is added that would
    // narrow the MDI area.
    ui->gridLayout->addWidget(statusRow, 1, 0, Qt::AlignRight | Qt::AlignVCenter);
    connect(statusRow, &vxlindral::StatusRow::cancelIndexRequested, this, [this] {
        if (CaptureSession* capture = captureSession())
            capture->playback()->cancelIndex();
    });
    connect(captureRecording, &vxlindral::CaptureRecording::textChanged, this,
            [this](const QString& text) {
                statusRow->setRecordingText(quitWhenFinished && !text.isEmpty()
                                                ? text + tr(", quitting when written")
                                                : text);
            });
    connect(captureRecording, &vxlindral::CaptureRecording::idle, this, [this] {
        if (quitWhenFinished)
            QTimer::singleShot(0, this, &MainWindow::close);
    });
}

SourceSession* MainWindow::session(int key) const
{
    auto it = sessions.find(key);
    return it == sessions.end() ? nullptr : it->second.get();
}

std::shared_ptr<StreamDataModel> MainWindow::dataModel(int port) const
{
    SourceSession* s = session(port);
    return s ? s->model() : nullptr;
}

std::shared_ptr<StreamDataController> MainWindow::controller(int port) const
{
    SourceSession* s = session(port);
    return s ? s->controller() : nullptr;
}

void MainWindow::openStream(int portLine, int portStatus)
{
    // Sessions of ports are never erased, so this allows at most three
    // distinct line ports per run; a stopped port's can be opened again.
    const auto ports = std::count_if(sessions.begin(), sessions.end(),
                                     [](const auto& e) { return e.first < firstCaptureKey; });
    if (ports > 2 || (session(portLine) && session(portLine)->model())) {
        QMessageBox::warning(nullptr, windowTitle(), tr("Socket already connected."),
                             QMessageBox::Ok);
        return;
    }
    auto& entry = sessions[portLine];
    entry = std::make_unique<SourceSession>(portLine, QString(), nullptr);
    openDefaultViews(portLine);
    // The session stays when the socket fails, so a second attempt on this
    // port is refused as already connected.
    if (!entry->openPort(portLine, portStatus)) {
        QMessageBox::warning(nullptr, windowTitle(), tr("Problem installing socket"),
                             QMessageBox::Ok);
    }

    area->maximiseCurrent();
    adjustSize();
}

void MainWindow::openDefaultViews(int key)
{
    // A new stream opens the 3D view and no cut view unless the settings say
    // otherwise (the settings dialog uses other defaults).
    using K = SettingsKeys;
    if (K::viewGray.read(settings))
        toggleGrayView(key);
    if (K::viewStatistic.read(settings))
        toggleStaticView(key);
    if (K::viewNumeric.read(settings))
        toggleNumericView(key);
    if (K::viewCutOnOpen.read(settings))
        toggleCutView(key);
    if (K::viewThreeDOnOpen.read(settings))
        toggle3DView(key);
    area->tile();
}

void MainWindow::handleConnect(bool)
{
    int portLine = 0;
    int portStatus = 0;
    if (DlgPropertiesImpl::askPorts(this, settings, portLine, portStatus))
        openStream(portLine, portStatus);
}

void MainWindow::handlePause(bool pause)
{
    BasicView* view = area->current();
    if (!view)
        return; // the action keeps the check state the click gave it
    // A capture can wait: freezing pauses it instead of discarding lines.
    if (SourceSession* s = session(view->getPort()))
        s->freeze(pause);
    ui->actionFreeze->setChecked(pause);
}

void MainWindow::handleStopStream()
{
    const int port = currentPort();
    SourceSession* s = session(port);
    if (!s)
        return;
    // The port's socket goes with its controller: so does its recording.
    if (captureRecording->isRecording() && captureRecording->port() == port)
        stopCapture();
    s->stopStream();
}

// The action's check state is neither read nor kept in step: each view has
// its own flag, and the button simply flips the flag of the active view.
void MainWindow::handleFilterDisplay()
{
    if (BasicView* view = area->current())
        view->setDisplayFiltered(!view->isFilteredDisplayed());
}

void MainWindow::handleSettings(bool)
{
    DlgSettings dialog(this, settings);
    if (dialog.exec() == QDialog::Accepted) {
        dialog.saveSettings(settings);
        emit configChanged();
    }
}

void MainWindow::handleAbout()
{
    AboutDialog::showAbout(QString::fromLatin1(versionText));
}

void MainWindow::handleRealign()
{
    ui->mdiArea->tileSubWindows();
}

void MainWindow::handleClose()
{
    close();
}

void MainWindow::closeEvent(QCloseEvent* event)
{
    stopCapture();
    if (captureRecording->isFinishing()) {
        // A recording's file is always complete: the window stays, says so in
        // the status line, and closes once the writer threads are done.
        quitWhenFinished = true;
        captureRecording->refresh();
        if (captureRecording->isFinishing()) {
            event->ignore();
            return;
        }
    }
    for (auto& entry : sessions) {
        if (const std::shared_ptr<StreamDataController> c = entry.second->controller())
            c->stopStream();
    }
    SettingsKeys::windowGeometry.write(settings, saveGeometry());
    QMainWindow::closeEvent(event);
}

// ---- views ---------------------------------------------------------------

int MainWindow::currentPort()
{
    // The first view in child order, which need not be the active one.
    if (BasicView* view = findChild<BasicView*>(QString(), Qt::FindChildrenRecursively))
        return view->getPort();
    return defaultLinePort;
}

int MainWindow::actionPort()
{
    if (BasicView* view = area->current(); view && view->getPort() >= firstCaptureKey)
        return view->getPort();
    return currentPort();
}

int MainWindow::resolvePort(int portLine)
{
    if (portLine > 0)
        return portLine;
    const int port = actionPort();
    if (port < 1)
        QMessageBox::warning(nullptr, windowTitle(),
                             tr("No current port. Connect stream or select an active window."),
                             QMessageBox::Ok);
    return port;
}

void MainWindow::toggleCutView(int portLine)
{
    toggleView(Cut, ui->actionCut, portLine);
}

void MainWindow::toggleNumericView(int portLine)
{
    toggleView(Numeric, ui->actionNumeric, portLine);
}

void MainWindow::toggleStaticView(int portLine)
{
    toggleView(Info, ui->actionInfo, portLine);
}

void MainWindow::toggle3DView(int portLine)
{
    toggleView(ThreeD, ui->action3D, portLine);
}

void MainWindow::toggleGrayView(int portLine)
{
    toggleView(Gray, ui->actionGray, portLine);
}

void MainWindow::toggleView(int kind, QAction* action, int portLine)
{
    const int port = resolvePort(portLine);
    if (port < 1)
        return;
    const QString name = viewNamePattern(kind).arg(port);
    if (BasicView* view = findChild<BasicView*>(name, Qt::FindChildrenRecursively)) {
        toggleVisibility(action, view);
        return;
    }
    SourceSession* s = session(port);
    BasicView* view = s ? s->createView(kind, this) : createView(kind, port, this);
    connect(this, &MainWindow::configChanged, view, &BasicView::handleConfigChanged);
    // The cut view's cursor readout and the 3D view's picked point go to the
    // status line.
    if (kind == Cut || kind == ThreeD)
        connect(view, &BasicView::updateStatusBar, ui->labelStatus, &QLabel::setText);
    if (auto* threeD = qobject_cast<ThreeDView*>(view))
        connect(threeD, &ThreeDView::exportCloudRequested, this,
                [this, threeD] { exports->exportCloud(threeD); });
    addView(action, view);
}

void MainWindow::addView(QAction*, BasicView* view)
{
    area->add(view);
    // Queued: the closing view is gone by the time the rest is tiled again.
    connect(view, &BasicView::closed, this, &MainWindow::handleRealign, Qt::QueuedConnection);
}

void MainWindow::toggleVisibility(QAction*, BasicView* view)
{
    area->toggle(view);
}

// ---- exports --------------------------------------------------------------------

void MainWindow::handleExport()
{
    // Taken now: the exported line is the one current when the command was
    // given, not when the file was chosen.
    SourceSession* s = session(actionPort());
    exports->exportLine(s ? s->lineText() : QString());
}

void MainWindow::handleExportLines()
{
    if (!ui->actionExportLines->isChecked()) {
        stopRecording();
        return;
    }
    // A capture's lines are recorded until the recording or the capture ends;
    // a live port's, as every tick finds the current port.
    const int port = actionPort();
    const int source = port >= firstCaptureKey ? port : 0;
    lineRecording->ask(this, ui->actionExportLines, settings,
                       exports->startPath(SettingsKeys::pathRecording, QStringLiteral("lines.txt")),
                       source, [this, source] {
                           SourceSession* s = session(source ? source : currentPort());
                           return s ? s->lineText() : QString();
                       });
}

void MainWindow::stopRecording()
{
    lineRecording->stop();
    ui->labelStatus->setText(QString());
}

void MainWindow::handleExportCloud()
{
    BasicView* view =
        area->recent([](BasicView* v) { return qobject_cast<ThreeDView*>(v) != nullptr; }, false,
                     firstCaptureKey);
    if (!view) {
        QMessageBox::warning(this, tr("Export failed"), tr("No 3D view is open."), QMessageBox::Ok);
        return;
    }
    exports->exportCloud(static_cast<ThreeDView*>(view));
}

void MainWindow::handleExportStretch()
{
    if (CapturePlayback* playback = capturePlayback())
        exports->exportStretch(*playback);
}

void MainWindow::handleExportMeasurements()
{
    // The source of the active view; else the capture, else the current port.
    BasicView* active = area->current();
    SourceSession* source = active ? session(active->getPort()) : nullptr;
    if (!source)
        source = captureSession() ? captureSession() : session(currentPort());
    if (!source)
        return;
    const bool capture = source == captureSession();
    // The region of the source's cut view: the active one, else any.
    double y0 = 0.0;
    double y1 = 0.0;
    const auto hasRegion = [&](BasicView* view) {
        auto* cut = qobject_cast<vxlindral::CutView*>(view);
        return cut && cut->measureRegion(y0, y1);
    };
    const QList<BasicView*> views = source->views();
    bool found = views.contains(active) && hasRegion(active);
    for (BasicView* view : views)
        found = found || hasRegion(view);
    if (!found) {
        QMessageBox::warning(
            this, tr("Export failed"),
            capture
                ? tr("Mark a region in a cut view of the capture first (Measure).")
                : tr("Mark a region in a cut view of port %1 first (Measure).").arg(source->key()),
            QMessageBox::Ok);
        return;
    }
    if (capture) {
        exports->exportMeasurements(*capturePlayback(), y0, y1);
        return;
    }
    // Taken now: the lines held when the command was given, not those held
    // once the file is chosen. A stopped port holds none.
    const std::vector<vxlindral::LineType> lines =
        source->model() ? source->model()->heldLines() : std::vector<vxlindral::LineType>();
    if (lines.empty()) {
        QMessageBox::warning(this, tr("Export failed"),
                             tr("Port %1 holds no line yet.").arg(source->key()), QMessageBox::Ok);
        return;
    }
    exports->exportMeasurements(lines, y0, y1);
}

void MainWindow::handleSaveImage()
{
    if (BasicView* view = area->recent([](BasicView*) { return true; }, true, firstCaptureKey))
        exports->saveImage(view->picture()); // taken now, like an exported line
    else
        QMessageBox::warning(this, tr("Export failed"), tr("No view is open."), QMessageBox::Ok);
}

void MainWindow::handleCopyImage()
{
    if (BasicView* view = area->recent([](BasicView*) { return true; }, true, firstCaptureKey))
        QGuiApplication::clipboard()->setImage(view->picture());
}

// ---- capture recording ------------------------------------------------------------

void MainWindow::handleRecordCapture(bool checked)
{
    if (!checked) {
        stopCapture();
        return;
    }
    // The active view's port, as Freeze takes it; without one, the port the
    // other commands use.
    BasicView* view = area->current();
    const int port = view ? view->getPort() : currentPort();
    captureRecording->ask(controller(port), port, settings);
}

bool MainWindow::startCapture(int port, const QString& path)
{
    return captureRecording->start(controller(port), port, path);
}

// ---- capture playback ---------------------------------------------------------------

void MainWindow::handleOpenCapture()
{
    QString folder = SettingsKeys::pathCapture.read(settings);
    if (folder.isEmpty())
        folder = QDir::homePath();
    const QString fileName = QFileDialog::getOpenFileName(
        this, tr("Open capture"), folder, tr("Captures (*.pcapng *.pcap *.cap);;All files (*)"),
        nullptr, QFileDialog::Options());
    if (fileName.isEmpty())
        return;
    SettingsKeys::pathCapture.write(settings, QFileInfo(fileName).absolutePath());
    openCapture(fileName);
}

bool MainWindow::openCapture(const QString& path, int port)
{
    const QString name = QFileInfo(path).fileName();
    QString refusal;
    port = CapturePortDialog::choose(this, path, port, refusal);
    if (port <= 0) {
        if (port < 0) // else the user cancelled the choice
            QMessageBox::warning(this, windowTitle(), refusal, QMessageBox::Ok);
        return false;
    }
    closeCapture();
    captureKey = nextCaptureKey++;
    auto capture = std::make_unique<CaptureSession>(captureKey, path, static_cast<uint16_t>(port),
                                                    name, nullptr);
    CaptureSession* session = capture.get();
    sessions[captureKey] = std::move(capture);
    session->showOn(transport, statusRow);
    CapturePlayback* playback = session->playback();
    connect(playback, &CapturePlayback::playingChanged, this, [this](bool playing) {
        if (BasicView* view = area->current(); view && view->getPort() == captureKey)
            ui->actionFreeze->setChecked(!playing);
    });
    connect(session, &CaptureSession::stoppedEarly, this, [this](const QString& text, bool fatal) {
        if (fatal)
            QMessageBox::warning(this, windowTitle(), text, QMessageBox::Ok);
        else
            ui->labelStatus->setText(text);
    });
    // Closing the capture's last view ends the capture.
    connect(session, &SourceSession::lastViewClosed, this, &MainWindow::closeCapture);

    openDefaultViews(captureKey);
    session->playWhenShown(this);
    QString error;
    if (!session->start(error)) {
        closeCapture();
        QMessageBox::warning(this, windowTitle(), tr("Could not play %1: %2").arg(name, error),
                             QMessageBox::Ok);
        return false;
    }
    transport->reset();
    transport->setPlaying(playback->isPlaying());
    transport->show();
    ui->actionCloseCapture->setEnabled(true);
    ui->actionExportStretch->setEnabled(!exports->running());
    ui->actionExportMeasurements->setEnabled(!exports->running());
    ui->labelStatus->clear();
    session->refreshPlace();
    return true;
}

void MainWindow::closeCapture()
{
    if (!captureSession())
        return;
    const int key = captureKey;
    if (lineRecording->isRunning() && lineRecording->source() == key) {
        stopRecording();
        ui->actionExportLines->setChecked(false);
    }
    captureKey = 0;
    // The playback stops, then the views go, before the model and controller.
    sessions.erase(key);
    if (ui) {
        transport->hide();
        statusRow->showIndex(false, 0.0);
        ui->actionCloseCapture->setEnabled(false);
        ui->actionExportStretch->setEnabled(false);
        ui->actionExportMeasurements->setEnabled(!exports->running());
        statusRow->reserveRoom();
        statusRow->health()->refresh();
        area->tile();
    }
}

void MainWindow::dragEnterEvent(QDragEnterEvent* event)
{
    const QList<QUrl> urls = event->mimeData()->urls();
    if (urls.size() == 1 && urls.front().isLocalFile())
        event->acceptProposedAction();
}

void MainWindow::dropEvent(QDropEvent* event)
{
    const QList<QUrl> urls = event->mimeData()->urls();
    if (urls.size() != 1 || !urls.front().isLocalFile())
        return;
    event->acceptProposedAction();
    const QString path = urls.front().toLocalFile();
    // Opened once the drop has ended: the port dialog or a warning box must
    // not run inside the drag and drop's own loop.
    QTimer::singleShot(0, this, [this, path] { openCapture(path); });
}
