#pragma once

#include "accel/bbvh.h"
#include "base/matrix.h"
#include "base/per_thread.h"

#include <cstdint>
#include <vector>

namespace hv {

struct Part;
struct SurfacePoint;

using LinkList = std::vector<std::uint32_t>;  ///< shaders that a light acts on; empty: all

/// How a ray left its last vertex.
enum class ElementCode : std::uint8_t {
    Photon             = 0,  ///< first segment of a photon
    Shadow             = 1,  ///< shadow ray, or the ray of a camera connection
    Lambertian         = 2,
    Transmissive       = 3,
    GlossyReflection   = 4,  ///< also every hair scattering
    GlossyRefraction   = 5,
    SpecularReflection = 6,  ///< also a primary ray
    SpecularRefraction = 7
};

/// One ray, its hit and the state of its path. Lives on the stack of the kernel that spawned it and is passed by
/// reference; `from_surface` points down the recursion only, so no record outlives its parent.
struct RayRecord {
    float               jitter[2]    = {0, 0};  ///< rotation of this pixel's sample set, 0 to 1; same in all children
    std::uint32_t       sample_index = 0;       ///< number of the branch; 0 on a primary ray
    std::uint32_t       dimension    = 0;       ///< radical-inverse dimension of the next pair of numbers
    Vector              origin;                 ///< space of the object being walked
    Vector              direction;              ///< unit length on entry to TraceClosest
    Vector              inverse_direction;      ///< 1 / direction, may hold infinities; set by the entry points
    float               hit_u = 0, hit_v = 0, hit_w = 0;  ///< surface parameters of the hit, by kind
    float               distance   = kFarAway;  ///< in: farthest hit that counts; out: the hit. In units of `direction`
    Color               throughput = kWhite;    ///< product of colours and Fresnel weights; white on a primary ray
    Color               power      = kBlack;    ///< photon paths only
    const SurfacePoint* from_surface    = nullptr;  ///< the vertex that this ray left; null on a primary ray
    const LinkList*     photon_links    = nullptr;  ///< first segment of a photon: shaders that its light acts on
    const Part*         hit_part        = nullptr;
    float               refraction      = 1.0f;  ///< product of the relative indices of refraction crossed so far
    std::uint32_t       weight_count    = 1;     ///< every AOV contribution is divided by it
    float               share_gain      = 1.0f;  ///< shares of lights: makes up for branches lost below the surface
    std::uint32_t       hit_shader      = 0;
    std::uint32_t       hit_primitive   = kNone;
    std::uint32_t       from_shader     = kNone;
    std::uint32_t       from_primitive  = kNone;  ///< the primitive that the ray leaves
    std::uint8_t        hit_kind        = 0;      ///< PrimitiveKind; 0 on a primary ray before its trace, else 255
    std::uint8_t        from_kind       = 0;      ///< PrimitiveKind
    std::uint8_t        from_lobe       = 0;      ///< hair lobe 0, 1, 2 that produced this ray
    ElementCode         element_before  = ElementCode::SpecularReflection;  ///< last code that differs from `element`
    ElementCode         element         = ElementCode::SpecularReflection;
    std::uint8_t        thread          = 0;  ///< selects the per-thread tables
    std::uint8_t        depth           = 0;  ///< vertices behind this ray; 0 on primary and shadow rays
    std::uint8_t        diffuse_bounces = 0, glossy_bounces = 0, specular_bounces = 0;
    std::uint8_t        instance_depth     = 0;  ///< nesting of the walk
    std::uint8_t        hit_instance_depth = 0;  ///< nesting at the hit
    std::uint8_t        front_side         = 0;  ///< 1 when the ray met the front of the primitive
    std::uint8_t        is_secondary       = 0;  ///< 0 on camera paths, 1 on shadow rays and photons
    std::uint8_t        stores_caustics    = 0;  ///< photon paths only
    std::uint8_t        has_density        = 0;  ///< 1 when the hit lies in the root Object
};

inline constexpr int kMaxInstanceDepth = 16;

/// Normal matrices of the instances around the last hit of a thread, outermost first; `hit_instance_depth` of them
/// count.
struct NormalMatrixStack {
    Matrix3 matrices[kMaxInstanceDepth];
};

/// Overwritten by the next trace of the thread: evaluate a hit before any other ray is traced.
extern PerThread<NormalMatrixStack> InstanceNormalMatrices;

}  // namespace hv
