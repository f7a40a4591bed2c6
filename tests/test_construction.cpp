#include "hv.h"
#include "scene_files.h"

#include <sys/resource.h>
#include <unistd.h>

#include <climits>
#include <limits>

namespace hv {
namespace {

struct Construction : testing::Test {
    Construction() { ClearScene(); }
    ~Construction() override { ClearScene(); }
};

constexpr float kThree[]      = {1, 2, 3, 4, 5, 6, 7, 8, 9};
constexpr int   kInts[]       = {0, 1, 2, 3, 4, 5, 6, 7};
constexpr float kMatrix[4][4] = {{1, 2, 3, 4}, {5, 6, 7, 8}, {9, 10, 11, 12}, {13, 14, 15, 16}};

TEST_F(Construction, HandlesCountFromZero)
{
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(hvAddCamera(), i);
        EXPECT_EQ(hvAddCameraAOV(1), i < 1 ? -1 : i);  // AOV 0 is there from birth
        EXPECT_EQ(hvAddShader(), i);
        EXPECT_EQ(hvAddSurfaceShader(0), i);
        EXPECT_EQ(hvAddDisplacementShader(0), i);
        EXPECT_EQ(hvAddObject(), i);
        EXPECT_EQ(hvAddPart(0), i);
        EXPECT_EQ(hvAddInstance(0), i);
        EXPECT_EQ(hvAddPointLight(), i);
        EXPECT_EQ(hvAddPointLightAOV(0), i);
        EXPECT_EQ(hvAddParallelLight(), i);
        EXPECT_EQ(hvAddParallelLightAOV(0), i);
        EXPECT_EQ(hvAddSkyLightAOV(), i);
        EXPECT_EQ(hvAddGeometryLightAOV(), i);
    }
    EXPECT_EQ(Cameras[0].aovs.size(), 1u);
    EXPECT_FALSE(Cameras[0].aovs[0].image.path.empty());
    EXPECT_TRUE(Cameras[1].aovs[1].image.path.empty());
}

// Every function that takes a handle, given handles that name nothing: nothing is written, and none crashes.
TEST_F(Construction, BadHandlesAreIgnored)
{
    const int object = hvAddObject();
    hvAddPart(object);
    hvAddInstance(object);
    hvAddShader();
    hvAddSurfaceShader(0);
    hvAddDisplacementShader(0);
    hvAddCamera();
    hvAddPointLight();
    hvAddParallelLight();
    for (const int bad : {-1, 1, INT_MAX, INT_MIN}) {
        EXPECT_EQ(hvAddCameraAOV(bad), -1);
        EXPECT_EQ(hvAddSurfaceShader(bad), -1);
        EXPECT_EQ(hvAddDisplacementShader(bad), -1);
        EXPECT_EQ(hvAddPart(bad), -1);
        EXPECT_EQ(hvAddInstance(bad), -1);
        EXPECT_EQ(hvAddPointLightAOV(bad), -1);
        EXPECT_EQ(hvAddParallelLightAOV(bad), -1);

        hvSetCameraName(bad, "x");
        hvSetCameraSample(bad, 3);
        hvSetCameraPosition(bad, 1, 2, 3);
        hvSetCameraAOVName(0, bad, "x");
        hvSetCameraAOVChannel(bad, 0, Channel::Normal);
        hvSetShaderName(bad, "x");
        hvSetSurfaceColor(bad, 0, Element::Ior, 9, 9, 9);
        hvSetSurfaceColor(0, bad, Element::Ior, 9, 9, 9);
        hvSetSurfaceColor(0, 0, static_cast<Element>(bad == 1 ? 16 : bad), 9, 9, 9);
        hvSetSurfaceImage(0, bad, Element::Ior, "x", 1, kMatrix, nullptr);
        hvSetDisplacementLevel(0, bad, 9);
        hvSetObjectName(bad, "x");
        hvSetShaderID(object, bad, 9);
        hvAddPositions(object, bad, 1, kThree);
        hvAddPositions(bad, 0, 1, kThree);
        hvAddTriangles(object, bad, 1, kInts);
        hvAddVertexData(bad, 0, "x", 3, 1, kThree);
        hvSetInstance(object, bad, 0, kMatrix, 0);
        hvSetPointLightBlur(bad, 9);
        hvSetPointLightAOVName(0, bad, "x");
        hvSetPointLightShaderLink(bad, 1);
        hvSetParallelLightColor(bad, 9, 9, 9);
        hvSetSkyLightAOVName(bad, "x");
        hvSetGeometryLightAOVShaderName(bad, "x");
    }
    EXPECT_EQ(Cameras[0].sample, 17);
    EXPECT_EQ(Cameras[0].aovs[0].channel, 1u);
    EXPECT_EQ(Shaders[0].layers[0].Slot(Element::Ior).color, kWhite);
    EXPECT_EQ(Objects[0].parts[0].shaderID, 0u);
    EXPECT_TRUE(Objects[0].parts[0].positions.empty());
    EXPECT_EQ(Objects[0].instances[0].object, kNone);
    EXPECT_EQ(PointLights[0].blur, 0);
}

TEST_F(Construction, CountsAndNullPointersThatDoNotFitDoNothing)
{
    hvAddObject();
    hvAddPart(0);
    for (const int count : {0, -1, INT_MIN}) {
        hvAddPositions(0, 0, count, kThree);
        hvAddTriangles(0, 0, count, kInts);
        hvAddVertexData(0, 0, "x", 3, count, kThree);
    }
    hvAddPositions(0, 0, 5, nullptr);
    hvAddNormals(0, 0, 5, nullptr);
    hvAddTetragons(0, 0, 5, nullptr);
    hvAddParticles(0, 0, 5, nullptr);
    hvAddVertexData(0, 0, "x", 3, 5, nullptr);
    for (const int dimension : {0, 4, -1}) hvAddVertexData(0, 0, "x", dimension, 1, kThree);
    const Part& part = Objects[0].parts[0];
    EXPECT_TRUE(part.positions.empty() && part.normals.empty() && part.triangles.empty() && part.tetragons.empty());
    EXPECT_TRUE(part.particles.empty() && part.vectors.empty());
    EXPECT_EQ(part.uvs.size(), 1u);
    EXPECT_EQ(part.scalars.size(), 1u);
    hvSetObjectName(0, "a");
    hvSetObjectName(0, nullptr);
    EXPECT_EQ(Objects[0].name, "");
    hvSetSkyLightImage(nullptr);
    hvAddVertexData(0, 0, nullptr, 1, 1, kThree);
    EXPECT_EQ(part.scalars.back().name, "");
}

TEST_F(Construction, DirectionsArePackedByTruncation)
{
    const struct {
        Vector          given;
        PackedDirection packed;
    } rows[] = {{{1, 0, 0}, {127, 0, 0}},      {{0, -1, 0}, {0, -127, 0}},
                {{0, 0, 0}, {0, 0, 0}},        {{0, 0, 5e-6f}, {0, 0, 64}},  // shorter than 1e-5: divided by 1e-5
                {{0, 3, 4}, {0, 76, 102}},                                   // 76.8 and 102.4
                {{-3, 0, -4}, {-76, 0, -102}}, {{1e30f, 0, 0}, {0, 0, 0}}};  // its square overflows
    hvAddObject();
    hvAddPart(0);
    for (const auto& row : rows) {
        hvAddNormals(0, 0, 1, &row.given.x);
        hvAddTangents(0, 0, 1, &row.given.x);
        EXPECT_EQ(Objects[0].parts[0].normals.back(), row.packed) << row.given.x << row.given.y << row.given.z;
        EXPECT_EQ(Objects[0].parts[0].tangents.back(), row.packed);
    }
}

TEST_F(Construction, ArraysAndPrimitivesAreAppended)
{
    hvAddObject();
    hvAddPart(0);
    hvAddPositions(0, 0, 1, kThree);
    hvAddPositions(0, 0, 2, kThree + 3);
    hvAddUVs(0, 0, 2, kThree);
    hvAddRadii(0, 0, 3, kThree);
    hvAddVertexData(0, 0, "motion", 3, 3, kThree);
    hvAddVertexData(0, 0, "motion", 3, 1, kThree);
    hvAddVertexData(0, 0, "second", 2, 1, kThree);
    hvSetShaderID(0, 0, 7);
    hvAddTriangles(0, 0, 2, kInts);
    hvSetShaderID(0, 0, 8);
    hvAddTetragons(0, 0, 1, kInts + 4);
    hvAddCylinders(0, 0, 2, kInts);
    hvAddParticles(0, 0, 1, kInts + 5);
    const Part& part = Objects[0].parts[0];
    ASSERT_EQ(part.positions.size(), 3u);
    EXPECT_EQ(part.positions[2], (Vector{7, 8, 9}));
    EXPECT_EQ(part.uvs[0].values[1], (Vector2{3, 4}));
    EXPECT_EQ(part.scalars[0].values, (std::vector<float>{1, 2, 3}));
    ASSERT_EQ(part.vectors.size(), 2u);  // a second call with the same name makes a second array
    EXPECT_EQ(part.vectors[0].values.size(), 3u);
    EXPECT_EQ(part.uvs[1].name, "second");
    ASSERT_EQ(part.triangles.size(), 2u);
    EXPECT_EQ(part.triangles[1].i0, 3u);
    EXPECT_EQ(part.triangles[1].shader, 7u);
    EXPECT_EQ(part.tetragons[0].i3, 7u);
    EXPECT_EQ(part.tetragons[0].shader, 8u);
    EXPECT_EQ(part.cylinders, (std::vector<std::uint32_t>{0, 1}));
    EXPECT_EQ(part.particles, (std::vector<std::uint32_t>{5}));
}

TEST_F(Construction, InstancesKeepTheirMatrixForNull)
{
    hvAddObject();
    hvAddInstance(0);
    hvSetInstance(0, 0, 5, kMatrix, 3);
    hvSetInstance(0, 0, 6, nullptr, -1);
    const Instance& instance = Objects[0].instances[0];
    EXPECT_EQ(instance.object, 6u);
    EXPECT_EQ(instance.shader, kNone);
    EXPECT_EQ(instance.matrix.m[7], 8);
}

TEST_F(Construction, CameraSettersAddressThePoseOfTheirTime)
{
    hvAddCamera();
    const struct {
        float time;
        int   pose;
    } rows[] = {{0.49f, 0}, {0.5f, 1}, {-3, 0}, {7, 1}, {std::numeric_limits<float>::quiet_NaN(), 1}};
    for (const auto& row : rows) {
        hvSetCameraTime(0, row.time);
        EXPECT_EQ(Cameras[0].time, row.pose) << row.time;
    }
    hvSetCameraTime(0, 0);
    hvSetCameraPosition(0, 1, 2, 3);
    hvSetCameraTime(0, 1);
    hvSetCameraFOV(0, 30);
    EXPECT_EQ(Cameras[0].poses[0].position, (Vector{1, 2, 3}));
    EXPECT_EQ(Cameras[0].poses[0].set_fields, 1u << static_cast<int>(PoseField::Position));
    EXPECT_EQ(Cameras[0].poses[1].field_of_view, 30);
    EXPECT_EQ(Cameras[0].poses[1].set_fields, 1u << static_cast<int>(PoseField::FieldOfView));
}

TEST_F(Construction, EnumeratorsOutOfRangeAreIgnored)
{
    hvAddCamera();
    hvAddShader();
    hvAddSurfaceShader(0);
    hvAddSkyLightAOV();
    for (const int bad : {-1, 99, INT_MAX, INT_MIN}) {
        hvSetCameraProjection(0, static_cast<Projection>(bad));
        hvSetCameraAngleMeasure(0, static_cast<AngleMeasure>(bad));
        hvSetShaderVisibility(0, static_cast<Visibility>(bad));
        hvSetSurfaceMaterial(0, 0, static_cast<Material>(bad));
        hvSetSurfaceSideness(0, 0, static_cast<Sideness>(bad));
    }
    for (const int bad : {-1, 0, 65536, INT_MIN}) {
        hvSetCameraAOVChannel(0, 0, static_cast<Channel>(bad));
        hvSetSkyLightAOVChannel(0, static_cast<Channel>(bad));
    }
    EXPECT_EQ(Cameras[0].projection, Projection::Perspective);
    EXPECT_EQ(Shaders[0].geometry_shader.visibility, Visibility::VisibleToAll);
    EXPECT_EQ(Shaders[0].layers[0].material, Material::Conductor);
    EXPECT_EQ(Shaders[0].layers[0].sideness, Sideness::Both);
    EXPECT_EQ(Cameras[0].aovs[0].channel, 1u);
    EXPECT_EQ(SkyLightAOVs[0].channel, 1u);
}

// A camera's AOV has one channel, a light's a set.
TEST_F(Construction, CameraChannelsAreAssignedAndLightChannelsAdded)
{
    hvAddCamera();
    hvAddPointLight();
    hvAddPointLightAOV(0);
    hvAddSkyLightAOV();
    for (const Channel channel : {Channel::Lambertian, Channel::Glossy}) {
        hvSetCameraAOVChannel(0, 0, channel);
        hvSetPointLightAOVChannel(0, 0, channel);
        hvSetSkyLightAOVChannel(0, channel);
    }
    EXPECT_EQ(Cameras[0].aovs[0].channel, 64u);
    EXPECT_EQ(PointLights[0].aovs[0].channel, 1u + 4 + 64);
    EXPECT_EQ(SkyLightAOVs[0].channel, 1u + 4 + 64);
    hvSetSkyLightShaderLink(3);
    hvSetSkyLightShaderLink(3);
    EXPECT_EQ(SkyLight.link_shaders, (std::vector<std::uint32_t>{3, 3}));
}

TEST_F(Construction, ImageMatricesAreStoredWithoutTakingEffect)
{
    hvAddShader();
    hvAddSurfaceShader(0);
    hvAddDisplacementShader(0);
    const float uv[3][3] = {{2, 0, 0}, {0, 3, 0}, {0, 0, 4}};
    hvSetSurfaceImage(0, 0, Element::Glossy, "a.png", 2.2f, nullptr, uv);
    hvSetDisplacementImage(0, 0, "b.png", 1, kMatrix, nullptr);
    hvSetDisplacementVector(0, 0, 1, 2, 3);
    const ShaderElement& slot = Shaders[0].layers[0].Slot(Element::Glossy);
    EXPECT_EQ(slot.image, "a.png");
    EXPECT_EQ(slot.gamma, 2.2f);
    EXPECT_EQ(slot.uv_matrix[8], 4);
    EXPECT_EQ(slot.color_matrix[5], 1);
    EXPECT_TRUE(slot.uv_matrix_is_identity);
    const ShaderElement& entry = Shaders[0].geometry_shader.vector[0];
    EXPECT_EQ(entry.color_matrix[11], 12);
    EXPECT_EQ(entry.color, (Color{1, 2, 3}));
    EXPECT_TRUE(entry.color_matrix_is_identity);
}

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
// A limit on the address space stands in for a machine without the memory: the call ends with a line and no part changed.
TEST_F(Construction, MissingMemoryEndsInALine)
{
    hvAddObject();
    hvAddPart(0);
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

TEST_F(Construction, RadiusKeepsItsPowers)
{
    hvSetRendererRadius(2);
    EXPECT_EQ(Settings.Radius, 2);
    EXPECT_EQ(Settings.RadiusSquare, 4);
    EXPECT_EQ(Settings.RadiusCube, 8);
}

}  // namespace
}  // namespace hv
