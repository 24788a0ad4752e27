// The rules of Vec3 that are easy to get wrong.
#include "check.h"
#include "scanner/vec3.h"

#include <cmath>
#include <limits>

using vxs::math::Vec3;

namespace {

template <typename T> void rules()
{
    vxtest::row = sizeof(T) == 4 ? "float" : "double";
    using V = Vec3<T>;
    const double nan = std::numeric_limits<double>::quiet_NaN();
    struct Eq
    {
        V a, b;
        bool equal;
    };
    const Eq eq[] = {
        {V(1.0, 2.0, 3.0), V(1.0, 2.0, 3.0 + 5e-9), true},
        {V(1.0, 2.0, 3.0), V(1.0, 2.0, 3.0 + 2e-8), sizeof(T) == 4}, // float rounds it away
        {V(0.0, 0.0, 0.0), V(0.0, 1e-7, 0.0), false},
        {V(nan, 0.0, 0.0), V(nan, 0.0, 0.0), false},
    };
    for (const Eq& e : eq) {
        CHECK((e.a == e.b) == e.equal);
        CHECK((e.a != e.b) == !e.equal);
    }
    CHECK(V().isZero());
    CHECK(!V(0.0, 0.0, 1e-30).isZero());
    CHECK(!V(nan, 0.0, 0.0).isZero());
    CHECK(V(-0.0, 0.0, 0.0).isZero());

    V zero;
    CHECK(zero.normalize().isZero());
    CHECK(V().setLength(5).isZero());
    CHECK(V(3.0, 0.0, 4.0).setLength(10) == V(6.0, 0.0, 8.0));
    CHECK(V(0.0, 0.0, 2.0).getNormalized() == V(0.0, 0.0, 1.0));

    // Right-handed cross product, component-wise product.
    CHECK(V(1.0, 0.0, 0.0).crossProd(V(0.0, 1.0, 0.0)) == V(0.0, 0.0, 1.0));
    CHECK(V(0.0, 1.0, 0.0).crossProd(V(1.0, 0.0, 0.0)) == V(0.0, 0.0, -1.0));
    CHECK(V(1.0, 2.0, 3.0) * V(2.0, 3.0, 4.0) == V(2.0, 6.0, 12.0));
    CHECK_NEAR(V(1.0, 2.0, 2.0).length(), 3.0, 1e-12);
    CHECK_NEAR(V(1.0, 1.0, 1.0).dist2(V(2.0, 3.0, 4.0)), 14.0, 1e-9);
    CHECK_NEAR(V(1.0, 1.0, 1.0).dist(1.0, 1.0, 3.0), 2.0, 1e-9);

    // angle: only non-zero vectors are normalised; the dot product is not
    // clamped, so a zero vector gives acos(0) and parallels may give NaN.
    CHECK_NEAR(V(2.0, 0.0, 0.0).angle(V(0.0, 0.0, 5.0)), M_PI / 2, 1e-6);
    CHECK_NEAR(V().angle(V(1.0, 0.0, 0.0)), M_PI / 2, 1e-12);
    const double a = V(0.1, 0.2, 0.3).angle(V(0.1, 0.2, 0.3));
    CHECK(std::isnan(a) || std::fabs(a) < 1e-3);

    const int i3 = 7;
    CHECK(V(i3) == V(7.0, 7.0, 7.0));
    const double d3[3] = {1, 2, 3};
    const float f3[3] = {1, 2, 3};
    CHECK(V(d3) == V(f3));
    CHECK(V(Vec3<float>(1.f, 2.f, 3.f)) == V(d3));
    V s;
    s.setXYZ(1.f, 2.f, 3.f);
    s[2] = 4;
    s.y() = 5;
    CHECK(s.getY() == 5 && s.getValue()[2] == 4 && s.xyz()[0] == 1);
}

} // namespace

int main()
{
    RUN(rules<float>);
    RUN(rules<double>);
    return vxtestResult("tst_vec3");
}
