#pragma once
#include "views/cutparams.h"

class QPixmap;

namespace vxlindral {

class MyLine;

// Draws one line as a cut (y to the side, z upward, in metres) into the
// pixmap, with the optional metric grid. All cut views share one drawing lock
// for the whole run. Threads: GUI thread (QPixmap).
void drawCut(const MyLine& line, const CutParams& params, QPixmap& pixmap);

// The zoom scale and pan (pixels) that fit the points drawCut would draw of
// `line` (all of them when params.displayFiltered, else the good ones) into
// a w x h pixmap, centred, with a margin, both axes at the same scale. The
// scale is kept within [minScale, maxScale]; a line whose points all lie on
// one spot keeps the present scale and is only centred. False, with scale
// and pan untouched, when no point would be drawn.
bool cutFit(const MyLine& line, const CutParams& params, int w, int h, float minScale,
            float maxScale, float& scale, int& panX, int& panY);

// The grid step for a zoom scale: metres and the millimetre unit the grid
// spacing is computed from.
void cutGridStep(float scale, double& stepMetres, int& unit);

} // namespace vxlindral
