#pragma once
#include "stream/myline.h"

#include <QMetaType>
#include <memory>
#include <mutex>

namespace vxlindral {

// The shared handle to one line: the only form in which a line travels
// between objects (queued calls, signals, views).
using LineType = std::shared_ptr<MyLine>;

// Registers LineType with Qt's meta-type system under "vxlindral::LineType"
// once per process and returns its type id. Any thread; cheap after the first
// call.
int registerLineType();

// Taken around the queued hand-over of a line: by the receiver while it posts
// the call (the call's arguments are built on the receive thread) and by the
// model while it takes the line out of the call's argument. Qt's event queue
// orders the two already; this lock makes that order visible to thread
// checkers, which do not see Qt's internal locks. Any thread; held briefly.
std::mutex& lineHandoverLock();

} // namespace vxlindral

Q_DECLARE_METATYPE(vxlindral::LineType)
