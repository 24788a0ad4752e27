#pragma once
#include <cmath>
#include <type_traits>

namespace vxs {
namespace math {

// A vector of three components of type T (float or double).
// Equality is approximate: each component differs by less than 1e-8,
// compared in double (for float too). isZero() is exact: only three exact
// zeros (a NaN component makes it false). Lengths are computed in double.
// normalize() and setLength() leave a zero-length vector unchanged. angle()
// returns acos of the dot product of the normalised vectors without clamping
// it to [-1, 1], so rounding may give NaN for (anti)parallel vectors.
// Thread-safety: a plain value.
template <typename T> class Vec3
{
public:
    Vec3() = default;
    explicit Vec3(int v) : c{T(v), T(v), T(v)} {}
    Vec3(double x, double y, double z) : c{T(x), T(y), T(z)} {}
    Vec3(float x, float y, float z) : c{T(x), T(y), T(z)} {}
    template <typename U = T,
              typename = typename std::enable_if<!std::is_same<U, float>::value>::type>
    Vec3(const Vec3<float>& o) : c{T(o.getX()), T(o.getY()), T(o.getZ())}
    {
    }
    explicit Vec3(const double* p) : c{T(p[0]), T(p[1]), T(p[2])} {}
    explicit Vec3(const float* p) : c{T(p[0]), T(p[1]), T(p[2])} {}

    T& x() { return c[0]; }
    T& y() { return c[1]; }
    T& z() { return c[2]; }
    const T& x() const { return c[0]; }
    const T& y() const { return c[1]; }
    const T& z() const { return c[2]; }
    T getX() const { return c[0]; }
    T getY() const { return c[1]; }
    T getZ() const { return c[2]; }
    T* xyz() { return c; }
    const T* xyz() const { return c; }
    const T* getValue() const { return c; }
    T& operator[](int i) { return c[i]; }
    const T& operator[](int i) const { return c[i]; }

    void setX(T v) { c[0] = v; }
    void setY(T v) { c[1] = v; }
    void setZ(T v) { c[2] = v; }
    void setXYZ(const Vec3& v) { *this = v; }
    void setXYZ(double x, double y, double z) { c[0] = T(x), c[1] = T(y), c[2] = T(z); }
    void setXYZ(float x, float y, float z) { c[0] = T(x), c[1] = T(y), c[2] = T(z); }

    bool operator==(const Vec3& o) const
    {
        for (int i = 0; i < 3; ++i)
            if (!(std::fabs(double(c[i]) - double(o.c[i])) < 1e-8))
                return false;
        return true;
    }
    bool operator!=(const Vec3& o) const { return !(*this == o); }
    bool isZero() const { return c[0] == T(0) && c[1] == T(0) && c[2] == T(0); }

    Vec3 operator+(const Vec3& o) const
    {
        return make(c[0] + o.c[0], c[1] + o.c[1], c[2] + o.c[2]);
    }
    Vec3 operator-(const Vec3& o) const
    {
        return make(c[0] - o.c[0], c[1] - o.c[1], c[2] - o.c[2]);
    }
    Vec3 operator-() const { return make(-c[0], -c[1], -c[2]); }
    Vec3& operator+=(const Vec3& o) { return *this = *this + o; }
    Vec3& operator-=(const Vec3& o) { return *this = *this - o; }
    Vec3 operator*(double f) const { return make(T(c[0] * f), T(c[1] * f), T(c[2] * f)); }
    Vec3& operator*=(double f) { return *this = *this * f; }
    Vec3 operator/(double f) const { return make(T(c[0] / f), T(c[1] / f), T(c[2] / f)); }
    Vec3& operator/=(double f) { return *this = *this / f; }
    // Component-wise product.
    Vec3 operator*(const Vec3& o) const
    {
        return make(c[0] * o.c[0], c[1] * o.c[1], c[2] * o.c[2]);
    }

    double dotProd(const Vec3& o) const
    {
        return double(c[0]) * o.c[0] + double(c[1]) * o.c[1] + double(c[2]) * o.c[2];
    }
    // Right-handed: x * y = z.
    Vec3 crossProd(const Vec3& o) const
    {
        return make(c[1] * o.c[2] - o.c[1] * c[2], c[2] * o.c[0] - o.c[2] * c[0],
                    c[0] * o.c[1] - o.c[0] * c[1]);
    }

    double length() const { return std::sqrt(dotProd(*this)); }
    double norm() const { return length(); }
    double dist(const Vec3& o) const { return (*this - o).length(); }
    double dist(double x, double y, double z) const { return dist(Vec3(x, y, z)); }
    double dist2(const Vec3& o) const
    {
        const Vec3 d = *this - o;
        return d.dotProd(d);
    }

    Vec3& normalize()
    {
        const double l = length();
        if (l != 0.0)
            *this /= l;
        return *this;
    }
    Vec3 getNormalized() const { return Vec3(*this).normalize(); }
    Vec3& setLength(double l)
    {
        const double cur = length();
        if (cur != 0.0)
            *this *= l / cur;
        return *this;
    }
    Vec3& scale(double f) { return *this *= f; }
    Vec3 getScaled(double f) const { return *this * f; }

    // Angle in radians; deliberately unclamped (see the class comment).
    double angle(const Vec3& o) const
    {
        return std::acos(getNormalized().dotProd(o.getNormalized()));
    }

private:
    static Vec3 make(T x, T y, T z)
    {
        Vec3 v;
        v.c[0] = x;
        v.c[1] = y;
        v.c[2] = z;
        return v;
    }
    T c[3] = {T(0), T(0), T(0)};
};

} // namespace math
} // namespace vxs
