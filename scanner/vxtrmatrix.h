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
    void Apply(double& x, double& y, double& z) const;

private:
    double m[16];
};
