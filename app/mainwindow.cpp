#include "app/mainwindow.h"
#include "ui_mainwindow.h"

#include "app/captureplayback.h"
#include "app/shortcutresolver.h"
#include "app/streamhealthlabel.h"
#include "app/stretchexport.h"
#include "app/transportbar.h"
#include "capture/captureports.h"
#include "capture/capturerecorder.h"
#include "dialogs/aboutdialog.h"
#include "dialogs/captureportdialog.h"
#include "dialogs/dlgpropertiesimpl.h"
#include "dialogs/dlgsettings.h"
#include "export/cloudwriter.h"
#include "models/streamaveragedatamodel.h"
#include "models/streamdatamodel.h"
#include "models/streamdiffaveragedatamodel.h"
#include "models/streamheaderdatamodel.h"
#include "settings/settingskeys.h"
#include "stream/streamdatacontroller.h"
#include "views/basicview.h"
#include "views/cutview.h"
#include "views/flatview.h"
#include "views/myopenglwidget.h"
#include "views/numericview.h"
#include "views/statisticview.h"
#include "views/threedview.h"

#include <QApplication>
#include <QClipboard>
#include <QCloseEvent>
#include <QCoreApplication>
#include <QDir>
#include <QDragEnterEvent>
#include <QDropEvent>
#include <QFile>
#include <QFileDialog>
#include <QFileInfo>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QInputDialog>
#include <QLabel>
#include <QMdiSubWindow>
#include <QMessageBox>
#include <QMimeData>
#include <QProgressBar>
#include <QProgressDialog>
#include <QSaveFile>
#include <QTextStream>
#include <QTimer>
#include <QToolButton>
#include <QUrl>
#include <QWindow>
#include <algorithm>
#include <chrono>
#include <stdexcept>
#include <vector>

using vxlindral::BasicView;
using vxlindral::LineType;
using vxlindral::StreamDataController;
using vxlindral::StreamDataModel;
using vxlindral::ThreeDView;

namespace {

// Object names by view kind. The info view is named "_cut", the cut view
// "_3d" and the 3D view "_info": the names are only ever formed through this
// table, so the pairing is consistent, and it is what `closed` reports.
const char* const viewNames[] = {"%1_cut", "%1_num", "%1_3d", "%1_gray", "%1_info"};

constexpr int defaultLinePort = 6101;
constexpr int defaultStatusPort = 6102;
const char* const versionText = "11.0.2503";

} // namespace

MainWindow::MainWindow(QWidget* parent)
    : QMainWindow(parent, Qt::WindowFlags()), settings(), ui(new Ui_MainWindow)
{
    ui->setupUi(this);
    installEventFilter(this);
    // Whether cloud exports keep the points without echo; remembered.
    keepNoEchoAction = new QAction(tr("Export points without echo"), this);
    keepNoEchoAction->setObjectName(QStringLiteral("actionKeepNoEcho"));
    keepNoEchoAction->setToolTip(
        tr("Cloud exports also write the pixels that measured nothing (range 0), at the "
           "scanner's position."));
    keepNoEchoAction->setCheckable(true);
    keepNoEchoAction->setChecked(SettingsKeys::keepNoEcho.read(settings));
    ui->menuEdit->insertAction(ui->actionSaveImage, keepNoEchoAction);
    connect(keepNoEchoAction, &QAction::toggled, this,
            [this](bool on) { SettingsKeys::keepNoEcho.write(settings, on); });
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
    addStreamHealth();
    setAcceptDrops(true);

    // The transport bar, shown while a capture is open.
    using vxlindral::TransportBar;
    transport = new TransportBar(this);
    addToolBar(Qt::BottomToolBarArea, transport);
    transport->hide();
    // Each request of the bar goes to the open capture's playback.
    using vxlindral::CapturePlayback;
    const auto steer = [this](auto signal, auto slot) {
        connect(transport, signal, this, [this, slot](auto... args) {
            if (playback)
                (playback.get()->*slot)(args...);
        });
    };
    steer(&TransportBar::playRequested, &CapturePlayback::setPlaying);
    steer(&TransportBar::stepRequested, &CapturePlayback::step);
    steer(&TransportBar::toStartRequested, &CapturePlayback::toStart);
    steer(&TransportBar::toEndRequested, &CapturePlayback::toEnd);
    steer(&TransportBar::speedChanged, &CapturePlayback::setSpeed);
    steer(&TransportBar::loopChanged, &CapturePlayback::setLoop);
    steer(&TransportBar::seekRequested, &CapturePlayback::seekTime);
    steer(&TransportBar::markStartRequested, &CapturePlayback::markStart);
    steer(&TransportBar::markEndRequested, &CapturePlayback::markEnd);

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
    // The playback's receive thread ends before anything it feeds goes.
    if (playback)
        playback->stop();
    // Quitting while recording keeps the file: the tap is cleared and
    // everything taken is written before the controllers go.
    stopCapture(false);
    for (Finishing& f : finishing)
        f.warn = false;
    finishCaptures(true);
    // The label reads the controllers: it goes before they do.
    delete health;
    health = nullptr;
    recordingStopped = true;
    ui->labelStatus->setText(QString());
    delete recordTimer;
    recordTimer = nullptr;
    ui->mdiArea->closeAllSubWindows();
    delete ui;
    ui = nullptr;
    // The maps then release the controllers (closing their receivers) before
    // the models, and `settings` writes what is pending.
}

// ---- streams -------------------------------------------------------------

