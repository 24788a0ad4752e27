#include "views/input.h"

#include <algorithm>
#include <vector>

namespace vxlindral {

namespace {

template <typename T> struct InputInstance
{
    T value;
    Input::InputState state;
    bool operator==(const T& v) const { return value == v; }
};

using KeyInstance = InputInstance<int>;
using ButtonInstance = InputInstance<Qt::MouseButton>;

// The process-wide tables. Only the GUI thread touches them.
std::vector<KeyInstance>& keys()
{
    static std::vector<KeyInstance> table;
    return table;
}

std::vector<ButtonInstance>& buttons()
{
    static std::vector<ButtonInstance> table;
    return table;
}

template <typename T>
typename std::vector<InputInstance<T>>::iterator find(std::vector<InputInstance<T>>& table,
                                                      const T& v)
{
    return std::find(table.begin(), table.end(), v);
}

template <typename T> void advance(std::vector<InputInstance<T>>& table)
{
    // Released entries are gone after one frame.
    table.erase(
        std::remove_if(table.begin(), table.end(),
                       [](const InputInstance<T>& i) { return i.state == Input::InputReleased; }),
        table.end());
    for (auto& i : table) {
        switch (i.state) {
        case Input::InputRegistered:
            i.state = Input::InputTriggered;
            break;
        case Input::InputTriggered:
            i.state = Input::InputPressed;
            break;
        case Input::InputUnregistered:
            i.state = Input::InputReleased;
            break;
        default:
            break;
        }
    }
}

template <typename T> void press(std::vector<InputInstance<T>>& table, const T& v)
{
    auto it = find(table, v);
    if (it == table.end())
        table.push_back({v, Input::InputRegistered});
    else if (it->state == Input::InputUnregistered || it->state == Input::InputReleased)
        it->state = Input::InputRegistered;
}

template <typename T> void release(std::vector<InputInstance<T>>& table, const T& v)
{
    auto it = find(table, v);
    if (it != table.end())
        it->state = Input::InputUnregistered;
}

template <typename T> Input::InputState stateOf(std::vector<InputInstance<T>>& table, const T& v)
{
    auto it = find(table, v);
    return it == table.end() ? Input::InputInvalid : it->state;
}

bool held(Input::InputState s)
{
    return s == Input::InputTriggered || s == Input::InputPressed;
}

} // namespace

QPoint Input::currentMouse;
QPoint Input::previousMouse;
QPoint Input::frameDelta;

Input::InputState Input::keyState(Qt::Key key)
{
    return stateOf(keys(), static_cast<int>(key));
}

bool Input::keyPressed(Qt::Key key)
{
    return held(keyState(key));
}

Input::InputState Input::buttonState(Qt::MouseButton button)
{
    return stateOf(buttons(), button);
}

bool Input::buttonPressed(Qt::MouseButton button)
{
    return held(buttonState(button));
}

bool Input::idle()
{
    return keys().empty() && buttons().empty();
}

void Input::update()
{
    frameDelta = currentMouse - previousMouse;
    previousMouse = currentMouse;
    advance(keys());
    advance(buttons());
}

void Input::registerKeyPress(int key)
{
    press(keys(), key);
}

void Input::registerKeyRelease(int key)
{
    release(keys(), key);
}

void Input::registerMousePress(Qt::MouseButton button)
{
    press(buttons(), button);
}

void Input::registerMouseRelease(Qt::MouseButton button)
{
    release(buttons(), button);
}

void Input::setMousePosition(const QPoint& pos)
{
    currentMouse = pos;
}

void Input::startMouseAt(const QPoint& pos)
{
    currentMouse = pos;
    previousMouse = pos;
}

void Input::reset()
{
    keys().clear();
    buttons().clear();
    frameDelta = QPoint();
    previousMouse = currentMouse;
}

} // namespace vxlindral
