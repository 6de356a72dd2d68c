#include <orvi/core/Geometry.h>

namespace orvi {

constinit const Matrix4 Matrix4::IDENTITY = {{1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1}};
constinit const Matrix4 Matrix4::ZERO = {};

} // namespace orvi