void MainWindow::addStreamHealth()
{
    using vxlindral::StreamHealthLabel;
    // The open ports in ascending order, read without adding map entries; a
    // stopped port (null controller) is left out.
    const auto openPorts = [this] {
        std::vector<StreamHealthLabel::Port> ports;
        for (const auto& entry : controllers) {
            if (const std::shared_ptr<StreamDataController>& c = entry.second) {
                ports.push_back({entry.first, c->handoverCounters(), c->counters(), {}, {}, {}});
                if (capture && entry.first == capturingPort)
                    ports.back().recording = capture->status();
                if (playback && entry.first == captureKey) {
                    ports.back().place = shownPlace.isEmpty()
                                             ? playback->placeText(playback->place())
                                             : shownPlace;
                    ports.back().name = captureName;
                }
            }
        }
        return ports;
    };
    // The capture being recorded, then the health of the ports, side by side.
    statusRight = new QWidget(ui->centralwidget);
    auto* row = new QHBoxLayout(statusRight);
    row->setContentsMargins(0, 0, 0, 0);
    row->setSpacing(3 * statusRight->fontMetrics().horizontalAdvance(QLatin1Char(' ')));
    labelCapture = new QLabel(statusRight);
    labelCapture->setObjectName(QStringLiteral("labelCapture"));
    labelCapture->setTextFormat(Qt::PlainText);
    labelCapture->hide();
    // The capture's index while it is built: how far, and Cancel.
    indexBox = new QWidget(statusRight);
    auto* indexRow = new QHBoxLayout(indexBox);
    indexRow->setContentsMargins(0, 0, 0, 0);
    indexProgress = new QProgressBar(indexBox);
    indexProgress->setObjectName(QStringLiteral("indexProgress"));
    indexProgress->setRange(0, 100);
    indexProgress->setFormat(tr("Indexing %p%"));
    indexProgress->setMaximumWidth(20 *
                                   statusRight->fontMetrics().horizontalAdvance(QLatin1Char('0')));
    auto* cancelIndex = new QToolButton(indexBox);
    cancelIndex->setObjectName(QStringLiteral("cancelIndex"));
    cancelIndex->setText(tr("Cancel"));
    cancelIndex->setToolTip(
        tr("Stop indexing the capture; the lines found so far stay reachable."));
    connect(cancelIndex, &QToolButton::clicked, this, [this] {
        if (playback)
            playback->cancelIndex();
    });
    indexRow->addWidget(indexProgress);
    indexRow->addWidget(cancelIndex);
    indexBox->hide();
    row->addWidget(indexBox);
    health = new StreamHealthLabel(openPorts, statusRight);
    health->setObjectName(QStringLiteral("labelStreamHealth"));
    row->addWidget(labelCapture);
    row->addWidget(health);
    // In the status label's own cell, at its right end: the form's layout
    // keeps its two items where they are, and no column is added that would
    // narrow the MDI area.
    ui->gridLayout->addWidget(statusRight, 1, 0, Qt::AlignRight | Qt::AlignVCenter);
    // The status label's own text (cursor readout, recording) keeps clear of it.
    connect(health, &StreamHealthLabel::textUpdated, this, &MainWindow::reserveStatusRoom);

    captureTimer = new QTimer(this);
    captureTimer->setInterval(StreamHealthLabel::refreshMs);
    connect(captureTimer, &QTimer::timeout, this, &MainWindow::refreshCapture);
}

void MainWindow::reserveStatusRoom()
{
    const bool empty = health->text().isEmpty() && labelCapture->isHidden() && indexBox->isHidden();
    const int reserve =
        empty ? 0
              : statusRight->sizeHint().width() +
                    3 * statusRight->fontMetrics().horizontalAdvance(QLatin1Char(' '));
    QMargins margins = ui->labelStatus->contentsMargins();
    if (margins.right() != reserve) {
        margins.setRight(reserve);
        ui->labelStatus->setContentsMargins(margins);
    }
}

void MainWindow::openStream(int portLine, int portStatus)
{
    // Entries are never erased (and look-ups add empty ones), so this allows at
    // most three distinct line ports per run.
    if (linePortEntries() > 2) {
        QMessageBox::warning(nullptr, windowTitle(), tr("Socket already connected."),
                             QMessageBox::Ok);
        return;
    }
    std::shared_ptr<StreamDataModel>& model = dataModels[portLine];
    if (model) {
        QMessageBox::warning(nullptr, windowTitle(), tr("Socket already connected."),
                             QMessageBox::Ok);
        return;
    }
    model = std::make_shared<StreamDataModel>();
    std::shared_ptr<StreamDataController>& controller = controllers[portLine];
    controller = std::make_shared<StreamDataController>(model);

    openDefaultViews(portLine);

    // The model and controller stay in the maps when the socket fails, so a
    // second attempt on this port is refused as already connected.
    if (!controller->startStream(portLine, portStatus)) {
        QMessageBox::warning(nullptr, windowTitle(), tr("Problem installing socket"),
                             QMessageBox::Ok);
    }

    // Before the window is first shown no sub-window has been activated yet;
    // the latest one added then counts as the current one.
    QMdiSubWindow* current = ui->mdiArea->currentSubWindow();
    const QList<QMdiSubWindow*> windows =
        ui->mdiArea->subWindowList(QMdiArea::ActivationHistoryOrder);
    if (!current && !windows.isEmpty())
        current = windows.last();
    if (current)
        current->showMaximized();
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
    tileViews();
}

int MainWindow::linePortEntries() const
{
    return static_cast<int>(std::count_if(dataModels.begin(), dataModels.end(),
                                          [](const auto& e) { return e.first < firstCaptureKey; }));
}

void MainWindow::handleConnect(bool)
{
    DlgPropertiesImpl dialog(this);
    dialog.lineEditPortLine->setText(QString("%1").arg(SettingsKeys::portLine.read(settings)));
    dialog.lineEditPortStatus->setText(QString("%1").arg(SettingsKeys::portStatus.read(settings)));
    if (dialog.exec() != QDialog::Accepted)
        return;

    // Decimal, unchecked: text that does not parse becomes port 0.
    const uint portLine = dialog.lineEditPortLine->text().toUInt(nullptr, 10);
    const uint portStatus = dialog.lineEditPortStatus->text().toUInt(nullptr, 10);
    SettingsKeys::portLine.write(settings, portLine);
    SettingsKeys::portStatus.write(settings, portStatus);
    openStream(static_cast<int>(portLine), static_cast<int>(portStatus));
}

void MainWindow::handlePause(bool pause)
{
    BasicView* view = currentView();
    if (!view)
        return; // the action keeps the check state the click gave it
    if (playback && view->getPort() == captureKey) {
        // A capture can wait: freezing pauses it instead of discarding lines.
        playback->setPlaying(!pause);
        ui->actionFreeze->setChecked(pause);
        return;
    }
    if (const std::shared_ptr<StreamDataController>& controller = controllers[view->getPort()])
        controller->pauseStream(pause);
    ui->actionFreeze->setChecked(pause);
}

void MainWindow::handleStopStream()
{
    const int port = currentPort();
    if (port == 0)
        return;
    std::shared_ptr<StreamDataController>& controller = controllers[port];
    // The port's socket goes with its controller: so does its recording.
    if (capture && capturingPort == port)
        stopCapture();
    if (controller)
        controller->stopStream();
    controller.reset();
    dataModels[port].reset();
}

