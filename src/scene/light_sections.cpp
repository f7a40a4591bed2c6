#include "scene/sections.h"

namespace hv {

namespace {

constexpr Keyword<std::vector<std::string>> kLink[] = {
    {"shader", [](SceneReader& reader, std::vector<std::string>& names) { names.push_back(reader.Quoted()); }},
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

constexpr Keyword<PointLight> kPointLight[] = {
    {"color", Numbers<&PointLight::color>},
    {"position", Numbers<&PointLight::position>},
    {"direction", Numbers<&PointLight::direction>},
    {"blur", Numbers<&PointLight::blur>},
    {"sample", Numbers<&PointLight::sample>},
    {"photon", Numbers<&PointLight::photon>},
    {"inner_angle", Numbers<&PointLight::inner_angle>},
    {"outer_angle", Numbers<&PointLight::outer_angle>},
    {"offset", Numbers<&PointLight::offset>},
    {"ior", Numbers<&PointLight::ior>},
    {"aov", ReadLightAov<PointLight>},
    {"link", ReadLightLink<PointLight>},
};

constexpr Keyword<ParallelLight> kParallelLight[] = {
    {"color", Numbers<&ParallelLight::color>},   {"direction", Numbers<&ParallelLight::axis>},
    {"blur", Numbers<&ParallelLight::blur>},     {"sample", Numbers<&ParallelLight::sample>},
    {"photon", Numbers<&ParallelLight::photon>}, {"ior", Numbers<&ParallelLight::ior>},
    {"offset", Numbers<&ParallelLight::offset>}, {"aov", ReadLightAov<ParallelLight>},
    {"link", ReadLightLink<ParallelLight>},
};

constexpr Keyword<SkyLightState> kSkyLight[] = {
    {"image", [](SceneReader& reader, SkyLightState& sky) { sky.image.path = reader.Quoted(); }},
    {"backdrop", [](SceneReader& reader, SkyLightState& sky) { sky.backdrop.path = reader.Quoted(); }},
    {"color", Numbers<&SkyLightState::color>},
    {"photon", Numbers<&SkyLightState::photon>},
    {"sample", Numbers<&SkyLightState::sample>},
    {"north", Numbers<&SkyLightState::north>},
    {"zenith", Numbers<&SkyLightState::zenith>},
    {"volume_shader", [](SceneReader& reader, SkyLightState& sky) { ReadVolumeShader(reader, sky.volume_shader); }},
    {"thickness", Numbers<&SkyLightState::thickness>},
    {"turbidity", Numbers<&SkyLightState::turbidity>},
    {"stretch", Numbers<&SkyLightState::stretch>},
    {"albedo", Numbers<&SkyLightState::albedo>},
    {"ior", Numbers<&SkyLightState::ior>},
    {"aov", [](SceneReader& reader, SkyLightState&) { AppendAndRead(reader, SkyLightAOVs, ReadAov); }},
    {"link", ReadLightLink<SkyLightState>},
};

constexpr Keyword<GeometryLightState> kGeometryLight[] = {
    {"photon", Numbers<&GeometryLightState::photon>},
    {"sample", Numbers<&GeometryLightState::sample>},
    {"aov", [](SceneReader& reader, GeometryLightState&) { AppendAndRead(reader, GeometryLightAOVs, ReadAov); }},
    {"link", ReadLightLink<GeometryLightState>},
};

}  // namespace

void ReadLink(SceneReader& reader, std::vector<std::string>& names) { ReadBlock(reader, names, kLink); }

void ReadPointLight(SceneReader& reader, PointLight& light) { ReadBlock(reader, light, kPointLight); }

void ReadParallelLight(SceneReader& reader, ParallelLight& light) { ReadBlock(reader, light, kParallelLight); }

void ReadSkyLight(SceneReader& reader, SkyLightState& sky) { ReadBlock(reader, sky, kSkyLight); }

void ReadGeometryLight(SceneReader& reader, GeometryLightState& light) { ReadBlock(reader, light, kGeometryLight); }

}  // namespace hv
