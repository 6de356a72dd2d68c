#pragma once
#include <orvi/core/Export.h>

namespace orvi {

// Plain values for properties. They carry no arithmetic: convert them to the types of your own library.

template <class T>
struct Point_T {
    T x = 0;
    T y = 0;

    friend bool operator==(const Point_T&, const Point_T&) = default;
};

template <class T>
struct Rect_T {
    T left = 0;
    T top = 0;
    T right = 0;
    T bottom = 0;

    friend bool operator==(const Rect_T&, const Rect_T&) = default;
};

struct Vector2 {
    float x = 0;
    float y = 0;

    friend bool operator==(const Vector2&, const Vector2&) = default;
};

struct Vector3 {
    float x = 0;
    float y = 0;
    float z = 0;

    friend bool operator==(const Vector3&, const Vector3&) = default;
};

struct Vector4 {
    float x = 0;
    float y = 0;
    float z = 0;
    float w = 0;

    friend bool operator==(const Vector4&, const Vector4&) = default;
};

/** The identity unless told otherwise. */
struct Quaternion {
    float x = 0;
    float y = 0;
    float z = 0;
    float w = 1;

    friend bool operator==(const Quaternion&, const Quaternion&) = default;
};

/** All zero unless told otherwise. */
struct ORVI_API Matrix4 {
    static const Matrix4 IDENTITY;
    static const Matrix4 ZERO;

    float elements[16] = {};

    friend bool operator==(const Matrix4&, const Matrix4&) = default;
};

} // namespace orvi
