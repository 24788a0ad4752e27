#include "app/viewarea.h"

#include "views/basicview.h"

#include <QMdiArea>
#include <QMdiSubWindow>

namespace vxlindral {

void ViewArea::add(BasicView* view)
{
    QMdiSubWindow* active = mdi->currentSubWindow();
    const bool maximised = active && active->isMaximized();
    mdi->addSubWindow(view, Qt::WindowFlags());
    view->setVisible(true);
    if (maximised)
        view->setWindowState(Qt::WindowMaximized);
    else
        tile();
}

void ViewArea::toggle(BasicView* view)
{
    QMdiSubWindow* active = mdi->currentSubWindow();
    if (active && active->isMaximized()) {
        view->setVisible(true);
        view->setWindowState(Qt::WindowMaximized);
        return;
    }
    view->setVisible(!view->isVisible());
    tile();
}

void ViewArea::tile()
{
    if (mdi->isVisible())
        mdi->tileSubWindows();
}

void ViewArea::maximiseCurrent()
{
    QMdiSubWindow* active = mdi->currentSubWindow();
    const QList<QMdiSubWindow*> windows = mdi->subWindowList(QMdiArea::ActivationHistoryOrder);
    if (!active && !windows.isEmpty())
        active = windows.last();
    if (active)
        active->showMaximized();
}

BasicView* ViewArea::current() const
{
    return qobject_cast<BasicView*>(mdi->currentSubWindow());
}

BasicView* ViewArea::recent(const std::function<bool(BasicView*)>& accept, bool visible,
                            int firstCaptureKey) const
{
    const BasicView* active = current();
    const int capture = active && active->getPort() >= firstCaptureKey ? active->getPort() : 0;
    const auto fits = [&](QMdiSubWindow* w) {
        auto* view = qobject_cast<BasicView*>(w);
        return view && (!visible || view->isVisible()) &&
                       (!capture || view->getPort() == capture) && accept(view)
                   ? view
                   : nullptr;
    };
    if (BasicView* view = fits(mdi->currentSubWindow()))
        return view;
    // Most recently active last.
    const QList<QMdiSubWindow*> windows = mdi->subWindowList(QMdiArea::ActivationHistoryOrder);
    for (auto it = windows.rbegin(); it != windows.rend(); ++it) {
        if (BasicView* view = fits(*it))
            return view;
    }
    return nullptr;
}

} // namespace vxlindral
