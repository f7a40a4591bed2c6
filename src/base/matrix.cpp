#include "base/matrix.h"

#include <utility>

namespace hv {

bool Invert(const Matrix4& matrix, Matrix4& inverse)
{
    // Gauss-Jordan elimination with partial pivoting on [matrix | identity].
    double a[4][8] = {};
    for (int row = 0; row < 4; ++row) {
        for (int column = 0; column < 4; ++column) a[row][column] = matrix.m[4 * row + column];
        a[row][4 + row] = 1.0;
    }
    for (int column = 0; column < 4; ++column) {
        int pivot = column;
        for (int row = column + 1; row < 4; ++row)
            if (std::fabs(a[row][column]) > std::fabs(a[pivot][column])) pivot = row;
        if (!(std::fabs(a[pivot][column]) > 0.0)) return false;
        std::swap(a[pivot], a[column]);
        const double scale = 1.0 / a[column][column];
        for (double& value : a[column]) value *= scale;
        for (int row = 0; row < 4; ++row) {
            if (row == column) continue;
            const double factor = a[row][column];
            for (int k = 0; k < 8; ++k) a[row][k] -= factor * a[column][k];
        }
    }
    Matrix4 result;
    for (int row = 0; row < 4; ++row) {
        for (int column = 0; column < 4; ++column) {
            result.m[4 * row + column] = static_cast<float>(a[row][4 + column]);
            if (!std::isfinite(result.m[4 * row + column])) return false;
        }
    }
    inverse = result;
    return true;
}

Matrix3 Transposed(const Matrix3& a)
{
    return {{a.m[0], a.m[3], a.m[6], a.m[1], a.m[4], a.m[7], a.m[2], a.m[5], a.m[8]}};
}

}  // namespace hv
