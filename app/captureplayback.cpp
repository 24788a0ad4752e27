#include "app/captureplayback.h"

#include "app/streamhealthlabel.h"
#include "app/transportbar.h"
#include "stream/streamdatacontroller.h"

#include <QFile>
#include <QFileInfo>
#include <QTimer>
#include <algorithm>

namespace vxlindral {

namespace {

// How often the place is read while a capture is open: often enough for a
// slider that follows the playback and for a seek's tail to hand over quickly.
constexpr int kTickMs = 25;
// While a seek's views wait for its line: soon after it reached them, they
// draw it.
constexpr int kSeekTickMs = 5;
// Seek ticks without progress after which a held seek lets its frames go.
constexpr int kStillTicks = 20;

} // namespace

CapturePlayback::CapturePlayback(const QString& path, uint16_t port,
                                 std::shared_ptr<StreamDataController> c, Hooks h, QObject* parent)
    : QObject(parent), filePath(path), udpPort(port), controller(std::move(c)), hooks(std::move(h))
{
}

CapturePlayback::~CapturePlayback()
{
    stop();
}

QString CapturePlayback::fileName() const
{
    return QFileInfo(filePath).fileName();
}

bool CapturePlayback::start(QString& error)
{
    source = std::make_shared<vxrec::CaptureSource>(udpPort);
    if (!source->open(QFile::encodeName(filePath).toStdString())) {
        error = QString::fromLocal8Bit(source->error().c_str());
        source.reset();
        return false;
    }
    lineIndex.start(QFile::encodeName(filePath).toStdString(), udpPort);
    source->setSpeed(speed);
    if (!playing)
        source->playLines(0); // paused before it began: nothing is handed out
    controller->setFrames(0);
    if (!controller->startSource(vxrec::CaptureSource::shared(source))) {
        error = tr("the playback could not be started");
        return false;
    }
    timer = new QTimer(this);
    timer->setInterval(kTickMs);
    connect(timer, &QTimer::timeout, this, &CapturePlayback::tick);
    timer->start();
    return true;
}

void CapturePlayback::stop()
{
    if (timer)
        timer->stop();
    if (controller)
        controller->stopSource();
    lineIndex.cancel();
    lineIndex.wait();
}

void CapturePlayback::setPlaying(bool on)
{
    if (!source) {
        playing = on; // before start(): how it begins
        return;
    }
    if (on && !catchingUp) {
        const vxrec::CaptureSource::Status s = source->status();
        if (s.ended && s.problem.empty() && lineIndex.lines() > 0) {
            // Played to the end: Play starts it again.
            playing = true;
            seekLine(0);
            emit playingChanged(true);
            return;
        }
    }
    playing = on;
    if (!catchingUp) {
        if (on)
            source->play();
        else
            source->playLines(0); // the line begun is finished first
    }
    emit playingChanged(on);
}

void CapturePlayback::setSpeed(double factor)
{
    speed = factor;
    if (source && !catchingUp)
        source->setSpeed(factor);
}

void CapturePlayback::setLoop(bool on)
{
    loop = on;
    if (source)
        source->setLoop(on);
}

void CapturePlayback::step(int delta)
{
    if (!source || delta == 0)
        return;
    const bool wasPlaying = playing;
    playing = false;
    const uint64_t shown = catchingUp ? catchUpTo : source->status().nextLine; // 1-based
    if (delta > 0 && !catchingUp) {
        // On from where it stands: the next line, at the set speed.
        source->playLines(static_cast<uint64_t>(delta));
    } else {
        const int64_t target = static_cast<int64_t>(shown) - 1 + delta;
        seekLine(static_cast<uint64_t>(std::max<int64_t>(target, 0)));
    }
    if (wasPlaying)
        emit playingChanged(false);
}

void CapturePlayback::toStart()
{
    seekLine(0);
}

void CapturePlayback::toEnd()
{
    const std::size_t lines = lineIndex.lines();
    if (lines > 0)
        seekLine(lines - 1);
}

void CapturePlayback::seekTime(qint64 ms)
{
    if (lineIndex.lines() == 0)
        return;
    if (isSeeking()) {
        // A slider being dragged asks faster than a seek with many views
        // completes: the newest position waits for the seek under way to be
        // shown, so that every seek's line is seen and none is cut short.
        waitingSeekMs = ms;
        return;
    }
    const int64_t t0 = lineIndex.entry(0).timeNs;
    seekLine(lineIndex.find(t0 + ms * 1000000));
}

void CapturePlayback::seekLine(uint64_t n)
{
    const std::size_t lines = lineIndex.lines();
    if (!source || lines == 0)
        return;
    n = std::min<uint64_t>(n, lines - 1);
    waitingSeekMs = -1; // a seek of its own replaces one that waits
    const uint64_t tail =
        static_cast<uint64_t>(std::max(hooks.reachBack ? hooks.reachBack() : 1, 1));
    const uint64_t from = n + 1 > tail ? n + 1 - tail : 0;

    // Nothing of the old place may reach a view after it was cleared: the
    // receive thread ends and its waiting lines go, and the lines and texts
    // already posted to the views arrive now, before they are forgotten.
    controller->stopSource();
    if (hooks.deliverPosted)
        hooks.deliverPosted();
    // Held before the views forget, so that not even the emptied views are drawn.
    heldTicks = 0;
    heldProgress = ~uint64_t(0);
    if (!framesHeld && hooks.holdFrames) {
        framesHeld = true;
        hooks.holdFrames(true);
    }
    if (hooks.forget)
        hooks.forget(from);
    controller->setFrames(static_cast<uint32_t>(from));

    uint64_t prelude = vxrec::CaptureSource::kNoPrelude;
    lineIndex.headerBefore(from, prelude);
    source->seek(lineIndex.entry(from).offset, from, prelude);
    source->setSpeed(0);
    source->playLines(n - from + 1);
    catchingUp = true;
    catchUpTo = n + 1;
    releaseAt = controller->handoverCounters().linesTaken + (n + 1 - from);
    timer->setInterval(kSeekTickMs);
    controller->startSource(vxrec::CaptureSource::shared(source));
    tick();
}

void CapturePlayback::tick()
{
    if (!source)
        return;
    if (!isSeeking() && waitingSeekMs >= 0) {
        // The previous seek was let go at an earlier tick, so the window has
        // drawn it by now.
        seekTime(waitingSeekMs);
        return;
    }
    const vxrec::CaptureSource::Status s = source->status();
    if (catchingUp && (s.nextLine >= catchUpTo || s.ended || !s.playing)) {
        // The tail is handed out: on at the user's speed and state.
        catchingUp = false;
        source->setSpeed(speed);
        if (playing)
            source->play();
        else
            source->playLines(0);
    }
    const LineQueue::Counters handover = controller->handoverCounters();
    if (framesHeld && !catchingUp) {
        // Ticks without progress: a line still on its way between the
        // socket and the model moves one of these counters.
        const strmsocket::StreamCounters stream = controller->counters();
        const uint64_t progress = handover.linesTaken + handover.linesWaiting + stream.datagrams +
                                  stream.messages + stream.rawLines;
        if (progress != heldProgress) {
            heldProgress = progress;
            heldTicks = 0;
        } else {
            ++heldTicks;
        }
    }
    if (framesHeld && (handover.linesTaken >= releaseAt ||
                       (!catchingUp && handover.linesWaiting == 0 && heldTicks > kStillTicks))) {
        // The line sought has reached the model, and the views' queued lines
        // were delivered before this timer: the views draw it. Should a line
        // of the tail not decode, the count is never reached: then once the
        // tail has been handed out and nothing moved for a while. Ticks, not
        // time: a machine that stalls stalls this timer as well.
        framesHeld = false;
        heldTicks = 0;
        hooks.holdFrames(false);
        if (waitingSeekMs < 0)
            timer->setInterval(kTickMs);
    }
    if (!catchingUp && playing && s.ended && !loop) {
        playing = false;
        emit playingChanged(false);
    }
    const QString problem = QString::fromLocal8Bit(s.problem.c_str());
    if (problem != lastProblem) {
        lastProblem = problem;
        if (!problem.isEmpty())
            emit stopped(problem, !QFileInfo(filePath).isReadable());
    }
    const Place p = place();
    if (p.ms != last.ms || p.line != last.line || p.lines != last.lines ||
        p.durationMs != last.durationMs || p.linesFinal != last.linesFinal) {
        last = p;
        emit placeChanged();
    }
}

int64_t CapturePlayback::shownLine() const
{
    // While a seek's tail is being played, its target is the line shown.
    const uint64_t line = catchingUp ? catchUpTo : source ? source->status().nextLine : 0;
    return static_cast<int64_t>(std::max<uint64_t>(line, 1) - 1);
}

void CapturePlayback::markStart()
{
    startMark = shownLine();
    emit marksChanged();
}

void CapturePlayback::markEnd()
{
    endMark = shownLine();
    emit marksChanged();
}

bool CapturePlayback::markedStretch(uint64_t& first, uint64_t& lastLine) const
{
    const std::size_t lines = lineIndex.lines();
    if (lines == 0)
        return false;
    first = startMark >= 0 ? static_cast<uint64_t>(startMark) : 0;
    lastLine = endMark >= 0 ? static_cast<uint64_t>(endMark) : lines - 1;
    if (first > lastLine)
        std::swap(first, lastLine);
    lastLine = std::min<uint64_t>(lastLine, lines - 1);
    first = std::min(first, lastLine);
    return true;
}

qint64 CapturePlayback::lineMs(uint64_t n) const
{
    if (n >= lineIndex.lines())
        return -1;
    return (lineIndex.entry(n).timeNs - lineIndex.entry(0).timeNs) / 1000000;
}

CapturePlayback::Place CapturePlayback::place() const
{
    Place p;
    if (!source)
        return p;
    const vxrec::CaptureSource::Status s = source->status();
    p.lines = lineIndex.lines();
    p.linesFinal = lineIndex.ended();
    // While a seek plays its tail, the place is already the line sought: the
    // bar does not creep through the tail (each change would repaint the
    // window, which costs the replay its time).
    p.line = catchingUp ? catchUpTo : s.nextLine;
    if (p.lines > 0) {
        const int64_t t0 = lineIndex.entry(0).timeNs;
        p.durationMs = (lineIndex.entry(p.lines - 1).timeNs - t0) / 1000000;
        const int64_t now = catchingUp ? lineIndex.entry(catchUpTo - 1).timeNs : s.currentNs;
        if (p.line > 0)
            p.ms = std::max<int64_t>(now - t0, 0) / 1000000;
        p.lines = std::max<uint64_t>(p.lines, p.line);
    }
    return p;
}

QString CapturePlayback::placeText(const Place& p) const
{
    QString total = StreamHealthLabel::grouped(p.lines);
    if (!p.linesFinal)
        total += QLatin1Char('+');
    QString text =
        tr("%1: %2 / %3, line %4 of %5")
            .arg(fileName(), TransportBar::timeText(p.ms), TransportBar::timeText(p.durationMs),
                 StreamHealthLabel::grouped(p.line), total);
    // Lines with pieces missing are in no count: the text says how many.
    if (const uint64_t incomplete = lineIndex.incomplete())
        text += tr(" (%1 incomplete left out)").arg(StreamHealthLabel::grouped(incomplete));
    return text;
}

} // namespace vxlindral
