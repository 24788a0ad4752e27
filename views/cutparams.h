#pragma once

namespace vxlindral {

// Drawing parameters of one cut view, passed by reference to drawCut().
// Owned by the view. Threads: GUI thread only.
struct CutParams
{
    bool grid = true;             // axes, grid lines and the grid label
    bool drawLines = false;       // polyline instead of single points
    int pointSize = 1;            // pen width, 1 .. 5
    bool orientY = false;         // false: the vertical factor is negated
    bool orientX = false;         // false: the horizontal factor is negated
    bool displayFiltered = false; // draw rejected points in the reject colour
    float scale = 1.0f;           // metres spanned by half the pixmap's width
    int offsetX = 0;              // pan in pixels
    int offsetY = 0;
};

} // namespace vxlindral
