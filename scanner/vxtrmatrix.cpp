#include "scanner/vxtrmatrix.h"

#include <cstring>

namespace {
constexpr double kIdentity[16] = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
}

VxTRMatrix::VxTRMatrix() : VxBase("VxTRMatrix")
{
    std::memcpy(m, kIdentity, sizeof m);
}

void VxTRMatrix::SetTRMatrix4x4(const double* values)
{
    std::memcpy(m, values ? values : kIdentity, sizeof m);
}

bool VxTRMatrix::IsIdentity() const
{
    for (int i = 0; i < 16; ++i)
        if (m[i] != kIdentity[i])
            return false;
    return true;
}
