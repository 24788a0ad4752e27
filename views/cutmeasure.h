#pragma once
#include "line/linetype.h"
#include "measure/pointpair.h"
#include "measure/profilemeasure.h"
#include "measure/profilepoints.h"
#include "views/cutparams.h"

#include <QPoint>
#include <QString>
#include <QVector>
#include <vector>

class QPixmap;
class QSize;

namespace vxlindral {

class MyLine;

// What the cut view's Measure mode measures on the line it shows, and how it
// marks it on the picture: a region of interest along y (a band over the
// picture's whole height), two picked points with the segment between them,
// and a reference line whose difference from the line on show is drawn and
// measured as a profile of its own. The measures themselves come from the
// measurement library (ProfileMeasure, PointPair), so the window gives the
// numbers the measuring tool gives for the same line and region.
//
// Everything is kept in metres; the drawing maps metres to pixels with the
// same functions as drawCut's points (cutColumn, cutRow), so the band's
// edges and the picked points fall on the points at every size and zoom.
//
// The difference profile: for every pixel index where both the line on show
// and the reference have a measurable point, the point (y of the line, z of
// the line minus z of the reference).
//
// Measuring and drawing allocate nothing once the arrays have grown to a
// line's pixel count; rows() builds the panel's texts, once per frame.
//
// Ownership: owned by the cut view; keeps the reference line's handle and
// its own point arrays. Threads: GUI thread only.
class CutMeasure
{
public:
    // A picked point lies on the nearest drawn profile point within this
    // many pixels of the click, else at the click.
    static constexpr int kSnapRadius = 6;

    // One value of the panel, in its display unit (mm, mm², deg or none);
    // NaN when it has no value.
    struct Row
    {
        QString name;
        double value;
        int decimals;
        QString unit;
    };

    void setRegion(double y0, double y1);
    void clearRegion() { hasRegion = false; }
    // The region in metres, in the order given; false when there is none.
    bool region(double& y0, double& y1) const;

    // Picks the point at pixel `at` of a picture of `size` drawn with
    // `params` from `line` (null: no line on show). A third pick starts a
    // new pair with itself as the first point.
    void pick(const MyLine* line, QPoint at, const CutParams& params, const QSize& size);
    int pickedCount() const { return picked; }
    // The two picked points' measures; false until two are picked.
    bool pair(vxmeasure::PointPair& out) const;

    // Stores `line` as the reference (null: no reference).
    void setReference(LineType line) { reference = std::move(line); }
    bool hasReference() const { return static_cast<bool>(reference); }

    // Measures the region of `line` and of its difference from the
    // reference; null forgets the measures (no line on show).
    void measure(const MyLine* line);
    // Whether the last measure had a line and a region.
    bool measured() const { return haveLine && hasRegion; }
    const vxmeasure::ProfileMeasure::Result& lineResult() const { return lineResults; }
    const vxmeasure::ProfilePoints& differencePoints() const { return difference; }
    // Whether the last measure had a line, a region and a reference.
    bool differenceMeasured() const { return measured() && reference; }
    const vxmeasure::ProfileMeasure::Result& differenceResult() const { return differenceResults; }

    // Draws the band, the difference profile and the picked points over a
    // picture drawn with `params`.
    void draw(QPixmap& pixmap, const CutParams& params);

    // The panel's values: the region's measures of the line, the picked
    // pair, the region's measures of the difference.
    QVector<Row> rows() const;

private:
    bool hasRegion = false;
    double regionY0 = 0.0, regionY1 = 0.0;
    int picked = 0;
    double pickY[2] = {0.0, 0.0};
    double pickZ[2] = {0.0, 0.0};
    LineType reference;
    bool haveLine = false;
    vxmeasure::ProfilePoints linePoints;
    vxmeasure::ProfilePoints difference;
    vxmeasure::ProfileMeasure lineMeasurer;
    vxmeasure::ProfileMeasure differenceMeasurer;
    // Copies of the last results: the library's stay valid only until its
    // next call.
    vxmeasure::ProfileMeasure::Result lineResults;
    vxmeasure::ProfileMeasure::Result differenceResults;
    std::vector<QPoint> scratch; // the difference profile's pixels
};

} // namespace vxlindral
