// Surfaces: smoothing against a brute force over all corners, curved patches, displacement.

#include "accel/accel.h"
#include "geometry/assembly.h"
#include "geometry/patch.h"
#include "picture_files.h"
#include "scene_files.h"
#include "scene_fixture.h"
#include "shading/image_store.h"
#include "shading/shading.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <random>
#include <set>
#include <tuple>
#include <utility>

namespace hv {
namespace {

constexpr float kWeightStep = 1.0f / 22403.0f;  ///< of the quantised weights
using Floats                = std::vector<float>;

struct Face {
    std::vector<std::uint32_t> corners;
    std::uint32_t              shader;
};

/// Triangles, then tetragons: the order in which directions are summed.
std::vector<Face> FacesOf(const Part& part)
{
    std::vector<Face> faces;
    for (const Triangle& t : part.triangles) faces.push_back({{t.i0, t.i1, t.i2}, t.shader});
    for (const Tetragon& t : part.tetragons) faces.push_back({{t.i0, t.i1, t.i2, t.i3}, t.shader});
    return faces;
}

/// What the faces of a part look like, whatever the order of its vertices. One row a corner: shader, position, normal,
/// tangent, then the data as far as the arrays reach.
std::vector<Floats> CornerValues(const Part& part)
{
    std::vector<Floats> rows;
    for (const Face& face : FacesOf(part))
        for (const std::uint32_t vertex : face.corners) {
            const Vector p   = part.positions.at(vertex);
            Floats&      row = rows.emplace_back(Floats{static_cast<float>(face.shader), p.x, p.y, p.z});
            for (const auto* array : {&part.normals, &part.tangents}) {
                const PackedDirection d = vertex < array->size() ? (*array)[vertex] : PackedDirection{};
                row.insert(row.end(), {1.0f * d.x, 1.0f * d.y, 1.0f * d.z});
            }
            for (const auto& array : part.uvs)
                if (vertex < array.values.size())
                    row.insert(row.end(), {array.values[vertex].u, array.values[vertex].v});
            for (const auto& array : part.scalars)
                if (vertex < array.values.size()) row.push_back(array.values[vertex]);
            for (const auto& array : part.vectors)
                if (vertex < array.values.size())
                    row.insert(row.end(), &array.values[vertex].x, &array.values[vertex].z + 1);
        }
    return rows;
}

/// Along the first texture coordinate where uvs and tangents reach, else at right angles to the normal.
Vector TangentOf(const Part& part, const Face& face, Vector normal)
{
    for (const std::uint32_t v : face.corners)
        if (v >= part.tangents.size() || v >= part.uvs[0].values.size()) return FallbackTangent(normal);
    Vector  p[3];
    Vector2 uv[3];
    for (int n = 0; n < 3; ++n) {
        p[n]  = part.positions[face.corners[n]];
        uv[n] = part.uvs[0].values[face.corners[n]];
    }
    const float du1 = uv[1].u - uv[0].u, du2 = uv[2].u - uv[0].u, dv1 = uv[1].v - uv[0].v, dv2 = uv[2].v - uv[0].v;
    const float largest = std::max({std::fabs(du1), std::fabs(du2), std::fabs(dv1), std::fabs(dv2)});
    return largest < 1e-8f ? FallbackTangent(normal) : Normalized((p[1] - p[0]) * dv2 - (p[2] - p[0]) * dv1);
}

/// What CornerValues must give after smoothing: each corner is compared with all others at its place.
std::vector<Floats> SmoothReference(const Part& part)
{
    struct Corner {
        std::uint32_t vertex;
        float         radians;
        Vector        normal, tangent;
    };
    std::vector<Corner> corners;
    for (const Face& face : FacesOf(part)) {
        Vector p[4];
        for (std::size_t n = 0; n < face.corners.size(); ++n) p[n] = part.positions[face.corners[n]];
        const Vector normal  = FaceNormal(p, static_cast<int>(face.corners.size()));
        const float  radians = Shaders[face.shader].geometry_shader.smooth_angle * 0.017453292f;
        for (const std::uint32_t vertex : face.corners)
            corners.push_back({vertex, radians, normal, TangentOf(part, face, normal)});
    }
    std::vector<Floats> rows = CornerValues(part);
    for (std::size_t c = 0; c < corners.size(); ++c) {
        const std::uint32_t vertex  = corners[c].vertex;
        const float         radians = corners[c].radians;
        const auto          choose  = [&](Vector Corner::*field, const auto& given, int column) {
            if (radians < 0.0f && vertex < given.size()) return;  // keeps its own
            const Vector own = corners[c].*field;
            Vector       sum;
            for (const Corner& other : corners) {
                if (!(part.positions[other.vertex] == part.positions[vertex])) continue;
                const float angle = std::acos(std::clamp(Dot(other.*field, own), -1.0f, 1.0f));
                if (other.*field == own || radians > angle) sum += other.*field;
            }
            const PackedDirection d = radians == 0.0f ? PackedDirection{} : PackDirection(Normalized(sum));
            for (const int component : {d.x, d.y, d.z}) rows[c][column++] = static_cast<float>(component);
        };
        choose(&Corner::normal, part.normals, 4);
        choose(&Corner::tangent, part.tangents, 7);
    }
    return rows;
}

struct Surface : SceneTest {
    Surface() { EnsureDefaultShader(); }
    ~Surface() override
    {
        ReleaseImages();
        hvxSetThreadCount(0);
        ImageSearchPaths = {""};
    }