// The action's check state is neither read nor kept in step: each view has
// its own flag, and the button simply flips the flag of the active view.
void MainWindow::handleFilterDisplay()
{
    if (BasicView* view = currentView())
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
    AboutDialog* dialog = new AboutDialog();
    dialog->setupUi(dialog);
    dialog->adjustSize();
    AboutDialog::shown = dialog;
    dialog->copyrightLabel->setText(tr("Copyright (C) 2026 the Vx Lindral developers"));
    dialog->applicationName->setText(tr("Vx Lindral %1").arg(versionText));
    connect(dialog->ok, &QPushButton::clicked, dialog, &AboutDialog::closeDialog);
    dialog->setWindowTitle(tr("About "));
    dialog->exec();
    AboutDialog::shown = nullptr;
    delete dialog;
}

void MainWindow::handleRealign()
{
    ui->mdiArea->tileSubWindows();
}

// A hidden MDI area keeps tiling requests and runs them when it is first
// shown, which would undo the maximised view that a stream opened at start-up
// shows. Before the window is shown there is nothing to tile yet.
void MainWindow::tileViews()
{
    if (ui->mdiArea->isVisible())
        ui->mdiArea->tileSubWindows();
}

void MainWindow::handleClose()
{
    close();
}

void MainWindow::closeEvent(QCloseEvent* event)
{
    stopCapture();
    if (!finishing.empty()) {
        // A recording's file is always complete: the window stays, says so in
        // the status line, and closes once the writer threads are done.
        quitWhenFinished = true;
        refreshCapture();
        if (!finishing.empty()) {
            event->ignore();
            return;
        }
    }
    for (auto& entry : controllers) {
        if (entry.second)
            entry.second->stopStream();
    }
    SettingsKeys::windowGeometry.write(settings, saveGeometry());
    QMainWindow::closeEvent(event);
}

bool MainWindow::eventFilter(QObject* watched, QEvent* event)
{
    if (playWhenShown && event->type() == QEvent::Expose && watched == windowHandle() &&
        windowHandle()->isExposed()) {
        // Once the window's first layout is done (the views' last resize),
        // the capture plays from its first line.
        playWhenShown = false;
        QTimer::singleShot(0, this, [this] {
            if (playback && !playback->isPlaying())
                playback->setPlaying(true);
        });
    }
    return QObject::eventFilter(watched, event);
}

void MainWindow::showEvent(QShowEvent* event)
{
    QMainWindow::showEvent(event);
    if (playWhenShown && windowHandle())
        windowHandle()->installEventFilter(this);
}

std::shared_ptr<StreamDataModel> MainWindow::dataModel(int port) const
{
    auto it = dataModels.find(port);
    return it == dataModels.end() ? nullptr : it->second;
}

std::shared_ptr<StreamDataController> MainWindow::controller(int port) const
{
    auto it = controllers.find(port);
    return it == controllers.end() ? nullptr : it->second;
}

BasicView* MainWindow::currentView() const
{
    return qobject_cast<BasicView*>(ui->mdiArea->currentSubWindow());
}

// ---- views ---------------------------------------------------------------

QString MainWindow::viewNamePattern(int kind)
{
    if (kind < Info || kind > ThreeD)
        throw std::invalid_argument("view is out of range");
    return QString::fromLatin1(viewNames[kind]);
}

BasicView* MainWindow::createView(int kind, int port, MainWindow* parent)
{
    BasicView* view = nullptr;
    switch (kind) {
    case Info:
        view = new vxlindral::StatisticView(parent);
        break;
    case Cut:
        view = new vxlindral::CutView(parent);
        break;
    case Gray:
        view = new vxlindral::FlatView(parent);
        break;
    case ThreeD:
        view = new vxlindral::ThreeDView(parent);
        break;
    case Numeric:
    default:
        // An unknown kind still gets a numeric view built (it stays a child
        // of the parent) before the error is reported.
        view = new vxlindral::NumericView(parent);
        break;
    }
    if (kind < Info || kind > ThreeD)
        throw std::invalid_argument("view is out of range");
    view->setPort(port);
    view->setObjectName(viewNamePattern(kind).arg(port));
    return view;
}

int MainWindow::currentPort()
{
    // The first view in child order, which need not be the active one.
    if (BasicView* view = findChild<BasicView*>(QString(), Qt::FindChildrenRecursively))
        return view->getPort();
    return defaultLinePort;
}

int MainWindow::actionPort()
{
    if (BasicView* view = currentView(); view && view->getPort() >= firstCaptureKey)
        return view->getPort();
    return currentPort();
}

int MainWindow::resolvePort(int portLine)
{
    if (portLine > 0)
        return portLine;
    if (BasicView* view = currentView(); view && view->getPort() >= firstCaptureKey)
        return view->getPort();
    BasicView* view = findChild<BasicView*>(QString(), Qt::FindChildrenRecursively);
    if (!view)
        return defaultLinePort;
    const int port = view->getPort();
    if (port > 0)
        return port;
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
    BasicView* view = createView(kind, port, this);
    if (playback && port == captureKey) {
        view->setSourceName(captureName);
        // Closing the capture's last view ends the capture.
        connect(view, &BasicView::closed, view, [view] { view->setProperty("closing", true); });
        connect(
            view, &BasicView::closed, this,
            [this, view, port] {
                if (port != captureKey)
                    return;
                for (BasicView* other : viewsOf(port)) {
                    if (other != view && !other->property("closing").toBool())
                        return;
                }
                closeCapture();
            },
            Qt::QueuedConnection);
    }
    connect(this, &MainWindow::configChanged, view, &BasicView::handleConfigChanged);
    connectView(kind, view, port);
    addView(action, view);
}

void MainWindow::connectView(int kind, BasicView* view, int port)
{
    using namespace vxlindral;
    // Insert-if-missing, like every look-up of the maps. Without a model (the
    // port was stopped or never opened) the view is built but gets no lines.
    StreamDataModel* model = dataModels[port].get();
    const auto queued = Qt::QueuedConnection;

    // The cut view's cursor readout and the 3D view's picked point go to the
    // status line.
    if (kind == Cut || kind == ThreeD)
        connect(view, &BasicView::updateStatusBar, this,
                [this](const QString& message) { ui->labelStatus->setText(message); });
    switch (kind) {
    case Numeric:
        connectNumericView(static_cast<NumericView*>(view), model);
        break;
    case Cut:
        if (model)
            connect(model, &StreamDataModel::newLine, view, &BasicView::updateNewLine, queued);
        break;
    case Info:
        // Error texts take the place of the statistics; no lines.
        if (model) {
            connect(model, &StreamDataModel::notifyStatistic, view, &BasicView::updateStatistic,
                    queued);
            connect(model, &StreamDataModel::notifyError, view, &BasicView::updateStatistic,
                    queued);
        }
        break;
    case ThreeD: {
        auto* threeD = static_cast<ThreeDView*>(view);
        connect(threeD, &ThreeDView::exportCloudRequested, this,
                [this, threeD] { exportCloud(threeD); });
        if (model)
            connect(model, &StreamDataModel::newLine, view, &BasicView::updateNewLine, queued);
        break;
    }
    case Gray:
        if (model)
            connect(model, &StreamDataModel::newLine, view, &BasicView::updateNewLine, queued);
        break;
    default:
        break;
    }
}

