#pragma once

namespace vxlindral {

// Who frames what a cut or 3D view shows. Until the user zooms, pans or
// turns the view, the view frames the data itself: Home keeps the home
// framing (the cut view's home scale, the 3D view's home camera) while the
// data lies inside the picture there and spans at least a tenth of it, and
// fits the data otherwise; Fit always fits it. The user's navigation takes
// the framing over; Home and Fit hand it back. (decisions/views.md,
// "Automatic framing")
enum class ViewFraming
{
    User,
    Home,
    Fit,
};

} // namespace vxlindral
