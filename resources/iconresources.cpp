#include "resources/iconresources.h"

#include <QtGlobal>

// Q_INIT_RESOURCE declares the registration function at global scope, so it
// must be used outside any namespace.
static void initIconResources()
{
    Q_INIT_RESOURCE(resources);
}

namespace vxlindral {

void IconResources::init()
{
    initIconResources();
}

} // namespace vxlindral
