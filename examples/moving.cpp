// A host in C++ for motion blur: three balls, one that the camera goes along with, one that stands, one that comes
// towards them. Vertices move by the data named "motion", the camera between its two poses. Writes the picture to the
// file named as argument.

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "hv.h"

namespace {

constexpr int   kRows = 16, kSides = 32;
constexpr float kRadius = 0.5f, kWay = 0.5f, kPi = 3.14159265f;

int AddMatte(const char* name, float r, float g, float b)
{
    const int shader = hvAddShader();
    hvSetShaderName(shader, name);
    hvSetShaderSmoothAngle(shader, 60);
    hvSetSurfaceColor(shader, hvAddSurfaceShader(shader), Element::Lambertian, r, g, b);
    return shader;
}

/// A ball with a stripe around it that goes `way` metres along x during the render; 0: it stands.
int AddBall(float way, int shader, int stripe)
{
    const int          object = hvAddObject(), part = hvAddPart(object);
    std::vector<float> positions, motion;
    for (int i = 0; i < (kRows + 1) * kSides; ++i) {
        const float polar = kPi * static_cast<float>(i / kSides) / kRows;
        const float turn  = 2 * kPi * static_cast<float>(i % kSides) / kSides;
        positions.insert(positions.end(), {kRadius * std::sin(polar) * std::cos(turn), kRadius * std::cos(polar),
                                           kRadius * std::sin(polar) * std::sin(turn)});
        motion.insert(motion.end(), {way, 0, 0});
    }
    hvAddPositions(object, part, (kRows + 1) * kSides, positions.data());
    if (way != 0) hvAddVertexData(object, part, "motion", 3, (kRows + 1) * kSides, motion.data());
    for (int a = 0; a < kRows * kSides; ++a) {
        const int b         = a % kSides == kSides - 1 ? a + 1 - kSides : a + 1;
        const int corners[] = {a, b, b + kSides, a, b + kSides, a + kSides};
        hvSetShaderID(object, part, std::abs(a / kSides - kRows / 2) < 3 ? stripe : shader);
        hvAddTriangles(object, part, 2, corners);
    }
    return object;
}

void Place(int scene, int object, float x, float y)
{
    const float matrix[4][4] = {{1, 0, 0, x}, {0, 1, 0, y}, {0, 0, 1, kRadius}, {0, 0, 0, 1}};
    hvSetInstance(scene, hvAddInstance(scene), object, matrix, -1);
}

void AddCamera(const char* picture)
{
    const int camera = hvAddCamera();
    hvSetCameraResolution(camera, 192, 108);
    hvSetCameraSample(camera, 48);
    for (const float time : {0.0f, 1.0f}) {
        hvSetCameraTime(camera, time);
        hvSetCameraPosition(camera, kWay * (time - 0.5f), -5, 1.8f);
        hvSetCameraTarget(camera, kWay * (time - 0.5f), 0, 0.5f);
        hvSetCameraFOV(camera, 42);
    }
    hvSetCameraAOVName(camera, 0, picture);
}

}  // namespace

int main(int argument_count, char** arguments)
{
    if (argument_count != 2) return std::fprintf(stderr, "usage: moving picture.hdr\n"), 2;
    hvStartup();
    AddCamera(arguments[1]);
    const int red = AddMatte("red", 0.75f, 0.2f, 0.12f), white = AddMatte("white", 0.8f, 0.8f, 0.8f);

    // The object that places a moving one needs motion too, be it none: the box around the instance follows then.
    const float floor[] = {-9, -9, 0, 9, -9, 0, 9, 9, 0, -9, 9, 0}, still[12] = {};
    const int   faces[] = {0, 1, 2, 0, 2, 3}, scene = hvAddObject(), part = hvAddPart(scene);
    hvAddPositions(scene, part, 4, floor);
    hvAddVertexData(scene, part, "motion", 3, 4, still);
    hvSetShaderID(scene, part, AddMatte("floor", 0.4f, 0.42f, 0.45f));
    hvAddTriangles(scene, part, 2, faces);
    Place(scene, AddBall(kWay, red, white), -0.5f * kWay, 0);
    Place(scene, AddBall(0, red, white), -1.5f, 0.4f);
    Place(scene, AddBall(-kWay, red, white), 1.5f + 0.5f * kWay, 0.4f);

    const int sun = hvAddParallelLight();
    hvSetParallelLightDirection(sun, 0.5f, 0.6f, -1);
    hvSetSkyLightColor(0.4f, 0.45f, 0.5f);
    hvSetSkyLightPhoton(0);
    hvSetRendererDistance(0);
    hvInitialize();
    hvRender();
    hvFinalize();
    hvShutdown();
    return 0;
}
