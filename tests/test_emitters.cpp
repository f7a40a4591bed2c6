// Emissive surfaces as a light: the list of points on them, and how lights with a size are sampled.

#include "base/matrix.h"
#include "geometry/object.h"
#include "lights/lights.h"
#include "scene_files.h"
#include "scene_fixture.h"
#include "session/sampling.h"

#include <cmath>
#include <map>

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

/// A face of three or four corners.
void AddFace(int object, int part, int shader, const Corner& corners)
{
    const Part& target     = Objects[static_cast<std::size_t>(object)].parts[static_cast<std::size_t>(part)];
    const int   first      = static_cast<int>(target.positions.size());
    const int   indices[4] = {first, first + 1, first + 2, first + 3};
    hvSetShaderID(object, part, shader);
    hvAddPositions(object, part, static_cast<int>(corners.size()), &corners[0].x);
    (corners.size() == 3 ? hvAddTriangles : hvAddTetragons)(object, part, 1, indices);
}

void AddInstance(int object, int target, const Matrix4& matrix, int shader = -1)
{
    hvSetInstance(object, hvAddInstance(object), target, reinterpret_cast<const float(*)[4]>(matrix.m), shader);
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

// Whatever the instances do to an emitter, and however its corners lie, its points add up to its radiance times its
// area, spread evenly, on the side where it shines. A lamp within an arm within the root, which places the arm twice:
// mirrored and stretched, and once more under a shader of its own. The root has two parts, so its list names each arm
// twice.
TEST(Emitters, PointsStandForAllThatShines)
{
    TestScene scene;
    const int red = AddLamp(scene, {2, 0, 0}), both = AddLamp(scene, {0, 4, 4}, Sideness::Both);
    const int over = AddLamp(scene, {1, 1, 8});  // nothing on the back
    AddFace(0, hvAddPart(0), red, {{0, 0, 0}, {4, 0, 0}, {3, 2, 0}, {2, 2, 0}});
    const int arm = hvAddObject(), root = hvAddObject();
    AddFace(arm, hvAddPart(arm), both, {{5, 0, 0}, {6, 0, 0}, {6, 0, 1}});
    AddInstance(arm, 0, {{0, -1, 0, 0, 1, 0, 0, 0, 0, 0, 1, 3, 0, 0, 0, 1}});
    hvAddPart(root);
    hvAddPart(root);
    AddInstance(root, arm, {{-1, 0, 0, 20, 0, 2, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1}});
    AddInstance(root, arm, {{1, 0, 0, -20, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1}}, over);
    hvSetGeometryLightSample(1);
    hvInitialize();
    EXPECT_FLOAT_EQ(EmitterPointArea(), Objects[RootObject].virtualLightArea);

    const auto points = FindPoints();
    Vector     weighed;
    double     probability = 0.0;
    float      weight      = 0.0f;
    for (const auto& [point, found] : points) {
        probability += found.probability;
        EXPECT_NEAR(found.count, found.probability * kGrid, 1.5);
        if (point->radiance.r == 0 || point->radiance.b > 0) continue;
        EXPECT_EQ(point->normal, (Vector{0, 0, 1})) << "a mirror turns no front to a back";
        weighed += point->position * point->radiance.r;
        weight += point->radiance.r;
    }
    EXPECT_NEAR(probability, 1.0, 1e-3);
    EXPECT_LT(Length(weighed / weight - Vector{20.8f, 4.4f, 3}), 0.02f) << "the centroid";
    // The trapezoid covers 5 m2, or 10 stretched, and the triangle half a square meter on each of its sides.
    ExpectColor(FluxOf(points), Color{2, 0, 0} * 10 + Color{0, 4, 4} + Color{1, 1, 8} * 5.5f, 0.1f);
}

struct TexturedEmitters : SceneTest {};

// Two texels across a square whose coordinates run from the one to the other are a ramp.
TEST_F(TexturedEmitters, TexturesColourTheirPoints)
{
    const float       texels[6] = {1, 0, 4, 3, 2, 0}, uvs[] = {0, 0.5f, 0.5f, 0.5f, 0.5f, 0.5f, 0, 0.5f};
    const std::string file =
        Write("ramp.pfm", "PF\n2 1\n-1.0\n" + std::string(reinterpret_cast<const char*>(texels), sizeof texels));
    TestScene scene;
    const int lamp = AddLamp(scene, {1, 1, 0.5f}), part = hvAddPart(0);
    hvSetSurfaceImage(lamp, 0, Element::Emissive, file.c_str(), 1.0f, nullptr, nullptr);
    AddFace(0, part, lamp, {{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}});
    hvAddUVs(0, part, 4, uvs);
    hvSetGeometryLightSample(1);
    hvInitialize();
    const auto points = FindPoints();
    for (const auto& [point, found] : points) {
        const float x = point->position.x;
        ExpectColor(point->radiance, {1 + 2 * x, 2 * x, 0.5f * (4 - 4 * x)}, 1e-3f);
    }
    ExpectColor(FluxOf(points), {2, 1, 1}, 1e-3f);
}

TEST(Emitters, WithoutSamplesOrLightThereIsNoList)
{
    const struct {
        const char* text;
        int         sample;
        Color       emission;
        bool        has_list;
    } cases[] = {{"a virtual light", 1, {0, 1, 0}, true},
                 {"no samples", 0, {0, 1, 0}, false},
                 {"the virtual light is dark", 1, {1.0f / 1024, 0, 0}, false},
                 {"less than nothing", 1, {-9, 1, 0}, false}};
    for (const auto& test : cases) {
        TestScene scene;
        scene.AddScreen(scene.AddShader(Element::Emissive, kWhite));  // no virtual light
        scene.AddScreen(AddLamp(scene, test.emission), 1.0f);
        hvSetGeometryLightSample(test.sample);
        hvInitialize();
        EXPECT_EQ(HasEmitterList(), test.has_list) << test.text;
        EXPECT_EQ(PickEmitterPoint(0.5f) != nullptr, test.has_list) << test.text;
    }
}

// Entries may be older than what they name.
TEST(Emitters, EntriesThatLeadNowhereStayDark)
{
    TestScene scene;
    scene.AddScreen(AddLamp(scene, kWhite));
    AddInstance(0, 0, {});
    hvSetGeometryLightSample(1);
    hvInitialize();
    ASSERT_TRUE(HasEmitterList());
    Object&             root  = Objects[RootObject];
    EmissiveEntry&      entry = root.virtualLights.entries.at(0);
    const EmissiveEntry good  = entry;

    root.instances[0].object                  = RootObject;  // a circle
    root.instances[0].box                     = root.box;
    const std::vector<EmissiveEntry> bad_ones = {
        {7, 0, PrimitiveKind::Tetragon, 1, 1}, {0, 7, PrimitiveKind::Tetragon, 1, 1},
        {0, 0, PrimitiveKind::Triangle, 1, 1}, {0, 0, PrimitiveKind::Particle, 1, 1},
        {0, 7, PrimitiveKind::Instance, 1, 1}, {0, 0, PrimitiveKind::Instance, 1, 1}};
    for (const EmissiveEntry& bad : bad_ones) {
        entry = bad;
        PrepareGeometryLight();
        EXPECT_FALSE(HasEmitterList()) << &bad - bad_ones.data();
    }
    entry = good;
    root.parts[0].positions.resize(2);
    PrepareGeometryLight();
    EXPECT_FALSE(HasEmitterList());
}

// On the edge itself the quotient is no number.
TEST(Lights, ConesWithoutWidthOrDirectionAreDark)
{
    PointLight light;
    light.direction     = {0, 0, 1};
    light.inner_radians = light.outer_radians = 0;
    EXPECT_EQ(SpotFactor(light, {0, 0, 1}), 0.0f);
    light.outer_radians = 1;
    EXPECT_EQ(SpotFactor(light, {NAN, 0, 0}), 0.0f);
}

}  // namespace
}  // namespace hv