void MainWindow::connectNumericView(vxlindral::NumericView* numeric,
                                    vxlindral::StreamDataModel* model)
{
    using namespace vxlindral;
    const auto queued = Qt::QueuedConnection;

    if (model)
        numeric->setDataModel(model);

    auto* average = new StreamAverageDataModel(numeric);
    if (model)
        connect(model, &StreamDataModel::newLine, average, &StreamAverageDataModel::updateNewLine,
                queued);
    connect(numeric, &NumericView::changeDisplayMode, average, &StreamDataModel::setDisplayMode);
    numeric->setAverageModel(average);

    auto* bigAverage = new StreamDiffAverageDataModel(numeric);
    if (model)
        connect(model, &StreamDataModel::newLine, bigAverage,
                &StreamDiffAverageDataModel::updateNewLine, queued);
    connect(numeric, &NumericView::changeDisplayMode, bigAverage, &StreamDataModel::setDisplayMode);
    // Every toggle, on or off, takes the current line as the new reference.
    connect(numeric, &NumericView::changeDifferenceMode, bigAverage,
            &StreamDiffAverageDataModel::setDiff);
    numeric->setBigAverageModel(bigAverage);

    auto* header = new StreamHeaderDataModel(numeric);
    if (model)
        connect(model, &StreamDataModel::newLine, header, &StreamHeaderDataModel::updateNewLine,
                queued);
    connect(numeric, &NumericView::changeHeaderMode, header,
            &StreamHeaderDataModel::setExpandHeader);
    numeric->setHeaderModel(header);
    header->setExpandHeader(false);

    if (model) {
        // The port's model outlives an earlier numeric view, which may have
        // left it in hexadecimal or difference mode; a new view starts in
        // decimal without difference, and the table must show that.
        model->setDisplayMode(StreamDataModel::DISPLAY_DEC);
        model->setDifferenceMode(false);
        connect(numeric, &NumericView::changeDisplayMode, model, &StreamDataModel::setDisplayMode);
        connect(numeric, &NumericView::changeDifferenceMode, model,
                &StreamDataModel::setDifferenceMode);
        connect(model, &StreamDataModel::newLine, numeric, &NumericView::updateNewLine, queued);
    }
}

void MainWindow::addView(QAction*, BasicView* view)
{
    QMdiSubWindow* current = ui->mdiArea->currentSubWindow();
    const bool maximised = current && current->isMaximized();
    ui->mdiArea->addSubWindow(view, Qt::WindowFlags());
    view->setVisible(true);
    if (maximised)
        view->setWindowState(Qt::WindowMaximized);
    else
        tileViews();
    // Queued: the closing view is gone by the time the rest is tiled again.
    connect(view, &BasicView::closed, this, &MainWindow::handleRealign, Qt::QueuedConnection);
}

void MainWindow::toggleVisibility(QAction*, BasicView* view)
{
    QMdiSubWindow* current = ui->mdiArea->currentSubWindow();
    if (current && current->isMaximized()) {
        // Bring a hidden view back in front, in the maximised layout.
        view->setVisible(true);
        view->setWindowState(Qt::WindowMaximized);
        return;
    }
    view->setVisible(!view->isVisible());
    tileViews();
}

// ---- export and recording -------------------------------------------------

QString MainWindow::lineText(int port)
{
    const std::shared_ptr<StreamDataModel>& model = dataModels[port];
    return model ? model->currentLineText() : QString();
}

void MainWindow::handleExport()
{
    const int port = actionPort();
    if (port == 0)
        return;
    // Taken now: the exported line is the one current when the command was
    // given, not when the file was chosen.
    const QString text = lineText(port);

    const QString fileName = QFileDialog::getSaveFileName(
        this, tr("Save line to file"),
        exportStart(SettingsKeys::pathLast, QStringLiteral("line.txt")), QString(), nullptr,
        QFileDialog::Options());
    if (fileName.isEmpty())
        return;
    writeExport(fileName, tr("Could not open file for writing"),
                [&text](QIODevice& file, QString& reason) {
                    QTextStream out(&file);
                    out << text;
                    out.flush();
                    if (out.status() == QTextStream::Ok)
                        return true;
                    reason = file.errorString();
                    return false;
                });
}

void MainWindow::handleExportLines()
{
    if (!ui->actionExportLines->isChecked()) {
        stopRecording();
        return;
    }
    const int port = actionPort();
    if (port == 0)
        return;
    lineText(port); // read like an export; the recording ticks take their own

    // Cancelling the file dialog leaves the action checked: the next trigger
    // unchecks it and only clears the status line.
    const QString fileName = QFileDialog::getSaveFileName(
        this, tr("Save lines to file (startfile)"),
        exportStart(SettingsKeys::pathRecording, QStringLiteral("lines.txt")), QString(), nullptr,
        QFileDialog::Options());
    if (fileName.isEmpty())
        return;
    bool ok = false;
    const int interval = QInputDialog::getInt(this, tr("Recording"), tr("Time between lines [ms]"),
                                              200, 0, 60000, 1, &ok);
    if (!ok) {
        ui->actionExportLines->setChecked(false);
        return;
    }
    SettingsKeys::pathRecording.write(settings, QFileInfo(fileName).absoluteFilePath());

    recordingStopped = false;
    // A capture's lines are recorded until the recording or the capture ends;
    // a live port's, as every tick finds the current port.
    recordSource = port >= firstCaptureKey ? port : 0;
    recordPart = 1;
    recordFileName = fileName;
    recordInterval = interval;

    delete recordTimer; // only reachable through the meta-object system
    recordTimer = new QTimer(this);
    connect(recordTimer, &QTimer::timeout, this, &MainWindow::recording);
    recordTimer->start(recordInterval);
}

void MainWindow::recording()
{
    if (recordingStopped)
        return;
    const int port = recordSource ? recordSource : currentPort();
    if (port == 0)
        return;
    const QString text = lineText(port);
    ui->labelStatus->setText(tr("Recording %1").arg(recordPart));

    // One file per tick, whatever line is current; a file that cannot be
    // opened is skipped and its number used up.
    QFile file(recordFileName + QString("-part%1.cvs").arg(recordPart));
    if (file.open(QIODevice::WriteOnly)) {
        QTextStream out(&file);
        out << text;
        out.flush();
        file.close();
    }
    ++recordPart;
    if (recordTimer)
        recordTimer->start(recordInterval);
}

