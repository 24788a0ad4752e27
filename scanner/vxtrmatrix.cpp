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

void VxTRMatrix::Apply(double& x, double& y, double& z) const
{
    const double nx = m[0] * x + m[1] * y + m[2] * z + m[3];
    const double ny = m[4] * x + m[5] * y + m[6] * z + m[7];
    const double nz = m[8] * x + m[9] * y + m[10] * z + m[11];
    const double w = m[12] * x + m[13] * y + m[14] * z + m[15];
    // Homogeneous division only for a projective bottom row; an affine matrix
    // (bottom row 0 0 0 1) and a degenerate w of 0 leave the result as is.
    if (w != 1.0 && w != 0.0) {
        x = nx / w;
        y = ny / w;
        z = nz / w;
    } else {
        x = nx;
        y = ny;
        z = nz;
    }
}
