#pragma once
#include <QObject>

class QAction;
class QWidget;

namespace vxlindral {

// Settles the keys that the window and a view both use (Ctrl+P is Freeze in
// the window and "Increase point size" in the cut view; Ctrl+H and Ctrl+M are
// used by several views). Qt finds such a key ambiguous whenever both
// actions are in reach, and then triggers neither. This filter takes the
// ambiguous shortcut event instead and triggers one action: the one of the
// view that holds the focus, else the window's own.
//
// Ownership: owned by the window, which it watches; installed on the
// application by the window. Threads: GUI thread only.
class ShortcutResolver : public QObject
{
    Q_OBJECT
public:
    explicit ShortcutResolver(QWidget* window);

    // The action that `key` triggers with the focus on `focus`: an enabled
    // action of the view around the focus, else one of the window's outside
    // every view; null when there is none.
    QAction* actionFor(const QKeySequence& key, QWidget* focus) const;

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    QWidget* const window;
};

} // namespace vxlindral
