// Emissive surfaces as a light: the list of points on them, and how lights with a size are sampled.

#include "base/matrix.h"
#include "geometry/object.h"
#include "lights/lights.h"
#include "scene_fixture.h"
#include "session/sampling.h"

#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <utility>

namespace hv {
namespace {

using Corner = std::vector<Vector>;

/// A shader that is a virtual light on the sides that it covers.
int AddLamp(TestScene& scene, Color color, Sideness sideness = Sideness::Face)
{
    const int shader = scene.AddShader(Element::Emissive, color);
    hvSetSurfaceSideness(shader, 0, sideness);
    hvSetSurfaceVirtualLight(shader, 0, true);
    return shader;
}

/// A face of three or four corners; returns its number among those of its kind in the part.
std::uint32_t AddFace(int object, int part, int shader, const Corner& corners)
{
    Part&     target     = Objects[static_cast<std::size_t>(object)].parts[static_cast<std::size_t>(part)];
    const int first      = static_cast<int>(target.positions.size());
    const int indices[4] = {first, first + 1, first + 2, first + 3};
    hvSetShaderID(object, part, shader);
    for (const Vector& corner : corners) hvAddPositions(object, part, 1, &corner.x);
    if (corners.size() == 3) {
        hvAddTriangles(object, part, 1, indices);
        return static_cast<std::uint32_t>(target.triangles.size()) - 1;
    }
    hvAddTetragons(object, part, 1, indices);
    return static_cast<std::uint32_t>(target.tetragons.size()) - 1;
}

int AddInstance(int object, int target, const Matrix4& matrix, int shader = -1)
{
    const int instance = hvAddInstance(object);
    hvSetInstance(object, instance, target, reinterpret_cast<const float(*)[4]>(matrix.m), shader);
    return instance;
}

/// A point of the list and how it is drawn.
struct Found {
    float probability;
    int   count;  ///< draws out of kGrid
};
constexpr int kGrid = 1 << 20;

/// All points that an even grid of numbers draws; finds each whose probability is above 1 / kGrid.
std::map<const EmitterPoint*, Found> FindPoints()
{
    std::map<const EmitterPoint*, Found> points;
    for (int i = 0; i < kGrid; ++i) {
        const EmitterPoint* const point = PickEmitterPoint((static_cast<float>(i) + 0.5f) / static_cast<float>(kGrid));
        if (point) points.try_emplace(point, Found{point->probability, 0}).first->second.count++;
    }
    return points;
}

/// Radiance times area of all that emits, by the list.
Color FluxOf(const std::map<const EmitterPoint*, Found>& points)
{
    double sum[3] = {};
    for (const auto& [point, found] : points)
        for (int c = 0; c < 3; ++c) sum[c] += point->radiance[c];
    const double share = EmitterPointArea() / kEmitterPointCount;
    return {static_cast<float>(sum[0] * share), static_cast<float>(sum[1] * share), static_cast<float>(sum[2] * share)};
}

/// One emitting side of a face, in the world.
struct Patch {
    Corner        corners;
    float         side;  ///< 1: light leaves towards the eye that sees the corners counter-clockwise. A mirror turns it
    Color         color;
    int           shader;
    std::uint32_t primitive;

