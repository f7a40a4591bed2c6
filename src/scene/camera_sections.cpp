#include "scene/scene.h"
#include "scene/sections.h"
#include "session/search_paths.h"

namespace hv {

namespace {

constexpr Keyword<RendererSettings> kFinalGather[] = {
    {"ray_depth", Numbers<&RendererSettings::RayDepth>},
    {"photon_depth", Numbers<&RendererSettings::PhotonDepth>},
    {"sample", Numbers<&RendererSettings::RendererSample>},
    {"bounce", Numbers<&RendererSettings::Bounce>},
    {"distance", Numbers<&RendererSettings::Distance>},
    {"resolution", Numbers<&RendererSettings::Resolution>},
    {"radius",
     [](SceneReader& reader, RendererSettings&) {
         float radius = 0.0f;
         if (reader.Read(radius) == 1) SetRadius(radius);
     }},
};

void ReadFinalGather(SceneReader& reader, RendererSettings& settings) { ReadBlock(reader, settings, kFinalGather); }

constexpr Keyword<RendererSettings> kRender[] = {
    {"clamp", Numbers<&RendererSettings::Clamp>},
    {"gamma", Numbers<&RendererSettings::DisplayGamma>},
    {"exposure", Numbers<&RendererSettings::Exposure>},
    {"final_gather", ReadFinalGather},
    {"image_path", [](SceneReader& reader, RendererSettings&) { ImageSearchPaths.push_back(reader.Quoted()); }},
};

// A field counts as set as soon as one of its numbers could be read.
template <auto field, PoseField bit>
void PoseNumbers(SceneReader& reader, CameraPose& pose)
{
    if (reader.Read(pose.*field) > 0) pose.set_fields |= 1u << static_cast<unsigned>(bit);
}

constexpr Keyword<CameraPose> kPose[] = {
    {"position", PoseNumbers<&CameraPose::position, PoseField::Position>},
    {"target", PoseNumbers<&CameraPose::target, PoseField::Target>},
    {"up_vector", PoseNumbers<&CameraPose::up_vector, PoseField::UpVector>},
    {"bokeh", PoseNumbers<&CameraPose::bokeh, PoseField::Bokeh>},
    {"field_of_view", PoseNumbers<&CameraPose::field_of_view, PoseField::FieldOfView>},
};

// Meant: a third block is no block. Its lines are read as the camera's, and its `end` closes the camera.
void ReadPose(SceneReader& reader, Camera& camera)
{
    if (camera.pose_count < 2) ReadBlock(reader, camera.poses[camera.pose_count++], kPose);
}

void ReadProjection(SceneReader& reader, Camera& camera)
{
    const std::string word = reader.Quoted();
    if (word == "perspective" || word == "pinhole") camera.projection = Projection::Perspective;
    if (word == "spherical" || word == "panorama") camera.projection = Projection::Spherical;
}

constexpr Keyword<Camera> kCamera[] = {
    {"name", Text<&Camera::name>},
    {"resolution", Numbers<&Camera::width, &Camera::height>},
    {"region", Numbers<&Camera::x0, &Camera::y0, &Camera::x1, &Camera::y1>},
    {"sample", Numbers<&Camera::sample>},
    {"ior", Numbers<&Camera::ior>},
    {"exposure", Numbers<&Camera::exposure>},
    {"projection", ReadProjection},
    {"pose", ReadPose},
    {"aov", [](SceneReader& reader, Camera& camera) { AppendAndRead(reader, camera.aovs, ReadAov); }},
};

struct ChannelWord {
    std::string_view word;
    Channel          channel;
};

constexpr ChannelWord kChannelWords[] = {
    {"light_path", Channel::LightPath},
    {"lambertian", Channel::Lambertian},
    {"lambertian_color", Channel::LambertianColor},
    {"transmissive", Channel::Transmissive},
    {"transmissive_color", Channel::TransmissiveColor},
    {"glossy", Channel::Glossy},
    {"glossy_color", Channel::GlossyColor},
    {"specular", Channel::Specular},
    {"specular_color", Channel::SpecularColor},
    {"emissive", Channel::Emissive},
    {"normal", Channel::Normal},
    {"tangent", Channel::Tangent},
    {"position", Channel::Position},
    {"depth", Channel::Depth},
};

// Meant: a known word adds its bit to those that the AOV has, Beauty from the start; any other takes their place.
void ReadChannel(SceneReader& reader, CameraAOV& aov)
{
    std::string word = reader.Quoted();
    for (const ChannelWord& known : kChannelWords) {
        if (known.word != word) continue;
        aov.channel |= static_cast<std::uint32_t>(known.channel);
        return;
    }
    aov.channel   = static_cast<std::uint32_t>(Channel::UserData);
    aov.user_data = std::move(word);
}

constexpr Keyword<CameraAOV> kAov[] = {
    {"image", [](SceneReader& reader, CameraAOV& aov) { aov.image.path = reader.Quoted(); }},
    {"shader", Text<&CameraAOV::shader_name>},
    {"type", ReadChannel},
};

}  // namespace

void ReadAov(SceneReader& reader, CameraAOV& aov) { ReadBlock(reader, aov, kAov); }

void ReadRenderSection(SceneReader& reader, RendererSettings& settings) { ReadBlock(reader, settings, kRender); }

void ReadCamera(SceneReader& reader, Camera& camera) { ReadBlock(reader, camera, kCamera); }

}  // namespace hv
