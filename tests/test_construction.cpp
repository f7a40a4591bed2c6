#include "hv.h"
#include "scene_files.h"

#include <sys/resource.h>
#include <unistd.h>

#include <climits>
#include <cmath>

namespace hv {
namespace {

/// One of each thing that has a handle, and its handle is 0.
struct Construction : SceneTest {
    Construction()
    {
        hvAddObject();
        hvAddPart(0);
        hvAddInstance(0);
        hvAddShader();
        hvAddSurfaceShader(0);
        hvAddDisplacementShader(0);
        hvAddCamera();
        hvAddPointLight();
        hvAddParallelLight();
        hvAddSkyLightAOV();
    }
};

constexpr float kThree[]      = {1, 2, 3, 4, 5, 6, 7, 8, 9};
constexpr int   kInts[]       = {0, 1, 2, 3, 4, 5, 6, 7};
constexpr float kMatrix[4][4] = {{1, 2, 3, 4}, {5, 6, 7, 8}, {9, 10, 11, 12}, {13, 14, 15, 16}};

// One function for each kind of handle, given handles that name nothing: nothing is written, and none crashes.
TEST_F(Construction, BadHandlesAreIgnored)
{
    for (const int bad : {-1, 1, INT_MAX, INT_MIN}) {
        for (const int handle :
             {hvAddCameraAOV(bad), hvAddSurfaceShader(bad), hvAddDisplacementShader(bad), hvAddPart(bad),
              hvAddInstance(bad), hvAddPointLightAOV(bad), hvAddParallelLightAOV(bad)})
            EXPECT_EQ(handle, -1);
        hvSetCameraSample(bad, 3);
        hvSetSurfaceColor(bad, 0, Element::Ior, 9, 9, 9);
        hvSetSurfaceColor(0, bad, Element::Ior, 9, 9, 9);
        hvSetSurfaceColor(0, 0, static_cast<Element>(bad == 1 ? 16 : bad), 9, 9, 9);
        hvSetDisplacementLevel(0, bad, 9);
        hvSetShaderID(0, bad, 9);
        hvAddPositions(0, bad, 1, kThree);
        hvAddPositions(bad, 0, 1, kThree);
        hvAddTriangles(0, bad, 1, kInts);
        hvAddVertexData(bad, 0, "x", 3, 1, kThree);
        hvSetInstance(0, bad, 0, kMatrix, 0);
        hvSetPointLightBlur(bad, 9);
        hvSetPointLightAOVName(0, bad, "x");
        hvSetSkyLightAOVName(bad, "x");
        hvSetGeometryLightAOVShaderName(bad, "x");
    }
    EXPECT_EQ(Cameras[0].sample, 17);
    EXPECT_EQ(Shaders[0].layers[0].Slot(Element::Ior).color, kWhite);
    EXPECT_EQ(Objects[0].parts[0].shaderID, 0u);
    EXPECT_TRUE(Objects[0].parts[0].positions.empty());
    EXPECT_EQ(Objects[0].instances[0].object, kNone);
    EXPECT_EQ(PointLights[0].blur, 0);
}

TEST_F(Construction, CountsAndNullPointersThatDoNotFitDoNothing)
{
    for (const int count : {0, -1, INT_MIN}) {
        hvAddPositions(0, 0, count, kThree);
        hvAddTriangles(0, 0, count, kInts);
        hvAddVertexData(0, 0, "x", 3, count, kThree);
    }
    hvAddPositions(0, 0, 5, nullptr);
    hvAddTetragons(0, 0, 5, nullptr);
    hvAddVertexData(0, 0, "x", 3, 5, nullptr);
    for (const int dimension : {0, 4, -1}) hvAddVertexData(0, 0, "x", dimension, 1, kThree);
    const Part& part = Objects[0].parts[0];
    EXPECT_TRUE(part.positions.empty() && part.triangles.empty() && part.tetragons.empty() && part.vectors.empty());
    hvSetSkyLightImage(nullptr);
    hvAddVertexData(0, 0, nullptr, 1, 1, kThree);
    EXPECT_EQ(part.scalars.back().name, "");
}

TEST_F(Construction, DirectionsArePackedByTruncation)
{
    using Row = std::pair<Vector, PackedDirection>;
    for (const auto& [given, packed] : {Row({0, -1, 0}, {0, -127, 0}), Row({0, 0, 0}, {0, 0, 0}),
                                        Row({0, 0, 5e-6f}, {0, 0, 64}),    // shorter than 1e-5: divided by 1e-5
                                        Row({-3, 0, -4}, {-76, 0, -102}),  // from 76.8 and 102.4 steps
                                        Row({1e30f, 0, 0}, {0, 0, 0})}) {  // its square overflows
        hvAddNormals(0, 0, 1, &given.x);
        EXPECT_EQ(Objects[0].parts[0].normals.back(), packed) << given.x << given.y << given.z;
    }
}

TEST_F(Construction, CameraSettersAddressThePoseOfTheirTime)
{
    float degrees = 20.0f;
    for (const auto& [time, pose] : {std::pair{0.49f, 0}, {0.5f, 1}, {-3.0f, 0}, {7.0f, 1}, {NAN, 1}}) {
        hvSetCameraTime(0, time);
        hvSetCameraFOV(0, degrees += 1.0f);
        EXPECT_EQ(Cameras[0].time, pose) << time;
        EXPECT_EQ(Cameras[0].poses[pose].field_of_view, degrees) << time;
    }
}

TEST_F(Construction, EnumeratorsOutOfRangeAreIgnored)
{
    for (const int given : {0, 4, 64, -1, 65536, INT_MIN}) {
        hvSetCameraAOVChannel(0, 0, static_cast<Channel>(given));
        hvSetSkyLightAOVChannel(0, static_cast<Channel>(given));
        hvSetCameraProjection(0, static_cast<Projection>(given));
        hvSetSurfaceMaterial(0, 0, static_cast<Material>(given));
    }
    EXPECT_EQ(Cameras[0].projection, Projection::Perspective);
    EXPECT_EQ(Shaders[0].layers[0].material, Material::Conductor);
    EXPECT_EQ(Cameras[0].aovs[0].channel, 64u);       // a camera's AOV has one channel,
    EXPECT_EQ(SkyLightAOVs[0].channel, 1u + 4 + 64);  // a light's a set
}

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
// A limit on the address space stands in for a machine without the memory: the call ends with a line and no part
// changed.
TEST_F(Construction, MissingMemoryEndsInALine)
{
    const auto add_too_much = [] {
        const rlimit two_gigabytes{2ul << 30, 2ul << 30};
        setrlimit(RLIMIT_AS, &two_gigabytes);
        dup2(STDERR_FILENO, STDOUT_FILENO);
        hvAddPositions(0, 0, INT_MAX, kThree);
        std::exit(Objects[0].parts[0].positions.empty() ? 0 : 1);
    };
    EXPECT_EXIT(add_too_much(), testing::ExitedWithCode(0), "error :\\( \tnot enough memory");
}
#endif

}  // namespace
}  // namespace hv
