#include "app/positionslider.h"

#include <QMouseEvent>
#include <QPainter>
#include <QStyle>
#include <QStyleOptionSlider>
#include <QTimer>
#include <algorithm>
#include <climits>

namespace vxlindral {

namespace {
int clamped(qint64 ms)
{
    return int(std::clamp<qint64>(ms, 0, INT_MAX));
}
} // namespace

PositionSlider::PositionSlider(QWidget* parent)
    : QSlider(Qt::Horizontal, parent), dragTimer(new QTimer(this))
{
    setObjectName("positionSlider");
    setRange(0, 0);
    setTracking(true);
    dragTimer->setSingleShot(true);
    dragTimer->setInterval(seekIntervalMs);
    connect(dragTimer, &QTimer::timeout, this, [this] { emit seekRequested(value()); });
    connect(this, &QSlider::valueChanged, this, &PositionSlider::changed);
    connect(this, &QSlider::sliderReleased, this, [this] {
        dragTimer->stop();
        emit seekRequested(value());
    });
}

void PositionSlider::setDuration(qint64 ms)
{
    setting = true;
    setRange(0, clamped(ms));
    setting = false;
}

void PositionSlider::setPosition(qint64 ms)
{
    if (isSliderDown())
        return;
    setting = true;
    setValue(clamped(ms));
    setting = false;
}

void PositionSlider::setMarks(qint64 startMs, qint64 endMs)
{
    startMark = startMs;
    endMark = endMs;
    update();
}

void PositionSlider::paintEvent(QPaintEvent* event)
{
    QSlider::paintEvent(event);
    if (startMark < 0 && endMark < 0)
        return;
    QStyleOptionSlider opt;
    initStyleOption(&opt);
    const QRect groove =
        style()->subControlRect(QStyle::CC_Slider, &opt, QStyle::SC_SliderGroove, this);
    const QRect handle =
        style()->subControlRect(QStyle::CC_Slider, &opt, QStyle::SC_SliderHandle, this);
    // Where the handle's middle stands at `ms`.
    const auto xOf = [&](qint64 ms) {
        return groove.x() + handle.width() / 2 +
               QStyle::sliderPositionFromValue(minimum(), maximum(), clamped(ms),
                                               groove.width() - handle.width(), opt.upsideDown);
    };
    QPainter painter(this);
    const QColor mark = palette().color(QPalette::Highlight);
    if (startMark >= 0 || endMark >= 0) {
        const int a = xOf(startMark >= 0 ? startMark : minimum());
        const int b = xOf(endMark >= 0 ? endMark : maximum());
        QColor band = mark;
        band.setAlpha(70);
        painter.fillRect(
            QRect(QPoint(std::min(a, b), rect().top()), QPoint(std::max(a, b), rect().bottom())),
            band);
    }
    painter.setPen(QPen(mark, 2));
    for (qint64 ms : {startMark, endMark}) {
        if (ms >= 0)
            painter.drawLine(xOf(ms), rect().top(), xOf(ms), rect().bottom());
    }
}

void PositionSlider::changed(int value)
{
    if (setting)
        return;
    if (!isSliderDown())
        emit seekRequested(value);
    else if (!dragTimer->isActive())
        dragTimer->start(); // its timeout takes the newest value
}

void PositionSlider::mousePressEvent(QMouseEvent* event)
{
    if (event->button() == Qt::LeftButton && maximum() > minimum()) {
        QStyleOptionSlider opt;
        initStyleOption(&opt);
        const QRect handle =
            style()->subControlRect(QStyle::CC_Slider, &opt, QStyle::SC_SliderHandle, this);
        if (!handle.contains(event->pos())) {
            // Put the handle's middle under the pointer; the press below then
            // finds the handle there and drags it.
            const QRect groove =
                style()->subControlRect(QStyle::CC_Slider, &opt, QStyle::SC_SliderGroove, this);
            const int x = event->pos().x() - groove.x() - handle.width() / 2;
            setSliderDown(true);
            setSliderPosition(QStyle::sliderValueFromPosition(
                minimum(), maximum(), x, groove.width() - handle.width(), opt.upsideDown));
        }
    }
    QSlider::mousePressEvent(event);
}

void PositionSlider::mouseReleaseEvent(QMouseEvent* event)
{
    QSlider::mouseReleaseEvent(event);
    // Should the press above not have caught the handle after all, QSlider
    // would leave the slider down for good.
    if (isSliderDown() && event->buttons() == Qt::NoButton)
        setSliderDown(false);
}

} // namespace vxlindral
