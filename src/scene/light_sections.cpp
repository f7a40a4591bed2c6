#include "scene/sections.h"

namespace hv {

namespace {

void ReadLinkedShader(SceneReader& reader, std::vector<std::string>& names)
{
    names.push_back(reader.Quoted(Meaning::ShaderFilter));
}

constexpr Keyword<std::vector<std::string>> kLink[] = {
    {"shader", ReadLinkedShader, {"\"undefined\"", "", "a shader that the light acts on", Effect::Adds}},
};

// Rows that every light has.
template <class Record>
void ReadLightAov(SceneReader& reader, Record& light)
{
    AppendAndRead(reader, light.aovs, ReadAov);
}
template <class Record>
void ReadLightLink(SceneReader& reader, Record& light)
{
    ReadLink(reader, light.link_names);
}
constexpr Note kAovNote  = {"", "", "a picture of the light's share", Effect::Adds};
constexpr Note kLinkNote = {"", "", "the shaders that the light acts on; without any it acts on all", Effect::Adds};

constexpr Note kColorNote  = {"4 3.8 3.5", "RGB", "radiance of a white surface at 1 m that faces it"};
constexpr Note kSampleNote = {"2", "rays", "shadow rays a first point over the render, if it has a `blur`"};
constexpr Note kPhotonNote = {"100000", "photons", "photons to cast; 0: none"};
constexpr Note kIorNote    = {"1", "", "none: photons carry it, nothing reads it", Effect::None};
constexpr Note kOffsetNote = {"0", "", "keeps grazing light away: a cosine c counts (c - offset) / (1 - offset)"};

constexpr Keyword<PointLight> kPointLight[] = {
    {"color", Numbers<&PointLight::color>, kColorNote},
    {"position", Numbers<&PointLight::position>, {"0 2.4 0", "m", "must be set"}},
    {"direction", Numbers<&PointLight::direction>, {"0 -1 0", "", "axis of the cone"}},
    {"blur", Numbers<&PointLight::blur>, {"0.05", "m", "radius of the ball that shines; 0: hard shadows"}},
    {"sample", Numbers<&PointLight::sample>, kSampleNote},
    {"photon", Numbers<&PointLight::photon>, kPhotonNote},
    {"inner_angle", Numbers<&PointLight::inner_angle>, {"30", "degrees", "from the axis: full light up to here"}},
    {"outer_angle", Numbers<&PointLight::outer_angle>, {"45", "degrees", "from the axis: no light from here on"}},
    {"offset", Numbers<&PointLight::offset>, kOffsetNote},
    {"ior", Numbers<&PointLight::ior>, kIorNote},
    {"aov", ReadLightAov<PointLight>, kAovNote},
    {"link", ReadLightLink<PointLight>, kLinkNote},
};

constexpr Keyword<ParallelLight> kParallelLight[] = {
    {"color", Numbers<&ParallelLight::color>, {"3 2.9 2.6", "RGB", "radiance of a white surface that faces it"}},
    {"direction", Numbers<&ParallelLight::axis>, {"0.3 -1 -0.2", "", "where the light goes; must be set"}},
    {"blur",
     Numbers<&ParallelLight::blur>,
     {"0.27", "degrees", "half-angle of the disc that shines; the sun has 0.27"}},
    {"sample", Numbers<&ParallelLight::sample>, kSampleNote},
    {"photon", Numbers<&ParallelLight::photon>, kPhotonNote},
    {"ior", Numbers<&ParallelLight::ior>, kIorNote},
    {"offset", Numbers<&ParallelLight::offset>, kOffsetNote},
    {"aov", ReadLightAov<ParallelLight>, kAovNote},
    {"link", ReadLightLink<ParallelLight>, kLinkNote},
};

void ReadSkyVolume(SceneReader& reader, SkyLightState& sky) { ReadVolumeShader(reader, sky.volume_shader); }
void ReadSkyAov(SceneReader& reader, SkyLightState&) { AppendAndRead(reader, SkyLightAOVs, ReadAov); }

constexpr Keyword<SkyLightState> kSkyLight[] = {
    {"image",
     PicturePath<&SkyLightState::image, Meaning::Picture>,
     {"\"sky.hdr\"", "", "picture of all directions, as wide as twice its height"}},
    {"backdrop",
     PicturePath<&SkyLightState::backdrop, Meaning::Picture>,
     {"\"sky.hdr\"", "", "picture behind the scene that the camera sees in place of the sky"}},
    {"color", Numbers<&SkyLightState::color>, {"0.6 0.7 0.9", "RGB", "radiance of the sky; multiplies `image`"}},
    {"photon", Numbers<&SkyLightState::photon>, {"0", "photons", "photons to cast; 0: none"}},
    {"sample",
     Numbers<&SkyLightState::sample>,
     {"16", "rays", "shadow rays a first point over the render; needs an `image`"}},
    {"north",
     Numbers<&SkyLightState::north>,
     {"0 0 -1", "", "where the texels a quarter in from the left of `image` stand"}},
    {"zenith", Numbers<&SkyLightState::zenith>, {"0 1 0", "", "where the top row of `image` stands"}},
    {"volume_shader", ReadSkyVolume, {"", "", "the medium outside of all bodies"}},
    {"thickness", Numbers<&SkyLightState::thickness>, {"1000", "", "none", Effect::None}},
    {"turbidity", Numbers<&SkyLightState::turbidity>, {"3", "", "none: `tools/make_sky.py` makes skies", Effect::None}},
    {"stretch", Numbers<&SkyLightState::stretch>, {"0.1", "", "none", Effect::None}},
    {"albedo", Numbers<&SkyLightState::albedo>, {"0.2", "", "none", Effect::None}},
    {"ior", Numbers<&SkyLightState::ior>, kIorNote},
    {"aov", ReadSkyAov, kAovNote},
    {"link", ReadLightLink<SkyLightState>, kLinkNote},
};

void ReadGeometryAov(SceneReader& reader, GeometryLightState&) { AppendAndRead(reader, GeometryLightAOVs, ReadAov); }

constexpr Keyword<GeometryLightState> kGeometryLight[] = {
    {"photon", Numbers<&GeometryLightState::photon>, {"200000", "photons", "photons to cast; 0: none"}},
    {"sample",
     Numbers<&GeometryLightState::sample>,
     {"1", "rays", "shadow rays a first point over the render, to surfaces with `virtual_light`"}},
    {"aov", ReadGeometryAov, kAovNote},
    {"link", ReadLightLink<GeometryLightState>, kLinkNote},
};

}  // namespace

void ReadLink(SceneReader& reader, std::vector<std::string>& names) { ReadBlock(reader, names, kLink); }

void ReadPointLight(SceneReader& reader, PointLight& light) { ReadBlock(reader, light, kPointLight); }

void ReadParallelLight(SceneReader& reader, ParallelLight& light) { ReadBlock(reader, light, kParallelLight); }

void ReadSkyLight(SceneReader& reader, SkyLightState& sky) { ReadBlock(reader, sky, kSkyLight); }

void ReadGeometryLight(SceneReader& reader, GeometryLightState& light) { ReadBlock(reader, light, kGeometryLight); }

}  // namespace hv
