#pragma once

#include "base/vector.h"

namespace hv {

/// 3 x 3, row-major, applied to column vectors.
struct Matrix3 {
    float m[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1};

    bool operator==(const Matrix3&) const = default;
};

/// 4 x 4, row-major, applied to column vectors (x y z 1). May be projective.
struct Matrix4 {
    float m[16] = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};

    bool operator==(const Matrix4&) const = default;
};

inline Vector operator*(const Matrix3& a, Vector v)
{
    return {a.m[0] * v.x + a.m[1] * v.y + a.m[2] * v.z, a.m[3] * v.x + a.m[4] * v.y + a.m[5] * v.z,
            a.m[6] * v.x + a.m[7] * v.y + a.m[8] * v.z};
}

inline Matrix3 operator*(const Matrix3& a, const Matrix3& b)
{
    Matrix3 product;
    for (int row = 0; row < 3; ++row)
        for (int column = 0; column < 3; ++column)
            product.m[3 * row + column] =
                a.m[3 * row] * b.m[column] + a.m[3 * row + 1] * b.m[3 + column] + a.m[3 * row + 2] * b.m[6 + column];
    return product;
}

/// Applies the matrix to (p, 1) and divides by the fourth row's result.
inline Vector TransformPoint(const Matrix4& a, Vector p)
{
    const float w = a.m[12] * p.x + a.m[13] * p.y + a.m[14] * p.z + a.m[15];
    return Vector{a.m[0] * p.x + a.m[1] * p.y + a.m[2] * p.z + a.m[3],
                  a.m[4] * p.x + a.m[5] * p.y + a.m[6] * p.z + a.m[7],
                  a.m[8] * p.x + a.m[9] * p.y + a.m[10] * p.z + a.m[11]} /
           w;
}

/// Inverts in double precision. Returns false, with `inverse` untouched, for a singular or non-finite matrix.
bool Invert(const Matrix4& matrix, Matrix4& inverse);

/// The upper 3 x 3.
inline Matrix3 UpperLeft(const Matrix4& a)
{
    return {{a.m[0], a.m[1], a.m[2], a.m[4], a.m[5], a.m[6], a.m[8], a.m[9], a.m[10]}};
}

Matrix3 Transposed(const Matrix3& matrix);

}  // namespace hv
