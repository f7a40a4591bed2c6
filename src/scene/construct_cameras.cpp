#include "hv.h"
#include "output/output.h"
#include "scene/construct.h"

using namespace hv;

namespace {

// Stores a field of the pose that the camera's time selects, and notes that it was set.
template <class Value>
void SetPose(int camera, Value CameraPose::*field, PoseField bit, Value value)
{
    Edit(Cameras, camera, [&](Camera& record) {
        CameraPose& pose = record.poses[record.time];
        pose.*field      = value;
        pose.set_fields |= 1u << static_cast<unsigned>(bit);
    });
}

template <class Store>
void EditAOV(int camera, int aov, Store store)
{
    Edit(Cameras, camera, [&](Camera& record) { Edit(record.aovs, aov, store); });
}

}  // namespace

int hvAddCamera()
{
    return Guarded(-1, [] {
        Camera camera;
        CameraDefaults(camera);
        Cameras.push_back(std::move(camera));
        return static_cast<int>(Cameras.size()) - 1;
    });
}

void hvSetCameraName(int camera, const char* name)
{
    Edit(Cameras, camera, [&](Camera& record) { record.name = TextOf(name); });
}

void hvSetCameraResolution(int camera, int width, int height)
{
    Edit(Cameras, camera, [&](Camera& record) {
        record.width  = width;
        record.height = height;
    });
}

void hvSetCameraRegion(int camera, int x0, int y0, int x1, int y1)
{
    Edit(Cameras, camera, [&](Camera& record) {
        record.x0 = x0;
        record.y0 = y0;
        record.x1 = x1;
        record.y1 = y1;
    });
}

void hvSetCameraSample(int camera, int count)
{
    Edit(Cameras, camera, [&](Camera& record) { record.sample = count; });
}

void hvSetCameraProjection(int camera, Projection projection)
{
    if (!IsEnumerator(projection, Projection::Spherical)) return;
    Edit(Cameras, camera, [&](Camera& record) { record.projection = projection; });
}

void hvSetCameraAngleMeasure(int camera, AngleMeasure measure)
{
    if (!IsEnumerator(measure, AngleMeasure::Radians)) return;
    Edit(Cameras, camera, [&](Camera& record) { record.angle_measure = measure; });
}

void hvSetCameraExposure(int camera, float r, float g, float b)
{
    Edit(Cameras, camera, [&](Camera& record) { record.exposure = {r, g, b}; });
}

void hvSetCameraTime(int camera, float time)
{
    Edit(Cameras, camera, [&](Camera& record) { record.time = time < 0.5f ? 0 : 1; });
}

void hvSetCameraPosition(int camera, float x, float y, float z)
{
    SetPose(camera, &CameraPose::position, PoseField::Position, Vector{x, y, z});
}

void hvSetCameraTarget(int camera, float x, float y, float z)
{
    SetPose(camera, &CameraPose::target, PoseField::Target, Vector{x, y, z});
}

void hvSetCameraUpVector(int camera, float x, float y, float z)
{
    SetPose(camera, &CameraPose::up_vector, PoseField::UpVector, Vector{x, y, z});
}

void hvSetCameraBokeh(int camera, float degrees) { SetPose(camera, &CameraPose::bokeh, PoseField::Bokeh, degrees); }

void hvSetCameraFOV(int camera, float degrees)
{
    SetPose(camera, &CameraPose::field_of_view, PoseField::FieldOfView, degrees);
}

int hvAddCameraAOV(int camera) { return AppendTo(Cameras, camera, &Camera::aovs); }

void hvSetCameraAOVName(int camera, int aov, const char* path)
{
    EditAOV(camera, aov, [&](CameraAOV& record) { record.image.path = TextOf(path); });
}

void hvSetCameraAOVChannel(int camera, int aov, Channel channel)
{
    if (!IsChannelSet(channel)) return;
    EditAOV(camera, aov, [&](CameraAOV& record) { record.channel = static_cast<std::uint32_t>(channel); });
}

void hvSetCameraAOVUserData(int camera, int aov, const char* name)
{
    EditAOV(camera, aov, [&](CameraAOV& record) { record.user_data = TextOf(name); });
}
