#include "views/flatview.h"

#include "stream/myline.h"
#include "views/myscrollarea.h"

#include <QAction>
#include <QIcon>
#include <QLabel>
#include <QLayout>
#include <QMutexLocker>
#include <QPainter>
#include <QThread>
#include <QToolBar>
#include <algorithm>

namespace vxlindral {

namespace {

// Pens for every gray value and the two reject colours, built once, so that
// drawing a point never allocates a pen.
struct PenTable
{
    QPen gray[256];
    QPen rejectShown{QColor(255, 122, 0), 2};
    QPen rejectHidden{QColor(0, 0, 0), 2};
    PenTable()
    {
        for (int g = 0; g < 256; ++g)
            gray[g] = QPen(QColor(g, g, g), 2);
    }
};

const PenTable& pens()
{
    static const PenTable table;
    return table;
}

// Picks the pen of one point and skips setPen when it is unchanged.
class PointPainter
{
public:
    PointPainter(QPixmap& pixmap, const MyLine& line, int minI, double r, bool filtered)
        : painter(&pixmap), minI(minI), r(r),
          reject(filtered ? &pens().rejectShown : &pens().rejectHidden)
    {
        (void)line;
    }

    void draw(const vxs::VxPt& pt, int x, int y)
    {
        const QPen* pen =
            pt.reject != 0 ? reject : &pens().gray[FlatView::grayValue(pt.intensity, minI, r)];
        if (pen != current) {
            painter.setPen(*pen);
            current = pen;
        }
        painter.drawPoint(x, y);
    }

private:
    QPainter painter;
    int minI;
    double r;
    const QPen* reject;
    const QPen* current = nullptr;
};

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
    pixmap = QPixmap(g.right() - g.left(), g.bottom() - g.top());
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
        const int w = pixmap.width();
        const int h = pixmap.height();
        const QRect all(QPoint(0, 0), QPoint(w - 1, h - 1));
        if (displayMode == 0) {
            pixmap.scroll(0, -2, all);
            if (line)
                drawRow(*line, w, h);
        } else if (displayMode == 1) {
            pixmap.scroll(-1, 0, all);
            if (line)
                drawColumn(*line, w, h);
        } else {
            return;
        }
    }
    emit signalNewImage();
}

void FlatView::drawRow(const MyLine& line, int w, int h)
{
    int minI = 65535;
    int maxI = 0;
    calculateRanges(&line, minI, maxI);
    const double r = (maxI - minI) / 210.0;
    const int n = line.pixel;
    const double step = std::max(1.0, static_cast<double>(n) / w);
    PointPainter painter(pixmap, line, minI, r, isFilteredDisplayed());
    for (int x = 0; x < w; x += 2) {
        const int i = static_cast<int>(x * step);
        if (i >= n)
            continue;
        const vxs::VxPt& pt = line.points.at(static_cast<std::size_t>(i));
        if (pt.valid == 0)
            continue;
        painter.draw(pt, direction < 0 ? w - x : x, h - 1);
    }
}

void FlatView::drawColumn(const MyLine& line, int w, int h)
{
    if (w < 11 || h < 11)
        return;
    int minI = 65535;
    int maxI = 0;
    calculateRanges(&line, minI, maxI);
    const double r = (maxI - minI) / 210.0;
    const int n = line.pixel;
    const double step = std::max(1.0, static_cast<double>(n) / h);
    const int half = h / 2;
    PointPainter painter(pixmap, line, minI, r, isFilteredDisplayed());
    for (int k = 0; k < half; ++k) {
        const int i = static_cast<int>(k * step);
        if (i < n) {
            const vxs::VxPt& pt = line.points.at(static_cast<std::size_t>(i));
            // An invalid point of the first half also skips this k's point of
            // the second half.
            if (pt.valid == 0)
                continue;
            painter.draw(pt, w - 1, half - direction * k);
        }
        const int j = static_cast<int>((k + half) * step);
        if (j < n) {
            const vxs::VxPt& pt = line.points.at(static_cast<std::size_t>(j));
            if (pt.valid != 0)
                painter.draw(pt, w - 1, direction * k + half);
        }
    }
}

void FlatView::setImage()
{
    if (label)
        label->setPixmap(pixmap);
}

void FlatView::updateImage()
{
    if (!scrollArea || !label)
        return;
    if (initPending) {
        initPending = false;
        const QRect v = scrollArea->viewport()->rect();
        pixmap = QPixmap(v.right() - v.left(), v.bottom() - v.top());
    } else {
        const QRect g = geometry();
        if (pixmap.width() != g.right() - g.left()) {
            const QRect s = scrollArea->geometry();
            const int w = s.right() - s.left() - 1;
            if (displayMode == 1)
                pixmap = QPixmap(w, s.bottom() - s.top() - 1);
            else if (displayMode == 0)
                pixmap = pixmap.scaledToWidth(w, Qt::FastTransformation);
        }
    }
    // Every path clears the image, the scaled one of waterfall mode included.
    pixmap.fill(Qt::white);
    label->setPixmap(pixmap);
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
