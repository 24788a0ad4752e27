#pragma once
#include "views/cutparams.h"

class QPixmap;
class QRect;

namespace vxlindral {

class MyLine;

// Draws one line as a cut (y to the side, z upward, in metres) into the
// pixmap, with the optional metric grid. All cut views share one drawing lock
// for the whole run. Threads: GUI thread (QPixmap).
void drawCut(const MyLine& line, const CutParams& params, QPixmap& pixmap);

// The zoom scale and pan (pixels) with which a view that frames the profile
// by itself shows `line` in a w x h pixmap of which the part `shown` is
// seen, starting from the present ones (params.scale, params.offsetX and
// offsetY). The profile is what drawCut would draw of the line (all points
// when params.displayFiltered, else the good ones), leaving out the points
// that measured nothing (range 0, drawn at the scanner's position). The
// present frame stays while the profile lies inside `shown` and spans at
// least a tenth of its width or height, unless `fit` asks for a fit. A fit
// centres the profile's extent, snapped outward to a grid of an eighth of
// its size or finer (a power of two metres, per axis), in `shown` and lets
// it take 90 % of the width or height there, at one scale for both axes,
// within [minScale, maxScale]: the data keeps a margin, and small changes
// of the profile fit to the same frame. A profile on one spot keeps the
// present scale and is centred. True with the new scale and pan after a
// fit; false, with them untouched, when the present frame stays or no point
// would be drawn.
bool cutFrame(const MyLine& line, const CutParams& params, int w, int h, const QRect& shown,
              float minScale, float maxScale, bool fit, float& scale, int& panX, int& panY);

// Where drawCut puts a point in a pixmap w x h: the column of y and the row
// of z (metres), rounded half away from zero, pan included. Half the width
// spans params.scale metres on both axes; both axes are negated unless
// oriented. Every drawing on top of the points (the measure band, the
// picked points) maps with these, so that it falls on the points.
int cutColumn(double y, const CutParams& params, int w);
int cutRow(double z, const CutParams& params, int w, int h);
// The inverse: y and z in metres at a pixel's column and row.
double cutY(int column, const CutParams& params, int w);
double cutZ(int row, const CutParams& params, int w, int h);

// The grid step for a zoom scale: metres and the millimetre unit the grid
// spacing is computed from.
void cutGridStep(float scale, double& stepMetres, int& unit);

} // namespace vxlindral
