#include "scene/scene.h"
#include "scene/sections.h"
#include "session/search_paths.h"

namespace hv {

namespace {

void ReadRadius(SceneReader& reader, RendererSettings& settings)
{
    float radius = settings.Radius;
    if (reader.Read(radius) == 1) SetRadius(radius);
}

constexpr Keyword<RendererSettings> kFinalGather[] = {
    {"ray_depth", Numbers<&RendererSettings::RayDepth>, {"12", "vertices", "longest path, 1 to 255"}},
    {"photon_depth", Numbers<&RendererSettings::PhotonDepth>, {"6", "vertices", "longest photon path, 1 to 254"}},
    {"sample",
     Numbers<&RendererSettings::RendererSample>,
     {"16", "rays", "rays that each element of a first point sends over the render"}},
    {"bounce", Numbers<&RendererSettings::Bounce>, {"4", "bounces", "diffuse and glossy bounces of a path, 1 or more"}},
    {"distance",
     Numbers<&RendererSettings::Distance>,
     {"0.5", "m", "a diffuse bounce longer than this ends at a density cell; 0: no cells"}},
    {"resolution", Numbers<&RendererSettings::Resolution>, {"0.04", "m^2", "area of a density cell; 0: no cells"}},
    {"radius", ReadRadius, {"0.1", "m", "farthest caustic photon that a lookup takes"}},
};

void ReadFinalGather(SceneReader& reader, RendererSettings& settings) { ReadBlock(reader, settings, kFinalGather); }

void ReadImagePath(SceneReader& reader, RendererSettings&)
{
    ImageSearchPaths.push_back(reader.Quoted(Meaning::PictureFolder));
}

constexpr Keyword<RendererSettings> kRender[] = {
    {"clamp", Numbers<&RendererSettings::Clamp>, {"10 10 10", "RGB", "most that one sample may bring to a pixel"}},
    {"gamma", Numbers<&RendererSettings::DisplayGamma>, {"2.2", "", "none: pictures are linear", Effect::None}},
    {"exposure", Numbers<&RendererSettings::Exposure>, {"0", "", "none: `hdr2png` exposes", Effect::None}},
    {"final_gather", ReadFinalGather, {"", "", "how far paths and photons go"}},
    {"image_path", ReadImagePath, {"\".\"", "", "one more folder to look for pictures in", Effect::Adds}},
};

// A field counts as set as soon as one of its numbers could be read.
template <auto field, PoseField bit>
void PoseNumbers(SceneReader& reader, CameraPose& pose)
{
    if (reader.Read(pose.*field) > 0) pose.set_fields |= 1u << static_cast<unsigned>(bit);
}

constexpr Keyword<CameraPose> kPose[] = {
    {"position", PoseNumbers<&CameraPose::position, PoseField::Position>, {"0 1.6 4", "m", "where the camera stands"}},
    {"target",
     PoseNumbers<&CameraPose::target, PoseField::Target>,
     {"0 1 0", "m", "where it looks, and what is sharp"}},
    {"up_vector", PoseNumbers<&CameraPose::up_vector, PoseField::UpVector>, {"0 1 0", "", "what is up in the picture"}},
    {"bokeh",
     PoseNumbers<&CameraPose::bokeh, PoseField::Bokeh>,
     {"0.2", "degrees", "half-angle of the blur cone; 0: all is sharp"}},
    {"field_of_view",
     PoseNumbers<&CameraPose::field_of_view, PoseField::FieldOfView>,
     {"50", "degrees", "angle from the left border to the right"}},
};

// Meant: a third block is no block. Its lines are read as the camera's, and its `end` closes the camera.
void ReadPose(SceneReader& reader, Camera& camera)
{
    if (camera.pose_count < 2)
        ReadBlock(reader, camera.poses[camera.pose_count++], kPose);
    else
        reader.Remark("a camera has two poses at most: this is one more");
}

constexpr NamedValue<Projection> kProjections[] = {
    {"perspective", Projection::Perspective},
    {"pinhole", Projection::Perspective},
    {"spherical", Projection::Spherical},
    {"panorama", Projection::Spherical},
};

constexpr Keyword<Camera> kCamera[] = {
    {"name", Text<&Camera::name>, {"\"main\"", "", "for the reader of the file"}},
    {"resolution", Numbers<&Camera::width, &Camera::height>, {"640 360", "pixels", "width and height of the picture"}},
    {"region",
     Numbers<&Camera::x0, &Camera::y0, &Camera::x1, &Camera::y1>,
     {"0 0 320 180", "pixels", "part that is rendered: left, top, and behind the right and lower border"}},
    {"sample", Numbers<&Camera::sample>, {"64", "frames", "frames of the render, one path a pixel each; to 65535"}},
    {"ior", Numbers<&Camera::ior>, {"1", "", "index of refraction around the camera; density cells need 1"}},
    {"exposure", Numbers<&Camera::exposure>, {"1 1 1", "RGB", "none", Effect::None}},
    {"projection", OneOf<&Camera::projection, kProjections>, {"\"panorama\"", "", "one plane, or all around"}},
    {"pose", ReadPose, {"", "", "where it stands; a second one is where it stands at the last frame", Effect::Adds}},
    {"aov",
     [](SceneReader& reader, Camera& camera) { AppendAndRead(reader, camera.aovs, ReadAov); },
     {"", "", "a further picture", Effect::Adds}},
};

constexpr NamedValue<Channel> kChannels[] = {
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
    std::string word = reader.Quoted(Meaning::OneOfOrOther);
    for (const NamedValue<Channel>& known : kChannels) reader.Offer(known.word, false);
    for (const NamedValue<Channel>& known : kChannels) {
        if (known.word != word) continue;
        aov.channel |= static_cast<std::uint32_t>(known.value);
        return;
    }
    aov.channel   = static_cast<std::uint32_t>(Channel::UserData);
    aov.user_data = std::move(word);
}

constexpr Keyword<CameraAOV> kAov[] = {
    {"image",
     PicturePath<&CameraAOV::image, Meaning::PictureOutput>,
     {"\"share.exr\"", "", "the picture to write; without it none is"}},
    {"shader",
     Text<&CameraAOV::shader_name, Meaning::ShaderFilter>,
     {"\"undefined\"", "", "light of emitters with this shader alone", Effect::Sets, "geometry_light"}},
    {"type", ReadChannel, {"\"glossy\"", "", "what it collects; any other word names vertex data", Effect::Adds}},
};

}  // namespace

void ReadAov(SceneReader& reader, CameraAOV& aov) { ReadBlock(reader, aov, kAov); }

void ReadRenderSection(SceneReader& reader, RendererSettings& settings) { ReadBlock(reader, settings, kRender); }

void ReadCamera(SceneReader& reader, Camera& camera) { ReadBlock(reader, camera, kCamera); }

}  // namespace hv
