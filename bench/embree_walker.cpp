#include "geometry/corners.h"
#include "walker.h"

#include <embree3/rtcore.h>

#include <limits>

namespace {

// One comparison scene a process, between MakeEmbreeScene and ReleaseEmbreeScene.
RTCDevice device = nullptr;
RTCScene  scene  = nullptr;

RTCRay MakeRay(const FileRay& ray)
{
    RTCRay made{};
    made.org_x = ray.origin.x;
    made.org_y = ray.origin.y;
    made.org_z = ray.origin.z;
    made.dir_x = ray.direction.x;
    made.dir_y = ray.direction.y;
    made.dir_z = ray.direction.z;
    made.tnear = 0.0f;
    made.tfar  = ray.tmax;
    made.mask  = ~0u;
    return made;
}

template <class T>
void* NewBuffer(RTCGeometry geometry, RTCBufferType type, RTCFormat format, std::size_t count)
{
    return rtcSetNewGeometryBuffer(geometry, type, 0, format, sizeof(T), count);
}

struct IndexTriple {
    std::uint32_t i0, i1, i2;
};

struct Float4 {
    float x, y, z, w;
};

/// A scene of one geometry, which is released.
void CommitScene(RTCGeometry geometry)
{
    rtcCommitGeometry(geometry);
    rtcAttachGeometry(scene, geometry);
    rtcReleaseGeometry(geometry);
    rtcCommitScene(scene);
}

}  // namespace

void MakeEmbreeScene(const hv::Part& part)
{
    device                = rtcNewDevice(nullptr);
    scene                 = rtcNewScene(device);
    RTCGeometry geometry  = rtcNewGeometry(device, RTC_GEOMETRY_TYPE_TRIANGLE);
    auto*       positions = static_cast<hv::Vector*>(
        NewBuffer<hv::Vector>(geometry, RTC_BUFFER_TYPE_VERTEX, RTC_FORMAT_FLOAT3, part.positions.size()));
    std::copy(part.positions.begin(), part.positions.end(), positions);
    auto* faces = static_cast<IndexTriple*>(
        NewBuffer<IndexTriple>(geometry, RTC_BUFFER_TYPE_INDEX, RTC_FORMAT_UINT3, part.triangles.size()));
    for (const hv::Triangle& face : part.triangles) *faces++ = {face.i0, face.i1, face.i2};
    CommitScene(geometry);
}

// Both hold the same cubic: this side's Hermite tangents are the derivatives at s = 0 and 1, too, in the units of s.
void MakeEmbreeCurves(const hv::Part& part, unsigned pieces)
{
    device                  = rtcNewDevice(nullptr);
    scene                   = rtcNewScene(device);
    RTCGeometry       curve = rtcNewGeometry(device, RTC_GEOMETRY_TYPE_FLAT_HERMITE_CURVE);
    const std::size_t count = part.positions.size();
    auto* vertices = static_cast<Float4*>(NewBuffer<Float4>(curve, RTC_BUFFER_TYPE_VERTEX, RTC_FORMAT_FLOAT4, count));
    auto* tangents = static_cast<Float4*>(NewBuffer<Float4>(curve, RTC_BUFFER_TYPE_TANGENT, RTC_FORMAT_FLOAT4, count));
    for (std::uint32_t v = 0; v < count; ++v) {
        const hv::Vector p = part.positions[v], t = hv::TangentAt(part, v);
        vertices[v] = {p.x, p.y, p.z, hv::RadiusAt(part, v)};
        tangents[v] = {t.x, t.y, t.z, 0.0f};  // radii without a slope: those of the bench are even
    }
    auto* starts = static_cast<std::uint32_t*>(
        NewBuffer<std::uint32_t>(curve, RTC_BUFFER_TYPE_INDEX, RTC_FORMAT_UINT, part.cylinders.size()));
    std::copy(part.cylinders.begin(), part.cylinders.end(), starts);
    rtcSetGeometryTessellationRate(curve, static_cast<float>(pieces));
    CommitScene(curve);
}

void ReleaseEmbreeScene()
{
    rtcReleaseScene(scene);
    rtcReleaseDevice(device);
}

void ShootEmbree(const RaySet& set, std::size_t first, std::size_t last, int /*thread*/, Answer* answers)
{
    RTCIntersectContext context;
    rtcInitIntersectContext(&context);
    if (set.kind == RayKind::Closest) {
        for (std::size_t n = first; n < last; ++n) {
            RTCRayHit ray{};
            ray.ray        = MakeRay(set.rays[n]);
            ray.hit.geomID = RTC_INVALID_GEOMETRY_ID;
            rtcIntersect1(scene, &context, &ray);
            answers[n] = ray.hit.geomID == RTC_INVALID_GEOMETRY_ID
                             ? Answer{std::numeric_limits<float>::infinity(), hv::kNone}
                             : Answer{ray.ray.tfar, ray.hit.primID};
        }
    } else {
        for (std::size_t n = first; n < last; ++n) {
            RTCRay ray = MakeRay(set.rays[n]);
            rtcOccluded1(scene, &context, &ray);
            answers[n] = {ray.tfar < 0.0f ? 1.0f : 0.0f, hv::kNone};
        }
    }
}
