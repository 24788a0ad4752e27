#include "app/capturesession.h"

#include "app/captureplayback.h"
#include "app/statusrow.h"
#include "app/transportbar.h"
#include "models/streamdatamodel.h"
#include "models/streamdiffaveragedatamodel.h"
#include "views/basicview.h"

#include <QCoreApplication>
#include <QEvent>
#include <QTimer>
#include <QWindow>

namespace vxlindral {

CaptureSession::CaptureSession(int key, const QString& path, uint16_t port, const QString& name,
                               QObject* parent)
    : SourceSession(key, name, parent)
{
    // The capture's first line is the reference of the difference statistics
    // after a seek, as it is for the lines played from the start.
    connect(dataModel.get(), &StreamDataModel::newLine, this, [this](const LineType& line) {
        if (expectFirst) {
            first = line;
            expectFirst = false;
        }
    });
    CapturePlayback::Hooks hooks;
    hooks.forget = [this](uint64_t before) { forgetLines(before); };
    hooks.reachBack = [this] { return reachBack(); };
    hooks.holdFrames = [this](bool hold) {
        for (BasicView* view : views())
            view->holdFrames(hold);
    };
    hooks.deliverPosted = [this] {
        for (BasicView* view : views()) {
            QCoreApplication::sendPostedEvents(view, QEvent::MetaCall);
            // The numeric view's own models take the lines too.
            for (QObject* child : view->findChildren<QObject*>())
                QCoreApplication::sendPostedEvents(child, QEvent::MetaCall);
        }
    };
    player = std::make_unique<CapturePlayback>(path, port, dataController, std::move(hooks));
    // Queued: its box must not open inside the playback's own timer, where
    // closing the capture from the box's loop would delete the caller.
    connect(
        player.get(), &CapturePlayback::stopped, this,
        [this](const QString& reason, bool fatal) {
            emit stoppedEarly(fatal
                                  ? tr("%1 can no longer be read: %2").arg(this->name(), reason)
                                  : tr("%1 ends early, played up to there: %2").arg(this->name(), reason),
                              fatal);
        },
        Qt::QueuedConnection);
}

CaptureSession::~CaptureSession()
{
    // The receive thread ends before anything it feeds goes.
    player->stop();
    for (BasicView* view : views()) {
        view->close();
        delete view;
    }
}

bool CaptureSession::start(QString& error)
{
    return player->start(error);
}

void CaptureSession::showOn(TransportBar* bar, StatusRow* row)
{
    transport = bar;
    status = row;
    CapturePlayback* p = player.get();
    // The bar's requests go to this playback while the session lives.
    connect(bar, &TransportBar::playRequested, p, &CapturePlayback::setPlaying);
    connect(bar, &TransportBar::stepRequested, p, &CapturePlayback::step);
    connect(bar, &TransportBar::toStartRequested, p, &CapturePlayback::toStart);
    connect(bar, &TransportBar::toEndRequested, p, &CapturePlayback::toEnd);
    connect(bar, &TransportBar::speedChanged, p, &CapturePlayback::setSpeed);
    connect(bar, &TransportBar::loopChanged, p, &CapturePlayback::setLoop);
    connect(bar, &TransportBar::seekRequested, p, &CapturePlayback::seekTime);
    connect(bar, &TransportBar::markStartRequested, p, &CapturePlayback::markStart);
    connect(bar, &TransportBar::markEndRequested, p, &CapturePlayback::markEnd);
    connect(p, &CapturePlayback::placeChanged, this, &CaptureSession::refreshPlace);
    connect(p, &CapturePlayback::playingChanged, bar, &TransportBar::setPlaying);
    connect(p, &CapturePlayback::marksChanged, this, [this] {
        const auto at = [this](int64_t line) {
            return line < 0 ? qint64(-1) : player->lineMs(static_cast<uint64_t>(line));
        };
        transport->setMarks(at(player->markedStart()), at(player->markedEnd()));
    });
}

void CaptureSession::refreshPlace()
{
    if (!transport)
        return;
    const CapturePlayback::Place p = player->place();
    transport->setDuration(p.durationMs);
    transport->setPosition(p.ms, p.line, p.lines, p.linesFinal);
    // The status line names the place the bar shows, not a newer one read
    // when the label refreshes on its own.
    shownPlace = player->placeText(p);
    status->health()->refreshPlaces();
    const vxrec::CaptureIndex& index = player->index();
    status->showIndex(!index.ended(), index.progress());
}

void CaptureSession::playWhenShown(QWidget* window)
{
    if (window->windowHandle() && window->windowHandle()->isExposed())
        return;
    player->setPlaying(false);
    waitingWindow = window;
    // The window's handle exists once it is shown: its exposure is watched
    // from then on.
    if (window->isVisible() && window->windowHandle())
        window->windowHandle()->installEventFilter(this);
    else
        window->installEventFilter(this);
}

bool CaptureSession::eventFilter(QObject* watched, QEvent* event)
{
    if (waitingWindow && watched == waitingWindow && event->type() == QEvent::Show &&
        waitingWindow->windowHandle()) {
        waitingWindow->removeEventFilter(this);
        waitingWindow->windowHandle()->installEventFilter(this);
    } else if (waitingWindow && watched == waitingWindow->windowHandle() &&
               event->type() == QEvent::Expose && waitingWindow->windowHandle()->isExposed()) {
        waitingWindow->windowHandle()->removeEventFilter(this);
        waitingWindow = nullptr;
        QTimer::singleShot(0, this, [this] {
            if (!player->isPlaying())
                player->setPlaying(true);
        });
    }
    return SourceSession::eventFilter(watched, event);
}

void CaptureSession::freeze(bool on)
{
    player->setPlaying(!on);
}

bool CaptureSession::health(StreamHealthLabel::Port& entry) const
{
    if (!SourceSession::health(entry))
        return false;
    entry.place = placeText();
    entry.name = name();
    return true;
}

QString CaptureSession::placeText() const
{
    return shownPlace.isEmpty() ? player->placeText(player->place()) : shownPlace;
}

void CaptureSession::forgetLines(uint64_t before)
{
    for (BasicView* view : views()) {
        view->clearLines(before);
        if (first && before > 0) {
            for (auto* model : view->findChildren<StreamDiffAverageDataModel*>())
                model->setReference(first);
        }
    }
    if (dataModel)
        dataModel->clearLines();
    // From the start, the first line to come is the capture's first line.
    expectFirst = before == 0 || !first;
}

} // namespace vxlindral
