#include "geometry/object.h"
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
    rtcCommitGeometry(geometry);
    rtcAttachGeometry(scene, geometry);
    rtcReleaseGeometry(geometry);
    rtcCommitScene(scene);
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
