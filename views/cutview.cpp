#include "views/cutview.h"

#include "line/myline.h"
#include "views/drawcut.h"
#include "views/measurepanel.h"
#include "views/myscrollarea.h"

#include <QAction>
#include <QApplication>
#include <QBoxLayout>
#include <QClipboard>
#include <QIcon>
#include <QLabel>
#include <QLayout>
#include <QMouseEvent>
#include <QToolBar>
#include <QWheelEvent>
#include <cmath>

namespace vxlindral {

namespace {

const float kHomeScale = 35.0f;

int roundHalfAway(float v)
{
    return static_cast<int>(std::lround(v));
}

} // namespace

CutView::CutView(QWidget* parent) : BasicView(parent)
{
    setWindowTitle(tr("Cut"));
    setWindowIcon(QIcon(QStringLiteral(":/PixMaps/topview.svg")));
    frames = new FrameSync(this, [this] { drawPending(); });
    createContent();
    frames->watch(label);
}

CutView::~CutView() = default;

QSize CutView::viewSize() const
{
    // right - left and bottom - top: one pixel less than the widget's size.
    const QRect g = geometry();
    return {g.right() - g.left(), g.bottom() - g.top()};
}

void CutView::createContent()
{
    if (QToolBar* bar = toolBar()) {
        bar->setParent(this);
        layout()->addWidget(bar);
    }
    BasicView::createContent();
    // The measure panel sits right of the picture, shown in Measure mode.
    if (auto* column = qobject_cast<QBoxLayout*>(layout())) {
        auto* row = new QHBoxLayout;
        row->setSpacing(0);
        column->removeWidget(scrollArea);
        row->addWidget(scrollArea, 1);
        panel = new MeasurePanel(this);
        panel->hide();
        row->addWidget(panel);
        column->addLayout(row);
    }
    cutParams.scale = kHomeScale;
    pan = QPoint(0, 0);
    if (pixmap.isNull())
        pixmap = QPixmap(viewSize());
}

QToolBar* CutView::toolBar()
{
    if (toolBarWidget)
        return toolBarWidget;
    toolBarWidget = new QToolBar(this);

    auto make = [this](const QString& text, const char* icon, const QKeySequence& key) {
        auto* a = new QAction(QIcon(QString::fromLatin1(icon)), text, this);
        a->setShortcut(key);
        toolBarWidget->addAction(a);
        return a;
    };
    zoomInAction = make(tr("Zoom In"), ":/PixMaps/zoom_plus.svg", QKeySequence(Qt::Key_Plus));
    zoomOutAction = make(tr("Zoom out"), ":/PixMaps/zoom_minus.svg", QKeySequence(Qt::Key_Minus));
    homeAction = make(tr("Home"), ":/PixMaps/zoom_home.svg", QKeySequence(Qt::CTRL | Qt::Key_H));
    pointSizeAction = make(tr("Increase point size"), ":/PixMaps/pointsize1.svg",
                           QKeySequence(Qt::CTRL | Qt::Key_P));
    drawLinesAction =
        make(tr("Draw lines"), ":/PixMaps/line.png", QKeySequence(Qt::CTRL | Qt::Key_L));
    drawLinesAction->setCheckable(true);
    drawLinesAction->setChecked(cutParams.drawLines);
    gridAction = make(tr("Show grid"), ":/PixMaps/grid.svg", QKeySequence(Qt::CTRL | Qt::Key_G));
    gridAction->setCheckable(true);
    gridAction->setChecked(cutParams.grid);
    fitAction = make(tr("Fit"), ":/PixMaps/zoom_fit.svg", QKeySequence(Qt::CTRL | Qt::Key_0));
    fitAction->setObjectName(QStringLiteral("actionFit"));
    fitAction->setToolTip(tr("Fit the newest line into the view (Ctrl+0)"));
    // Only while the focus is inside this view: other views have their own Fit.
    fitAction->setShortcutContext(Qt::WidgetWithChildrenShortcut);
    addAction(fitAction);
    measureAction = make(tr("Measure"), ":/PixMaps/measure.svg", QKeySequence(Qt::Key_M));
    measureAction->setObjectName(QStringLiteral("actionMeasure"));
    measureAction->setCheckable(true);
    measureAction->setToolTip(tr("Measure: drag to mark a region, click two points (M)"));
    // An ordinary key: only while the focus is inside this view.
    measureAction->setShortcutContext(Qt::WidgetWithChildrenShortcut);
    addAction(measureAction);
    const auto measureOnly = [this](const QString& text, const char* name) {
        auto* a = new QAction(text, this);
        a->setObjectName(QString::fromLatin1(name));
        // Shown with the Measure mode only.
        a->setVisible(false);
        toolBarWidget->addAction(a);
        return a;
    };
    takeReferenceAction = measureOnly(tr("Take reference"), "actionTakeReference");
    clearReferenceAction = measureOnly(tr("Clear reference"), "actionClearReference");
    copyValuesAction = measureOnly(tr("Copy values"), "actionCopyValues");

    connect(zoomInAction, &QAction::triggered, this, &CutView::handleZoomIn);
    connect(zoomOutAction, &QAction::triggered, this, &CutView::handleZoomOut);
    connect(homeAction, &QAction::triggered, this, &CutView::handleZoomHome);
    connect(pointSizeAction, &QAction::triggered, this, &CutView::handlePointSize);
    connect(drawLinesAction, &QAction::triggered, this, &CutView::handleDrawMode);
    connect(gridAction, &QAction::triggered, this, &CutView::handleGrid);
    connect(fitAction, &QAction::triggered, this, &CutView::handleFit);
    connect(measureAction, &QAction::toggled, this, &CutView::setMeasureMode);
    connect(takeReferenceAction, &QAction::triggered, this, &CutView::takeReference);
    connect(clearReferenceAction, &QAction::triggered, this, &CutView::clearReference);
    connect(copyValuesAction, &QAction::triggered, this, &CutView::copyValues);
    return toolBarWidget;
}

void CutView::updateNewLine(vxlindral::LineType newLine)
{
    currentLine = std::move(newLine);
    if (firstLine) {
        firstLine = false;
        cutParams.scale = kHomeScale;
        pan = QPoint(0, 0);
        updateImage();
    }
    if (!currentLine)
        return;
    cutParams.offsetX = pan.x();
    cutParams.offsetY = pan.y();
    cutParams.displayFiltered = isFilteredDisplayed();
    // Drawn at the next frame with the parameters of now: a later pan or
    // filter switch must not reach this line's picture.
    pendingLine = currentLine;
    pendingParams = cutParams;
    frames->markPending();
    // The first picture of a new size (first line, first after a resize)
    // resizes the label: drawn at once, so that no paint finds the label at
    // the old size.
    if (label && label->size() != pixmap.size())
        frames->flush();
}

void CutView::drawPending()
{
    if (!pendingLine)
        return;
    const LineType line = std::move(pendingLine);
    pendingLine.reset();
    // The label shares the pixmap; letting go of it first spares drawing a
    // full copy of the picture (the label gets it back right after).
    if (label)
        label->clear();
    // The view's own framing is decided here, once per display frame, from
    // the line drawn and the frame shown so far.
    if (framing != ViewFraming::User) {
        if (cutFrame(*line, pendingParams, pixmap.width(), pixmap.height(), visibleRect(), minScale,
                     maxScale, fitPending, pendingParams.scale, pendingParams.offsetX,
                     pendingParams.offsetY)) {
            cutParams.scale = pendingParams.scale;
            pan = QPoint(pendingParams.offsetX, pendingParams.offsetY);
            fitPending = false;
        }
    }
    drawCut(*line, pendingParams, pixmap);
    shownLine = line;
    shownParams = pendingParams;
    shownSize = pixmap.size();
    if (measuring) {
        measureShown();
        measurer.draw(pixmap, shownParams);
    }
    showPixmap();
}

void CutView::measureShown()
{
    measurer.measure(shownLine.get());
    if (panel)
        panel->showRows(measurer.rows());
}

QImage CutView::picture()
{
    return image().toImage();
}

void CutView::clearLines(uint64_t)
{
    currentLine.reset();
    pendingLine.reset();
    shownLine.reset();
    measureShown();
    if (label)
        label->clear();
    if (!pixmap.isNull())
        pixmap.fill(Qt::white);
}

const QPixmap& CutView::image()
{
    frames->flush();
    return pixmap;
}

QRect CutView::visibleRect() const
{
    const QRect whole(QPoint(0, 0), pixmap.size());
    if (!label || !scrollArea || !scrollArea->isVisible())
        return whole;
    // The label holds the picture at its full size; the scroll area (no
    // scroll bars) shows the part of it that fits its viewport.
    const QWidget* port = scrollArea->viewport();
    const QRect shown = QRect(-label->mapTo(port, QPoint(0, 0)), port->size()) & whole;
    return shown.isEmpty() ? whole : shown;
}

QPoint CutView::labelCentre() const
{
    const QRect g = label ? label->geometry() : QRect();
    return {(g.left() + g.right()) / 2, (g.top() + g.bottom()) / 2};
}

void CutView::applyClickPoint()
{
    if (clickPoint.isNull())
        return;
    pan += labelCentre() - clickPoint;
    clickPoint = QPoint(0, 0);
}

void CutView::takeOverFraming()
{
    if (framing == ViewFraming::User)
        return;
    // A frame still to come would frame the newest line: the user starts
    // from that frame.
    if (currentLine && !pixmap.isNull()) {
        CutParams shown = cutParams;
        shown.offsetX = pan.x();
        shown.offsetY = pan.y();
        shown.displayFiltered = isFilteredDisplayed();
        int x = pan.x(), y = pan.y();
        if (cutFrame(*currentLine, shown, pixmap.width(), pixmap.height(), visibleRect(), minScale,
                     maxScale, fitPending, cutParams.scale, x, y))
            pan = QPoint(x, y);
    }
    framing = ViewFraming::User;
    fitPending = false;
}

void CutView::handleCenter()
{
    if (!clickPoint.isNull())
        takeOverFraming();
    applyClickPoint();
}

void CutView::handleZoomIn()
{
    takeOverFraming();
    // The limit is tested before the step, so the scale may end one step
    // beyond it.
    if (cutParams.scale > minScale) {
        cutParams.scale *= 0.8f;
        pan = QPoint(roundHalfAway(pan.x() * 1.25f), roundHalfAway(pan.y() * 1.25f));
    }
    applyClickPoint();
    updateImage();
}

void CutView::handleZoomOut()
{
    takeOverFraming();
    if (maxScale > cutParams.scale) {
        cutParams.scale *= 1.25f;
        pan = QPoint(roundHalfAway(pan.x() * 0.8f), roundHalfAway(pan.y() * 0.8f));
    }
    applyClickPoint();
    updateImage();
}

void CutView::handleZoomHome()
{
    framing = ViewFraming::Home;
    fitPending = false;
    cutParams.scale = kHomeScale;
    pan = QPoint(0, 0);
    updateImage();
}

void CutView::handleFit()
{
    framing = ViewFraming::Fit;
    fitPending = true;
    updateImage();
}

void CutView::handlePointSize()
{
    cutParams.pointSize = cutParams.pointSize + 1 < 6 ? cutParams.pointSize + 1 : 1;
    if (pointSizeAction)
        pointSizeAction->setIcon(
            QIcon(QStringLiteral(":/PixMaps/pointsize%1.svg").arg(cutParams.pointSize)));
}

void CutView::handleGrid()
{
    cutParams.grid = !cutParams.grid;
    if (gridAction)
        gridAction->setChecked(cutParams.grid);
}

void CutView::handleDrawMode()
{
    cutParams.drawLines = !cutParams.drawLines;
    if (drawLinesAction)
        drawLinesAction->setChecked(cutParams.drawLines);
}

void CutView::updateImage()
{
    if (pixmap.isNull())
        pixmap = QPixmap(viewSize());
    if (currentLine)
        updateNewLine(currentLine);
}

void CutView::updateImageLabel()
{
    frames->flush();
    showPixmap();
}

void CutView::showPixmap()
{
    if (!label)
        return;
    label->setPixmap(pixmap);
    label->adjustSize();
}

void CutView::handleConfigChanged() {}

void CutView::resizeEvent(QResizeEvent* event)
{
    // A line still pending belongs to the picture before the resize, which
    // the label keeps showing; the new pixmap stays uninitialised until the next
    // line or updateImage().
    frames->flush();
    QMdiSubWindow::resizeEvent(event);
    pixmap = QPixmap(viewSize());
}

void CutView::wheelEvent(QWheelEvent* event)
{
    // The single legacy delta: the dominant axis of the angle delta.
    const QPoint a = event->angleDelta();
    const int delta = qAbs(a.x()) > qAbs(a.y()) ? a.x() : a.y();
    if (delta >= 1)
        handleZoomIn();
    else
        handleZoomOut();
    event->accept();
}

void CutView::mousePressEvent(QMouseEvent* event)
{
    const QPoint pos = event->localPos().toPoint();
    if (measuring) {
        // No pan and no zoom centre: the press starts a region or a pick.
        startMeasurePress(pos);
        QMdiSubWindow::mousePressEvent(event);
        return;
    }
    dragAnchor = pos;
    const QPoint p = scrollArea ? scrollArea->mapFrom(this, pos) : pos;
    clickPoint = p;
    QMdiSubWindow::mousePressEvent(event);

    const QPoint centre = labelCentre();
    const int u = p.x() - pan.x() - centre.x();
    const int v = p.y() - pan.y() - centre.y();
    // The readout divides by a fixed 500.0 and ignores the orientation flags.
    const double x = static_cast<float>(u) * cutParams.scale / 500.0;
    const double y = static_cast<float>(v) * cutParams.scale / 500.0;
    double a = std::atan2(x, y) * 180.0 / M_PI;
    if (a < 0)
        a += 360.0;
    a += 180.0;
    if (a > 360.0)
        a -= 360.0;
    if (a < 0)
        a += 360.0;
    if (a >= 360.0)
        a = 0.0;
    emit updateStatusBar(QStringLiteral("u: %1 v: %2 x: %3m y: %4m a: %5deg")
                             .arg(u)
                             .arg(v)
                             .arg(x, 0, 'g')
                             .arg(y, 0, 'g')
                             .arg(a, 0, 'g'));
}

void CutView::startMeasurePress(const QPoint& pos)
{
    pressAt = picturePoint(pos);
    pressY = cutY(pressAt.x(), paramsOnShow(), sizeOnShow().width());
    regionDrag = false;
}

void CutView::mouseMoveEvent(QMouseEvent* event)
{
    if (measuring && (event->buttons() & Qt::LeftButton)) {
        const QPoint q = picturePoint(event->localPos().toPoint());
        if (!regionDrag && (q - pressAt).manhattanLength() >= QApplication::startDragDistance())
            regionDrag = true;
        // The region starts where the press was in metres, should the
        // frame change while dragging.
        if (regionDrag)
            setMeasureRegion(pressY, cutY(q.x(), paramsOnShow(), sizeOnShow().width()));
    } else if (event->buttons() & Qt::LeftButton) {
        const QPoint q = event->localPos().toPoint();
        if (q != dragAnchor)
            takeOverFraming();
        pan += q - dragAnchor;
        dragAnchor = q;
    }
    QMdiSubWindow::mouseMoveEvent(event);
}

void CutView::mouseDoubleClickEvent(QMouseEvent* event)
{
    const QPoint pos = event->localPos().toPoint();
    if (measuring) {
        // Two quick picks are two presses, not a re-centring.
        startMeasurePress(pos);
        return;
    }
    const QPoint p = scrollArea ? scrollArea->mapFrom(this, pos) : pos;
    clickPoint = p;
    if (p.isNull())
        return;
    takeOverFraming();
    pan += labelCentre() - p;
    clickPoint = QPoint(0, 0);
}

void CutView::mouseReleaseEvent(QMouseEvent* event)
{
    if (measuring && event->button() == Qt::LeftButton && !regionDrag) {
        measurer.pick(shownLine.get(), pressAt, paramsOnShow(), sizeOnShow());
        refreshMeasure();
    }
    regionDrag = false;
    QMdiSubWindow::mouseReleaseEvent(event);
}

QPoint CutView::picturePoint(const QPoint& viewPos) const
{
    // The label holds the picture at its full size from its top left.
    return label ? label->mapFrom(this, viewPos) : viewPos;
}

CutParams CutView::paramsOnShow() const
{
    if (shownLine)
        return shownParams;
    CutParams p = cutParams;
    p.offsetX = pan.x();
    p.offsetY = pan.y();
    return p;
}

QSize CutView::sizeOnShow() const
{
    return shownLine ? shownSize : pixmap.size();
}

bool CutView::measureRegion(double& y0, double& y1) const
{
    // Out of Measure mode the region is kept but neither drawn nor measured.
    return measuring && measurer.region(y0, y1);
}

void CutView::setMeasureRegion(double y0, double y1)
{
    measurer.setRegion(y0, y1);
    refreshMeasure();
    emit measureRegionChanged();
}

void CutView::refreshMeasure()
{
    if (currentLine)
        updateImage();
    else
        measureShown();
}

void CutView::setMeasureMode(bool on)
{
    measuring = on;
    regionDrag = false;
    if (measureAction && measureAction->isChecked() != on)
        measureAction->setChecked(on);
    for (QAction* a : {takeReferenceAction, clearReferenceAction, copyValuesAction})
        if (a)
            a->setVisible(on);
    if (panel)
        panel->setVisible(on);
    // The picture gains or loses the marks; the panel its values.
    refreshMeasure();
}

void CutView::takeReference()
{
    if (!shownLine)
        return;
    measurer.setReference(shownLine);
    refreshMeasure();
}

void CutView::clearReference()
{
    measurer.setReference(nullptr);
    refreshMeasure();
}

void CutView::copyValues()
{
    if (panel)
        QApplication::clipboard()->setText(panel->text());
}

} // namespace vxlindral
