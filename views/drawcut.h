#pragma once
#include "views/cutparams.h"

class QPixmap;

namespace vxlindral {

class MyLine;

// Draws one line as a cut (y to the side, z upward, in metres) into the
// pixmap, with the optional metric grid. All cut views share one drawing lock
// for the whole run. Threads: GUI thread (QPixmap).
void drawCut(const MyLine& line, const CutParams& params, QPixmap& pixmap);

// The grid step for a zoom scale: metres and the millimetre unit the grid
// spacing is computed from.
void cutGridStep(float scale, double& stepMetres, int& unit);

} // namespace vxlindral
