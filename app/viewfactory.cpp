#include "app/viewfactory.h"

#include "views/cutview.h"
#include "views/flatview.h"
#include "views/numericview.h"
#include "views/statisticview.h"
#include "views/threedview.h"

#include <stdexcept>

namespace vxlindral {

namespace {

// Object names by view kind. The info view is named "_cut", the cut view
// "_3d" and the 3D view "_info": the names are only ever formed through this
// table, so the pairing is consistent, and it is what `closed` reports.
const char* const viewNames[] = {"%1_cut", "%1_num", "%1_3d", "%1_gray", "%1_info"};

} // namespace

QString ViewFactory::namePattern(int kind)
{
    if (kind < Info || kind > ThreeD)
        throw std::invalid_argument("view is out of range");
    return QString::fromLatin1(viewNames[kind]);
}

BasicView* ViewFactory::create(int kind, int key, QWidget* parent)
{
    BasicView* view = nullptr;
    switch (kind) {
    case Info:
        view = new StatisticView(parent);
        break;
    case Cut:
        view = new CutView(parent);
        break;
    case Gray:
        view = new FlatView(parent);
        break;
    case ThreeD:
        view = new ThreeDView(parent);
        break;
    case Numeric:
    default:
        // An unknown kind still gets a numeric view built (it stays a child
        // of the parent) before the error is reported.
        view = new NumericView(parent);
        break;
    }
    if (kind < Info || kind > ThreeD)
        throw std::invalid_argument("view is out of range");
    view->setPort(key);
    view->setObjectName(namePattern(kind).arg(key));
    return view;
}

} // namespace vxlindral
