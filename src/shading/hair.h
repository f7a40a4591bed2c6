#pragma once

#include "shading/surface_point.h"

namespace hv {

/// Diffuse scattering of a fibre about the tangent of `point`, from the unit direction d towards a light to `outgoing`.
float HairDiffuse(const SurfacePoint& point, Vector d);

/// What the glossy lobes of a fibre (reflected, transmitted, reflected inside) send from d to `outgoing`.
struct HairLobeSet {
    Color colors[3];
    float densities[3] = {0, 0, 0};  ///< 1/sr
};

/// Black where the shader has no tables of its lobes.
HairLobeSet HairLobes(const SurfacePoint& point, Vector d);

}  // namespace hv
