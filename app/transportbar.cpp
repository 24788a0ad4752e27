#include "app/transportbar.h"

#include "app/positionslider.h"
#include "app/streamhealthlabel.h"

#include <QAction>
#include <QComboBox>
#include <QLabel>
#include <QStyle>
#include <iterator>

namespace vxlindral {

namespace {
constexpr int kNormalSpeed = 3; // 1x in TransportBar::speeds
}

TransportBar::TransportBar(QWidget* parent)
    : QToolBar(tr("Transport"), parent), speedBox(new QComboBox(this)),
      slider(new PositionSlider(this)), positionLabel(new QLabel(this))
{
    setObjectName("transportBar");

    playPause = addButton("actionPlayPause", tr("Play"), QStyle::SP_MediaPlay, Qt::Key_Space);
    playPause->setCheckable(true);
    connect(playPause, &QAction::toggled, this, &TransportBar::showPlaying);
    connect(playPause, &QAction::triggered, this, &TransportBar::playRequested);

    connect(addButton("actionStepBack", tr("One line back"), QStyle::SP_MediaSeekBackward,
                      Qt::Key_Comma),
            &QAction::triggered, this, [this] { emit stepRequested(-1); });
    connect(addButton("actionStepForward", tr("One line forward"), QStyle::SP_MediaSeekForward,
                      Qt::Key_Period),
            &QAction::triggered, this, [this] { emit stepRequested(+1); });
    connect(addButton("actionToStart", tr("To the start"), QStyle::SP_MediaSkipBackward,
                      Qt::CTRL | Qt::Key_Home),
            &QAction::triggered, this, &TransportBar::toStartRequested);
    connect(addButton("actionToEnd", tr("To the end"), QStyle::SP_MediaSkipForward,
                      Qt::CTRL | Qt::Key_End),
            &QAction::triggered, this, &TransportBar::toEndRequested);

    speedBox->setObjectName("speedBox");
    speedBox->setToolTip(tr("Speed"));
    speedBox->setFocusPolicy(Qt::NoFocus);
    for (double factor : speeds)
        speedBox->addItem(factor > 0 ? QStringLiteral("%1\u00d7").arg(factor)
                                     : tr("As fast as possible"));
    connect(speedBox, QOverload<int>::of(&QComboBox::activated), this,
            [this](int i) { emit speedChanged(speeds[i]); });
    addWidget(speedBox);

    loopAction = addButton("actionLoop", tr("Loop"), QStyle::SP_BrowserReload, QKeySequence());
    loopAction->setCheckable(true);
    connect(loopAction, &QAction::triggered, this, &TransportBar::loopChanged);

    // Marks go by their letters, I and O; without icons the buttons say In and Out.
    const auto addMark = [this](const char* name, const QString& text, const QString& shown,
                                const QString& letter, const QString& tip,
                                void (TransportBar::*signal)()) {
        QAction* mark = addAction(text);
        mark->setObjectName(name);
        mark->setIconText(shown);
        mark->setShortcut(QKeySequence(letter));
        mark->setShortcutContext(Qt::WindowShortcut);
        mark->setToolTip(QStringLiteral("%1 (%2)").arg(tip, letter));
        connect(mark, &QAction::triggered, this, signal);
    };
    addMark("actionMarkStart", tr("Mark start"), tr("In"), QStringLiteral("I"),
            tr("Mark the start of the lines to export as cloud"),
            &TransportBar::markStartRequested);
    addMark("actionMarkEnd", tr("Mark end"), tr("Out"), QStringLiteral("O"),
            tr("Mark the end of the lines to export as cloud"), &TransportBar::markEndRequested);

    slider->setToolTip(tr("Position"));
    connect(slider, &PositionSlider::seekRequested, this, &TransportBar::seekRequested);
    addWidget(slider);
    positionLabel->setObjectName("positionLabel");
    // Wide enough for most texts, so that the slider does not jump as they change.
    positionLabel->setMinimumWidth(positionLabel->fontMetrics().horizontalAdvance(
        QStringLiteral("00:00.000 / 00:00.000  line 0,000,000 of 0,000,000+")));
    addWidget(positionLabel);

    reset();
}

QAction* TransportBar::addButton(const char* name, const QString& text, QStyle::StandardPixmap icon,
                                 const QKeySequence& key)
{
    QAction* action = addAction(style()->standardIcon(icon), text);
    action->setObjectName(name);
    action->setShortcut(key);
    action->setShortcutContext(Qt::WindowShortcut);
    if (!key.isEmpty())
        action->setToolTip(
            QStringLiteral("%1 (%2)").arg(text, key.toString(QKeySequence::NativeText)));
    return action;
}

QString TransportBar::timeText(qint64 ms)
{
    ms = std::max<qint64>(ms, 0);
    return QStringLiteral("%1:%2.%3")
        .arg(ms / 60000, 2, 10, QLatin1Char('0'))
        .arg(ms / 1000 % 60, 2, 10, QLatin1Char('0'))
        .arg(ms % 1000, 3, 10, QLatin1Char('0'));
}

bool TransportBar::playing() const
{
    return playPause->isChecked();
}

double TransportBar::speed() const
{
    return speeds[speedBox->currentIndex()];
}

bool TransportBar::loop() const
{
    return loopAction->isChecked();
}

void TransportBar::setDuration(qint64 ms)
{
    durationMs = ms;
    slider->setDuration(ms);
    showPosition();
}

void TransportBar::setPosition(qint64 ms, quint64 lineNumber, quint64 lineCount, bool final)
{
    positionMs = ms;
    line = lineNumber;
    lines = lineCount;
    linesFinal = final;
    slider->setPosition(ms);
    showPosition();
}

void TransportBar::setPlaying(bool on)
{
    playPause->setChecked(on);
}

void TransportBar::setMarks(qint64 startMs, qint64 endMs)
{
    slider->setMarks(startMs, endMs);
}

void TransportBar::reset()
{
    setMarks(-1, -1);
    speedBox->setCurrentIndex(kNormalSpeed);
    loopAction->setChecked(false);
    setPlaying(true);
    showPlaying(true);
    setDuration(0);
    setPosition(0, 0, 0, true);
}

void TransportBar::showPlaying(bool on)
{
    // The button shows what pressing it does.
    playPause->setIcon(style()->standardIcon(on ? QStyle::SP_MediaPause : QStyle::SP_MediaPlay));
    playPause->setText(on ? tr("Pause") : tr("Play"));
    playPause->setToolTip(QStringLiteral("%1 (%2)").arg(
        playPause->text(), playPause->shortcut().toString(QKeySequence::NativeText)));
}

void TransportBar::showPosition()
{
    QString text = timeText(positionMs) + QStringLiteral(" / ") + timeText(durationMs);
    if (lines > 0)
        text += tr("  line %1 of %2%3")
                    .arg(StreamHealthLabel::grouped(line), StreamHealthLabel::grouped(lines),
                         linesFinal ? QString() : QStringLiteral("+"));
    positionLabel->setText(text);
}

} // namespace vxlindral