    static std::uint32_t AddShader(float smooth_angle)
    {
        const std::uint32_t shader                   = FindOrAddShader(std::to_string(Shaders.size()));
        Shaders[shader].geometry_shader.smooth_angle = smooth_angle;
        return shader;
    }

    static ShaderElement& AddEntry(std::uint32_t shader, int level, Vector vector)
    {
        ShaderElement& entry = Shaders[shader].geometry_shader.vector.emplace_back();
        entry.level          = level;
        entry.color          = {vector.x, vector.y, vector.z};
        return entry;
    }

    /// A picture of one row of texels; its number in the store.
    static int AddPicture(std::initializer_list<Color> texels)
    {
        Image& image = Images.emplace_back();
        AllocateImage(image, static_cast<int>(texels.size()), 1, 3, 32, false);
        image.pixels32.clear();
        for (const Color& texel : texels) image.pixels32.insert(image.pixels32.end(), {texel.r, texel.g, texel.b});
        return static_cast<int>(Images.size()) - 1;
    }

    /// Prepares a part and returns the report.
    static std::string Prepare(Part& part)
    {
        testing::internal::CaptureStdout();
        PreparePart(part);
        return testing::internal::GetCapturedStdout();
    }
};

/// A cube of side 2 about the origin that looks outwards, of 6 tetragons or 12 triangles that share its corners.
Part Cube(std::uint32_t shader, bool of_triangles)
{
    Part part;
    for (unsigned i = 0; i < 8; ++i)
        part.positions.push_back({i & 1 ? 1.0f : -1.0f, i & 2 ? 1.0f : -1.0f, i & 4 ? 1.0f : -1.0f});
    constexpr std::uint32_t kSides[6][4] = {{0, 1, 5, 4}, {3, 2, 6, 7}, {2, 0, 4, 6},
                                            {1, 3, 7, 5}, {2, 3, 1, 0}, {4, 5, 7, 6}};
    for (const auto& [a, b, c, d] : kSides) {
        if (!of_triangles) part.tetragons.push_back({a, b, c, d, shader});
        if (of_triangles) part.triangles.insert(part.triangles.end(), {{a, b, c, shader}, {a, c, d, shader}});
    }
    return part;
}

/// Adds the square from (x, 0, 0) to (x + size, size, 0) that looks up, with texture coordinates from 0 to uv_size.
void AddSquare(Part& part, std::uint32_t shader, float x = 0.0f, float size = 1.0f, float uv_size = 1.0f)
{
    const auto base = static_cast<std::uint32_t>(part.positions.size());
    for (const auto& [u, v] : {Vector2{0, 0}, Vector2{1, 0}, Vector2{1, 1}, Vector2{0, 1}}) {
        part.positions.push_back({x + u * size, v * size, 0});
        part.uvs[0].values.push_back({u * uv_size, v * uv_size});
    }
    part.tetragons.push_back({base, base + 1, base + 2, base + 3, shader});
}

/// Random faces over 40 places, of which one has hundreds of corners; most vertices share theirs, ten have no face.
Part Patchwork(const std::vector<std::uint32_t>& shaders, bool with_directions, std::mt19937& random)
{
    const auto number    = [&random](unsigned count) { return static_cast<unsigned>(random() % count); };
    const auto step      = [&](unsigned count) { return static_cast<float>(number(count)); };
    const auto direction = [&] { return PackDirection({step(5) - 2.0f, step(5) - 2.0f, step(5) - 2.0f}); };
    const auto vertex    = [&] { return number(3) == 0 ? number(12) : 12 + number(128); };
    const auto shader    = [&] { return shaders[number(static_cast<unsigned>(shaders.size()))]; };

    std::vector<Vector> places = {{0.0f, 0.5f, -0.0f}, {-0.0f, 0.5f, 0.0f}};  // one place
    while (places.size() < 40) places.push_back({1e-3f * step(4000), 1e-3f * step(4000), 1e-3f * step(4000)});
    Part part;
    part.scalars.push_back({"second", {}});
    part.vectors.push_back({"motion", {}});
    for (unsigned i = 0; i < 150; ++i) {
        part.positions.push_back(places[i < 12 ? number(2) : number(40)]);
        part.uvs[0].values.push_back({step(2), step(2)});
        part.scalars[0].values.push_back(step(2));
        part.scalars[1].values.push_back(1.0f);
        part.vectors[0].values.push_back({0, 0, step(2)});
        if (with_directions) part.normals.push_back(direction());
        if (with_directions) part.tangents.push_back(direction());
    }
    for (int i = 0; i < 120; ++i) part.triangles.push_back({vertex(), vertex(), vertex(), shader()});
    for (int i = 0; i < 60; ++i) part.tetragons.push_back({vertex(), vertex(), vertex(), vertex(), shader()});
    for (int i = 0; i < 30; ++i) {  // faces again, and turned over: equal and opposite normals
        const auto [a, b, c, _] = part.triangles[number(120)];
        part.triangles.push_back({b, c, a, shader()});
        part.triangles.push_back({b, a, c, shader()});
    }
    part.triangles.push_back({7, 7, 20, shaders[0]});  // one vertex twice
    return part;
}

/// A hundred faces about a tip, whose normals lean 40 degrees outwards.
Part Cone(std::uint32_t shader)
{
    Part part;
    part.positions = {{0, 0, 0}};
    for (std::uint32_t i = 0; i < 100; ++i) {
        const float angle = 0.0628318531f * static_cast<float>(i);
        part.positions.push_back({std::cos(angle), std::sin(angle), -0.839f});
        part.triangles.push_back({0, 1 + i, 1 + (i + 1) % 100, shader});
    }
    return part;
}

// ---- Smoothing ----

// The limit itself splits: faces join where they turn by less.
TEST_F(Surface, AngleDecidesWhichFacesOfACubeShareVertices)
{
    const std::pair<float, std::size_t> rows[] = {{-1, 24}, {30, 24}, {90, 24}, {90.0001f, 8}, {100, 8}, {360, 8}};
    for (const auto& [degrees, vertex_count] : rows)
        for (const bool of_triangles : {false, true}) {
            Part       part     = Cube(AddShader(degrees), of_triangles);
            const auto expected = SmoothReference(part);
            Smooth(part);
            EXPECT_EQ(CornerValues(part), expected) << degrees;
            EXPECT_EQ(part.positions.size(), vertex_count) << degrees;
        }
}

TEST_F(Surface, SmoothingEqualsTheBruteForceForAnyNumberOfThreads)
{
    std::mt19937      random(5);
    std::vector<Part> parts;
    for (const std::vector<float>& angles : {std::vector<float>{30, 75}, {-1, 100}, {0, 45, -1}, {-1}, {200}}) {
        std::vector<std::uint32_t> shaders;
        for (const float degrees : angles) shaders.push_back(AddShader(degrees));
        for (const bool with_directions : {false, true}) parts.push_back(Patchwork(shaders, with_directions, random));
    }
    for (const float degrees : {20.0f, 45.0f, 70.0f, 90.0f}) parts.push_back(Cone(AddShader(degrees)));
    for (const Part& before : parts) {
        const std::vector<Floats> expected = SmoothReference(before);
        std::set<Floats>          distinct;  // no vertex twice, but for shaders, and none without a face
        for (const Floats& row : expected) distinct.emplace(row.begin() + 1, row.end());
        for (const int threads : {1, 2, 7}) {
            hvxSetThreadCount(threads);
            Part part = before;
            Smooth(part);
            EXPECT_EQ(CornerValues(part), expected);
            EXPECT_EQ(part.positions.size(), distinct.size());
        }
    }
}

TEST_F(Surface, AngleOfZeroEverywhereReleasesNormalsAndChangesNothingElse)
{
    std::mt19937 random(6);
    const Part   before = Patchwork({AddShader(0), AddShader(0)}, true, random);
    Part         part   = before;
    Smooth(part);
    EXPECT_TRUE(part.normals.empty());
    EXPECT_EQ(part.positions, before.positions) << "vertices without a face stay as well";
    part.normals = before.normals;
    EXPECT_EQ(CornerValues(part), CornerValues(before));
}

// Arrays that end early stay with the vertices that they reach. Faces whose vertices do not exist go, with one error.
TEST_F(Surface, ShortArraysAndBadIndicesHarmNoOtherFace)
{
    const std::uint32_t shader = AddShader(100);
    Part                part   = Cube(shader, true);
    const Part          before = part;
    part.uvs[0].values.assign(5, {0.25f, 0.75f});
    part.normals.assign(3, {0, 0, 127});
    part.tangents.assign(20, {127, 0, 0});
    part.triangles.insert(part.triangles.begin(), {{0, 1, 4711, shader}, {kNone, kNone, 2, shader}});
    EXPECT_EQ(Prepare(part),
              "error :( \tobject - different size of per vertex data array\n"
              "error :( \tpart - smoothing out of range\n");
    EXPECT_EQ(part.triangles.size(), 12u);
    EXPECT_EQ(part.normals.size(), part.positions.size());
    for (std::size_t i = 0; i < part.positions.size(); ++i) {
        const auto source = std::find(before.positions.begin(), before.positions.end(), part.positions[i]);
        if (source - before.positions.begin() >= 5) continue;
        EXPECT_EQ(part.uvs[0].values.at(i), (Vector2{0.25f, 0.75f}));
    }
}

// ---- Patches ----

Vector Unit(float x, float y, float z) { return Normalized({x, y, z}); }

TEST(Patch, CurveRunsBetweenItsEndsAtRightAnglesToTheirNormals)
{
    const Vector p0{1, 0.5f, -0.25f}, p1{-0.5f, 0.25f, 1}, n0 = Unit(1, 2, 3), n1 = Unit(-1, 1, 2);
    const auto   slope = [&](float s, Vector end) {
        constexpr float kStep = 1.0f / 64;
        return Normalized(SideVertexCurve(s + kStep, p0, n0, p1, end).point -
                            SideVertexCurve(s - kStep, p0, n0, p1, end).point);
    };
    for (const auto& [s, point, normal] : {std::tuple{1.0f, p0, n0}, std::tuple{0.0f, p1, n1}}) {
        const CurvePoint end = SideVertexCurve(s, p0, n0, p1, n1);
        EXPECT_LT(Length(end.point - point), 2e-5f) << s;
        EXPECT_LT(Length(end.normal - normal), 2e-5f) << s;
        EXPECT_NEAR(Dot(slope(s, n1), normal), 0.0f, 3e-3f) << s;
    }
    for (const float s : {0.1f, 0.3f, 0.5f, 0.8f})  // of equal end normals the slope is known all the way
        EXPECT_NEAR(Dot(slope(s, n0), SideVertexCurve(s, p0, n0, p1, n0).normal), 0.0f, 3e-3f) << s;
}

// The point's numbers come from the equations in 64 bits, worked out apart from this code.
TEST(Patch, PointInsideBlendsTheThreeSidesAndEightAreAsOne)
{
    const Vector p[3] = {{0, 0, 0}, {4, 0, 1}, {1, 3, 0}}, n[3] = {Unit(-1, -1, 2), Unit(2, -1, 2), Unit(0, 1, 1)};
    EXPECT_LT(Length(SideVertexPatch(0.5f, 0.3f, 0.2f, p, n) - Vector{1.35920798f, 0.48750973f, 0.86459003f}), 2e-5f);
    EightWeights weights;
    for (unsigned i = 0; i < 8; ++i) {
        const auto b = GridWeights(4 + i % 4, i / 2, 7);  // inside, on sides and on a corner
        for (int corner = 0; corner < 3; ++corner) weights.b[corner][i] = b[corner];
    }
    const EightPoints points = SideVertexPatch8(weights, p, n);
    for (int i = 0; i < 8; ++i)
        EXPECT_EQ(points[i], SideVertexPatch(weights.b[0][i], weights.b[1][i], weights.b[2][i], p, n)) << i;
}

// Curves with right ends and slopes miss an arc by the fourth power of its angle.
TEST(Patch, SphereIsMetToTheFourthOrder)
{
    const auto error = [](float h) {
        const Vector p[3]  = {Unit(0.1f + h, 0.2f, 1), Unit(0.1f - 0.5f * h, 0.2f + 0.8f * h, 1),
                              Unit(0.1f - 0.4f * h, 0.2f - 0.9f * h, 1)};
        float        worst = 0.0f;
        for (std::uint32_t row = 0; row <= 9; ++row)
            for (std::uint32_t column = 0; column <= row; ++column) {
                const auto [b1, b2, b3] = GridWeights(row, column, 9);
                worst                   = std::max(worst, std::fabs(Length(SideVertexPatch(b1, b2, b3, p, p)) - 1.0f));
            }
        return worst;
    };
    const float coarse = error(0.6f), middle = error(0.3f), fine = error(0.15f);
    EXPECT_LT(coarse, 0.01f);
    EXPECT_GT(coarse / middle, 10.0f);
    EXPECT_GT(middle / fine, 10.0f);
}

// Rounded down to steps, so that an edge has the same weights in each place of a triangle and from either side.
TEST(Patch, WeightsAreTheSameFromBothSidesOfAnEdge)
{
    for (const std::uint32_t size : {1u, 2u, 7u, 42u, 100u})
        for (std::uint32_t i = 0; i <= size; ++i) {
            const auto [b1, b2, b3] = GridWeights(i, 0, size);
            EXPECT_EQ(GridWeights(size - i, 0, size), (std::array{b2, b1, 0.0f}));
            EXPECT_EQ(GridWeights(i, i, size), (std::array{b1, 0.0f, b2}));
            EXPECT_EQ(GridWeights(size, i, size), (std::array{0.0f, b1, b2}));
            for (const float weight : {b1, b2}) EXPECT_EQ(std::round(weight * 22403.0f) / 22403.0f, weight);
            EXPECT_EQ(b3, 0.0f);
            EXPECT_NEAR(b1 + b2, 1.0f - 0.5f * kWeightStep, 0.51f * kWeightStep);
        }
}

// ---- Displacement ----

// On a square that looks up the tangent is x and the bitangent y.
TEST_F(Surface, OffsetFollowsTheFrameOrTheDirection)
{
    const int none = -1, grey = AddPicture({{0.5f, 0.5f, 0.5f}}), mixed = AddPicture({{1, 0, 0.75f}});
    const struct {
        int    picture;
        Vector vector, direction, offset;
        bool   flip;
    } rows[] = {{none, {0, 0, 0.5f}, {}, {0, 0, 0.5f}, false},      {none, {0, 0, 0.5f}, {}, {0, 0, -0.5f}, true},
                {none, {1, 2, 4}, {}, {1, -2, 4}, false},           {none, {1, 2, 4}, {0, 1, 0}, {0, 2, 0}, false},
                {none, {1, 2, 4}, {-1, 0, 0.5f}, {-1, 0, 2}, true}, {grey, {1, 2, 4}, {}, {0, 0, 0}, false},
                {mixed, {1, 2, 4}, {}, {0.5f, 1, 1}, false},        {mixed, {1, 2, 4}, {0, 1, 1}, {0, -1, 1}, false}};
    for (const auto& row : rows)
        for (const int level : {1, 5}) {
            const std::uint32_t shader                = AddShader(-1);
            Shaders[shader].geometry_shader.flip_face = row.flip;
            ShaderElement& entry                      = AddEntry(shader, level, row.vector);
            entry.direction                           = row.direction;
            entry.image_index                         = row.picture;
            Part part;
            AddSquare(part, shader);
            for (int run = 0; run < 2; ++run) EXPECT_EQ(Prepare(part), "") << "the second changes nothing";
            ASSERT_EQ(part.triangles.size(), 2u * static_cast<unsigned>(level * level));
            const auto snap = [level](float x) {
                const auto count = static_cast<float>(level);
                return std::clamp(std::round(x * count), 0.0f, count) / count;
            };
            float area = 0.0f;
            for (const Triangle& t : part.triangles) {
                const Vector p[3] = {part.positions[t.i0], part.positions[t.i1], part.positions[t.i2]};
                for (const Vector& corner : p) {
                    const Vector from = corner - row.offset;
                    const Vector cell = {snap(from.x), snap(from.y), 0};
                    EXPECT_LT(Length(from - cell), 3 * kWeightStep) << "on the grid";
                }
                area += 0.5f * Cross(p[1] - p[0], p[2] - p[0]).z;
            }
            EXPECT_NEAR(area, row.flip ? -1.0f : 1.0f, 1e-5f);
        }
}

// A picture whose red and blue grow along u and green along v; no coordinate lies between its last texel and its first.
TEST_F(Surface, PictureMovesEachPointByItsTexelAndTheDataComeAlong)
{
    FIBITMAP* bitmap = FreeImage_AllocateT(FIT_RGBAF, 10, 10, 128);
    for (int y = 0; y < 10; ++y)
        for (int x = 0; x < 10; ++x)
            reinterpret_cast<FIRGBAF*>(FreeImage_GetScanLine(bitmap, y))[x] = {
                0.1f * static_cast<float>(x), 0.1f * static_cast<float>(y), 0.1f * static_cast<float>(x), 1};
    const std::vector<std::uint8_t> bytes = SavedBytes(bitmap, FIF_EXR, EXR_NONE | EXR_FLOAT);
    const std::string file = Write("slope.exr", {reinterpret_cast<const char*>(bytes.data()), bytes.size()});

    TestScene scene;
    ImageSearchPaths = {""};
    const int shader = scene.AddShader(Element::Lambertian, kWhite);
    hvSetShaderSmoothAngle(shader, 60);
    ASSERT_EQ(hvAddDisplacementShader(shader), 0);
    hvSetDisplacementImage(shader, 0, file.c_str(), 1, nullptr, nullptr);
    hvSetDisplacementVector(shader, 0, 0, 2, 4);
    hvSetDisplacementLevel(shader, 0, 13);
    Part& source = Objects[0].parts.emplace_back();
    AddSquare(source, static_cast<std::uint32_t>(shader), 0, 9, 0.9f);
    source.vectors.push_back({"data", {}});
    for (const Vector& p : source.positions) {
        source.scalars[0].values.push_back(p.x - 2 * p.y);
        source.vectors[0].values.push_back({p.y, 0, -p.x});
    }
    hvInitialize();

    const Part& part = Objects[0].parts[0];
    ASSERT_EQ(part.triangles.size(), 2u * 13 * 13);
    ASSERT_EQ(part.uvs[0].values.size(), part.positions.size());
    ASSERT_EQ(part.scalars[0].values.size(), part.positions.size());
    ASSERT_EQ(part.vectors[0].values.size(), part.positions.size());
    constexpr float kSlack = 2 * kWeightStep * 9 * 3;  // mixed values fall short by up to two steps of the weights
    float           right  = 0.0f;
    for (std::size_t i = 0; i < part.positions.size(); ++i) {
        const auto [u, v] = part.uvs[0].values[i];
        EXPECT_LT(Length(part.positions[i] - Vector{10 * u, 10 * v - 2 * (v - 0.5f), 4 * (u - 0.5f)}), kSlack);
        EXPECT_NEAR(part.scalars[0].values[i], 10 * u - 20 * v, kSlack);
        EXPECT_LT(Length(part.vectors[0].values[i] - Vector{10 * v, 0, -10 * u}), kSlack);
        // The surface rises by 4 over 10 metres: smoothed after it was displaced, it looks along (-4, 0, 10).
        EXPECT_LT(Length(UnpackDirection(part.normals[i]) - Unit(-4, 0, 10)), 0.02f);
        right = std::max(right, u);
    }
    EXPECT_NEAR(right, 0.9f, 1e-4f);
}

// Eight lanes and portions of points give the grid of one triangle, bit by bit.
TEST_F(Surface, DisplacedTriangleIsItsGrid)
{
    for (const int level : {1, 2, 13, 100}) {
        const std::uint32_t shader = AddShader(-1);
        AddEntry(shader, level, {0, 0, 0});
        Part part;
        part.positions = {{0, 0, 0}, {2, 0, 1}, {0, 3, 0}};
        part.normals   = {PackDirection(Unit(1, 0, 2)), PackDirection(Unit(0, -1, 1)), PackDirection(Unit(-1, 1, 3))};
        part.tangents.assign(3, PackDirection({1, 0, 0}));
        part.triangles = {{0, 1, 2, shader}};
        Vector normals[3];
        for (int c = 0; c < 3; ++c) normals[c] = UnpackDirection(part.normals[static_cast<std::size_t>(c)]);
        const Vector corners[3] = {part.positions[0], part.positions[1], part.positions[2]};
        TriangleGrid grid;
        TessellateTriangle(corners, normals, level, grid);

        Displace(part);
        ASSERT_EQ(part.triangles.size(), grid.triangles.size());
        ASSERT_EQ(part.positions.size(), 3 + grid.points.size());
        for (std::size_t k = 0; k < grid.triangles.size(); ++k)
            EXPECT_EQ(grid.triangles[k],
                      (std::array{part.triangles[k].i0 - 3, part.triangles[k].i1 - 3, part.triangles[k].i2 - 3}));
        EXPECT_TRUE(std::equal(grid.points.begin(), grid.points.end(), part.positions.begin() + 3));
    }
}

TEST_F(Surface, EachShaderRefinesItsOwnFacesAsOftenAsItHasEntries)
{
    // Faces without normals stay as they are; all are cut into triangles.
    const std::uint32_t plain = AddShader(-1), once = AddShader(-1), twice = AddShader(-1), gone = AddShader(-1),
                        facets = AddShader(0);
    AddEntry(once, 3, {0, 0, 1});
    AddEntry(twice, 2, {0, 0, 1});
    AddEntry(twice, 5, {0, 0, 2}).image_index = AddPicture({{0.5f, 0.5f, 1}, kBlack, kBlack});
    AddEntry(gone, 0, {0, 0, 1});
    AddEntry(facets, 4, {0, 0, 1});
    Part part;
    for (const std::uint32_t shader : {plain, once, twice, gone, facets})
        AddSquare(part, shader, 2.0f * static_cast<float>(shader - plain));
    part.uvs[0].values.clear();  // the picture is read at (0, 0)
    Prepare(part);
    EXPECT_TRUE(part.tetragons.empty());
    std::map<std::uint32_t, unsigned> counts;
    for (const Triangle& t : part.triangles) {
        const float  height = t.shader == once ? 1.0f : t.shader == twice ? 2.0f : 0.0f;
        const Vector p[3]   = {part.positions[t.i0], part.positions[t.i1], part.positions[t.i2]};
        for (const Vector& corner : p) EXPECT_NEAR(corner.z, height, 1e-6f);
        ++counts[t.shader];
        EXPECT_TRUE(t.shader != plain || p[0] + p[2] == (Vector{1, 1, 0})) << "cut from the first corner to the third";
    }
    const std::map<std::uint32_t, unsigned> expected = {{plain, 2}, {once, 18}, {twice, 200}, {facets, 2}};
    EXPECT_EQ(counts, expected);
}

TEST_F(Surface, DisplacementWithoutNormalsOrTangentsWarns)
{
    const std::uint32_t shader = AddShader(0);
    for (int entry = 0; entry < 2; ++entry) AddEntry(shader, 4, {0, 0, 1});
    const std::string warning = "warning :( \tpart - missing vertex normals for displacement mapping\n";
    const std::string rule    = std::string(80, '_') + "\n\n";
    Part              bare, framed;
    for (Part* part : {&bare, &framed}) AddSquare(*part, shader);
    framed.normals.assign(4, {0, 0, 127});
    framed.tangents.assign(4, {127, 0, 0});
    EXPECT_EQ(Prepare(bare), warning + warning + rule);
    EXPECT_EQ(Prepare(framed), warning + rule);
    for (const Part* part : {&bare, &framed}) EXPECT_EQ(part->triangles.size(), 2u) << "cut, but not displaced";
}

// Neighbours evaluate a shared edge with the same weights, normals and offsets, so that a closed surface stays closed
// to the bit, over two levels and with a picture, and for any number of threads.
TEST_F(Surface, ClosedSurfacesStayClosedAndThreadsDoNotShow)
{
    const std::uint32_t shader = AddShader(181);
    AddEntry(shader, 6, {0.1f, -0.05f, 0.5f});
    AddEntry(shader, 5, {-0.1f, 0.2f, 0.3f}).image_index = AddPicture({{0.75f, 0.25f, 0.9f}});
    std::vector<Floats> alone;
    for (const int threads : {1, 2, 7}) {
        hvxSetThreadCount(threads);
        Part part = Cube(shader, false);
        EXPECT_EQ(Prepare(part), "");
        ASSERT_EQ(part.triangles.size(), 12u * 36 * 25);
        std::map<std::pair<Floats, Floats>, int> edges;
        double                                   volume = 0.0;
        for (const Triangle& t : part.triangles) {
            const Vector p[3] = {part.positions[t.i0], part.positions[t.i1], part.positions[t.i2]};
            for (int n = 0; n < 3; ++n) {
                const Vector a = p[n], b = p[(n + 1) % 3];
                ++edges[{{a.x, a.y, a.z}, {b.x, b.y, b.z}}];
            }
            volume += static_cast<double>(Dot(p[0], Cross(p[1], p[2]))) / 6;
        }
        const auto open = [&edges](const auto& edge) {
            return edge.second != 1 || !edges.contains({edge.first.second, edge.first.first});
        };
        EXPECT_EQ(edges.size(), 3u * 12 * 36 * 25);
        EXPECT_EQ(std::count_if(edges.begin(), edges.end(), open), 0);
        EXPECT_GT(volume, 8.0) << "displaced outwards";
        std::vector<Floats> triangles = CornerValues(part);
        for (std::size_t i = 0; i + 2 < triangles.size(); i += 3)  // each first row takes in its triangle
            for (const std::size_t from : {i + 1, i + 2})
                triangles[i].insert(triangles[i].end(), triangles[from].begin(), triangles[from].end());
        std::sort(triangles.begin(), triangles.end());
        if (threads == 1) alone = triangles;
        EXPECT_TRUE(triangles == alone);
    }
}

// A sampler that reads its picture at random draws the same numbers for each vertex, whatever was drawn before.
TEST_F(Surface, SeededPicturesReadAtRandomMoveVerticesAlike)
{
    const TestScene     scene;  // fixes the random numbers
    const std::uint32_t shader = AddShader(-1);
    ShaderElement&      entry  = AddEntry(shader, 40, {0, 0, 1});
    entry.image_index          = AddPicture({kBlack, kWhite, kBlack, {0.5f, 0.5f, 0.5f}});
    entry.sampler              = 1;
    std::vector<Floats> alone;
    for (const int threads : {1, 2, 7}) {
        hvxSetThreadCount(threads);
        Part part;
        AddSquare(part, shader);
        Prepare(part);
        if (threads == 1) alone = CornerValues(part);
        EXPECT_TRUE(CornerValues(part) == alone) << threads;
    }
}

TEST_F(Surface, SeededRendersOfDisplacedSurfacesAreEqualForAnyNumberOfThreads)
{
    const auto picture = [](int threads, float height) {
        hvxSetThreadCount(threads);
        TestScene scene(2, 24, 24);
        const int shader = scene.AddShader(Element::Lambertian, {0.8f, 0.5f, 0.2f});
        hvSetShaderSmoothAngle(shader, 100);
        hvAddDisplacementShader(shader);
        hvSetDisplacementVector(shader, 0, 0, 0, height);
        hvSetDisplacementLevel(shader, 0, 6);
        scene.AddBox(shader, {-1, -1, -1}, {1, 1, 1});
        scene.LookFrom({3, -5, 4}, {0, 0, 0}, 40);
        return scene.Render();
    };
    const std::vector<Color> alone = picture(1, 0.2f);
    EXPECT_EQ(picture(2, 0.2f), alone);
    EXPECT_EQ(picture(7, 0.2f), alone);
    EXPECT_NE(picture(1, 0.0f), alone);
}

}  // namespace
}  // namespace hv
