#pragma once
#include "scanner/vxbase.h"

// A 4x4 transformation matrix, row-major; identity when default-constructed.
// Thread-safety: a plain value.
class VxTRMatrix : public VxBase
{
public:
    VxTRMatrix();
    // 16 doubles, row-major.
    void SetTRMatrix4x4(const double* m);
    const double* Get() const { return m; }
    bool IsIdentity() const;
    // (x, y, z, 1) multiplied by the matrix; the result is written back.
    // Inline: the line receiver applies it to every pixel.
    void Apply(double& x, double& y, double& z) const
    {
        const double nx = m[0] * x + m[1] * y + m[2] * z + m[3];
        const double ny = m[4] * x + m[5] * y + m[6] * z + m[7];
        const double nz = m[8] * x + m[9] * y + m[10] * z + m[11];
        const double w = m[12] * x + m[13] * y + m[14] * z + m[15];
        // Homogeneous division only for a projective bottom row; an affine
        // matrix (bottom row 0 0 0 1) and a degenerate w of 0 leave the
        // result as is.
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

private:
    double m[16];
};