    double weight  = 0.0;  ///< sums over the points found on it
    Vector weighed = {};
};

Vector AreaVector(const Corner& p)
{
    return 0.5f * (p.size() == 4 ? Cross(p[2] - p[0], p[3] - p[1]) : Cross(p[1] - p[0], p[2] - p[0]));
}

Vector Centroid(const Corner& p)
{
    Vector sum;
    float  area = 0.0f;
    for (std::size_t i = 2; i < p.size(); ++i) {
        const float part = Length(Cross(p[i - 1] - p[0], p[i] - p[0]));
        sum += (p[0] + p[i - 1] + p[i]) * (part / 3.0f);
        area += part;
    }
    return sum / area;
}

bool IsOn(const Patch& patch, const EmitterPoint& point)
{
    const auto   kind   = patch.corners.size() == 4 ? PrimitiveKind::Tetragon : PrimitiveKind::Triangle;
    const Vector around = Normalized(AreaVector(patch.corners));
    if (point.kind != static_cast<int>(kind) || point.primitive != patch.primitive) return false;
    if (point.shader != static_cast<std::uint32_t>(patch.shader)) return false;
    if (Length(point.normal - around * patch.side) > 1e-4f) return false;
    if (std::fabs(Dot(point.position - patch.corners[0], around)) > 1e-4f) return false;
    for (std::size_t i = 0; i < patch.corners.size(); ++i) {
        const Vector a = patch.corners[i], b = patch.corners[(i + 1) % patch.corners.size()];
        if (Dot(Cross(b - a, point.position - a), around) < -1e-4f) return false;
    }
    return true;
}

const Corner kTrapezoid = {{0, 0, 0}, {4, 0, 0}, {3, 2, 0}, {2, 2, 0}};
const Corner kTriangle  = {{0, 0, 1}, {1, 0, 1}, {0, 2, 1}};
const Corner kSquare    = {{5, 0, 0}, {6, 0, 0}, {6, 0, 1}, {5, 0, 1}};
const Corner kTiny      = {{9, 0, 0}, {9.001f, 0, 0}, {9.001f, 0.001f, 0}, {9, 0.001f, 0}};

/// A lamp within an arm within the root, which places the arm twice: mirrored and stretched, and once more under a shader
/// of its own. The root has two parts, so its list names each arm twice. `patches` receives what shines in the world.
void BuildNestedLamps(TestScene& scene, std::vector<Patch>& patches)
{
    const int red   = AddLamp(scene, {2, 0, 0});
    const int back  = AddLamp(scene, {1, 3, 2}, Sideness::Back);
    const int both  = AddLamp(scene, {0, 4, 4}, Sideness::Both);
    const int over  = AddLamp(scene, {1, 1, 8});  // nothing on the back
    const int matte = scene.AddShader(Element::Lambertian, kWhite);

    const int lamp_part = hvAddPart(0);
    AddFace(0, lamp_part, matte, {{0, 0, 5}, {1, 0, 5}, {1, 1, 5}, {0, 1, 5}});
    AddFace(0, lamp_part, red, kTrapezoid);
    AddFace(0, lamp_part, back, kTriangle);

    const int arm = hvAddObject(), arm_part = hvAddPart(arm);
    AddFace(arm, arm_part, both, kSquare);
    AddInstance(arm, 0, {{0, -1, 0, 0, 1, 0, 0, 0, 0, 0, 1, 3, 0, 0, 0, 1}});

    const int root = hvAddObject();
    hvAddPart(root);
    const int root_part = hvAddPart(root);
    AddFace(root, root_part, red, kTiny);
    AddInstance(root, arm, {{-1, 0, 0, 20, 0, 2, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1}});
    AddInstance(root, arm, {{1, 0, 0, -20, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1}}, over);

    const auto in_arm   = [](Vector p) { return Vector{-p.y, p.x, p.z + 3}; };
    const auto mirrored = [](Vector p) { return Vector{20 - p.x, 2 * p.y, p.z}; };
    const auto moved    = [](Vector p) { return Vector{p.x - 20, p.y, p.z}; };
    const auto placed   = [](Corner corners, auto... maps) {
        for (Vector& corner : corners) ((corner = maps(corner)), ...);
        return corners;
    };
    patches = {{placed(kTrapezoid, in_arm, mirrored), -1, {2, 0, 0}, red, 1},
               {placed(kTriangle, in_arm, mirrored), 1, {1, 3, 2}, back, 0},
               {placed(kSquare, mirrored), -1, {0, 4, 4}, both, 0},
               {placed(kSquare, mirrored), 1, {0, 4, 4}, both, 0},
               {placed(kTrapezoid, in_arm, moved), 1, {1, 1, 8}, over, 1},
               {placed(kSquare, moved), 1, {1, 1, 8}, over, 0},
               {kTiny, 1, {2, 0, 0}, red, 0}};
}

// Whatever the instances do to an emitter, and however its corners lie, its points are where rays find it, face where it
// shines, spread evenly, and add up to its radiance times its area.
TEST(Emitters, PointsStandForAllThatShines)
{
    TestScene          scene;
    std::vector<Patch> patches;
    BuildNestedLamps(scene, patches);
    hvSetGeometryLightSample(1);
    hvInitialize();
    ASSERT_TRUE(HasEmitterList());
    EXPECT_FLOAT_EQ(EmitterPointArea(), Objects[RootObject].virtualLightArea);

    const auto points = FindPoints();
    double     total  = 0.0;
    for (const auto& [point, found] : points) {
        total += found.probability;
        EXPECT_NEAR(found.count, found.probability * kGrid, 1.5);
        Patch* on = nullptr;
        for (Patch& patch : patches)
            if (IsOn(patch, *point)) on = &patch;
        ASSERT_TRUE(on) << point->position.x << ' ' << point->position.y << ' ' << point->position.z;
        on->weight += Mean(point->radiance);
        on->weighed += point->position * Mean(point->radiance);
        const float scale = MaxChannel(point->radiance) / MaxChannel(on->color);
        ExpectColor(point->radiance, on->color * scale, 1e-4f);
    }
    EXPECT_NEAR(total, 1.0, 1e-3);

    Color expected;
    for (const Patch& patch : patches) {
        const float area = Length(AreaVector(patch.corners));
        expected += patch.color * area;
        if (area < 0.1f) continue;  // too few points
        const float flux = static_cast<float>(patch.weight) * EmitterPointArea() / kEmitterPointCount;
        EXPECT_NEAR(flux, Mean(patch.color) * area, 0.005f * flux);
        EXPECT_LT(Length(patch.weighed / static_cast<float>(patch.weight) - Centroid(patch.corners)), 0.02f);
    }
    ExpectColor(FluxOf(points), expected, 0.002f * MaxChannel(expected));
}

// Two texels across a square whose coordinates run from the one to the other are a ramp.
TEST(Emitters, TexturesColourTheirPoints)
{
    const std::string file =
        (std::filesystem::temp_directory_path() / ("hv-ramp-" + std::to_string(getpid()) + ".pfm")).string();
    const float texels[6] = {1, 0, 4, 3, 2, 0};
    std::ofstream(file, std::ios::binary) << "PF\n2 1\n-1.0\n"
                                          << std::string(reinterpret_cast<const char*>(texels), sizeof texels);
    TestScene   scene;
    const int   lamp  = AddLamp(scene, {1, 1, 0.5f});
    const int   part  = hvAddPart(0);
    const float uvs[] = {0, 0.5f, 0.5f, 0.5f, 0.5f, 0.5f, 0, 0.5f};
    hvSetSurfaceImage(lamp, 0, Element::Emissive, file.c_str(), 1.0f, nullptr, nullptr);
    AddFace(0, part, lamp, {{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}});
    hvAddUVs(0, part, 4, uvs);
    hvSetGeometryLightSample(1);
    hvInitialize();
    std::remove(file.c_str());

    const auto points = FindPoints();
    ASSERT_EQ(points.size(), static_cast<std::size_t>(kEmitterPointCount));
    for (const auto& [point, found] : points) {
        const float x = point->position.x;
        ExpectColor(point->radiance, {1 + 2 * x, 2 * x, 0.5f * (4 - 4 * x)}, 1e-3f);
    }
    ExpectColor(FluxOf(points), {2, 1, 1}, 1e-3f);
}

// A square emitter over the middle of a matte wall, parallel to it: the form factor of a quarter of it seen from below its
// corner is known, and it does not matter whether the emitter is sampled or only hit. A mirror image of the
// square, which is cut into two unlike halves, stands in a root of two parts.
TEST(Emitters, SampledOrHitTheyLightAWallByTheirFormFactor)
{
    const float x = 0.5f / 0.7f, root = std::sqrt(1 + x * x);  // half side over distance
    const float factor = 4 * (1 / kTwoPi) * 2 * (x / root) * std::atan(x / root);
    for (const int sample : {0, 256, 16384}) {
        TestScene scene(4);
        scene.LookFrom({2, -2, 0}, {0, 0, 0}, 0.01f);
        const int   wall = scene.AddShader(Element::Lambertian, kWhite * 0.5f);
        const int   part = hvAddPart(0), root_object = hvAddObject();
        const float w = 10.0f;
        // The wall comes first among its kind: rays that leave it do not see others of that number.
        AddFace(0, part, wall, {{0, 5, 0}, {0, 5, 1}, {0, 6, 1}, {0, 6, 0}});
        const int lamp = AddLamp(scene, {1, 2, 3});
        AddFace(0, part, lamp, {{-0.5f, 0, -0.5f}, {-0.5f, 0, 0.5f}, {-0.3f, 0, 0.5f}, {0.25f, 0, -0.5f}});
        AddFace(0, part, lamp, {{0.25f, 0, -0.5f}, {-0.3f, 0, 0.5f}, {0.5f, 0, 0.5f}, {0.5f, 0, -0.5f}});
        hvAddPart(root_object);
        AddFace(root_object, hvAddPart(root_object), wall, {{-w, 0, -w}, {w, 0, -w}, {w, 0, w}, {-w, 0, w}});
        AddInstance(root_object, 0, {{-1, 0, 0, 0, 0, 1, 0, -0.7f, 0, 0, 1, 0, 0, 0, 0, 1}});
        hvSetRendererSample(16384);
        hvSetSkyLightColor(0, 0, 0);
        hvSetGeometryLightSample(sample);
        SCOPED_TRACE(sample);
        ExpectColor(scene.RenderPixel(), Color{1, 2, 3} * (0.5f * factor), 0.002f);
    }
}

TEST(Emitters, WithoutSamplesOrLightThereIsNoList)
{
    const struct {
        const char* text;
        int         sample;
        Color       emission, virtual_emission;
        bool        has_list;
    } cases[] = {{"both", 1, {1, 0, 0}, {0, 1, 0}, true},
                 {"no samples", 0, {1, 0, 0}, {0, 1, 0}, false},
                 {"no emitter is a virtual light", 1, {1, 0, 0}, kBlack, false},
                 {"the virtual light is dark", 1, {1, 0, 0}, {1.0f / 1024, 0, 0}, false},
                 {"nothing emits", 1, kBlack, kBlack, false},
                 {"less than nothing", 1, {1, 0, 0}, {-9, 1, 0}, false}};
    for (const auto& test : cases) {
        TestScene scene;
        scene.AddScreen(scene.AddShader(Element::Emissive, test.emission));
        if (test.virtual_emission != kBlack) scene.AddScreen(AddLamp(scene, test.virtual_emission), 1.0f);
        hvSetGeometryLightSample(test.sample);
        hvInitialize();
        EXPECT_EQ(HasEmitterList(), test.has_list) << test.text;
        EXPECT_EQ(PickEmitterPoint(0.5f) != nullptr, test.has_list) << test.text;
        hvFinalizeGeometryLight();
        FinalizeGeometryLight();
        EXPECT_FALSE(HasEmitterList());
    }
}

// Entries may be older than what they name.
TEST(Emitters, EntriesThatLeadNowhereStayDark)
{
    TestScene scene;
    scene.AddScreen(AddLamp(scene, kWhite));
    AddInstance(0, 0, {});
    hvSetGeometryLightSample(1);
    hvSetGeometryLightPhoton(1000);
    hvInitialize();
    ASSERT_TRUE(HasEmitterList());
    EXPECT_FLOAT_EQ(GeometryLight.power_scale.g, 400.0f / 1000);

    Object& root = Objects[RootObject];
    ASSERT_EQ(root.virtualLights.entries.size(), 1u);
    EmissiveEntry&      entry = root.virtualLights.entries[0];
    const EmissiveEntry good  = entry;

    const Vector first = PickEmitterPoint(0.3f)->position;
    PrepareGeometryLight();
    EXPECT_EQ(PickEmitterPoint(0.3f)->position, first);

    const auto expect_dark = [&](EmissiveEntry bad) {
        entry = bad;
        PrepareGeometryLight();
        EXPECT_FALSE(HasEmitterList());
        entry = good;
    };
    expect_dark({7, 0, PrimitiveKind::Tetragon, 1, 1});
    expect_dark({0, 7, PrimitiveKind::Tetragon, 1, 1});
    expect_dark({0, 0, PrimitiveKind::Triangle, 1, 1});
    expect_dark({0, 0, PrimitiveKind::Particle, 1, 1});
    expect_dark({0, 7, PrimitiveKind::Instance, 1, 1});
    root.instances[0].object = RootObject;  // a circle
    root.instances[0].box    = root.box;
    expect_dark({0, 0, PrimitiveKind::Instance, 1, 1});
    root.parts[0].positions.resize(2);
    expect_dark(good);
}

/// Mean and mean square of a component of many samples.
template <class Sample>
std::pair<float, float> Moments(const Sample& sample, Vector axis)
{
    constexpr std::uint32_t kCount = 4096;
    double                  sum = 0, squares = 0;
    for (std::uint32_t i = 0; i < kCount; ++i) {
        const float x = Dot(sample((static_cast<float>(i) + 0.5f) / kCount, RadicalInverse(0, i)), axis);
        sum += x;
        squares += x * x;
    }
    return {static_cast<float>(sum / kCount), static_cast<float>(squares / kCount)};
}

// Uniform on a cap of cosine c: z is uniform in c..1 (Archimedes), the rest is turned evenly.
TEST(Lights, ConesAreSampledEvenly)
{
    for (const float degrees : {0.0f, 20.0f, 90.0f, 180.0f}) {
        ParallelLight light;
        light.axis      = {0, 0.6f, 0.8f};
        light.e1        = {1, 0, 0};
        light.e2        = {0, 0.8f, -0.6f};
        light.blur      = degrees;
        light.cone      = std::cos(degrees * kRadians);
        const float c   = light.cone;
        const auto  get = [&](float a, float b) {
            const Vector d = SampleConeDirection(light, a, b);
            EXPECT_NEAR(Length(d), 1.0f, 1e-5f);
            EXPECT_GE(Dot(d, light.axis), c - 1e-5f);
            return d;
        };
        const auto along = Moments(get, light.axis);
        EXPECT_NEAR(along.first, (1 + c) / 2, 1e-3f);
        EXPECT_NEAR(along.second, (1 + c + c * c) / 3, 1e-3f);
        for (const Vector side : {light.e1, light.e2}) {
            EXPECT_NEAR(Moments(get, side).first, 0.0f, 1e-3f);
            EXPECT_NEAR(Moments(get, side).second, (1 - along.second) / 2, 1e-3f);
        }
    }
}

TEST(Lights, BlurIsAnEvenSphere)
{
    PointLight light;
    light.position = {1, 2, 3};
    EXPECT_EQ(PointOnSource(light, 0.2f, 0.7f), light.position);
    light.blur     = 0.5f;
    const auto get = [&](float a, float b) {
        const Vector offset = PointOnSource(light, a, b) - light.position;
        EXPECT_NEAR(Length(offset), 0.5f, 1e-5f);
        return offset;
    };
    for (const Vector axis : {Vector{1, 0, 0}, Vector{0, 1, 0}, Vector{0, 0, 1}}) {
        EXPECT_NEAR(Moments(get, axis).first, 0.0f, 1e-3f);
        EXPECT_NEAR(Moments(get, axis).second, 0.25f / 3, 1e-3f);
    }
}

TEST(Lights, SpotsFadeWithTheAngle)
{
    const struct {
        float inner, outer, angle, factor;
    } cases[] = {{20, 60, 0, 1},  {20, 60, 19, 1},    {20, 60, 30, 0.75f}, {20, 60, 59, 0.025f}, {20, 60, 61, 0},
                 {0, 180, 0, 1},  {0, 180, 90, 0.5f}, {0, 180, 180, 0},    {40, 40, 39, 1},      {40, 40, 41, 0},
                 {60, 20, 10, 0}, {60, 20, 40, 0.5f}, {60, 20, 90, 1}};
    for (const auto& test : cases) {
        PointLight light;
        light.direction     = {0, 0, 1};
        light.inner_radians = test.inner * kRadians;
        light.outer_radians = test.outer * kRadians;
        const float angle   = test.angle * kRadians;
        EXPECT_NEAR(SpotFactor(light, {std::sin(angle), 0, std::cos(angle)}), test.factor, 1e-4f)
            << test.inner << ' ' << test.outer << ' ' << test.angle;
        EXPECT_EQ(SpotFactor(light, {NAN, 0, 0}), 0.0f);
    }
    PointLight edge;  // on the edge itself the quotient is no number
    edge.direction     = {0, 0, 1};
    edge.inner_radians = edge.outer_radians = 0;
    EXPECT_EQ(SpotFactor(edge, {0, 0, 1}), 0.0f);
}

TEST(Lights, SharesEndWithTheirSession)
{
    EXPECT_EQ(hvxGetPointLightCount() + hvxGetParallelLightCount(), 0);
    {
        TestScene scene;
        const int own = hvAddSkyLightAOV();
        hvAddParallelLight();
        EXPECT_EQ(hvxGetParallelLightCount(), 1);
        EXPECT_EQ(hvxAddLightShare(hvxLight::Sky, -5, Channel::Glossy, "share.hdr"), own + 1);
        EXPECT_EQ(hvxAddLightShare(hvxLight::Parallel, 0, Channel::Specular, nullptr), 0);
        EXPECT_EQ(hvxAddLightShare(hvxLight::Parallel, 1, Channel::Specular, ""), -1);
        EXPECT_EQ(hvxAddLightShare(hvxLight::Point, 0, Channel::Specular, ""), -1);
        EXPECT_EQ(hvxAddLightShare(static_cast<hvxLight>(9), 0, Channel::Specular, ""), -1);
        EXPECT_EQ(hvxAddLightShare(hvxLight::Sky, 0, Channel::Emissive, ""), -1);
        EXPECT_EQ(hvxAddLightShare(hvxLight::Sky, 0, static_cast<Channel>(4 + 64), ""), -1);
        hvxImage image{};
        EXPECT_FALSE(hvxGetLightAOV(hvxLight::Sky, 0, own + 1, &image));  // not prepared
        EXPECT_FALSE(hvxGetLightAOV(hvxLight::Sky, 0, own + 2, &image));
        SkyLightAOVs.back().image.path.clear();  // no file here
        hvInitializeSkyLight();
    }
    EXPECT_EQ(SkyLightAOVs.size(), 1u);
    SkyLightAOVs.clear();
}

}  // namespace
}  // namespace hv
