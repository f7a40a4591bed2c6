// A host in C++ that uses the additions too: spheres as particles, one object placed many times, pixels fetched after
// the render. Writes the picture to the file named as argument and its mean to standard error.

#include <cstdio>
#include <numeric>
#include <vector>

#include "hv.h"
#include "hvx.h"

namespace {

/// A shader of one layer with one coloured slot.
int AddShader(Element slot, float r, float g, float b, Material material, float ior)
{
    const int shader = hvAddShader();
    const int layer  = hvAddSurfaceShader(shader);
    hvSetSurfaceMaterial(shader, layer, material);
    hvSetSurfaceColor(shader, layer, slot, r, g, b);
    hvSetSurfaceColor(shader, layer, Element::Ior, ior, ior, ior);
    return shader;
}

/// One sphere of radius 0.4 metres around the origin.
int AddBall()
{
    const float centre[] = {0, 0, 0}, radius[] = {0.4f};
    const int   index[] = {0};
    const int   object = hvAddObject(), part = hvAddPart(object);
    hvAddPositions(object, part, 1, centre);
    hvAddRadii(object, part, 1, radius);
    hvAddParticles(object, part, 1, index);
    return object;
}

void AddGrid(int ball, const std::vector<int>& shaders)
{
    const int scene = hvAddObject();
    for (int i = 0; i < 25; ++i) {
        const float x = static_cast<float>(i % 5 - 2), y = static_cast<float>(i / 5 - 2);
        const float placed[4][4] = {{1, 0, 0, x}, {0, 1, 0, y}, {0, 0, 1, 0}, {0, 0, 0, 1}};
        hvSetInstance(scene, hvAddInstance(scene), ball, placed, shaders[static_cast<std::size_t>(i) % shaders.size()]);
    }
}

void AddCamera(const char* picture)
{
    const int camera = hvAddCamera();
    hvSetCameraResolution(camera, 96, 96);
    hvSetCameraSample(camera, 16);
    hvSetCameraPosition(camera, 0, -6, 7);
    hvSetCameraTarget(camera, 0, 0, 0);
    hvSetCameraAOVName(camera, 0, picture);
}

}  // namespace

int main(int argument_count, char** arguments)
{
    if (argument_count != 2) return std::fprintf(stderr, "usage: sphere_grid picture.hdr\n"), 2;
    hvxSetSeed(7);
    hvStartup();
    AddCamera(arguments[1]);
    AddGrid(AddBall(), {AddShader(Element::Lambertian, 0.8f, 0.3f, 0.2f, Material::Conductor, 1),
                        AddShader(Element::Specular, 0.9f, 0.9f, 1.0f, Material::Conductor, 20),
                        AddShader(Element::Specular, 1, 1, 1, Material::Dielectric, 1.5f)});
    hvSetSkyLightColor(1, 1, 1);
    hvSetSkyLightPhoton(0);
    hvSetRendererDistance(0);
    hvSetRendererBounce(3);

    hvInitialize();
    hvRender();
    hvxImage film{};
    if (hvxGetCameraAOV(0, 0, &film)) {
        const std::size_t count =
            static_cast<std::size_t>(film.width) * static_cast<std::size_t>(film.height * film.channels);
        std::fprintf(
            stderr, "mean %.4f\n",
            static_cast<double>(std::accumulate(film.pixels, film.pixels + count, 0.0f)) / static_cast<double>(count));
    }
    hvFinalize();
    hvShutdown();
    return 0;
}
