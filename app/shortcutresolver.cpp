#include "app/shortcutresolver.h"

#include "views/basicview.h"

#include <QAction>
#include <QApplication>
#include <QShortcutEvent>
#include <QWidget>

namespace vxlindral {

namespace {

// The view `w` lies in; null outside every view.
BasicView* viewAround(QWidget* w)
{
    for (; w; w = w->parentWidget()) {
        if (auto* view = qobject_cast<BasicView*>(w))
            return view;
    }
    return nullptr;
}

bool fires(const QAction* action, const QKeySequence& key)
{
    return action->isEnabled() && action->shortcuts().contains(key);
}

} // namespace

ShortcutResolver::ShortcutResolver(QWidget* w) : QObject(w), window(w) {}

QAction* ShortcutResolver::actionFor(const QKeySequence& key, QWidget* focus) const
{
    if (BasicView* view = viewAround(focus)) {
        for (QAction* action : view->findChildren<QAction*>()) {
            if (fires(action, key))
                return action;
        }
    }
    for (QAction* action : window->findChildren<QAction*>()) {
        const auto* owner = qobject_cast<QWidget*>(action->parent());
        if (fires(action, key) && !viewAround(const_cast<QWidget*>(owner)))
            return action;
    }
    return nullptr;
}

bool ShortcutResolver::eventFilter(QObject* watched, QEvent* event)
{
    if (event->type() != QEvent::Shortcut)
        return false;
    auto* shortcut = static_cast<QShortcutEvent*>(event);
    if (!shortcut->isAmbiguous() || !qobject_cast<QAction*>(watched) ||
        QApplication::activeWindow() != window)
        return false;
    if (QAction* action = actionFor(shortcut->key(), QApplication::focusWidget()))
        action->trigger();
    return true;
}

} // namespace vxlindral
