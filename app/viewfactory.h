#pragma once
#include <QString>

class QWidget;

namespace vxlindral {

class BasicView;

// Builds the five views by kind and names them: a view is found again by its
// object name, formed from the kind's pattern and its source's key (a line
// port, or a capture's key). Stateless; GUI thread only (it builds widgets).
class ViewFactory
{
public:
    // View kinds as the factory takes them.
    enum Kind
    {
        Info = 0,
        Numeric = 1,
        Cut = 2,
        Gray = 3,
        ThreeD = 4,
    };

    // The view of `kind` for source `key`, parented to `parent` (which owns
    // it), named by viewNamePattern. Throws std::invalid_argument for an
    // unknown kind.
    static BasicView* create(int kind, int key, QWidget* parent);
    // Object-name pattern of a view kind ("%1" is the source's key). Throws
    // std::invalid_argument for an unknown kind.
    static QString namePattern(int kind);
};

} // namespace vxlindral
