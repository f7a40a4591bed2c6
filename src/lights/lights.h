#pragma once

#include "geometry/object.h"
#include "lights/light.h"

/// The lights: defaults, preparation, what a ray sees of the sky.
namespace hv {

struct SurfacePoint;

/// Sets the defaults that start-up, the end of a render and finalize set again.
void SkyLightDefaults();
void GeometryLightDefaults();

/// Preparation stages: links resolved, axes normalised, powers, AOVs and what sampling draws from made, the report
/// printed.
void PrepareSkyLight();
void PrepareGeometryLight();
void PrepareGaffer();

/// The end of each stage: pictures of their AOVs written, records released, defaults set.
void FinalizeSkyLight();
void FinalizeGeometryLight();
void FinalizeGaffer();

/// Whether any light has an AOV that collects its share of the picture.
bool CollectsLightShares();

/// Whether a link list lets a light act on a shader: an empty list does.
bool IsLinked(const std::vector<std::uint32_t>& link_shaders, std::uint32_t shader);

// ---- Geometry light (geometry_light.cpp, emitter_points.cpp) ----

/// A place on a surface that emits, in world space. Drawn at random, so each has a cache line of its own.
struct alignas(64) EmitterPoint {
    Vector position;
    Vector normal;                      ///< unit length, on the side that emits
    Color  radiance = kBlack;           ///< emitted, times the area that the point stands for over that of an average
                                        ///< point: 1 but on stretched faces. Black where the place was found dark
    std::uint32_t shader      = kNone;  ///< of the surface: AOVs of the geometry light may collect one only
    std::uint32_t primitive   = kNone;  ///< index in its part
    std::uint8_t  kind        = 0;      ///< PrimitiveKind
    float         probability = 0.0f;   ///< of being drawn
};

/// Points of the list.
inline constexpr int kEmitterPointCount = 18481;

/// Whether direct lighting samples emissive surfaces from a list of points on them. False when `sample` or an area is
/// not above 0, and when no point of the list emits.
bool HasEmitterList();

/// Draws a point in proportion to its radiance; its probability is above 0. u: 0 to 1. Null without a list, and when
/// nothing can be drawn at u.
const EmitterPoint* PickEmitterPoint(float u);

/// Whether a point of the list may lie on this side of a primitive. Particles, cylinders, surfaces that are virtual
/// lights by the shader of an instance alone, and objects placed by one that has no parts have no points.
bool MayHoldEmitterPoint(const Part& part, PrimitiveKind kind, std::uint32_t primitive, bool front);

/// Area, in square metres, that the points stand for: all surfaces that the root object lists as virtual lights.
float EmitterPointArea();

// ---- Sky (sky.cpp, sky_tables.cpp) ----

/// A direction drawn from the importance tables of the sky.
struct SkySample {
    Vector direction;          ///< unit length, towards the sky
    float  density  = 0.0f;    ///< per steradian; 0: nothing could be drawn
    Color  radiance = kBlack;  ///< of the sky in that direction, as SkyColor gives it
};

/// Draws a direction. `face_row` (0 to 1) gives the cube face and the row, `column` (0 to 1) the cell in it. A
/// direction is that of its cell: there is no jitter within one. Needs HasSkyTables().
SkySample SampleSky(float face_row, float column);

/// Density (1/sr) with which SampleSky draws the cell nearest to a unit direction; 0 without tables.
float SkyDensity(Vector direction);

/// Whether the importance tables of a sky picture exist. `SkyLight.sample` is 0 otherwise.
bool HasSkyTables();

/// Radiance of the sky seen by a ray that left the scene.
Color SkyRadiance(const RayRecord& ray);

/// Radiance of the sky in a unit direction, never the backdrop.
Color SkyColor(Vector direction);

/// Texture coordinates of the sky picture in a unit direction.
void SkyUV(Vector direction, float uv[2]);

// ---- Point and parallel lights (light_samples.cpp) ----

/// Share of a point light's colour in the unit direction `v` away from it, 0 to 1: linear in the angle between its
/// outer and inner cone.
float SpotFactor(const PointLight& light, Vector v);

/// Uniform point on the sphere of a light's `blur`; its position without blur. a turns about the axis, b goes along it:
/// 0 to 1.
Vector PointOnSource(const PointLight& light, float a, float b);

/// Unit direction in the cone of a light: u (0 to 1) opens, uniformly in solid angle, `turn` is in radians.
Vector ConeDirection(const Light& light, float u, float turn);

/// Unit direction uniform in the cone of a parallel light, along which it shines. u1 turns about the axis, u2 opens: 0
/// to 1.
Vector SampleConeDirection(const ParallelLight& light, float u1, float u2);

// ---- Photons (photon_sources.cpp). Each carries flux / pi, in watts; `thread` must be set. ----

/// Makes photon `index` of the sky: from a disc outside the scene's sphere, against the direction that it comes from.
void GenerateSkyPhoton(RayRecord& photon, std::uint64_t index);

/// Starts photon `index` of `count` from the emitters: all but its direction. `point` is the surface that it leaves, on
/// the side that emits. False, with power black, where nothing emits.
bool StartEmitterPhoton(RayRecord& photon, std::uint64_t index, std::uint64_t count, SurfacePoint& point);

}  // namespace hv
