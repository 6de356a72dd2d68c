#include <orvi/core/Geometry.h>

#include <doctest/doctest.h>

using namespace orvi;

TEST_CASE("a Quaternion is the identity and a Matrix4 zero, until told otherwise")
{
    CHECK(Quaternion() == Quaternion{0, 0, 0, 1});
    CHECK(Matrix4() == Matrix4::ZERO);
    CHECK(Matrix4::ZERO != Matrix4::IDENTITY);
    for (int i = 0; i < 16; ++i)
        CHECK(Matrix4::IDENTITY.elements[i] == (i % 5 == 0 ? 1.0f : 0.0f));
}
