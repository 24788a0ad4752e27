#include "views/drawcut.h"

#include "stream/myline.h"

#include <QPixmap>

namespace vxlindral {

void drawCut(const MyLine&, const CutParams&, QPixmap&) {}
void cutGridStep(float, double& stepMetres, int& unit)
{
    stepMetres = 1.0;
    unit = 1000;
}

} // namespace vxlindral
