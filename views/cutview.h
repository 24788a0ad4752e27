#pragma once
#include "views/basicview.h"
#include "views/cutparams.h"

#include <QPixmap>
#include <QPoint>

class QAction;

namespace vxlindral {

// The cut view: the newest line plotted at its y and z coordinates in metres,
// with zoom (wheel, tool bar, keys), pan by dragging, re-centring by
// double-click, a metric grid, a polyline mode, the point size and a cursor
// readout for the status bar.
// Ownership: keeps the newest line's handle and its own pixmap; actions are
// children of the view. Threads: GUI thread only.
class CutView : public BasicView
{
    Q_OBJECT
public:
    explicit CutView(QWidget* parent = nullptr);
    ~CutView() override;

    void createContent() override;
    QToolBar* toolBar() override;

    const CutParams& params() const { return cutParams; }
    const QPixmap& image() const { return pixmap; }
    QPoint panOffset() const { return pan; }
    float minimumScale() const { return minScale; }
    float maximumScale() const { return maxScale; }
    void setScale(float scale) { cutParams.scale = scale; }

public slots:
    void updateNewLine(vxlindral::LineType newLine) override;
    void handleCenter();
    void handleZoomIn();
    void handleZoomOut();
    void handleZoomHome();
    void handlePointSize();
    void handleGrid();
    void handleDrawMode();
    void updateImage();
    void updateImageLabel();
    void handleConfigChanged() override;

protected:
    void resizeEvent(QResizeEvent* event) override;
    void wheelEvent(QWheelEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseDoubleClickEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;

private:
    QPoint labelCentre() const;
    void applyClickPoint();
    QSize viewSize() const;

    CutParams cutParams;
    float minScale = 0.1f;
    float maxScale = 500.0f;
    LineType currentLine;
    QPixmap pixmap;
    QPoint pan;
    QPoint dragAnchor;
    QPoint clickPoint;

    QAction* zoomInAction = nullptr;
    QAction* zoomOutAction = nullptr;
    QAction* homeAction = nullptr;
    QAction* pointSizeAction = nullptr;
    QAction* drawLinesAction = nullptr;
    QAction* gridAction = nullptr;
};

} // namespace vxlindral
