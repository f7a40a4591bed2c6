#pragma once

#include "base/vector.h"
#include "shading/shader.h"

/// Scattering of light by a fibre, seen from far away: three lobes (reflected, transmitted, reflected inside) with the
/// longitudinal term of d'Eon et al. 2011 ("An Energy-Conserving Hair Reflectance Model") and azimuthal terms from
/// tables, and a diffuse term. Directions are unit vectors that point away from the fibre, densities per steradian.
namespace hv {

inline constexpr int kHairLobeCount = 3;
inline constexpr int kHairTableSize = 128;

/// Sets parameters from the first layer of a shader and fills its tables; does nothing without Shader::is_hair.
/// Lobes other than the reflected one are sampled when the layer's material is Dielectric.
void PrepareHair(Shader& shader);

/// Modified Bessel function of the first kind, order 0, for x of at least 0: Abramowitz and Stegun 9.8.1 and 9.8.2,
/// relative error below 1e-6. Infinite above about 91.
float BesselI0(float x);

/// Longitudinal term M of a lobe: its integral over the incoming angle, times the cosine, is 1; it is largest where the
/// sines about the fibre are opposite. Always finite.
float HairLongitudinal(const HairParameters& hair, int lobe, float sin_outgoing, float cos_outgoing, float sin_incoming,
                       float cos_incoming);

/// What the lobes send from `incoming` to `outgoing`, the cosine at the fibre included.
struct HairLobeSet {
    Color colors[kHairLobeCount];
    float densities[kHairLobeCount] = {0, 0, 0};  ///< weigh light sampling against scattering: cos^2 of the incoming
                                                  ///< angle times the density that SampleHair has within the lobe.
                                                  ///< Lobes through the fibre differ where `outgoing` is oblique
};

/// Black where the shader has no tables.
HairLobeSet HairLobes(const HairParameters& hair, Vector outgoing, Vector incoming, Vector tangent);

/// The densities alone.
void HairLobeDensities(const HairParameters& hair, Vector outgoing, Vector incoming, Vector tangent,
                       float (&densities)[kHairLobeCount]);

/// Diffuse scattering about the tangent.
float HairDiffuse(Vector outgoing, Vector incoming, Vector tangent);

struct HairSample {
    Vector direction;  ///< unit length
    Color  weight;     ///< attenuation of the lobe, times 3 when one of three lobes was drawn
    int    lobe = 0;
};

/// Draws a lobe and a direction, with hardware random numbers. Weight zero without tables.
HairSample SampleHair(const HairParameters& hair, Vector outgoing, Vector tangent);

}  // namespace hv
