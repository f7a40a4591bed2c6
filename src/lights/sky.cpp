#include "lights/lights.h"
#include "lights/links.h"

#include "base/constants.h"
#include "geometry/object.h"
#include "output/output.h"
#include "session/console.h"

namespace hv {

namespace {

/// Makes north and zenith orthonormal; zenith keeps its direction.
void NormaliseFrame()
{
    SkyLight.zenith   = Normalized(SkyLight.zenith);
    const Vector east = Normalized(Cross(SkyLight.zenith, Normalized(SkyLight.north)));
    SkyLight.north    = Normalized(Cross(east, SkyLight.zenith));
}

/// Pictures of the sky are not read yet: they leave the sky at its colour, which rays meet by themselves, so that direct
/// lighting has nothing to sample.
void LoadPictures()
{
    for (const Image* image : {&SkyLight.backdrop, &SkyLight.image})
        if (!image->path.empty()) PrintWarning("image - pictures are not read yet: " + image->path);
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
    LoadPictures();
    if (!IsPresent(SkyLight.color)) SkyLight.photon = 0;  // the sky is off
    PrepareLightAOVs(SkyLightAOVs);
    ReportSky();
}

void FinalizeSkyLight()
{
    SkyLight.image    = {};
    SkyLight.backdrop = {};
    WriteAOVs(SkyLightAOVs);
    SkyLightDefaults();
}

Color SkyRadiance(const RayRecord& /*ray*/) { return SkyLight.color; }

Color SkyColor(Vector /*direction*/) { return SkyLight.color; }

}  // namespace hv
