#include "scene/lint.h"

#include "lights/light.h"
#include "session/settings.h"
#include "shading/shader.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>

namespace hv {

namespace {

// ---- Numbers out of bounds ----

constexpr double kAny = std::numeric_limits<double>::infinity();

struct Bounds {
    std::string_view block, word;
    double           least, most;
};

constexpr Bounds kBounds[] = {
    {"final_gather", "ray_depth", 1, 255},
    {"final_gather", "photon_depth", 1, 254},
    {"final_gather", "bounce", 1, kAny},
    {"final_gather", "sample", 0, kAny},
    {"camera", "sample", 1, 65535},
    {"point_light", "blur", 0, kAny},
    {"point_light", "sample", 0, kAny},
    {"point_light", "photon", 0, kAny},
    {"point_light", "offset", -kAny, 0.9999},
    {"parallel_light", "blur", 0, kAny},
    {"parallel_light", "sample", 0, kAny},
    {"parallel_light", "photon", 0, kAny},
    {"parallel_light", "offset", -kAny, 0.9999},
    {"sky_light", "sample", 0, kAny},
    {"sky_light", "photon", 0, kAny},
    {"geometry_light", "sample", 0, kAny},
    {"geometry_light", "photon", 0, kAny},
};

std::string LimitOf(const Bounds& bounds)
{
    if (bounds.least == -kAny) return "stays below 1";
    const std::string least = std::to_string(static_cast<int>(bounds.least));
    return bounds.most == kAny ? "is " + least + " or more"
                               : "goes from " + least + " to " + std::to_string(static_cast<int>(bounds.most));
}

void CheckBounds(SceneCheck& check, const SceneText& file, const LineRecord& line)
{
    if (line.values.empty() || line.values.front().state != ValueState::Read) return;
    const ValueRecord&     value = line.values.front();
    const std::string_view block = file.transcript.OpenerOf(line.block).word;
    for (const Bounds& bounds : kBounds) {
        if (bounds.word != line.word || bounds.block != block) continue;
        const double number = std::strtod(value.text.c_str(), nullptr);
        if (number < bounds.least || number > bounds.most)
            check.Warn({&file, &line, value.column}, Shown(line.word) + " " + LimitOf(bounds));
    }
}

/// Pictures to write: the writer looks for the ending anywhere in the path, and cannot save colours in other formats.
constexpr std::string_view kEndings[] = {".bmp", ".exr", ".hdr", ".j2k", ".jng", ".jp2", ".jpg", ".jpeg", ".pbm",
                                         ".pfm", ".pgm", ".png", ".ppm", ".psd", ".tga", ".tif", ".xpm",  ".targa"};

void CheckEnding(SceneCheck& check, const SceneText& file, const LineRecord& line)
{
    for (const ValueRecord& value : line.values) {
        if (value.meaning != Meaning::PictureOutput || value.text.empty()) continue;
        std::string path = value.text;
        for (char& c : path)
            if (c >= 'A' && c <= 'Z') c = static_cast<char>(c + ('a' - 'A'));
        const auto is_held = [&](std::string_view ending) { return path.find(ending) != path.npos; };
        if (std::none_of(std::begin(kEndings), std::end(kEndings), is_held))
            check.Warn({&file, &line, value.column},
                       "the picture is not written: its name has the ending of no format");
    }
}

// ---- Keywords of which one counts ----

using Words = std::array<std::string_view, 3>;

constexpr Words kMaterials  = {"thin_dielectric", "dielectric", "conductor"};
constexpr Words kVisibility = {"camera_primary", "light_primary", "invisible"};

/// Whether a line of kVisibility stores its own value, and not what the record is born with.
bool HidesSomething(const LineRecord& line)
{
    if (line.values.empty() || line.values.front().state != ValueState::Read) return false;
    return (std::strtol(line.values.front().text.c_str(), nullptr, 10) == 1) == (line.word == "invisible");
}

/// Of the lines of some words in a block all but those of the last word are in vain.
template <class Counts>
void CheckLastCounts(SceneCheck& check, const Place& opener, const Words& words, const Counts& counts)
{
    std::vector<Place> lines = LinesIn(opener);
    std::erase_if(lines, [&](const Place& line) {
        return std::find(words.begin(), words.end(), line.line->word) == words.end() || !counts(*line.line);
    });
    for (const Place& line : lines)
        if (line.line->word != lines.back().line->word)
            check.WarnOfWhole(line, Shown(line.line->word) + " gives way to " + Shown(lines.back().line->word) +
                                        " in " + LineIn(lines.back(), line.file) + ": the last one counts");
}

void CheckShaderWords(SceneCheck& check, const Place& shader)
{
    for (const Place& layer : LinesIn(shader, "surface_shader"))
        CheckLastCounts(check, layer, kMaterials, [](const LineRecord&) { return true; });
    for (const Place& geometry : LinesIn(shader, "geometry_shader"))
        CheckLastCounts(check, geometry, kVisibility, HidesSomething);
}

// ---- Photons of which nothing comes ----

/// Warns of lights whose photons find neither cells nor caustics.
void CheckPhotons(SceneCheck& check, std::string_view light, std::string_view reason)
{
    for (const Place& section : check.Sections(light))
        for (const Place& line : LinesIn(section, "photon"))
            if (!line.line->values.empty() && std::strtol(line.line->values.front().text.c_str(), nullptr, 10) > 0)
                check.WarnOfWhole(line, "the photons are dropped: " + std::string(reason));
}

void CheckAllPhotons(SceneCheck& check)
{
    if (Settings.Distance > 0.0f && Settings.Resolution > 0.0f) return;
    constexpr std::string_view kNoCells =
        "without cells (`distance` and `resolution` above 0) the sky has no use of them";
    CheckPhotons(check, "sky_light", kNoCells);
    if (!IsAnyLayer([](const SurfaceShader& layer) { return layer.virtual_light; }))
        CheckPhotons(check, "geometry_light",
                     "without cells (`distance` and `resolution` above 0) layers with "
                     "`virtual_light` alone have a use of them: there is none");
    if (Settings.Radius >= 1e-8f) return;
    for (const std::string_view light : {"point_light", "parallel_light"})
        CheckPhotons(check, light, "there are neither cells (`distance`, `resolution`) nor caustics (`radius`)");
}

}  // namespace

bool IsAnyLayer(bool (*is_it)(const SurfaceShader&))
{
    return std::any_of(Shaders.begin(), Shaders.end(), [&](const Shader& shader) {
        return std::any_of(shader.layers.begin(), shader.layers.end(), is_it);
    });
}

void CheckValues(SceneCheck& check)
{
    for (const SceneText& file : check.files)
        for (const LineRecord& line : file.transcript.lines)
            if (line.note != nullptr && line.block != kNoBlock) {
                CheckBounds(check, file, line);
                CheckEnding(check, file, line);
            }
    for (const Place& shader : check.Sections("shader")) CheckShaderWords(check, shader);
    CheckAllPhotons(check);
}

}  // namespace hv
