#include "views/flatview.h"
#include "views/linepoints.h"

#include "line/myline.h"
#include "views/myscrollarea.h"

#include <QAction>
#include <QIcon>
#include <QLabel>
#include <QLayout>
#include <QMutexLocker>
#include <QThread>
#include <QToolBar>
#include <algorithm>

namespace vxlindral {

namespace {

const QRgb kRejectShown = qRgb(255, 122, 0);
const QRgb kRejectHidden = qRgb(0, 0, 0);

// The colour of one valid point: the reject colour for a point with a reject
// mark, else the gray of its intensity.
struct PointColour
{
    int minI;
    double r;
    QRgb reject;

    QRgb operator()(const vxs::VxPt& pt) const
    {
        if (pt.reject != 0)
            return reject;
        const int g = FlatView::grayValue(pt.intensity, minI, r);
        return qRgb(g, g, g);
    }
};

// The colours of one line's points: the line's intensity range (r maps it
// onto 210 gray levels) and the view's reject colour.
PointColour coloursOf(BasicView& view, const MyLine& line)
{
    const LinePoints::Range range = LinePoints::rangeOf(line);
    return {range.minI, range.step, view.isFilteredDisplayed() ? kRejectShown : kRejectHidden};
}

} // namespace

FlatView::FlatView(QWidget* parent) : BasicView(parent)
{
    setWindowTitle(tr("Gray"));
    setWindowIcon(QIcon(QStringLiteral(":/PixMaps/gray.svg")));
    if (QToolBar* bar = toolBar()) {
        bar->setParent(this);
        layout()->addWidget(bar);
    }
    BasicView::createContent();
    const QRect g = geometry();
    ring.reset(QSize(g.right() - g.left(), g.bottom() - g.top()), axis());
    frames = new FrameSync(this, [this] { showPicture(); });
    frames->watch(label);
    frames->markPending();
    connect(this, &FlatView::signalNewImage, this, &FlatView::setImage, Qt::QueuedConnection);

    // A thread object that is never started. Widgets cannot change threads,
    // so Qt refuses the move (with a warning) and the view stays in the GUI
    // thread.
    idleThread = new QThread;
    moveToThread(idleThread);
}

FlatView::~FlatView()
{
    delete idleThread;
}

QToolBar* FlatView::toolBar()
{
    if (toolBarWidget)
        return toolBarWidget;
    toolBarWidget = new QToolBar(this);
    modeAction = new QAction(tr("Waterfall"), this);
    modeAction->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_M));
    flipAction = new QAction(tr("Flip"), this);
    flipAction->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_F));
    flipAction->setCheckable(true);
    toolBarWidget->addAction(modeAction);
    toolBarWidget->addAction(flipAction);
    connect(modeAction, &QAction::triggered, this, &FlatView::handleDisplayMode);
    connect(flipAction, &QAction::triggered, this, &FlatView::handleMirrow);
    return toolBarWidget;
}

int FlatView::grayValue(uint32_t intensity, int minI, double r)
{
    // Unsigned difference: an intensity below minI wraps to a huge value and
    // ends up white, like one above maxI. A negative result compares as a
    // huge unsigned value too.
    const uint32_t d = intensity - static_cast<uint32_t>(minI);
    const double g = d / r + 45.0;
    if (!(g >= 0.0) || g >= 255.0)
        return 255;
    return static_cast<int>(g);
}

void FlatView::updateNewLine(vxlindral::LineType line)
{
    {
        QMutexLocker locker(&mutex);
        const int w = ring.width();
        const int h = ring.height();
        if (displayMode == 0) {
            ring.scroll(2);
            if (line)
                drawRow(*line, w, h);
        } else if (displayMode == 1) {
            ring.scroll(1);
            if (line)
                drawColumn(*line, w, h);
        } else {
            return;
        }
    }
    frames->markPending();
    emit signalNewImage();
}

