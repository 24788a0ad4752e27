#pragma once
#include "views/cutparams.h"
#include "views/viewframing.h"

class QPixmap;

namespace vxlindral {

class MyLine;

// Draws one line as a cut (y to the side, z upward, in metres) into the
// pixmap, with the optional metric grid. All cut views share one drawing lock
// for the whole run. Threads: GUI thread (QPixmap).
void drawCut(const MyLine& line, const CutParams& params, QPixmap& pixmap);

// The zoom scale and pan (pixels) with which `framing` shows `line` in a
// w x h pixmap. The profile is what drawCut would draw of the line (all
// points when params.displayFiltered, else the good ones), leaving out the
// points that measured nothing (range 0, drawn at the scanner's position).
// A fit centres the profile's extent snapped outward to a grid of an eighth
// of its size or finer (a power of two metres, per axis) and lets that take
// 90 % of the width or height, at one scale for both axes, within [minScale,
// maxScale]: the data keeps a margin, and the frame stays put while the
// profile changes by less than a grid step. A profile on one spot is
// centred at the home scale. A pure function of the line, its parameters
// and the size, so that the frame shows what drawing every line would.
// False, with scale and pan untouched, for ViewFraming::User or when no
// point would be drawn.
bool cutFrame(ViewFraming framing, const MyLine& line, const CutParams& params, int w, int h,
              float homeScale, float minScale, float maxScale, float& scale, int& panX,
              int& panY);

// The grid step for a zoom scale: metres and the millimetre unit the grid
// spacing is computed from.
void cutGridStep(float scale, double& stepMetres, int& unit);

} // namespace vxlindral