void MainWindow::stopRecording()
{
    recordingStopped = true;
    ui->labelStatus->setText(QString());
    delete recordTimer;
    recordTimer = nullptr;
}

// ---- clouds and images ------------------------------------------------------

namespace {

// The file types of the cloud export; the extension decides the format, the
// filter only whether PLY and PCD are written as text.
const char* const cloudFilters[] = {QT_TRANSLATE_NOOP("MainWindow", "PLY binary (*.ply)"),
                                    QT_TRANSLATE_NOOP("MainWindow", "PLY text (*.ply)"),
                                    QT_TRANSLATE_NOOP("MainWindow", "PCD binary (*.pcd)"),
                                    QT_TRANSLATE_NOOP("MainWindow", "PCD text (*.pcd)"),
                                    QT_TRANSLATE_NOOP("MainWindow", "CSV (*.csv)")};

// The extension of a filter such as "PLY text (*.ply)": "ply".
QString filterSuffix(const QString& filter)
{
    const int dot = filter.lastIndexOf(QLatin1String("*."));
    return dot < 0 ? QString() : filter.mid(dot + 2).chopped(1);
}

} // namespace

BasicView* MainWindow::recentView(const std::function<bool(BasicView*)>& accept, bool visible) const
{
    // While a capture's view is active, only that capture's views count.
    const BasicView* active = currentView();
    const int capture = active && active->getPort() >= firstCaptureKey ? active->getPort() : 0;
    const auto fits = [&](QMdiSubWindow* w) {
        auto* view = qobject_cast<BasicView*>(w);
        return view && (!visible || view->isVisible()) &&
                       (!capture || view->getPort() == capture) && accept(view)
                   ? view
                   : nullptr;
    };
    if (BasicView* view = fits(ui->mdiArea->currentSubWindow()))
        return view;
    // Most recently active last.
    const QList<QMdiSubWindow*> windows =
        ui->mdiArea->subWindowList(QMdiArea::ActivationHistoryOrder);
    for (auto it = windows.rbegin(); it != windows.rend(); ++it) {
        if (BasicView* view = fits(*it))
            return view;
    }
    return nullptr;
}

QString MainWindow::exportStart(const SettingsKeys::Key<QString>& key, const QString& fresh) const
{
    // The folder the key remembers: the file's folder, or the folder itself;
    // the home folder before anything was stored.
    const QString last =
        settings.contains(QLatin1String(key.name)) ? key.read(settings) : QString();
    const QFileInfo info(last);
    QDir folder = info.isDir() ? QDir(last) : info.dir();
    if (last.isEmpty() || !folder.exists())
        folder = QDir::home();
    // The name the key remembers when it was a file of this kind (the same
    // extension): the next export overwrites it only when asked; else a
    // fresh name, never another kind's.
    const QString suffix = QFileInfo(fresh).suffix();
    const bool sameKind = !info.isDir() && !info.fileName().isEmpty() && info.dir().exists() &&
                          info.suffix().compare(suffix, Qt::CaseInsensitive) == 0;
    return folder.filePath(sameKind ? info.fileName() : fresh);
}

void MainWindow::exportFailed(const QString& text, const QString& fileName, const QString& reason)
{
    QMessageBox box(QMessageBox::Warning, tr("Export failed"), text, QMessageBox::Ok, this);
    box.setInformativeText(
        QStringLiteral("%1\n%2").arg(QDir::toNativeSeparators(fileName), reason));
    box.exec();
}

bool MainWindow::writeExport(const QString& fileName, const QString& openFailure,
                             const std::function<bool(QIODevice&, QString&)>& write)
{
    // The temporary file lies beside the target, so that the final rename
    // stays on one file system; it is removed unless committed.
    QSaveFile file(fileName);
    if (!file.open(QIODevice::WriteOnly)) {
        exportFailed(openFailure, fileName, file.errorString());
        return false;
    }
    QString reason;
    if (!write(file, reason) || !file.commit()) {
        if (reason.isEmpty())
            reason = file.errorString();
        file.cancelWriting();
        exportFailed(tr("Could not write the file"), fileName, reason);
        return false;
    }
    SettingsKeys::pathLast.write(settings, QFileInfo(fileName).absoluteFilePath());
    return true;
}

void MainWindow::handleExportCloud()
{
    BasicView* view =
        recentView([](BasicView* v) { return qobject_cast<ThreeDView*>(v) != nullptr; }, false);
    if (!view) {
        QMessageBox::warning(this, tr("Export failed"), tr("No 3D view is open."), QMessageBox::Ok);
        return;
    }
    exportCloud(static_cast<ThreeDView*>(view));
}

bool MainWindow::askCloudFile(const QString& title, QString& fileName,
                              vxlindral::CloudWriter::Format& format)
{
    QStringList filters;
    for (const char* f : cloudFilters)
        filters << tr(f);
    QString filter = filters.first();
    fileName = QFileDialog::getSaveFileName(
        this, title, exportStart(SettingsKeys::pathLast, QStringLiteral("cloud.ply")),
        filters.join(";;"), &filter, QFileDialog::Options());
    if (fileName.isEmpty())
        return false;
    if (QFileInfo(fileName).suffix().isEmpty())
        fileName += QLatin1Char('.') + filterSuffix(filter);
    const bool text = filter.contains(QLatin1String(" text ")) &&
                      QFileInfo(fileName).suffix().toLower() == filterSuffix(filter);
    if (!vxlindral::CloudWriter::formatOf(fileName, text, format)) {
        exportFailed(tr("Unknown cloud file type"), fileName,
                     tr("Name the file .ply, .pcd or .csv."));
        return false;
    }
    return true;
}

void MainWindow::exportCloud(ThreeDView* view)
{
    using vxlindral::CloudWriter;
    // Taken now: the cloud the view holds when the command was given.
    std::vector<CloudWriter::Point> points = view->glWidget()->cloud();
    const bool keep = SettingsKeys::keepNoEcho.read(settings);
    if (!keep) {
        points.erase(std::remove_if(points.begin(), points.end(),
                                    [](const CloudWriter::Point& p) { return p.range == 0.0f; }),
                     points.end());
    }
    QString fileName;
    CloudWriter::Format format;
    if (!askCloudFile(tr("Save cloud to file"), fileName, format))
        return;
    writeExport(fileName, tr("Could not open file for writing"),
                [&](QIODevice& file, QString& reason) {
                    CloudWriter writer(file, format, points.size());
                    writer.setNote(CloudWriter::echoNote(keep));
                    if (writer.writeHeader() && writer.writePoints(points.data(), points.size()) &&
                        writer.finish())
                        return true;
                    reason = writer.errorString();
                    return false;
                });
}

