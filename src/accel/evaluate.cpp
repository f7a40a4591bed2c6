#include "accel/evaluate.h"

#include "accel/accel.h"
#include "geometry/corners.h"
#include "session/sampling.h"
#include "shading/shading.h"

namespace hv {

Vector FaceNormal(const Vector* p, int corner_count)
{
    return FaceNormalOf(corner_count, [p](int n) { return p[n]; });
}

Vector FallbackTangent(Vector normal) { return Cross(PerpendicularTo(normal), normal); }

namespace {

Corners CornersOf(const SurfaceHit& hit) { return CornersOf(*hit.part, hit.kind, hit.index, {hit.u, hit.v, hit.w}); }

bool IsZero(PackedDirection packed) { return packed == PackedDirection{}; }

Vector RawBytes(PackedDirection packed)
{
    return {static_cast<float>(packed.x), static_cast<float>(packed.y), static_cast<float>(packed.z)};
}

Vector GeometricNormal(const Part& part, const Corners& corners)
{
    return FaceNormalOf(corners.count, [&](int n) { return part.positions[corners.vertex[n]]; });
}

/// Meant: packed normals are mixed as raw bytes, of length near 127, so that the unit stand-in of a vertex without one
/// weighs little beside them.
Vector ShadingNormal(const Part& part, const Corners& corners, Vector geometric_normal)
{
    Vector sum;
    for (int n = 0; n < corners.count; ++n) {
        const std::uint32_t vertex = corners.vertex[n];
        const bool          given  = vertex < part.normals.size() && !IsZero(part.normals[vertex]);
        sum += corners.weight[n] * (given ? RawBytes(part.normals[vertex]) : geometric_normal);
    }
    return Normalized(sum);
}

/// Mix of the packed tangents; false when a corner has none.
bool MixTangents(const Part& part, const Corners& corners, Vector& tangent)
{
    if (!Covers(part.tangents, corners)) return false;
    Vector sum;
    for (int n = 0; n < corners.count; ++n) {
        const PackedDirection packed = part.tangents[corners.vertex[n]];
        if (IsZero(packed)) return false;
        sum += corners.weight[n] * RawBytes(packed);
    }
    tangent = Normalized(sum);
    return true;
}

void FrameFromNormal(SurfacePoint& point)
{
    point.bitangent = PerpendicularTo(point.normal);
    point.tangent   = Cross(point.bitangent, point.normal);
}

/// Tangent frame of a face, about the shading normal.
void FrameFace(const Part& part, const Corners& corners, SurfacePoint& point)
{
    Vector     along;
    const bool found = point.layer->needs_tangent_frame &&
                       (MixTangents(part, corners, along) || UvGradient(part, corners, along)) &&
                       Dot(along, along) >= 1e-8f;
    if (!found) return FrameFromNormal(point);
    point.bitangent = Normalized(Cross(point.normal, along));
    point.tangent   = Normalized(Cross(point.bitangent, point.normal));
}

/// Brings a frame from the space of the hit's object to world space: outermost matrix first, so the innermost acts
/// first.
void FrameToWorld(const RayRecord& ray, SurfacePoint& point)
{
    if (ray.hit_instance_depth == 0) return;
    const NormalMatrixStack& stack  = InstanceNormalMatrices[ray.thread];
    Matrix3                  matrix = stack.matrices[0];
    for (int n = 1; n < ray.hit_instance_depth; ++n) matrix = matrix * stack.matrices[n];
    point.geometric_normal = Normalized(matrix * point.geometric_normal);
    point.normal           = Normalized(matrix * point.normal);
    point.tangent          = Normalized(matrix * point.tangent);
    point.bitangent        = Normalized(matrix * point.bitangent);
}

void EvaluateFace(const RayRecord& ray, const SurfaceHit& hit, const Corners& corners, SurfacePoint& point)
{
    point.geometric_normal = GeometricNormal(*hit.part, corners);
    // A density cell has no direction; only the reflections that are left need the smooth normal.
    const bool interpolates = !point.use_density || point.layer->has_reflection;
    point.normal = interpolates ? ShadingNormal(*hit.part, corners, point.geometric_normal) : point.geometric_normal;
    if (!hit.front) {
        point.geometric_normal = -point.geometric_normal;
        point.normal           = -point.normal;
    }
    FrameFace(*hit.part, corners, point);
    FrameToWorld(ray, point);
    DeriveSurfaceTerms(point, hit.front);
}

/// A density read needs no frame. Emitters that share light sampling still need the cosine at which they are met.
void EvaluateDensityFace(const RayRecord& ray, const SurfaceHit& hit, const Corners& corners, SurfacePoint& point)
{
    point.reflectance   = 0.0f;
    point.transmittance = 1.0f;
    if (!point.virtual_light) return;
    point.geometric_normal = GeometricNormal(*hit.part, corners);
    if (!hit.front) point.geometric_normal = -point.geometric_normal;
    point.normal = point.geometric_normal;
    FrameFromNormal(point);
    FrameToWorld(ray, point);
    point.cos_outgoing = Dot(point.outgoing, point.normal);
}

void EvaluateParticle(const RayRecord& ray, const SurfaceHit& hit, SurfacePoint& point)
{
    const Vector outward   = {hit.u, hit.v, hit.w};
    point.geometric_normal = hit.front ? outward : -outward;
    point.normal           = Normalized(point.geometric_normal);
    FrameFromNormal(point);
    FrameToWorld(ray, point);
    DeriveSurfaceTerms(point, hit.front);
}

Vector StrandTangent(const Part& part, const Corners& corners)
{
    if (!Covers(part.tangents, corners)) return {};
    return Normalized(corners.weight[0] * UnpackDirection(part.tangents[corners.vertex[0]]) +
                      corners.weight[1] * UnpackDirection(part.tangents[corners.vertex[1]]));
}

/// A hair point has no single normal: a random one about the fibre stands for all. Meant: the frame of a hair inside an
/// instance stays in object space.
void EvaluateCylinder(const RayRecord& ray, const SurfaceHit& hit, const Corners& corners, SurfacePoint& point)
{
    const Part& part       = *hit.part;
    point.hair             = &ShaderAt(ray.hit_shader).hair;
    point.tangent          = StrandTangent(part, corners);
    const Vector sideways  = Normalized(Cross(point.tangent, ray.direction));
    const float  x         = 2.0f * HardwareRandom() - 1.0f;
    point.normal           = sideways * x + Cross(point.tangent, sideways) * SafeRoot(1.0f - x * x);
    point.bitangent        = Cross(point.normal, point.tangent);
    point.geometric_normal = point.normal;

    point.hair_parameter = 0.0f;
    if (part.scalars.size() > 1 && Covers(part.scalars[1].values, corners))
        for (int n = 0; n < 2; ++n)
            point.hair_parameter += corners.weight[n] * part.scalars[1].values[corners.vertex[n]];
    point.roughness_x = point.roughness_y = 0.0f;
    point.reflectance                     = 0.0f;
    point.transmittance                   = 1.0f;
    point.eta                             = 1.0f;
    point.cos_outgoing                    = hit.v;
}

bool IsFace(PrimitiveKind kind) { return kind == PrimitiveKind::Triangle || kind == PrimitiveKind::Tetragon; }

/// Chooses the layer. Coordinates are mixed only where something is read at them: the weights of several layers, or the
/// textures of the chosen one.
void ChooseLayer(const RayRecord& ray, const SurfaceHit& hit, const Corners& corners, SurfacePoint& point)
{
    const Shader& shader = ShaderAt(ray.hit_shader);
    point.uv[0] = point.uv[1] = 0.0f;
    if (LayerCount(shader, hit.front) > 1) MixUv(*hit.part, corners, point.uv);
    point.layer         = PickLayer(shader, hit.front, point.uv);
    point.material      = point.layer->material;
    point.virtual_light = point.layer->virtual_light;
    point.visibility    = shader.geometry_shader.visibility;
    if (point.layer->has_image) MixUv(*hit.part, corners, point.uv);
}

}  // namespace

void EvaluateHit(const RayRecord& ray, SurfacePoint& point)
{
    const auto kind = static_cast<PrimitiveKind>(ray.hit_kind);
    if (kind < PrimitiveKind::Particle || kind > PrimitiveKind::Tetragon) return;
    const SurfaceHit hit{ray.hit_part, ray.hit_primitive, kind, ray.front_side != 0, ray.hit_u, ray.hit_v, ray.hit_w};
    const Corners    corners = CornersOf(hit);
    point.use_density        = point.use_density && IsFace(kind);
    point.position           = ray.origin + ray.distance * ray.direction;
    point.outgoing           = -ray.direction;
    ChooseLayer(ray, hit, corners, point);

    if (point.use_density && point.layer->is_plain_diffuse) return EvaluateDensityFace(ray, hit, corners, point);
    if (IsFace(kind)) return EvaluateFace(ray, hit, corners, point);
    if (kind == PrimitiveKind::Particle) return EvaluateParticle(ray, hit, point);
    EvaluateCylinder(ray, hit, corners, point);
}

void EvaluateShadow(const SurfaceHit& hit, Vector direction, SurfacePoint& point)
{
    const Corners corners = CornersOf(hit);
    MixUv(*hit.part, corners, point.uv);
    if (hit.kind == PrimitiveKind::Cylinder) {
        point.cos_outgoing = hit.v;
        return;
    }
    Vector normal = {hit.u, hit.v, hit.w};
    if (IsFace(hit.kind)) normal = ShadingNormal(*hit.part, corners, GeometricNormal(*hit.part, corners));
    if (!hit.front) normal = -normal;
    point.cos_outgoing = -Dot(Normalized(direction), Normalized(normal));
}

}  // namespace hv
