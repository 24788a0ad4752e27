#pragma once
#include "line/myline.h"

#include <QMetaType>
#include <memory>

namespace vxlindral {

// The shared handle to one line: the only form in which a line travels
// between objects (queued calls, signals, views).
using LineType = std::shared_ptr<MyLine>;

// Registers LineType with Qt's meta-type system under "vxlindral::LineType"
// once per process and returns its type id. Any thread; cheap after the first
// call.
int registerLineType();

} // namespace vxlindral

Q_DECLARE_METATYPE(vxlindral::LineType)
