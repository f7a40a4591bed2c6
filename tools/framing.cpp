#include "framing.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace {

constexpr double kRadians = std::numbers::pi / 180.0;
constexpr double kMargin  = 1.08;

double Dot(const Point& a, const Point& b) { return a[0] * b[0] + a[1] * b[1] + a[2] * b[2]; }

Point Cross(const Point& a, const Point& b)
{
    return {a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]};
}

/// Unit vector from the model to the eye. The front of a y-up model looks along +z, that of a z-up model along -y.
Point Backward(const ViewWish& wish)
{
    const double flat = std::cos(wish.elevation * kRadians), rise = std::sin(wish.elevation * kRadians);
    const double right = flat * std::sin(wish.azimuth * kRadians), front = flat * std::cos(wish.azimuth * kRadians);
    return wish.z_up ? Point{right, -front, rise} : Point{right, rise, front};
}

}  // namespace

View FrameBounds(const Point& low, const Point& high, const ViewWish& wish)
{
    View view{};
    view.fov            = wish.fov;
    view.up             = wish.z_up ? Point{0, 0, 1} : Point{0, 1, 0};
    const Point  back   = Backward(wish);
    Point        right  = Cross(view.up, back);
    const double length = std::sqrt(Dot(right, right));
    for (double& value : right) value /= length;
    const Point above = Cross(back, right);

    const double slope_x  = std::tan(wish.fov * 0.5 * kRadians);
    const double slope_y  = slope_x * wish.height / wish.width;
    double       distance = 0.0;
    for (std::size_t axis = 0; axis < 3; ++axis) view.target[axis] = 0.5 * (low[axis] + high[axis]);
    for (unsigned corner = 0; corner < 8; ++corner) {
        Point offset;
        for (std::size_t axis = 0; axis < 3; ++axis) {
            offset[axis] = ((corner >> axis & 1u) != 0 ? high[axis] : low[axis]) - view.target[axis];
        }
        // A corner at (x, y) across and z towards the eye is on the film from the distance z + max(|x| / slope, ...) on.
        const double across = std::max(std::abs(Dot(offset, right)) / slope_x, std::abs(Dot(offset, above)) / slope_y);
        distance            = std::max(distance, Dot(offset, back) + kMargin * across);
    }
    if (distance <= 0.0) distance = 1.0;  // a model of one point
    for (std::size_t axis = 0; axis < 3; ++axis) view.eye[axis] = view.target[axis] + distance * back[axis];
    return view;
}
