#include "hv.h"
#include "lights/light.h"
#include "scene/construct.h"
#include "shading/shader.h"

using namespace hv;

namespace {

// Stores one field of an analytic light.
template <class Record, class Owner, class Value>
void Set(std::vector<Record>& lights, int light, Value Owner::*field, std::type_identity_t<Value> value)
{
    Edit(lights, light, [&](Record& record) { record.*field = value; });
}

void SetName(std::vector<CameraAOV>& aovs, int aov, const char* path)
{
    Edit(aovs, aov, [&](CameraAOV& record) { record.image.path = TextOf(path); });
}

// A light's AOV collects a set of elements: each call adds to it.
void AddChannel(std::vector<CameraAOV>& aovs, int aov, Channel channel)
{
    if (!IsChannelSet(channel)) return;
    Edit(aovs, aov, [&](CameraAOV& record) { record.channel |= static_cast<std::uint32_t>(channel); });
}

void AddLink(std::vector<std::uint32_t>& links, int shader)
{
    if (Find(Shaders, shader)) Guarded([&] { links.push_back(static_cast<std::uint32_t>(shader)); });
}

// A session that is prepared again reads the new picture.
void SetPicture(Image& image, const char* path)
{
    image      = {};
    image.path = TextOf(path);
}

}  // namespace

// ---- Point lights ----

int hvAddPointLight() { return Append(PointLights); }

void hvSetPointLightPosition(int light, float x, float y, float z)
{
    Set(PointLights, light, &PointLight::position, {x, y, z});
}
void hvSetPointLightDirection(int light, float x, float y, float z)
{
    Set(PointLights, light, &PointLight::direction, {x, y, z});
}
void hvSetPointLightColor(int light, float r, float g, float b) { Set(PointLights, light, &Light::color, {r, g, b}); }
void hvSetPointLightPhoton(int light, int count) { Set(PointLights, light, &Light::photon, count); }
void hvSetPointLightSample(int light, int count) { Set(PointLights, light, &Light::sample, count); }
void hvSetPointLightBlur(int light, float radius) { Set(PointLights, light, &Light::blur, radius); }
void hvSetPointLightOffset(int light, float offset) { Set(PointLights, light, &Light::offset, offset); }
void hvSetPointLightInnerAngle(int light, float degrees) { Set(PointLights, light, &PointLight::inner_angle, degrees); }
void hvSetPointLightOuterAngle(int light, float degrees) { Set(PointLights, light, &PointLight::outer_angle, degrees); }

int hvAddPointLightAOV(int light)
{
    PointLight* const record = Find(PointLights, light);
    return record != nullptr ? Append(record->aovs) : -1;
}
void hvSetPointLightAOVName(int light, int aov, const char* path)
{
    Edit(PointLights, light, [&](PointLight& record) { SetName(record.aovs, aov, path); });
}
void hvSetPointLightAOVChannel(int light, int aov, Channel channel)
{
    Edit(PointLights, light, [&](PointLight& record) { AddChannel(record.aovs, aov, channel); });
}
void hvSetPointLightShaderLink(int light, int shader)
{
    Edit(PointLights, light, [&](PointLight& record) { AddLink(record.link_shaders, shader); });
}

// ---- Parallel lights ----

int hvAddParallelLight() { return Append(ParallelLights); }

void hvSetParallelLightDirection(int light, float x, float y, float z)
{
    Set(ParallelLights, light, &Light::axis, {x, y, z});
}
void hvSetParallelLightColor(int light, float r, float g, float b)
{
    Set(ParallelLights, light, &Light::color, {r, g, b});
}
void hvSetParallelLightPhoton(int light, int count) { Set(ParallelLights, light, &Light::photon, count); }
void hvSetParallelLightSample(int light, int count) { Set(ParallelLights, light, &Light::sample, count); }
void hvSetParallelLightBlur(int light, float degrees) { Set(ParallelLights, light, &Light::blur, degrees); }
void hvSetParallelLightOffset(int light, float offset) { Set(ParallelLights, light, &Light::offset, offset); }

int hvAddParallelLightAOV(int light)
{
    ParallelLight* const record = Find(ParallelLights, light);
    return record != nullptr ? Append(record->aovs) : -1;
}
void hvSetParallelLightAOVName(int light, int aov, const char* path)
{
    Edit(ParallelLights, light, [&](ParallelLight& record) { SetName(record.aovs, aov, path); });
}
void hvSetParallelLightAOVChannel(int light, int aov, Channel channel)
{
    Edit(ParallelLights, light, [&](ParallelLight& record) { AddChannel(record.aovs, aov, channel); });
}
void hvSetParallelLightShaderLink(int light, int shader)
{
    Edit(ParallelLights, light, [&](ParallelLight& record) { AddLink(record.link_shaders, shader); });
}

// ---- Sky light ----

void hvSetSkyLightImage(const char* path)
{
    Guarded([&] { SetPicture(SkyLight.image, path); });
}
void hvSetSkyLightBackdrop(const char* path)
{
    Guarded([&] { SetPicture(SkyLight.backdrop, path); });
}
void hvSetSkyLightPhoton(int count) { SkyLight.photon = count; }
void hvSetSkyLightSample(int count) { SkyLight.sample = count; }
void hvSetSkyLightColor(float r, float g, float b) { SkyLight.color = {r, g, b}; }
void hvSetSkyLightNorth(float x, float y, float z) { SkyLight.north = {x, y, z}; }
void hvSetSkyLightZenith(float x, float y, float z) { SkyLight.zenith = {x, y, z}; }
void hvSetSkyLightShaderLink(int shader) { AddLink(SkyLight.link_shaders, shader); }
int  hvAddSkyLightAOV() { return Append(SkyLightAOVs); }
void hvSetSkyLightAOVName(int aov, const char* path) { SetName(SkyLightAOVs, aov, path); }
void hvSetSkyLightAOVChannel(int aov, Channel channel) { AddChannel(SkyLightAOVs, aov, channel); }

// ---- Geometry light ----

void hvSetGeometryLightPhoton(int count) { GeometryLight.photon = count; }
void hvSetGeometryLightSample(int count) { GeometryLight.sample = count; }
void hvSetGeometryLightShaderLink(int shader) { AddLink(GeometryLight.link_shaders, shader); }
int  hvAddGeometryLightAOV() { return Append(GeometryLightAOVs); }
void hvSetGeometryLightAOVName(int aov, const char* path) { SetName(GeometryLightAOVs, aov, path); }
void hvSetGeometryLightAOVShaderName(int aov, const char* name)
{
    Edit(GeometryLightAOVs, aov, [&](CameraAOV& record) { record.shader_name = TextOf(name); });
}
void hvSetGeometryLightAOVChannel(int aov, Channel channel) { AddChannel(GeometryLightAOVs, aov, channel); }
