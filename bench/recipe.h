#pragma once

#include "base/box.h"
#include "ray_set.h"

#include <array>

namespace hv {
struct Part;
}

/// Where the rays of a recipe come from. Defaults frame the model.
struct View {
    bool       has_eye = false, has_target = false;
    hv::Vector eye, target;
    float      field_of_view = 34;    ///< degrees, for the width of the square film
    int        size          = 1024;  ///< pixels on a side; the other sets hold as many rays
};

/// Rays from the eye of a view through every pixel, of a model within `bounds`.
RaySet MakeCameraRays(const hv::Box& bounds, const View& view);

/// Camera rays, bounce rays and shadow rays of a model, reproducible to the number: fixed generators, see pcg32.h.
/// Camera rays are traced with the library's own walker, through the hierarchy that stands.
std::array<RaySet, 3> MakeRaySets(const hv::Part& part, const View& view);
