#pragma once
#include <functional>

class QMdiArea;

namespace vxlindral {

class BasicView;

// The window's MDI area as the views see it: where a new view goes (into
// the maximised layout when the current view is maximised, else tiled),
// showing and hiding a view, and which view an action acts on (the active
// one, else the one active last).
//
// Ownership: the area belongs to the window's form; the views to the area.
// Threads: GUI thread only.
class ViewArea
{
public:
    explicit ViewArea(QMdiArea* area) : mdi(area) {}

    // Adds `view` as a sub-window and shows it.
    void add(BasicView* view);
    // Shows a hidden view and hides a shown one; in the maximised layout it
    // is brought back in front instead.
    void toggle(BasicView* view);
    // Tiles the views, once the area is on the screen: a hidden area keeps
    // tiling requests and runs them when first shown, which would undo the
    // maximised view that a stream opened at start-up shows.
    void tile();
    // Maximises the current sub-window; before the window is first shown
    // none has been activated yet, and the latest one added counts.
    void maximiseCurrent();
    // The active view; null when none is.
    BasicView* current() const;
    // The active view, else the view active last that passes `accept`
    // (visible ones only when `visible`); while a capture's view is active,
    // only that capture's views count. Null when there is none.
    BasicView* recent(const std::function<bool(BasicView*)>& accept, bool visible,
                      int firstCaptureKey) const;

private:
    QMdiArea* mdi;
};

} // namespace vxlindral
