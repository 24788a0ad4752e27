#pragma once
#include "scanner/vxinfostream.h"

namespace vxlindral {

// The status-stream receiver of one port. It exists so that the controller
// can own, pause and disconnect a status stream; it ignores every status
// callback.
// Ownership: held by value by StreamDataController. Threads: callbacks on the
// stream's receive thread (none, as it is never connected); the rest on the
// GUI thread.
class MyVxInfoStream : public VxInfoStream
{
public:
    MyVxInfoStream() = default;
    ~MyVxInfoStream() override;

    void OnConnected() override;
    void OnInfo(const char* text, int length) override;
    void OnInfoStart() override;
    void OnInfoEnd() override;
    void OnProgress(int percent) override;
};

} // namespace vxlindral
