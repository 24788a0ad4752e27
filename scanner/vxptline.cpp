#include "scanner/vxptline.h"

namespace vxs {

VxPtLine::~VxPtLine() = default;

} // namespace vxs
