// Preparation of objects: the instance tree, the checks on parts, strands, emitter lists and their samplers.

#include "geometry/assembly.h"
#include "output/output.h"
#include "session/console.h"
#include "session/sampling.h"
#include "shading/shading.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace hv {
namespace {

/// Empties the registries before and after, makes shader 0 and captures the report.
struct Geometry : testing::Test {
    Geometry()
    {
        Clear();
        EnsureDefaultShader();
    }
    ~Geometry() override { Clear(); }

    static void Clear()
    {
        DestroyObjects();
        Shaders.clear();
        Cameras.clear();
    }

    static std::uint32_t AddObject(const std::string& name)
    {
        Objects.emplace_back().name = name;
        return static_cast<std::uint32_t>(Objects.size() - 1);
    }

    static Instance& Place(std::uint32_t parent, std::uint32_t target)
    {
        Instance& instance = Objects[parent].instances.emplace_back();
        instance.object    = target;
        return instance;
    }

    /// A unit square in the plane z = 0 from two triangles.
    static Part& AddSquare(std::uint32_t object)
    {
        Part& part     = Objects[object].parts.emplace_back();
        part.positions = {{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}};
        part.triangles = {{0, 1, 2, 0}, {2, 3, 0, 0}};
        return part;
    }

    static std::string Prepare()
    {
        testing::internal::CaptureStdout();
        PrepareShaders();
        PrepareScene();
        return testing::internal::GetCapturedStdout();
    }

    /// A shader of one layer, so that preparation does not take it for an undefined one.
    static std::uint32_t AddShader(const char* name)
    {
        const std::uint32_t shader = FindOrAddShader(name);
        Shaders[shader].layers.resize(1);
        return shader;
    }

