// Makes a scene folder of any OBJ file: a camera framed from the bounds, an even sky, a ground plane and matte shaders.

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <locale>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "framing.h"
#include "obj_outline.h"

namespace {

namespace fs = std::filesystem;

struct Request {
    std::string         model, folder;
    std::vector<double> eye, target;  ///< empty, or three numbers each
    std::string         up = "y";
    ViewWish            wish;
    int                 frames    = 32;
    bool                copies    = false;
    bool                no_ground = false;
};

/// A stream that writes numbers in full and the same way in every locale.
std::ostringstream NumberStream()
{
    std::ostringstream text;
    text.imbue(std::locale::classic());
    text.precision(9);
    return text;
}

bool WriteFile(const fs::path& file, const std::string& text)
{
    std::error_code error;
    fs::create_directories(file.parent_path(), error);
    std::ofstream stream(file);
    stream << text;
    stream.close();
    if (!stream) std::fprintf(stderr, "obj2scene: cannot write '%s'\n", file.c_str());
    return !stream.fail();
}

std::string Triple(const Point& point)
{
    std::ostringstream text = NumberStream();
    text << point[0] << ' ' << point[1] << ' ' << point[2];
    return text.str();
}

std::string CameraFile(const View& view, const Request& request)
{
    std::ostringstream text = NumberStream();
    text << "camera\n    name \"main\"\n    resolution " << request.wish.width << ' ' << request.wish.height
         << "\n    sample " << request.frames << "\n    pose\n        position " << Triple(view.eye)
         << "\n        target " << Triple(view.target) << "\n        up_vector " << Triple(view.up)
         << "\n        field_of_view " << view.fov << "\n    end\nend\n";
    return text.str();
}

std::string MatteShader(const std::string& name, const Point& color)
{
    return "shader\n    name \"" + name + "\"\n    surface_shader\n        lambertian\n            color " +
           Triple(color) + "\n        end\n    end\nend\n";
}

/// A soft colour for the material of a number: hues by the golden ratio, so that neighbours differ.
Point SoftColor(std::size_t number)
{
    const double hue = std::fmod(0.08 + 0.6180339887 * static_cast<double>(number), 1.0);
    Point        color;
    for (std::size_t channel = 0; channel < 3; ++channel) {
        const double wave = std::cos(2.0 * 3.14159265358979 * (hue - static_cast<double>(channel) / 3.0));
        color[channel]    = std::round((0.55 + 0.2 * wave) * 1000.0) / 1000.0;
    }
    return color;
}

std::string ShaderFile(const ObjOutline& outline)
{
    std::string text = "# the model where it names no material, and the ground\n" +
                       MatteShader("model", {0.7, 0.68, 0.65}) + MatteShader("ground", {0.5, 0.5, 0.5});
    std::size_t number = 0;
    for (const std::string& name : outline.materials) {
        if (name == "model" || name == "ground" || name.find('"') != std::string::npos) continue;
        text += MatteShader(name, SoftColor(number++));
    }
    return text;
}

/// A square grid under the model, large enough to look like a horizon. Of many cells, because a ray that leaves cell k
/// passes through square k of the model.
std::string GroundFile(const ObjOutline& outline, bool z_up)
{
    constexpr int     kCells = 64;
    const std::size_t across = 0, along = z_up ? 1 : 2, up = z_up ? 2 : 1;
    double            extent = 0.0;
    for (std::size_t axis = 0; axis < 3; ++axis) extent = std::max(extent, outline.high[axis] - outline.low[axis]);
    const double step = (extent > 0.0 ? extent : 1.0) * 160.0 / kCells;

    std::ostringstream text = NumberStream();
    for (int row = 0; row <= kCells; ++row) {
        for (int column = 0; column <= kCells; ++column) {
            Point point;
            point[up]     = outline.low[up];
            point[across] = 0.5 * (outline.low[across] + outline.high[across]) + (column - kCells / 2) * step;
            point[along]  = 0.5 * (outline.low[along] + outline.high[along]) + (row - kCells / 2) * step;
            text << "v " << Triple(point) << '\n';
        }
    }
    text << "usemtl ground\n";
    for (int row = 0; row < kCells; ++row) {
        for (int column = 0; column < kCells; ++column) {
            const int a = row * (kCells + 1) + column + 1, b = a + kCells + 1;
            // Counter-clockwise from above in both frames.
            if (z_up)
                text << "f " << a << ' ' << a + 1 << ' ' << b + 1 << ' ' << b << '\n';
            else
                text << "f " << a << ' ' << b << ' ' << b + 1 << ' ' << a + 1 << '\n';
        }
    }
    return text.str();
}

std::string ObjectFile(const std::string& model, bool has_ground)
{
    return "object\n    name model\n    shader \"model\"\n    obj \"" + model + "\"\n" +
           (has_ground ? "    obj \"geometry/ground.obj\"\n" : "") + "end\n";
}

constexpr const char* kRenderFile =
    "# plain path tracing: no density cells, no photons\n"
    "render\n    final_gather\n        ray_depth 8\n        sample 64\n        bounce 3\n        distance 0\n    "
    "end\nend\n";

std::string LightFile(const View& view)
{
    const Point north = view.up[1] == 1.0 ? Point{0, 0, -1} : Point{0, 1, 0};
    return "sky_light\n    color 1 1 1\n    photon 0\n    zenith " + Triple(view.up) + "\n    north " + Triple(north) +
           "\nend\ngeometry_light\n    photon 0\nend\n";
}

View ChooseView(const ObjOutline& outline, const Request& request)
{
    View view = FrameBounds(outline.low, outline.high, request.wish);
    if (request.eye.size() == 3) std::copy_n(request.eye.begin(), 3, view.eye.begin());
    if (request.target.size() == 3) std::copy_n(request.target.begin(), 3, view.target.begin());
    return view;
}

/// Copies the model if asked to. Returns the path to write into the scene, empty after a failure.
std::string PlaceModel(const Request& request, const fs::path& folder)
{
    std::error_code error;
    if (!request.copies) return fs::canonical(request.model, error).string();
    const std::string name = "model.obj";
    fs::create_directories(folder / "geometry", error);
    fs::copy_file(request.model, folder / "geometry" / name, fs::copy_options::overwrite_existing, error);
    if (!error) return "geometry/" + name;
    std::fprintf(stderr, "obj2scene: cannot copy '%s': %s\n", request.model.c_str(), error.message().c_str());
    return "";
}

bool WriteScene(const Request& request, const ObjOutline& outline)
{
    const fs::path    folder = request.folder;
    const std::string model  = PlaceModel(request, folder);
    if (model.empty()) return false;
    if (model.find('"') != std::string::npos || model.find('\n') != std::string::npos) {
        std::fprintf(stderr, "obj2scene: a scene cannot name '%s'; use --copy\n", model.c_str());
        return false;
    }
    const View view = ChooseView(outline, request);
    return WriteFile(folder / "shader/materials.hv", ShaderFile(outline)) &&
           WriteFile(folder / "render/settings.hv", kRenderFile) &&
           WriteFile(folder / "light/sky.hv", LightFile(view)) &&
           WriteFile(folder / "camera/main.hv", CameraFile(view, request)) &&
           (request.no_ground || WriteFile(folder / "geometry/ground.obj", GroundFile(outline, request.wish.z_up))) &&
           WriteFile(folder / "geometry/model.hv", ObjectFile(model, !request.no_ground));
}

void AddOptions(CLI::App& app, Request& request)
{
    app.add_option("model", request.model, "OBJ file")->required();
    app.add_option("folder", request.folder, "scene folder to write")->required();
    app.add_option("--fov", request.wish.fov, "horizontal field of view in degrees")
        ->check(CLI::Range(1.0, 170.0))
        ->capture_default_str();
    app.add_option("--azimuth", request.wish.azimuth, "degrees to the right of the model's front")
        ->capture_default_str();
    app.add_option("--elevation", request.wish.elevation, "degrees above the horizon")
        ->check(CLI::Range(-89.0, 89.0))
        ->capture_default_str();
    app.add_option("--eye", request.eye, "camera position x,y,z instead of a framed one")->delimiter(',')->expected(3);
    app.add_option("--target", request.target, "point x,y,z to look at")->delimiter(',')->expected(3);
    app.add_option("--up", request.up, "axis of the model that points up")
        ->check(CLI::IsMember({"y", "z"}))
        ->capture_default_str();
    app.add_option("--width", request.wish.width, "film width in pixels")
        ->check(CLI::Range(1, 65536))
        ->capture_default_str();
    app.add_option("--height", request.wish.height, "film height in pixels")
        ->check(CLI::Range(1, 65536))
        ->capture_default_str();
    app.add_option("--frames", request.frames, "samples per pixel")->check(CLI::Range(1, 65535))->capture_default_str();
    app.add_flag("--copy", request.copies, "copy the model into the folder instead of naming it by its path");
    app.add_flag("--no-ground", request.no_ground, "leave the ground plane out");
}

}  // namespace

int main(int argument_count, char** arguments)
{
    Request  request;
    CLI::App app("Makes a scene folder of an OBJ file.", "obj2scene");
    AddOptions(app, request);
    try {
        app.parse(argument_count, arguments);
    } catch (const CLI::ParseError& error) {
        return app.exit(error, std::cout, std::cerr) == 0 ? 0 : 2;
    }
    request.wish.z_up = request.up == "z";

    ObjOutline outline;
    if (!ReadOutline(request.model, outline)) {
        std::fprintf(stderr, "obj2scene: cannot read '%s'\n", request.model.c_str());
        return 1;
    }
    if (!outline.has_faces) {
        std::fprintf(stderr, "obj2scene: '%s' has no faces\n", request.model.c_str());
        return 1;
    }
    return WriteScene(request, outline) ? 0 : 1;
}
