#pragma once

#include "base/vector.h"
#include "output/aov.h"
#include "output/image.h"
#include "shading/shader.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace hv {

struct RayRecord;

/// Common base of the analytic lights.
struct Light {
    virtual ~Light()     = default;
    virtual void Reset() = 0;  ///< applies the defaults of the derived type

    /// Makes photon number `index` of the light. `thread` is left as it is.
    virtual void GeneratePhoton(RayRecord& photon, std::uint64_t index) const = 0;

    Vector                     e1, e2, axis;  ///< basis; the axis of a parallel light is its direction
    Color                      color        = kWhite;
    Color                      photon_power = kWhite;  ///< of the light as a whole, set in preparation
    std::int64_t               photon       = 0;       ///< photons to cast
    float                      blur         = 0.0f;    ///< radius in metres (point) or half-angle in degrees (parallel)
    float                      ior          = 1.0f;    ///< of the medium at the light
    int                        sample       = 1;       ///< shadow rays a shading point
    std::vector<std::string>   link_names;             ///< resolved into link_shaders by the light's preparation
    std::vector<std::uint32_t> link_shaders;           ///< empty: the light acts on everything
    std::vector<CameraAOV>     aovs;
    float                      cone    = 1.0f;  ///< cosine of the cone that preparation derives
    float                      opening = 0.0f;  ///< 1 - cone, without the rounding that narrow cones would suffer
    float                      offset  = 0.1f;
    bool                       outside = false;  ///< set in preparation
};

struct PointLight : Light {
    PointLight() { Reset(); }
    void Reset() override;
    void GeneratePhoton(RayRecord& photon, std::uint64_t index) const override;

    Vector position;                                   ///< metres
    Vector direction{0.0f, 1.0f, 0.0f};                ///< spot axis
    float  inner_radians = 0.0f, outer_radians = kPi;  ///< set in preparation
    float  inner_angle = 0.0f, outer_angle = 180.0f;   ///< degrees
};

struct ParallelLight : Light {
    ParallelLight() { Reset(); }
    void Reset() override;
    void GeneratePhoton(RayRecord& photon, std::uint64_t index) const override;
};

/// Filled by hvAddPointLight, hvAddParallelLight and scene files; emptied by hvFinalizeGaffer, hvFinalize and the end
/// of a render.
extern std::vector<PointLight>    PointLights;
extern std::vector<ParallelLight> ParallelLights;

/// The one environment light.
struct SkyLightState {
    Image                      image, backdrop;
    Color                      color{0.75f, 0.75f, 0.75f};
    int                        photon = 1000000, sample = 64;
    Vector                     north{0.0f, 1.0f, 0.0f}, zenith{0.0f, 0.0f, 1.0f};
    float                      ior = 1.0f;
    std::vector<std::string>   link_names;
    std::vector<std::uint32_t> link_shaders;
    Color                      sky_scale = kBlack;  ///< set in preparation
    float                      thickness = 1000.0f;
    VolumeShader               volume_shader;  ///< the medium outside all bodies

    // Held from load time; the defaults routine leaves them alone.
    float  stretch = 0.1f, albedo = 0.2f, turbidity = 9.0f;
    Vector sun_direction{1.0f, 2.0f, 1.0f};
};
extern SkyLightState          SkyLight;
extern std::vector<CameraAOV> SkyLightAOVs;  ///< never shrunk

/// All emissive surfaces together.
struct GeometryLightState {
    int                        photon = 1000000, sample = 0;
    float                      area        = 0.0f;    ///< of the root object's emitters, square metres
    Color                      power_scale = kWhite;  ///< set in preparation
    std::vector<std::string>   link_names;
    std::vector<std::uint32_t> link_shaders;
};
extern GeometryLightState     GeometryLight;
extern std::vector<CameraAOV> GeometryLightAOVs;  ///< never shrunk

}  // namespace hv
