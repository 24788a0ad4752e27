#include "app/applicationsetup.h"

#include "line/linetype.h"
#include "resources/iconresources.h"
#include "views/glformat.h"

#include <QCoreApplication>

namespace vxlindral {

void ApplicationSetup::beforeApplication()
{
    GlFormat::installDefault();
    IconResources::init();
}

void ApplicationSetup::afterApplication()
{
    registerLineType();
    QCoreApplication::setOrganizationName("vx");
    QCoreApplication::setApplicationName("VxLindral");
    QCoreApplication::setOrganizationDomain("example.org");
}

} // namespace vxlindral
