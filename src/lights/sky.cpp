#include "lights/lights.h"
#include "lights/links.h"
#include "lights/sky_tables.h"

#include "accel/ray.h"
#include "base/constants.h"
#include "geometry/object.h"
#include "output/output.h"
#include "session/console.h"
#include "session/settings.h"
#include "shading/image_store.h"
#include "shading/texture_lookup.h"

#include <algorithm>
#include <cmath>

namespace hv {

namespace {

/// Pictures of the sky are read as a texture without matrices and gamma, bilinear, repeated. Constant.
const ShaderElement kPlainElement;

/// Makes north and zenith orthonormal; zenith keeps its direction.
void NormaliseFrame()
{
    SkyLight.zenith   = Normalized(SkyLight.zenith);
    const Vector side = Normalized(Cross(SkyLight.zenith, Normalized(SkyLight.north)));
    SkyLight.north    = Normalized(Cross(side, SkyLight.zenith));
}

/// Reads the pictures and builds what direct lighting draws from. A sky of one colour needs no drawing: rays meet it by
/// themselves.
void PreparePictures()
{
    DropSkyTables();
    LoadImage(SkyLight.backdrop);
    LoadImage(SkyLight.image);
    if (!IsPresent(SkyLight.color)) {
        SkyLight.photon = SkyLight.sample = 0;  // the sky is off
        return;
    }
    // Meant: a missing picture is told a second time.
    if (LoadImage(SkyLight.image))
        BuildSkyTables();
    else
        SkyLight.sample = 0;
}

void ReportSky()
{
    std::int64_t bytes = ImageBytes(SkyLight.image) + ImageBytes(SkyLight.backdrop);
    for (const CameraAOV& aov : SkyLightAOVs) bytes += ImageBytes(aov.image);
    ReportCount("sky light map width   ", SkyLight.image.width, "n/a");
    ReportCount("sky light map height  ", SkyLight.image.height, "n/a");
    ReportValue("sky light memory      ", static_cast<float>(bytes) * 9.536743e-7f, "M bytes");
    PrintRule();
}

/// The backdrop fills the film, its first row in memory at the top.
Color BackdropAt(std::uint32_t pixel)
{
    const Camera* camera = ActiveCamera();
    if (!camera || camera->width < 1 || camera->height < 1) return kBlack;
    const auto  width = static_cast<std::uint32_t>(camera->width);
    const float uv[2] = {static_cast<float>(pixel % width) / static_cast<float>(width),
                         static_cast<float>(pixel / width) / static_cast<float>(camera->height)};
    return LookupTexture(SkyLight.backdrop, uv, kPlainElement);
}

}  // namespace

void SkyLightDefaults()
{
    const SkyLightState defaults;
    SkyLight.image         = defaults.image;
    SkyLight.backdrop      = defaults.backdrop;
    SkyLight.color         = defaults.color;
    SkyLight.photon        = defaults.photon;
    SkyLight.sample        = defaults.sample;
    SkyLight.north         = defaults.north;
    SkyLight.zenith        = defaults.zenith;
    SkyLight.ior           = defaults.ior;
    SkyLight.sky_scale     = defaults.sky_scale;
    SkyLight.thickness     = defaults.thickness;
    SkyLight.volume_shader = defaults.volume_shader;
    SkyLight.link_names.clear();
    SkyLight.link_shaders.clear();
}

void PrepareSkyLight()
{
    ResolveLinks(SkyLight.link_names, SkyLight.link_shaders);
    NormaliseFrame();
    SkyLight.sun_direction = Normalized(SkyLight.sun_direction);
    if (SkyLight.photon > 0) SkyLight.sky_scale = kWhite * (SceneRadius * SceneRadius * 4.0f * kPi);
    PreparePictures();
    PrepareLightAOVs(SkyLightAOVs);
    ReportSky();
}

void FinalizeSkyLight()
{
    DropSkyTables();
    SkyLight.image    = {};
    SkyLight.backdrop = {};
    CloseLightAOVs(SkyLightAOVs);
    SkyLightDefaults();
}

void SkyUV(Vector direction, float uv[2])
{
    // The frame is left-handed: seen from inside, u runs from north over west and south to east.
    const float x = Dot(Cross(SkyLight.zenith, SkyLight.north), direction);
    const float y = Dot(SkyLight.north, direction);
    const float z = Dot(SkyLight.zenith, direction);
    uv[0]         = 1.0f - (kPi + std::atan2(y, x)) / kTwoPi;
    uv[1]         = std::acos(std::clamp(z, -1.0f, 1.0f)) * kInvPi;
}

Color SkyTexel(Vector direction)
{
    float uv[2];
    SkyUV(direction, uv);
    return LookupTexture(SkyLight.image, uv, kPlainElement);
}

Color SkyColor(Vector direction)
{
    return SkyLight.image.loaded ? SkyTexel(direction) * SkyLight.color : SkyLight.color;
}

Color SkyRadiance(const RayRecord& ray)
{
    if (SkyLight.backdrop.loaded && ray.depth == 0) return BackdropAt(PixelSlot[ray.thread]);
    return SkyColor(ray.direction);
}

}  // namespace hv
