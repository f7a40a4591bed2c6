#pragma once

#include "base/vector.h"
#include "shading/shader.h"

namespace hv {

/// One shaded vertex, in world space but for hair inside instances, whose frame stays in object space.
struct SurfacePoint {
    Vector                tangent, bitangent, normal;  ///< shading frame, unit length
    Vector                geometric_normal;            ///< unit length but for particles
    Vector                position;                    ///< origin + distance * direction
    Vector                outgoing;                    ///< unit vector back along the ray
    float                 uv[2]       = {0, 0};
    float                 roughness_x = 0, roughness_y = 0;
    Color                 lambertian, transmissive, glossy, specular, diffusion;  ///< slots of the layer at this point
    float                 reflectance = 0, transmittance = 1;                     ///< Fresnel weight and its complement
    float                 eta            = 1;  ///< relative index of refraction of this crossing
    float                 cos_outgoing   = 0;  ///< outgoing . normal; on cylinders minus the denominator of the test
    float                 hair_parameter = 0;  ///< cylinders: scalars[1] along the segment
    const SurfaceShader*  layer          = nullptr;  ///< chosen by PickLayer
    const HairParameters* hair        = nullptr;  ///< cylinders: lobes of the shader, of which all layers share one set
    bool                  use_density = false;    ///< in: a density read may replace diffuse shading
    Material              material    = Material::Conductor;
    Visibility            visibility  = Visibility::VisibleToAll;
    bool                  virtual_light  = false;
    bool                  has_lambertian = false, has_transmissive = false, has_glossy = false, has_specular = false,
         has_diffusion = false;
};

}  // namespace hv
