#include "scanner/vxbase.h"

#include <cstring>

VxBase::VxBase(const char* name, const VxBase* kindParent) : cname(name)
{
    kinds[0] = "VxBase";
    if (kindParent) {
        for (int i = 0; i < 4 && kindParent->kinds[i]; ++i)
            kinds[i] = kindParent->kinds[i];
    }
    for (auto& k : kinds) {
        if (!k || std::strcmp(k, name) == 0) {
            k = name;
            break;
        }
    }
}

VxBase::~VxBase() = default;

bool VxBase::isKindOf(const char* name) const
{
    if (!name)
        return false;
    for (const char* k : kinds)
        if (k && std::strcmp(k, name) == 0)
            return true;
    return false;
}
