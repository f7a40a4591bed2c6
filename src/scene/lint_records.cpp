#include "scene/lint.h"

#include "geometry/object.h"
#include "lights/light.h"
#include "output/camera.h"
#include "shading/shader.h"
#include "shading/shading.h"

#include <algorithm>
#include <cmath>
#include <set>

namespace hv {

namespace {

bool HasLine(const Place& opener, std::string_view word) { return !LinesIn(opener, word).empty(); }

bool AreParallel(Vector a, Vector b)
{
    const Vector side = Cross(a, b);
    return !(Dot(side, side) > 1e-12f * Dot(a, a) * Dot(b, b));
}

// ---- Cameras ----

void CheckCamera(SceneCheck& check, const Camera& camera, const Place& section)
{
    if (camera.width < 1 || camera.height < 1)
        check.Error(LineOr(section, "resolution"), "the camera's film has no pixels");
    else if (std::max(camera.x0, 0) >= std::min(camera.x1, camera.width) ||
             std::max(camera.y0, 0) >= std::min(camera.y1, camera.height))
        check.WarnOfWhole(LineOr(section, "region"), "no pixel of the film lies in the `region`");
    for (const Place& pose : LinesIn(section, "pose")) {
        const bool is_first = pose.line == LinesIn(section, "pose").front().line;
        if (!is_first && camera.pose_count < 2) continue;
        const CameraPose& record = camera.poses[is_first ? 0 : 1];
        const Vector      view   = record.target - record.position;
        if (Dot(view, view) == 0.0f)
            check.WarnOfWhole(LineOr(pose, "target"), "the camera looks at the place where it stands");
        else if (AreParallel(view, record.up_vector))
            check.WarnOfWhole(LineOr(pose, "up_vector"), "the camera looks along its `up_vector`");
    }
}

void CheckCameras(SceneCheck& check)
{
    const std::vector<Place> sections = check.Sections("camera");
    if (sections.empty()) check.ReportFile(check.folder, 0, 0, true, "the scene has no camera");
    for (std::size_t i = 0; i < sections.size() && i < Cameras.size(); ++i) {
        CheckCamera(check, Cameras[i], sections[i]);
        if (i > 0)
            check.WarnOfWhole(sections[i], "only the first camera renders, " + LineIn(sections[0], sections[i].file));
    }
}

// ---- AOVs ----

void CheckAov(SceneCheck& check, const Place& aov, const CameraAOV& record, bool is_camera)
{
    if (record.image.path.empty()) check.WarnOfWhole(aov, "without an `image` the AOV is not written");
    const Place type = LineOr(aov, "type");
    if (is_camera && record.channel != static_cast<std::uint32_t>(Channel::UserData))
        check.WarnOfWhole(
            type, "the picture stays black: of a camera, files give vertex data only; `halvorne --aov` gives the rest");
    constexpr auto kLobes = static_cast<std::uint32_t>(Channel::Lambertian) |
                            static_cast<std::uint32_t>(Channel::Transmissive) |
                            static_cast<std::uint32_t>(Channel::Glossy);
    if (!is_camera && (record.channel & kLobes) == 0)
        check.WarnOfWhole(type,
                          "a light's direct share has the types \"lambertian\", \"transmissive\" and \"glossy\" only");
}

void CheckAovs(SceneCheck& check, const std::vector<Place>& sections, const std::vector<CameraAOV>& records,
               std::size_t first, bool is_camera)
{
    for (const Place& section : sections)
        for (const Place& aov : LinesIn(section, "aov"))
            if (first < records.size()) CheckAov(check, aov, records[first++], is_camera);
}

// ---- Lights ----

template <class Record>
void CheckLight(SceneCheck& check, const Record& light, const Place& section)
{
    if (!IsPresent(light.color)) check.WarnOfWhole(LineOr(section, "color"), "the light is black");
    if (light.sample > 1 && !(light.blur > 0.0f) && HasLine(section, "sample"))
        check.WarnOfWhole(LineOr(section, "sample"), "`sample` has an effect on lights with a `blur` only");
    CheckAovs(check, {section}, light.aovs, 0, false);
}

void CheckLights(SceneCheck& check)
{
    const std::vector<Place> points = check.Sections("point_light"), parallels = check.Sections("parallel_light");
    for (std::size_t i = 0; i < points.size() && i < PointLights.size(); ++i) {
        CheckLight(check, PointLights[i], points[i]);
        if (!HasLine(points[i], "position"))
            check.WarnOfWhole(points[i], "the light has no `position`: it stands at 0 0 0");
        if (PointLights[i].inner_angle > PointLights[i].outer_angle)
            check.WarnOfWhole(LineOr(points[i], "inner_angle"),
                              "`inner_angle` is above `outer_angle`: the spot is turned over");
    }
    for (std::size_t i = 0; i < parallels.size() && i < ParallelLights.size(); ++i) {
        CheckLight(check, ParallelLights[i], parallels[i]);
        if (ParallelLights[i].axis == Vector{}) check.WarnOfWhole(parallels[i], "the light has no `direction`");
    }
    const std::vector<Place> skies = check.Sections("sky_light"), emitters = check.Sections("geometry_light");
    CheckAovs(check, skies, SkyLightAOVs, 0, false);
    CheckAovs(check, emitters, GeometryLightAOVs, 0, false);
    if (!skies.empty() && AreParallel(SkyLight.zenith, SkyLight.north))
        check.WarnOfWhole(LineOr(skies.back(), "zenith"),
                          "`zenith` and `north` stand in one line: the sky has no frame");
    if (SkyLight.image.path.empty() && SkyLight.sample > 0)
        for (const Place& sky : skies)
            if (HasLine(sky, "sample"))
                check.WarnOfWhole(LineOr(sky, "sample"), "`sample` has an effect with an `image` only");
    if (GeometryLight.sample > 0 && !IsAnyLayer([](const SurfaceShader& layer) { return layer.virtual_light; }))
        for (const Place& section : emitters)
            if (HasLine(section, "sample"))
                check.WarnOfWhole(LineOr(section, "sample"),
                                  "`sample` has an effect on layers with `virtual_light` only: there is none");
}

// ---- Shaders ----

bool HasImage(const SurfaceShader& layer, Element element) { return !layer.Slot(element).image.empty(); }
bool IsSet(const SurfaceShader& layer, Element element) { return IsPresent(layer.Slot(element).color); }

struct ElementWord {
    std::string_view word;
    Element          element;
};

constexpr ElementWord kElementWords[] = {
    {"emissive", Element::Emissive},
    {"specular", Element::Specular},
    {"transmissive", Element::Transmissive},
    {"lambertian", Element::Lambertian},
    {"glossy", Element::Glossy},
    {"shadow_transparency", Element::ShadowTransparency},
    {"angle", Element::Angle},
    {"ior", Element::Ior},
    {"roughness", Element::Roughness},
    {"anisotropy", Element::Anisotropy},
    {"normal", Element::Normal},
    {"diffusion", Element::Diffusion},
    {"weight", Element::Weight},
};

void CheckLayer(SceneCheck& check, const SurfaceShader& layer, const Place& opener, bool is_hair)
{
    const auto warn = [&](std::string_view word, std::string text) {
        check.WarnOfWhole(LineOr(opener, word), std::move(text));
    };
    for (const ElementWord& known : kElementWords)
        if (HasImage(layer, known.element) && !IsSet(layer, known.element))
            warn(known.word, "the picture is multiplied by `color`, which is black");

    const bool reflects = IsSet(layer, Element::Glossy) || IsSet(layer, Element::Specular);
    const bool is_one =
        !HasImage(layer, Element::Ior) && std::fabs(Mean(layer.Slot(Element::Ior).color) - 1.0f) < 1e-6f;
    if (reflects && is_one && layer.material == Material::Conductor && !is_hair)
        warn(IsSet(layer, Element::Glossy) ? "glossy" : "specular",
             "reflects nothing: the `ior` of the conductor is 1");

    const bool is_rough = IsSet(layer, Element::Roughness);
    const bool is_bent  = is_rough && IsSet(layer, Element::Glossy) && IsSet(layer, Element::Anisotropy);
    if (is_rough && !IsSet(layer, Element::Glossy)) warn("roughness", "`roughness` has an effect on `glossy` only");
    if (IsSet(layer, Element::Anisotropy) && !is_bent)
        warn("anisotropy", "`anisotropy` has an effect with `glossy` and `roughness` only");
    if (IsSet(layer, Element::Angle) && !is_bent) warn("angle", "`angle` has an effect on `anisotropy` only");
    if (HasLine(opener, "normal") && !HasImage(layer, Element::Normal))
        warn("normal", "`normal` has an effect with an `image` only");
    if (layer.virtual_light && !IsSet(layer, Element::Emissive))
        warn("virtual_light", "`virtual_light` has an effect on what is `emissive` only");
    if (layer.material == Material::ThinDielectric && HasLine(opener, "shadow_transparency"))
        warn("shadow_transparency", "has no effect in a `thin_dielectric`, whose shadow takes `specular`");
    for (const auto& [word, element] : {kElementWords[2], kElementWords[3]})  // transmissive, lambertian
        if (!HasImage(layer, element) && MaxChannel(layer.Slot(element).color) > 1.0f)
            warn(word, "an albedo above 1: the surface sends on more light than it gets");
}

/// Tells once, at the first layer that nothing samples.
void CheckUnsampled(SceneCheck& check, const std::vector<Place>& shaders)
{
    if (GeometryLight.sample > 0) return;
    for (const Place& shader : shaders)
        for (const Place& layer : LinesIn(shader, "surface_shader"))
            if (HasLine(layer, "virtual_light") && HasLine(layer, "emissive"))
                return check.WarnOfWhole(LineOr(layer, "virtual_light"),
                                         "nothing samples the light: `sample` of `geometry_light` is 0, so that "
                                         "scattered rays alone find it");
}

/// Layers of one side are drawn by weight: where there are several, one without a weight is never drawn.
void CheckSides(SceneCheck& check, const Shader& shader, const std::vector<Place>& layers)
{
    std::set<std::size_t> weightless;
    for (const Sideness other : {Sideness::Back, Sideness::Face}) {
        std::vector<std::size_t> side;
        for (std::size_t i = 0; i < shader.layers.size(); ++i)
            if (shader.layers[i].sideness != other) side.push_back(i);
        for (std::size_t n = 0; n < side.size(); ++n) {
            if (n == kMaxSideLayers)
                check.WarnOfWhole(layers[side[n]], "a side has 16 layers at most: this one is left out");
            if (side.size() > 1 && !IsSet(shader.layers[side[n]], Element::Weight)) weightless.insert(side[n]);
        }
    }
    for (const std::size_t i : weightless)
        check.WarnOfWhole(layers[i], "one of several layers of a side, and without a `weight`: it is never drawn");
}

void CheckDisplacement(SceneCheck& check, const GeometryShader& geometry, const Place& opener)
{
    const std::vector<Place> entries = LinesIn(opener, "vector");
    for (std::size_t i = 0; i < entries.size() && i < geometry.vector.size(); ++i) {
        if (geometry.vector[i].color == kBlack)
            check.WarnOfWhole(entries[i], "moves nothing: `color`, which scales the way, is black");
        if (geometry.vector[i].level < 1)
            check.WarnOfWhole(LineOr(entries[i], "level"), "a `level` below 1 leaves none of the faces");
    }
    if (!entries.empty() && std::fabs(geometry.smooth_angle) < 1e-8f)
        check.WarnOfWhole(LineOr(opener, "smooth_angle"), "displacement needs normals: `smooth_angle` 0 leaves none");
}

void CheckShader(SceneCheck& check, const Shader& shader, const Place& section, bool is_hair)
{
    const std::vector<Place> layers = LinesIn(section, "surface_shader");
    if (layers.size() == shader.layers.size()) {
        for (std::size_t i = 0; i < layers.size(); ++i) CheckLayer(check, shader.layers[i], layers[i], is_hair);
        CheckSides(check, shader, layers);
    }
    for (const Place& geometry : LinesIn(section, "geometry_shader"))
        CheckDisplacement(check, shader.geometry_shader, geometry);
}

/// Names of shaders that strands wear: of objects that read strands, and of all instances, whatever they place.
std::set<std::string> HairShaders(const SceneCheck& check)
{
    std::set<std::string> names;
    const auto            add = [&](const std::vector<Place>& lines) {
        for (const Place& line : lines)
            if (!line.line->values.empty()) names.insert(line.line->values.front().text);
    };
    for (const Place& object : check.Sections("object")) {
        if (HasLine(object, "hair") || HasLine(object, "fur")) add(LinesIn(object, "shader"));
        for (const Place& instance : LinesIn(object, "instance")) add(LinesIn(instance, "shader"));
    }
    return names;
}

void CheckShaders(SceneCheck& check)
{
    const std::set<std::string> hair = HairShaders(check);
    std::set<std::string>       seen;
    const std::vector<Place>    sections = check.Sections("shader");
    for (auto section = sections.rbegin(); section != sections.rend(); ++section) {
        const Place       line  = LineOr(*section, "name");
        const bool        named = line.line != section->line && !line.line->values.empty();
        const std::string name  = named ? line.line->values.front().text : "undefined";
        if (!seen.insert(name).second) continue;  // replaced by the section met before: the registry holds that one
        if (const std::uint32_t index = FindShader(name); index != kNone)
            CheckShader(check, Shaders[index], *section, hair.contains(name));
    }
    CheckUnsampled(check, sections);
}

// ---- Objects ----

/// Whether a matrix keeps all distances, up to a few digits that its author has left out.
bool IsRigid(const Matrix4& matrix)
{
    const Matrix3 axes = UpperLeft(matrix), product = Transposed(axes) * axes, unit;
    for (int i = 0; i < 9; ++i)
        if (!(std::fabs(product.m[i] - unit.m[i]) < 0.02f)) return false;
    return true;
}

void CheckInstanceMatrices(SceneCheck& check, const Object& object, const Place& section)
{
    const std::vector<Place> instances = LinesIn(section, "instance");
    for (std::size_t i = 0; i < instances.size() && i < object.instances.size(); ++i)
        if (!IsRigid(object.instances[i].matrix))
            check.WarnOfWhole(LineOr(instances[i], "matrix"),
                              "more than a turn and a shift: distances stay as they are in the placed object, and what "
                              "is shaded is off its place");
}

void CheckObjects(SceneCheck& check)
{
    const std::vector<Place> sections = check.Sections("object");
    if (sections.empty()) check.ReportFile(check.folder, 0, 0, false, "the scene has no object");
    for (std::size_t i = 0; i < sections.size() && i < Objects.size(); ++i) {
        if (Objects[i].parts.empty() && Objects[i].instances.empty())
            check.WarnOfWhole(sections[i], "nothing is in the object");
        CheckInstanceMatrices(check, Objects[i], sections[i]);
        std::vector<Place> waiting;
        for (const Place& line : LinesIn(sections[i])) {
            if (MakesPart(*line.line))
                waiting.clear();
            else if (!line.line->values.empty() && line.line->values.front().meaning == Meaning::DataPicture)
                waiting.push_back(line);
        }
        for (const Place& line : waiting)
            check.WarnOfWhole(line,
                              Shown(line.line->word) + " has an effect on keywords behind it only that make a part");
    }
}

}  // namespace

void CheckRecords(SceneCheck& check)
{
    CheckCameras(check);
    const std::vector<Place> cameras = check.Sections("camera");
    for (std::size_t i = 0; i < cameras.size() && i < Cameras.size(); ++i)  // the first AOV is born with the camera
        CheckAovs(check, {cameras[i]}, Cameras[i].aovs, 1, true);
    CheckLights(check);
    CheckShaders(check);
    CheckObjects(check);
}

}  // namespace hv
