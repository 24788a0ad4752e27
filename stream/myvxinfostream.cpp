#include "stream/myvxinfostream.h"

namespace vxlindral {

MyVxInfoStream::~MyVxInfoStream() = default;

// Status information is not used by the viewer: every callback is ignored.
void MyVxInfoStream::OnConnected() {}
void MyVxInfoStream::OnInfo(const char*, int) {}
void MyVxInfoStream::OnInfoStart() {}
void MyVxInfoStream::OnInfoEnd() {}
void MyVxInfoStream::OnProgress(int) {}

} // namespace vxlindral
