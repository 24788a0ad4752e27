#pragma once

#include <cmath>

namespace vxlindral {

// Who frames what a cut or 3D view shows. Until the user zooms, pans or
// turns the view, the view frames the data itself: once per display frame
// it checks the data against the frame it shows, keeps that frame while the
// data lies inside the picture and spans at least a tenth of its width or
// height, and fits the data (with a margin) otherwise. Home starts from the
// home framing (the cut view's home scale, the 3D view's home camera), Fit
// from a fit made at once; a new view starts as after Home. The user's
// navigation takes the framing over; Home and Fit hand it back.
// (decisions/views.md, "Automatic framing")
enum class ViewFraming
{
    User,
    Home,
    Fit,
};

// The lowest and highest multiple of a grid step that enclose [lo, hi]; the
// step is the power of two at most an eighth of the extent (T is float or
// double). Views that frame by themselves snap their data's extent so, so
// that a frame changes only in steps.
template <typename T> void snapOutward(T& lo, T& hi)
{
    const T extent = hi - lo;
    if (!(extent > T(0)))
        return;
    const T g = std::exp2(std::floor(std::log2(extent / T(8))));
    lo = std::floor(lo / g) * g;
    hi = std::ceil(hi / g) * g;
}

} // namespace vxlindral
