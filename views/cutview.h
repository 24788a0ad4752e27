#pragma once
#include "views/basicview.h"
#include "views/cutmeasure.h"
#include "views/cutparams.h"
#include "views/framesync.h"
#include "views/viewframing.h"

#include <QPixmap>
#include <QPoint>
#include <QRect>

class QAction;

namespace vxlindral {

class MeasurePanel;

// The cut view: the newest line plotted at its y and z coordinates in metres,
// with zoom (wheel, tool bar, keys), pan by dragging, re-centring by
// double-click, a metric grid, a polyline mode, the point size and a cursor
// readout for the status bar.
// A line is drawn once per display frame: updateNewLine keeps the newest line
// with the drawing parameters of its arrival, and the frame (or any paint of
// the label before it) draws that line alone, which is exactly the picture
// drawing every line at its arrival would leave.
// Until the user zooms or pans, the view frames the profile itself (see
// ViewFraming and cutFrame): once per display frame it checks the line it
// draws against the zoom and pan shown so far and fits the profile when it
// left the picture or spans less than a tenth of it. Zooming or panning
// takes the framing over from what the view shows; Home and Fit hand it
// back.
// Measure mode (the checkable "Measure" action, M in the view): dragging
// marks a region of interest along y instead of panning, a click without
// dragging picks a point (two give a pair, a third starts over), and a panel
// right of the picture shows the measures of the line on show (CutMeasure,
// MeasurePanel), brought up to date when the frame draws it; a reference
// line adds the difference profile. The wheel still zooms.
// Ownership: keeps the newest line's handle, the line on show's, the
// reference's (in CutMeasure) and its own pixmap; actions, the panel and the
// frame pacer are children of the view. Threads: GUI thread only.
class CutView : public BasicView
{
    Q_OBJECT
public:
    explicit CutView(QWidget* parent = nullptr);
    ~CutView() override;

    void createContent() override;
    QToolBar* toolBar() override;
    // The picture with every line taken in, at its full size.
    QImage picture() override;
    // No current or pending line: the label shows nothing and the picture is
    // white, as before the first line. Zoom, pan, point size, draw mode and
    // grid stay, and the next line is not treated as a first line (which
    // would go back Home): a seek keeps the framing, the user's or the
    // view's own frame, against which the line sought is then checked.
    void clearLines(uint64_t before) override;

    const CutParams& params() const { return cutParams; }
    // The picture, with the newest line drawn.
    const QPixmap& image();
    QPoint panOffset() const { return pan; }
    // The part of the picture the view shows: the scroll area shows the
    // label's top left as far as its viewport reaches (the picture has the
    // size of the whole view, tool bar included). The whole picture while
    // the view is hidden.
    QRect visibleRect() const;
    float minimumScale() const { return minScale; }
    float maximumScale() const { return maxScale; }
    // Sets the zoom as the user's (the view no longer frames by itself).
    void setScale(float scale)
    {
        framing = ViewFraming::User;
        cutParams.scale = scale;
    }
    // Who frames the profile: the view (Home, Fit) or the user.
    ViewFraming framingMode() const { return framing; }

    bool measureMode() const { return measuring; }
    // The region of interest in metres (y0 where the drag began); false
    // when there is none or the view is not in Measure mode.
    bool measureRegion(double& y0, double& y1) const;
    void setMeasureRegion(double y0, double y1);
    const CutMeasure& measurement() const { return measurer; }
    MeasurePanel* measurePanel() const { return panel; }

signals:
    // The region of interest was set or changed (also while it is dragged).
    void measureRegionChanged();

public slots:
    void updateNewLine(vxlindral::LineType newLine) override;
    void handleCenter();
    void handleZoomIn();
    void handleZoomOut();
    // Back to 35 m and no pan, and the view frames the profile again from
    // there: it stays while it shows the profile.
    void handleZoomHome();
    // Fits the profile at the next frame and keeps it framed from then on,
    // until the user zooms or pans.
    void handleFit();
    void handlePointSize();
    void handleGrid();
    void handleDrawMode();
    void updateImage();
    void updateImageLabel();
    void handleConfigChanged() override;
    // Measure mode on or off: the panel shows, a drag marks the region.
    void setMeasureMode(bool on);
    // The line on show becomes the reference (nothing without one).
    void takeReference();
    void clearReference();
    // The panel's rows to the clipboard, tab-separated.
    void copyValues();

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
    // The user zooms or pans from what the view shows (or the frame still
    // to come would show of the newest line): that becomes the user's zoom
    // and pan.
    void takeOverFraming();
    QSize viewSize() const;
    // Draws the pending line into the pixmap and shows it in the label.
    void drawPending();
    void showPixmap();
    // The picture's pixel under a position of the view.
    QPoint picturePoint(const QPoint& viewPos) const;
    // A press in Measure mode at `pos` (view coordinates): the start of a
    // region drag or of a pick.
    void startMeasurePress(const QPoint& pos);
    // The drawing parameters of the picture on show (of the newest line
    // when none is drawn yet).
    CutParams paramsOnShow() const;
    QSize sizeOnShow() const;
    // Redraws the line on show with what the user changed in Measure mode,
    // or, without a line, brings the panel up to date.
    void refreshMeasure();
    void measureShown();

    CutParams cutParams;
    float minScale = 0.1f;
    float maxScale = 500.0f;
    LineType currentLine;
    LineType pendingLine;    // drawn at the next frame
    CutParams pendingParams; // the parameters at the pending line's arrival
    ViewFraming framing = ViewFraming::Home;
    bool fitPending = false; // Fit: the next frame fits, whatever it shows
    FrameSync* frames = nullptr;
    QPixmap pixmap;
    QPoint pan;
    QPoint dragAnchor;
    QPoint clickPoint;
    LineType shownLine;    // the line the picture shows
    CutParams shownParams; // and the parameters it was drawn with,
    QSize shownSize;       // into a picture of this size
    bool measuring = false;
    bool regionDrag = false; // the press became a drag: it marks the region
    QPoint pressAt;          // the press in Measure mode, in picture pixels
    double pressY = 0.0;     // and its y in metres
    CutMeasure measurer;
    MeasurePanel* panel = nullptr;

    QAction* zoomInAction = nullptr;
    QAction* zoomOutAction = nullptr;
    QAction* homeAction = nullptr;
    QAction* pointSizeAction = nullptr;
    QAction* drawLinesAction = nullptr;
    QAction* gridAction = nullptr;
    QAction* fitAction = nullptr;
    QAction* measureAction = nullptr;
    QAction* takeReferenceAction = nullptr;
    QAction* clearReferenceAction = nullptr;
    QAction* copyValuesAction = nullptr;
};

} // namespace vxlindral