void FlatView::drawRow(const MyLine& line, int w, int h)
{
    const PointColour colour = coloursOf(*this, line);
    const int n = line.pixel;
    const double step = std::max(1.0, static_cast<double>(n) / w);
    for (int x = 0; x < w; x += 2) {
        const int i = static_cast<int>(x * step);
        if (i >= n)
            continue;
        const vxs::VxPt& pt = line.points.at(static_cast<std::size_t>(i));
        if (pt.valid == 0)
            continue;
        ring.plot(direction < 0 ? w - x : x, h - 1, colour(pt));
    }
}

void FlatView::drawColumn(const MyLine& line, int w, int h)
{
    if (w < 11 || h < 11)
        return;
    const PointColour colour = coloursOf(*this, line);
    const int n = line.pixel;
    const double step = std::max(1.0, static_cast<double>(n) / h);
    const int half = h / 2;
    for (int k = 0; k < half; ++k) {
        const int i = static_cast<int>(k * step);
        if (i < n) {
            const vxs::VxPt& pt = line.points.at(static_cast<std::size_t>(i));
            // An invalid point of the first half also skips this k's point of
            // the second half.
            if (pt.valid == 0)
                continue;
            ring.plot(w - 1, half - direction * k, colour(pt));
        }
        const int j = static_cast<int>((k + half) * step);
        if (j < n) {
            const vxs::VxPt& pt = line.points.at(static_cast<std::size_t>(j));
            if (pt.valid != 0)
                ring.plot(w - 1, direction * k + half, colour(pt));
        }
    }
}

void FlatView::setImage()
{
    frames->markPending();
}

void FlatView::showPicture()
{
    QPixmap& next = pixmaps[1 - shown];
    if (next.size() != ring.size())
        next = ring.isNull() ? QPixmap() : QPixmap(ring.size());
    ring.composeInto(next);
    shown = 1 - shown;
    if (label)
        label->setPixmap(pixmaps[shown]);
}

QImage FlatView::picture()
{
    return image().toImage();
}

void FlatView::clearLines(uint64_t)
{
    {
        QMutexLocker locker(&mutex);
        ring.reset(ring.size(), axis());
    }
    frames->markPending();
}

int FlatView::reachBack() const
{
    // The 2-pixel pen of a column's points reaches into the column left of
    // it, which is the previous line's: that column shows this line.
    const int shown = displayMode == 0 ? (ring.height() + 1) / 2 : ring.width() - 1;
    return std::max(shown, 1);
}

const QPixmap& FlatView::image()
{
    frames->flush();
    return pixmaps[shown];
}

void FlatView::updateImage()
{
    if (!scrollArea || !label)
        return;
    // Every path clears the picture (the scaled one of waterfall mode
    // included) and shows it at once.
    const QRect g = geometry();
    if (initPending) {
        initPending = false;
        const QRect v = scrollArea->viewport()->rect();
        ring.reset(QSize(v.right() - v.left(), v.bottom() - v.top()), axis());
    } else if (ring.width() != g.right() - g.left() && (displayMode == 0 || displayMode == 1)) {
        const QRect s = scrollArea->geometry();
        const int w = s.right() - s.left() - 1;
        if (displayMode == 1)
            ring.reset(QSize(w, s.bottom() - s.top() - 1), axis());
        else
            ring.resetScaledToWidth(w, axis());
    } else {
        ring.reset(ring.size(), axis());
    }
    frames->markPending();
    frames->flush();
    label->adjustSize();
}

void FlatView::handleDisplayMode()
{
    initPending = false;
    if (displayMode != 0) {
        displayMode = 0;
        modeAction->setText(tr("Right To Left"));
    } else {
        displayMode = 1;
        modeAction->setText(tr("Waterfall"));
    }
    updateImage();
    updateImage();
}

void FlatView::handleMirrow()
{
    direction = -direction;
    flipAction->setChecked(direction == -1);
}

void FlatView::handleConfigChanged() {}

void FlatView::resizeEvent(QResizeEvent* event)
{
    QMutexLocker locker(&mutex);
    QMdiSubWindow::resizeEvent(event);
    updateImage();
}

} // namespace vxlindral
