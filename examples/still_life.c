/* A host in C: a matte cube on a floor under an even sky, built call by call, rendered to the file named as argument. */

#include <stdio.h>

#include "hv.h"

static int AddMatte(float r, float g, float b)
{
    const int shader = hvAddShader();
    const int layer  = hvAddSurfaceShader(shader);
    hvSetSurfaceColor(shader, layer, HV_ELEMENT_LAMBERTIAN, r, g, b);
    return shader;
}

static void AddFloor(int object, int shader)
{
    static const float positions[] = {-8, -8, 0, 8, -8, 0, 8, 8, 0, -8, 8, 0};
    static const int   corners[]   = {0, 1, 2, 0, 2, 3};
    const int          part        = hvAddPart(object);
    hvAddPositions(object, part, 4, positions);
    hvSetShaderID(object, part, shader);
    hvAddTriangles(object, part, 2, corners);
}

/* Six square sides as tetragons, counter-clockwise seen from outside. */
static void AddCube(int object, int shader)
{
    static const int corners[] = {0, 2, 3, 1, 4, 5, 7, 6, 0, 1, 5, 4, 2, 6, 7, 3, 0, 4, 6, 2, 1, 3, 7, 5};
    float            positions[24];
    int              i;
    const int        part = hvAddPart(object);
    for (i = 0; i < 8; ++i) {
        positions[3 * i]     = (i & 1) ? 1.0f : -1.0f;
        positions[3 * i + 1] = (i & 2) ? 1.0f : -1.0f;
        positions[3 * i + 2] = (i & 4) ? 2.0f : 0.0f;
    }
    hvAddPositions(object, part, 8, positions);
    hvSetShaderID(object, part, shader);
    hvAddTetragons(object, part, 6, corners);
}

static void AddCamera(const char* picture)
{
    const int camera = hvAddCamera();
    hvSetCameraResolution(camera, 96, 54);
    hvSetCameraSample(camera, 16);
    hvSetCameraPosition(camera, 5, -8, 5);
    hvSetCameraTarget(camera, 0, 0, 0.8f);
    hvSetCameraFOV(camera, 35);
    hvSetCameraAOVName(camera, 0, picture);
}

int main(int argc, char** argv)
{
    int scene;
    if (argc != 2) {
        fprintf(stderr, "usage: still_life picture.hdr\n");
        return 2;
    }
    hvStartup();
    AddCamera(argv[1]);
    scene = hvAddObject();
    hvSetObjectName(scene, "scene");
    AddFloor(scene, AddMatte(0.6f, 0.6f, 0.6f));
    AddCube(scene, AddMatte(0.8f, 0.35f, 0.2f));
    hvSetSkyLightColor(1, 1, 1);
    hvSetSkyLightPhoton(0);
    hvSetGeometryLightPhoton(0);
    hvSetRendererDistance(0); /* plain path tracing */
    hvSetRendererBounce(3);

    hvInitialize();
    hvRender();
    hvFinalize();
    hvShutdown();
    return 0;
}