void MainWindow::handleExportStretch()
{
    using vxlindral::StretchExport;
    if (!playback || stretchExport)
        return;
    // The stretch as marked when the command was given.
    uint64_t first = 0;
    uint64_t last = 0;
    if (!playback->markedStretch(first, last)) {
        QMessageBox::warning(this, tr("Export failed"), tr("No line of the capture is known yet."),
                             QMessageBox::Ok);
        return;
    }
    const vxrec::CaptureIndex& index = playback->index();
    StretchExport::Stretch stretch;
    stretch.first = first;
    stretch.count = last - first + 1;
    stretch.offset = index.entry(first).offset;
    stretch.prelude = vxrec::CaptureSource::kNoPrelude;
    index.headerBefore(first, stretch.prelude);
    const QString capturePath = playback->path();
    const auto port = playback->port();

    QString fileName;
    vxlindral::CloudWriter::Format format;
    if (!askCloudFile(tr("Export lines as cloud"), fileName, format))
        return;
    stretchExport =
        std::make_unique<StretchExport>(capturePath, port, stretch, fileName, format, this);
    stretchExport->setKeepNoEcho(SettingsKeys::keepNoEcho.read(settings));
    QString error;
    bool targetFailed = false;
    if (!stretchExport->start(error, targetFailed)) {
        stretchExport.reset();
        exportFailed(targetFailed ? tr("Could not open file for writing")
                                  : tr("Could not read the capture"),
                     targetFailed ? fileName : capturePath, error);
        return;
    }
    ui->actionExportStretch->setEnabled(false);
    // Shown only when the export takes longer than a second.
    stretchProgress =
        new QProgressDialog(tr("Writing %1 lines to %2 ...")
                                .arg(vxlindral::StreamHealthLabel::grouped(stretch.count),
                                     QFileInfo(fileName).fileName()),
                            tr("Cancel"), 0, 1000, this);
    stretchProgress->setObjectName("stretchProgress");
    stretchProgress->setWindowTitle(tr("Export lines as cloud"));
    stretchProgress->setWindowModality(Qt::WindowModal);
    stretchProgress->setMinimumDuration(1000);
    stretchProgress->setAutoReset(false);
    stretchProgress->setAutoClose(false);
    // The dialog's own setValue() runs a nested event loop when the dialog is
    // modal, inside the export's code, where a queued close or quit could
    // delete what called it: the progress goes to a bar of its own instead,
    // and the dialog only shows itself after its minimum duration.
    auto* bar = new QProgressBar(stretchProgress);
    bar->setRange(0, 1000);
    stretchProgress->setBar(bar);
    stretchProgress->setValue(0);
    connect(stretchProgress, &QProgressDialog::canceled, stretchExport.get(),
            &StretchExport::cancel);
    connect(stretchExport.get(), &StretchExport::progressed, bar, &QProgressBar::setValue);
    // Queued: the failure box opens from the event loop, not from the export.
    connect(stretchExport.get(), &StretchExport::finished, this, &MainWindow::stretchExported,
            Qt::QueuedConnection);
}

void MainWindow::stretchExported(bool ok, const QString& reason)
{
    const QString fileName = stretchExport ? stretchExport->target() : QString();
    // Delivered queued: the export's own code has returned.
    stretchExport.reset();
    if (stretchProgress) {
        stretchProgress->disconnect(this);
        stretchProgress->deleteLater();
        stretchProgress = nullptr;
    }
    ui->actionExportStretch->setEnabled(playback != nullptr);
    if (ok)
        SettingsKeys::pathLast.write(settings, QFileInfo(fileName).absoluteFilePath());
    else if (!reason.isEmpty())
        exportFailed(tr("Could not write the file"), fileName, reason);
}

void MainWindow::handleSaveImage()
{
    BasicView* view = recentView([](BasicView*) { return true; }, true);
    if (!view) {
        QMessageBox::warning(this, tr("Export failed"), tr("No view is open."), QMessageBox::Ok);
        return;
    }
    // Taken now, like an exported line.
    const QImage picture = view->picture();
    QString fileName = QFileDialog::getSaveFileName(
        this, tr("Save view image"),
        exportStart(SettingsKeys::pathLast, QStringLiteral("view.png")), tr("PNG image (*.png)"),
        nullptr, QFileDialog::Options());
    if (fileName.isEmpty())
        return;
    if (QFileInfo(fileName).suffix().isEmpty())
        fileName += QLatin1String(".png");
    writeExport(fileName, tr("Could not open file for writing"),
                [&picture](QIODevice& file, QString& reason) {
                    if (picture.save(&file, "PNG"))
                        return true;
                    reason = picture.isNull() ? tr("The view shows no picture yet.")
                                              : file.errorString();
                    return false;
                });
}

void MainWindow::handleCopyImage()
{
    if (BasicView* view = recentView([](BasicView*) { return true; }, true))
        QGuiApplication::clipboard()->setImage(view->picture());
}

// ---- capture recording ----------------------------------------------------

void MainWindow::handleRecordCapture(bool checked)
{
    if (!checked) {
        stopCapture();
        return;
    }
    // The active view's port, as Freeze takes it; without one, the port the
    // other commands use.
    BasicView* view = currentView();
    const int port = view ? view->getPort() : currentPort();
    if (!recordable(port))
        return;
    QString folder = SettingsKeys::pathCapture.read(settings);
    if (folder.isEmpty())
        folder = QDir::homePath();
    // The dialog asks before an existing file is replaced; the name is taken
    // as given, so that what it confirmed is what is written.
    const QString fileName = QFileDialog::getSaveFileName(this, tr("Record capture"), folder,
                                                          tr("Captures (*.pcapng);;All files (*)"),
                                                          nullptr, QFileDialog::Options());
    if (fileName.isEmpty()) {
        ui->actionRecordCapture->setChecked(false);
        return;
    }
    SettingsKeys::pathCapture.write(settings, QFileInfo(fileName).absolutePath());
    startCapture(port, fileName);
}

std::shared_ptr<StreamDataController> MainWindow::recordable(int port)
{
    std::shared_ptr<StreamDataController> c = controller(port);
    if (c && c->localPort() != 0)
        return c;
    ui->actionRecordCapture->setChecked(false);
    QMessageBox::warning(nullptr, windowTitle(),
                         tr("No current port. Connect stream or select an active window."),
                         QMessageBox::Ok);
    return nullptr;
}