    static int Occurrences(const std::string& text, const std::string& word)
    {
        int count = 0;
        for (std::size_t at = text.find(word); at != std::string::npos; at = text.find(word, at + 1)) ++count;
        return count;
    }
};

TEST_F(Geometry, StrayRootsHangUnderTheLastOne)
{
    AddSquare(AddObject("first"));
    AddSquare(AddObject("second"));
    EXPECT_NE(Prepare().find("object - second is treated as the root object\n"), std::string::npos);
    Prepare();  // meets one root and changes nothing
    EXPECT_EQ(RootObject, 1u);
    ASSERT_EQ(Objects[1].instances.size(), 1u);
    EXPECT_EQ(Objects[1].instances[0].object, 0u);
}

TEST_F(Geometry, NamesResolveToTheFirstMatchAndUnknownOnesAreSkipped)
{
    AddSquare(AddObject("leaf"));
    AddSquare(AddObject("leaf"));
    const std::uint32_t root = AddObject("root");
    for (const char* name : {"leaf", "nothing", ""}) Objects[root].instances.emplace_back().objectName = name;
    Place(root, 1);
    Place(root, 4711);
    Prepare();
    const std::uint32_t expected[] = {0, kNone, kNone, 1, kNone};
    for (std::size_t i = 0; i < 5; ++i) {
        EXPECT_EQ(Objects[root].instances[i].object, expected[i]);
        EXPECT_EQ(IsEmpty(Objects[root].instances[i].box), expected[i] == kNone);
    }
}

TEST_F(Geometry, DepthIsThatOfTheLastVisit)
{
    const std::uint32_t shared = AddObject("shared"), a = AddObject("a"), root = AddObject("root");
    AddSquare(shared);
    Place(a, shared);
    Place(root, a);
    Place(root, shared);
    Prepare();
    EXPECT_EQ(Objects[shared].depth, 1u) << "directly under the root";
    std::swap(Objects[root].instances[0], Objects[root].instances[1]);
    Prepare();
    EXPECT_EQ(Objects[shared].depth, 2u);
}

// Every object is placed twice by the next: a walk that revisits shared objects would take 2^60 steps.
TEST_F(Geometry, SharedObjectsCostNoExponentialWalk)
{
    AddSquare(AddObject("leaf"));
    for (std::uint32_t level = 1; level <= 60; ++level) {
        AddObject("level");
        Place(level, level - 1);
        Place(level, level - 1);
    }
    Prepare();
    EXPECT_EQ(Objects[0].depth, 60u);
}

TEST_F(Geometry, CyclesAreCutAndReported)
{
    // Two objects that place each other, and one that places itself, under a proper root.
    for (const char* name : {"a", "b", "self", "root"}) AddObject(name);
    AddSquare(0);
    for (const auto& [parent, target] : {std::pair{0u, 1u}, {1u, 0u}, {2u, 2u}, {3u, 0u}, {3u, 2u}})
        Place(parent, target);
    EXPECT_EQ(Occurrences(Prepare(), "contains itself"), 2);
    EXPECT_EQ(Objects[1].instances[0].object, kNone);
    EXPECT_FALSE(IsEmpty(Objects[3].box));

    // Nothing but a cycle: there is no root, preparation ends all the same.
    Clear();
    EnsureDefaultShader();
    Place(AddObject("x"), 1);
    Place(AddObject("y"), 0);
    EXPECT_NE(Prepare().find("error :( \tobject - there is no root object\n"), std::string::npos);
}

TEST_F(Geometry, SceneValuesFollowTheRootBox)
{
    const std::uint32_t leaf = AddObject("leaf"), root = AddObject("root");
    AddSquare(leaf);
    Place(root, leaf).matrix = {{2, 0, 0, 10, 0, 2, 0, 0, 0, 0, 2, 5, 0, 0, 0, 1}};
    Place(root, leaf).matrix = {{1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1}};  // flat: no inverse
    EXPECT_EQ(Occurrences(Prepare(), "singular matrix"), 1);
    EXPECT_EQ(SceneBox, (Box{{10, 0, 5}, {12, 2, 5}}));
    EXPECT_EQ(SceneCenter, (Vector{11, 1, 5}));
    EXPECT_FLOAT_EQ(SceneRadius, std::sqrt(2.0f));

    DestroyObjects();
    AddObject("empty");
    Prepare();
    EXPECT_EQ(SceneRadius, 1e-5f);
}

TEST_F(Geometry, FaultyPartsAreReportedAndPreparedWithoutTheirBadFaces)
{
    Part& part     = AddSquare(AddObject("faulty"));
    part.particles = {0};
    part.cylinders = {0, 1};
    part.normals   = {PackedDirection{0, 0, 127}};
    part.positions.push_back({std::numeric_limits<float>::quiet_NaN(), 0, 0});
    part.triangles.push_back({0, 1, 4, 0});   // a vertex that is no number
    part.triangles.push_back({0, 1, 99, 0});  // out of range
    part.tetragons.push_back({0, 1, 2, ~0u, 0});
    const std::string report = Prepare();
    EXPECT_GT(Occurrences(report, "object - mixed types"), 0);
    EXPECT_EQ(Occurrences(report, "object - different size of per vertex data array\n"), 1);
    EXPECT_EQ(Occurrences(report, "part - smoothing out of range\n"), 1);
    EXPECT_EQ(Objects[0].parts[0].triangles.size(), 2u);
    EXPECT_TRUE(Objects[0].parts[0].tetragons.empty());
}

TEST_F(Geometry, StampsOfUndefinedTakeThePartsShader)
{
    const std::uint32_t red = AddShader("red"), blue = AddShader("blue"), object = AddObject("object");
    Objects[object].shaderID              = red;
    AddSquare(object).triangles[1].shader = blue;
    AddSquare(object).triangles[0].shader = 4711;  // no such shader: reads as 0, which is "undefined"
    Prepare();
    EXPECT_EQ(Objects[object].parts[0].triangles[0].shader, red);
    EXPECT_EQ(Objects[object].parts[0].triangles[1].shader, blue);
    EXPECT_EQ(Objects[object].parts[1].triangles[0].shader, red);
}

TEST_F(Geometry, FlippedFacesSwapOnceHoweverOftenPrepared)
{
    Shaders[0].geometry_shader.flip_face = true;
    AddSquare(AddObject("flipped"));
    for (int run = 0; run < 2; ++run) {
        Prepare();
        EXPECT_EQ(Objects[0].parts[0].triangles[0].i0, 1u);
        EXPECT_EQ(Objects[0].parts[0].triangles[0].i1, 0u);
    }
}

TEST_F(Geometry, StrandsGetParametersAndTangents)
{
    Part& part             = Objects[AddObject("hair")].parts.emplace_back();
    part.positions         = {{0, 0, 0}, {0, 1, 0}, {0, 2, 0}, {0, 3, 0}, {0, 9, 0}, {1, 9, 0}, {2, 9, 0}};
    part.cylinders         = {0, 1, 2, 4, 5};
    part.scalars[0].values = std::vector<float>(7, 0.1f);
    Prepare();

    const Part& prepared = Objects[0].parts[0];
    const float third    = 1.0f / 3.0f;
    EXPECT_EQ(prepared.scalars.at(1).values, (std::vector<float>{0, 0.25f, 0.5f, 0.75f, 0, third, 2.0f / 3.0f}));
    const PackedDirection up{0, 127, 0}, right{127, 0, 0};
    // Five cylinders, seven vertices: the last two stay without a tangent.
    EXPECT_EQ(prepared.tangents, (std::vector<PackedDirection>{up, up, up, up, right, {}, {}}));
    EXPECT_TRUE(Shaders[0].is_hair);

    const std::uint32_t other    = FindOrAddShader("other");
    Objects[0].parts[0].shaderID = other;
    Prepare();
    EXPECT_TRUE(Shaders[other].is_hair);
    EXPECT_EQ(Objects[0].parts[0].scalars.size(), 2u);
}

// Segments that jump back and forth over a large array: pairs of starts overlap, the cost must not multiply.
TEST_F(Geometry, DisorderedStrandsStayLinear)
{
    Part& part = Objects[AddObject("tangle")].parts.emplace_back();
    part.positions.resize(300000);
    part.scalars[0].values.resize(300000, 0.001f);
    for (int i = 0; i < 100000; ++i) part.cylinders.push_back(i % 2 == 0 ? 0u : 299990u);
    PrepareStrands(part);
    EXPECT_EQ(part.scalars[1].values[150000], 150000.0f / 299990.0f);
}

/// Strands of two segments that stand on `roots`, with texture coordinates of their own.
Part StrandsOn(const std::vector<Vector>& roots)
{
    Part part;
    for (const Vector root : roots) {
        const auto first = static_cast<std::uint32_t>(part.positions.size());
        part.cylinders.insert(part.cylinders.end(), {first, first + 1});
        part.strandSizes.push_back(2);
        for (const float height : {0.0f, 1.0f, 2.0f})
            part.positions.push_back(root + height * Vector{0.1f, 0.2f, 0.9f});
    }
    part.uvs[0].values     = std::vector<Vector2>(part.positions.size(), Vector2{9, 9});
    part.scalars[0].values = std::vector<float>(part.positions.size(), 0.001f);
    return part;
}

void ExpectStrandUVs(const Part& strands, const std::vector<Vector2>& expected)
{
    ASSERT_EQ(strands.uvs[0].values.size(), 3 * expected.size());
    for (std::size_t vertex = 0; vertex < strands.uvs[0].values.size(); ++vertex) {
        const Vector2 uv = strands.uvs[0].values[vertex], wanted = expected[vertex / 3];
        ASSERT_NEAR(uv.u, wanted.u, 1e-5f) << "strand " << vertex / 3;
        ASSERT_NEAR(uv.v, wanted.v, 1e-5f) << "strand " << vertex / 3;
    }
}

// Texture coordinates that are linear in the place on a tilted plane: a root has those of its foot, on whichever face.
const Vector kCorner{3, -2, 1}, kAlong{0.8f, 0.1f, 0.3f}, kAcross{-0.2f, 0.9f, 0.4f};
Vector       PlaceOf(Vector2 uv) { return kCorner + uv.u * kAlong + uv.v * kAcross; }

TEST_F(Geometry, StrandsTakeTheUVOfTheirFoot)
{
    const Vector up = Normalized(Cross(kAlong, kAcross));
    for (const bool whole : {false, true}) {
        SCOPED_TRACE(whole ? "tetragons" : "triangles");
        const std::uint32_t object = AddObject("fur");
        Part&               faces  = Objects[object].parts.emplace_back();
        for (const float sheet : {0.0f, 1.0f}) {  // the upper one is smaller and has greater coordinates
            const auto  first = static_cast<std::uint32_t>(faces.positions.size());
            const float low = 0.1f * sheet, high = 1 - 0.3f * sheet;
            for (const Vector2 uv : {Vector2{low, low}, {high, low}, {high, high}, {low, high}}) {
                faces.positions.push_back(PlaceOf(uv) + sheet * up);
                faces.uvs[0].values.push_back({uv.u + 5 * sheet, uv.v + 5 * sheet});
            }
            if (whole) faces.tetragons.push_back({first, first + 1, first + 2, first + 3, 0});
            if (!whole) faces.triangles.push_back({first, first + 1, first + 2, 0});
            faces.triangles.push_back({first, first + 2, first, 0});  // without an area
        }
        const std::vector<Vector2> feet      = {{0.6f, 0.25f}, {0.875f, 0.75f}, {0.5f, 0.125f},
                                                {1, 1},        {1.1f, 0.5f},    {0.5f, -0.1f}};
        const float                heights[] = {0.4f, -0.4f, 0.7f, 0.3f, 0.0f, 0.0f};
        const std::vector<Vector2> expected  = {feet[0], feet[1], {5.5f, 5.125f}, {1, 1}, {0, 0}, {0, 0}};
        std::vector<Vector>        roots;
        for (std::size_t i = 0; i < feet.size(); ++i) roots.push_back(PlaceOf(feet[i]) + heights[i] * up);
        Objects[object].parts.push_back(StrandsOn(roots));
        Prepare();
        ExpectStrandUVs(Objects[object].parts[1], expected);
        Clear();
        EnsureDefaultShader();
    }
}

// Roots on edges and corners must not slip between the faces that meet there, nor the search lose faces among the hair.
TEST_F(Geometry, RootsOnEdgesSlipThroughNoMesh)
{
    constexpr std::uint32_t kSide = 40;
    for (const bool whole : {false, true}) {
        SCOPED_TRACE(whole ? "tetragons" : "triangles");
        const std::uint32_t  object = AddObject("fur");
        Part&                mesh   = Objects[object].parts.emplace_back();
        std::vector<Vector2> expected;
        std::vector<Vector>  roots;
        for (std::uint32_t v = 0; v <= kSide; ++v)
            for (std::uint32_t u = 0; u <= kSide; ++u) {
                const auto at = [&](float right, float down) {
                    return Vector2{(static_cast<float>(u) + right) / kSide, (static_cast<float>(v) + down) / kSide};
                };
                mesh.positions.push_back(PlaceOf(at(0, 0)));
                mesh.uvs[0].values.push_back(at(0, 0));
                if (u == kSide || v == kSide) continue;
                const std::uint32_t a = v * (kSide + 1) + u, b = a + 1, c = b + kSide + 1, d = c - 1;
                if (whole) mesh.tetragons.push_back({a, b, c, d, 0});
                if (!whole) mesh.triangles.insert(mesh.triangles.end(), {{a, b, c, 0}, {c, d, a, 0}});
                for (const Vector2 place : {at(0, 0), at(0.37f, 0), at(0, 0.61f), at(0.3f, 0.3f), at(0.8f, 0.1f)}) {
                    expected.push_back(place);
                    roots.push_back(PlaceOf(place));
                }
            }
        Objects[object].parts.push_back(StrandsOn(roots));
        Prepare();
        ExpectStrandUVs(Objects[object].parts[1], expected);
        Clear();
        EnsureDefaultShader();
    }
}

TEST_F(Geometry, OverridesMarkHairAtWhateverDepth)
{
    const std::uint32_t shiny = AddShader("shiny"), plain = AddShader("plain"), hair = AddObject("hair");
    const std::uint32_t face = AddObject("face"), middle = AddObject("middle"), root = AddObject("root");
    Part&               strand = AddSquare(hair);
    strand.triangles           = {};
    strand.cylinders           = {0};
    strand.scalars[0].values   = std::vector<float>(4, 0.1f);
    AddSquare(face);
    Place(middle, hair);
    Place(root, middle).shader = shiny;
    Place(root, face).shader   = plain;
    Prepare();
    EXPECT_TRUE(Shaders[shiny].is_hair);
    EXPECT_FALSE(Shaders[plain].is_hair);
}

}  // namespace
}  // namespace hv
