#include <orvi/core/Geometry.h>

#include <doctest/doctest.h>

using namespace orvi;

TEST_CASE("geometry values are zero, and a Quaternion the identity, until told otherwise")
{
    CHECK(Point_T<int>() == Point_T<int>{0, 0});
    CHECK(Rect_T<float>() == Rect_T<float>{0, 0, 0, 0});
    CHECK(Rect_T<int>{1, 2, 3, 4}.bottom == 4);
    CHECK(Vector2() == Vector2{0, 0});
    CHECK(Vector3() == Vector3{0, 0, 0});
    CHECK(Vector4() == Vector4{0, 0, 0, 0});
    CHECK(Vector4{1, 2, 3, 4} != Vector4{1, 2, 3, 5});
    CHECK(Quaternion() == Quaternion{0, 0, 0, 1});
    CHECK(Matrix4() == Matrix4::ZERO);
}

TEST_CASE("the identity matrix has ones on its diagonal")
{
    for (int i = 0; i < 16; ++i) {
        CAPTURE(i);
        CHECK(Matrix4::IDENTITY.elements[i] == (i % 5 == 0 ? 1.0f : 0.0f));
        CHECK(Matrix4::ZERO.elements[i] == 0.0f);
    }
}