bool MainWindow::startCapture(int port, const QString& path)
{
    stopCapture();
    const std::shared_ptr<StreamDataController> c = recordable(port);
    if (!c)
        return false;
    const QString target = QFileInfo(path).absoluteFilePath();
    for (const Finishing& f : finishing) {
        if (QFileInfo(QFile::decodeName(f.recorder->path().c_str())).absoluteFilePath() == target) {
            ui->actionRecordCapture->setChecked(false);
            QMessageBox::warning(this, windowTitle(),
                                 tr("Could not record to %1: the recording before is still "
                                    "being written to it.")
                                     .arg(QDir::toNativeSeparators(path)),
                                 QMessageBox::Ok);
            return false;
        }
    }
    auto recorder = std::make_unique<vxrec::CaptureRecorder>(static_cast<uint16_t>(c->localPort()));
    if (!recorder->start(QFile::encodeName(path).toStdString())) {
        ui->actionRecordCapture->setChecked(false);
        QMessageBox::warning(this, windowTitle(),
                             tr("Could not record to %1: %2")
                                 .arg(QDir::toNativeSeparators(path),
                                      QString::fromLocal8Bit(recorder->status().error.c_str())),
                             QMessageBox::Ok);
        return false;
    }
    capture = std::move(recorder);
    capturingPort = port;
    c->setTap(capture.get());
    ui->actionRecordCapture->setChecked(true);
    captureTimer->start();
    refreshCapture();
    return true;
}

void MainWindow::stopCapture(bool warn)
{
    if (!capture)
        return;
    // The receive thread lets go of the recorder before it stops; the writer
    // thread then writes what is left and closes the file on its own, while
    // the window goes on (a slow disk may take seconds for 256 MiB).
    if (const std::shared_ptr<StreamDataController> c = controller(capturingPort))
        c->setTap(nullptr);
    capture->stop();
    finishing.push_back({std::move(capture), warn});
    capturingPort = 0;
    if (ui)
        ui->actionRecordCapture->setChecked(false);
    refreshCapture();
}

void MainWindow::finishCaptures(bool wait)
{
    QStringList failures;
    for (auto it = finishing.begin(); it != finishing.end();) {
        if (!wait && !it->recorder->finished()) {
            ++it;
            continue;
        }
        it->recorder->finish();
        const vxrec::CaptureRecorder::Status status = it->recorder->status();
        const QString path = QFile::decodeName(it->recorder->path().c_str());
        if (it->warn && status.failed && ui) {
            // The file keeps every block written before the failure.
            failures << tr("Recording to %1 stopped: %2. The file holds what was recorded "
                           "until then.")
                            .arg(QDir::toNativeSeparators(path),
                                 QString::fromLocal8Bit(status.error.c_str()));
        }
        it = finishing.erase(it);
    }
    // After the list is settled: a box's loop may call this again.
    for (const QString& text : failures)
        QMessageBox::warning(this, windowTitle(), text, QMessageBox::Ok);
}

QString MainWindow::captureText() const
{
    using StreamHealthLabel = vxlindral::StreamHealthLabel;
    if (!capture)
        return QString();
    const vxrec::CaptureRecorder::Status s = capture->status();
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(
                             std::chrono::steady_clock::now() - capture->startedAt())
                             .count();
    QString duration = QStringLiteral("%1:%2")
                           .arg(seconds / 60 % 60, 2, 10, QLatin1Char('0'))
                           .arg(seconds % 60, 2, 10, QLatin1Char('0'));
    if (seconds >= 3600)
        duration.prepend(QStringLiteral("%1:").arg(seconds / 3600));
    // Sizes in decimal units, as file managers show them.
    const QString size =
        s.bytes < 1000000
            ? QStringLiteral("%1 kB").arg(StreamHealthLabel::grouped(s.bytes / 1000))
            : QStringLiteral("%1 MB").arg(StreamHealthLabel::grouped((s.bytes + 500000) / 1000000));
    QString text = QStringLiteral("\u25cf %1 %2 %3 lines %4")
                       .arg(QFileInfo(QFile::decodeName(capture->path().c_str())).fileName(),
                            duration, StreamHealthLabel::grouped(s.lines), size);
    if (s.notRecorded)
        text += tr(", %1 datagrams not recorded (the disk fell behind)")
                    .arg(StreamHealthLabel::grouped(s.notRecorded));
    return text;
}

void MainWindow::refreshCapture()
{
    if (capture && capture->status().failed)
        stopCapture(); // warns with the file and the reason once it is closed
    finishCaptures(false);
    if (!ui)
        return;
    QStringList texts;
    if (capture)
        texts << captureText();
    for (const Finishing& f : finishing) {
        const vxrec::CaptureRecorder::Status s = f.recorder->status();
        const uint64_t left = s.bytes > s.written ? s.bytes - s.written : 0;
        texts << tr("Finishing %1: %2 MB to write")
                     .arg(QFileInfo(QFile::decodeName(f.recorder->path().c_str())).fileName(),
                          vxlindral::StreamHealthLabel::grouped((left + 500000) / 1000000));
    }
    if (texts.isEmpty()) {
        captureTimer->stop();
        labelCapture->clear();
        labelCapture->hide();
        if (quitWhenFinished)
            QTimer::singleShot(0, this, &MainWindow::close);
    } else {
        if (quitWhenFinished)
            texts << tr("quitting when written");
        labelCapture->setText(texts.join(QStringLiteral(", ")));
        labelCapture->show();
        if (!captureTimer->isActive())
            captureTimer->start();
    }
    reserveStatusRoom();
}

// ---- capture playback -------------------------------------------------------

