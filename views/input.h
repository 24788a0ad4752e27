#pragma once
#include <QPoint>
#include <Qt>

namespace vxlindral {

// The process-wide input table of the 3D view: which keys and mouse buttons
// are held, and the mouse movement since the previous frame. Press and release
// handlers register events; update() advances the table once per frame.
// A key or button counts as held from its press to its release (auto-repeat
// presses are ignored by the caller).
// Threads: GUI thread only (a static table without locking).
class Input
{
public:
    enum InputState
    {
        InputInvalid,
        InputRegistered,   // pressed, not yet seen by a frame
        InputUnregistered, // released, not yet seen by a frame
        InputTriggered,    // pressed since the last frame
        InputPressed,      // held
        InputReleased      // released since the last frame
    };

    static InputState keyState(Qt::Key key);
    static bool keyTriggered(Qt::Key key) { return keyState(key) == InputTriggered; }
    static bool keyPressed(Qt::Key key);
    static bool keyReleased(Qt::Key key) { return keyState(key) == InputReleased; }

    static InputState buttonState(Qt::MouseButton button);
    static bool buttonTriggered(Qt::MouseButton button)
    {
        return buttonState(button) == InputTriggered;
    }
    static bool buttonPressed(Qt::MouseButton button);
    static bool buttonReleased(Qt::MouseButton button)
    {
        return buttonState(button) == InputReleased;
    }

    // True when no key or button is in the table (none held, none whose
    // press or release a frame still has to see).
    static bool idle();

    static QPoint mousePosition() { return currentMouse; }
    // Mouse movement between the last two frames (set by update()).
    static QPoint mouseDelta() { return frameDelta; }

    // Advances the table by one frame: triggered becomes pressed, released
    // entries disappear, registrations take effect.
    static void update();
    static void registerKeyPress(int key);
    static void registerKeyRelease(int key);
    static void registerMousePress(Qt::MouseButton button);
    static void registerMouseRelease(Qt::MouseButton button);
    static void setMousePosition(const QPoint& pos);
    // Sets both the current and the previous position, so that a press does
    // not count as movement.
    static void startMouseAt(const QPoint& pos);
    // Forgets every key and button (e.g. when the widget loses focus).
    static void reset();

private:
    static QPoint currentMouse;
    static QPoint previousMouse;
    static QPoint frameDelta;
};

} // namespace vxlindral