std::vector<BasicView*> MainWindow::viewsOf(int key) const
{
    std::vector<BasicView*> views;
    for (BasicView* view : findChildren<BasicView*>(QString(), Qt::FindChildrenRecursively)) {
        if (view->getPort() == key)
            views.push_back(view);
    }
    return views;
}

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
    const auto refuse = [this](const QString& text) {
        QMessageBox::warning(this, windowTitle(), text, QMessageBox::Ok);
        return false;
    };
    vxrec::CapturePorts scan;
    if (!scan.scan(QFile::encodeName(path).toStdString()))
        return refuse(
            tr("Could not open %1: %2").arg(name, QString::fromLocal8Bit(scan.error().c_str())));
    if (port == 0) {
        if (scan.ports().empty())
            return refuse(tr("No scanner lines found in %1").arg(name));
        port = scan.ports().size() == 1
                   ? scan.ports().front().port
                   : CapturePortDialog::ask(this, name, scan.ports(), scan.partial());
        if (port == 0)
            return false; // the user cancelled the choice
    } else if (std::none_of(
                   scan.ports().begin(), scan.ports().end(),
                   [port](const vxrec::CapturePorts::Port& p) { return p.port == port; }) &&
               !scan.partial()) {
        return refuse(tr("No scanner lines found in %1").arg(name));
    }

    closeCapture();
    captureKey = nextCaptureKey++;
    captureName = name;
    captureFirst = LineType();
    expectFirst = true;
    std::shared_ptr<StreamDataModel>& model = dataModels[captureKey];
    model = std::make_shared<StreamDataModel>();
    // The capture's first line is the reference of the difference statistics
    // after a seek, as it is for the lines played from the start.
    connect(model.get(), &StreamDataModel::newLine, this, [this](const LineType& line) {
        if (expectFirst) {
            captureFirst = line;
            expectFirst = false;
        }
    });
    std::shared_ptr<StreamDataController>& controller = controllers[captureKey];
    controller = std::make_shared<StreamDataController>(model);

    using vxlindral::CapturePlayback;
    CapturePlayback::Hooks hooks;
    hooks.forget = [this](uint64_t before) { forgetCaptureLines(before); };
    hooks.reachBack = [this] { return captureReachBack(); };
    hooks.holdFrames = [this](bool hold) {
        for (BasicView* view : viewsOf(captureKey))
            view->holdFrames(hold);
    };
    hooks.deliverPosted = [this] {
        for (BasicView* view : viewsOf(captureKey)) {
            QCoreApplication::sendPostedEvents(view, QEvent::MetaCall);
            // The numeric view's own models take the lines too.
            for (QObject* child : view->findChildren<QObject*>())
                QCoreApplication::sendPostedEvents(child, QEvent::MetaCall);
        }
    };
    playback = std::make_unique<CapturePlayback>(path, static_cast<uint16_t>(port), controller,
                                                 std::move(hooks));
    connect(playback.get(), &CapturePlayback::placeChanged, this, &MainWindow::refreshPlace);
    connect(playback.get(), &CapturePlayback::playingChanged, this, [this](bool playing) {
        transport->setPlaying(playing);
        if (BasicView* view = currentView(); view && view->getPort() == captureKey)
            ui->actionFreeze->setChecked(!playing);
    });
    // Queued: its box must not open inside the playback's own timer, where
    // closing the capture from the box's loop would delete the caller.
    connect(playback.get(), &CapturePlayback::stopped, this, &MainWindow::captureStopped,
            Qt::QueuedConnection);

    openDefaultViews(captureKey);
    // Before the window is on the screen its views have not their final size
    // yet, and a view that is resized starts its picture afresh: the first
    // lines wait until the window is shown.
    const bool waitForScreen = !windowHandle() || !windowHandle()->isExposed();
    if (waitForScreen)
        playback->setPlaying(false);
    QString error;
    if (!playback->start(error)) {
        closeCapture();
        return refuse(tr("Could not play %1: %2").arg(name, error));
    }
    transport->reset();
    transport->show();
    if (waitForScreen) {
        playWhenShown = true;
        transport->setPlaying(false);
        if (!isVisible())
            return true; // shown later: the event filter sees its exposure
        windowHandle()->installEventFilter(this);
    }
    ui->actionCloseCapture->setEnabled(true);
    ui->actionExportStretch->setEnabled(!stretchExport);
    connect(playback.get(), &CapturePlayback::marksChanged, this, [this] {
        const auto at = [this](int64_t line) {
            return line < 0 ? qint64(-1) : playback->lineMs(static_cast<uint64_t>(line));
        };
        transport->setMarks(at(playback->markedStart()), at(playback->markedEnd()));
    });
    ui->labelStatus->clear();
    refreshPlace();
    return true;
}

void MainWindow::closeCapture()
{
    if (!playback)
        return;
    const int key = captureKey;
    if (recordTimer && recordSource == key) {
        stopRecording();
        ui->actionExportLines->setChecked(false);
    }
    playback->stop();
    playback.reset();
    shownPlace.clear();
    captureKey = 0;
    captureFirst = LineType();
    // The views go now, before their model and controller.
    for (BasicView* view : viewsOf(key)) {
        view->close();
        delete view;
    }
    controllers.erase(key);
    dataModels.erase(key);
    if (ui) {
        transport->hide();
        indexBox->hide();
        ui->actionCloseCapture->setEnabled(false);
        ui->actionExportStretch->setEnabled(false);
        reserveStatusRoom();
        health->refresh();
        tileViews();
    }
}

void MainWindow::forgetCaptureLines(uint64_t before)
{
    for (BasicView* view : viewsOf(captureKey)) {
        view->clearLines(before);
        if (captureFirst && before > 0) {
            for (auto* model : view->findChildren<vxlindral::StreamDiffAverageDataModel*>())
                model->setReference(captureFirst);
        }
    }
    if (const std::shared_ptr<StreamDataModel> model = dataModel(captureKey))
        model->clearLines();
    // From the start, the first line to come is the capture's first line.
    expectFirst = before == 0 || !captureFirst;
}

int MainWindow::captureReachBack() const
{
    int lines = 1;
    if (const std::shared_ptr<StreamDataModel> model = dataModel(captureKey))
        lines = model->reachBack();
    for (BasicView* view : viewsOf(captureKey))
        lines = std::max(lines, view->reachBack());
    return lines;
}

void MainWindow::refreshPlace()
{
    if (!playback)
        return;
    const vxlindral::CapturePlayback::Place p = playback->place();
    transport->setDuration(p.durationMs);
    transport->setPosition(p.ms, p.line, p.lines, p.linesFinal);
    // The status line names the place the bar shows, not a newer one read
    // when the label refreshes on its own.
    shownPlace = playback->placeText(p);
    health->refreshPlaces();
    const vxrec::CaptureIndex& index = playback->index();
    const bool indexing = !index.ended();
    if (indexing)
        indexProgress->setValue(static_cast<int>(index.progress() * 100));
    if (indexBox->isHidden() == indexing) {
        indexBox->setVisible(indexing);
        reserveStatusRoom();
    }
}

void MainWindow::captureStopped(const QString& reason, bool fatal)
{
    if (fatal) {
        QMessageBox::warning(this, windowTitle(),
                             tr("%1 can no longer be read: %2").arg(captureName, reason),
                             QMessageBox::Ok);
        return;
    }
    ui->labelStatus->setText(tr("%1 ends early, played up to there: %2").arg(captureName, reason));
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
