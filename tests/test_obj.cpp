#include "scene/obj_import.h"

#include "geometry/weld.h"
#include "scene_files.h"

#include <algorithm>
#include <map>
#include <random>
#include <tuple>

namespace hv {
namespace {

struct Obj : testing::Test {
    Obj() { ClearScene(); }
    ~Obj() override { ClearScene(); }

    Part Read(std::string_view text) { return ReadFile(folder.Write("model.obj", text)); }

    Part ReadFile(const std::string& path)
    {
        Part part;
        testing::internal::CaptureStdout();
        ReadObjFile(part, path);
        output = testing::internal::GetCapturedStdout();
        return part;
    }

    TempFolder  folder;
    std::string output;
};

constexpr const char* kCorners = "v 0 0 0\nv 1 0 0\nv 1 1 0\nv 0 1 0\n";
constexpr const char* kPolygonWarning =
    "warning :( \tobject - please triangulate/quadrangulate the input model(s)\n"
    "________________________________________________________________________________\n\n";
constexpr const char* kDegenerateWarning =
    "warning :( \tobject - there are degenerated quadrangles\n"
    "________________________________________________________________________________\n\n";
constexpr const char* kRangeError = "error :( \tobject - faces with vertices that do not exist are left out\n";

TEST_F(Obj, FacesBecomeTrianglesAndTetragons)
{
    const std::string corners = kCorners;
    const struct {
        const char* name;
        std::string text;
        std::size_t triangles, tetragons, vertices;
        const char* output = "";
    } rows[] = {
        {"triangle", corners + "f 1 2 3\n", 1, 0, 3},
        {"no line feed at the end", corners + "f 1 2 3", 1, 0, 3},
        {"all forms of a corner", corners + "f 1 2/1 3/1/1\nf 1//1 3/ 4//\n", 2, 0, 4},
        {"more than three numbers", corners + "f 1/1/1/1 2/2/2/2/2 3\n", 1, 0, 3},
        {"blanks and tabs", "  " + corners + "\tf\t1 \t 2  3  \t\n", 1, 0, 3},
        {"rectangle stays whole", corners + "f 1 2 3 4\n", 0, 1, 4},
        {"rectangle from behind", corners + "f 4 3 2 1\n", 0, 1, 4},
        {"trapezoid is split", "v 0 0 0\nv 2 0 0\nv 1 1 0\nv 0 1 0\nf 1 2 3 4\n", 2, 0, 4},
        {"rhombus is split", "v 0 0 0\nv 1 0 0\nv 1.6 0.8 0\nv .6 .8 0\nf 1 2 3 4\n", 2, 0, 4},
        {"twisted quadrangle is split", "v 0 0 0\nv 1 0 0\nv 1 1 0.01\nv 0 1 0\nf 1 2 3 4\n", 2, 0, 4},
        {"bow tie is split", corners + "f 1 3 2 4\n", 2, 0, 4},
        {"tiny square", "v 0 0 0\nv 1e-3 0 0\nv 1e-3 1e-3 0\nv 0 1e-3 0\nf 1 2 3 4\n", 0, 1, 4},
        {"negative numbers", corners + "f -4 -3 -2\nv 5 5 5\nf -4 -3 -2\n", 2, 0, 4},
        {"corners that come later cannot be tested", "f 1 2 3 4\n" + corners, 2, 0, 4},
        {"fewer than three corners", corners + "f 1 2\nf 1\nf \nf\n", 0, 0, 0},
        {"five corners, told once", corners + "f 1 2 3 4 1\nf 1 2 3 4 1 2\nf 1 2 3\n", 1, 0, 3, kPolygonWarning},
        {"eight corners at most", corners + "f 1 2 3 4 1 2 3 4 1 2 3\n", 0, 0, 0, kPolygonWarning},
        {"degenerate, told once", corners + "f 1 2 2 3\nf 1 2 3 1\nf 1 1 2 3\n", 3, 0, 3, kDegenerateWarning},
        {"two distinct corners", corners + "f 1 2 1 2\nf 1 1 1 1\n", 0, 0, 0, kDegenerateWarning},
        {"same place under two numbers", corners + "v 0 0 0\nf 1 5 2\nf 1 5 2 3\n", 1, 0, 3},
        {"bad numbers, told once", corners + "f 1 2 9\nf 0 1 2\nf -9 1 2\nf a b c\nf 1 2 99999999999\nf 1 2 3\n", 1, 0,
         3, kRangeError},
        {"bad numbers in a quadrangle", corners + "f 1 2 3 9\n", 1, 0, 3, kRangeError},
        {"other keywords",
         "mtllib a.mtl\no x\ng y\n# v 9 9 9\nvp 1 2\nvertex 1\nfoo 1 2 3\nv1 2 3\n" + corners + "f 1 2 3\n", 1, 0, 3},
        {"carriage returns", "v 0 0 0\r\nv 1 0 0\r\nv 1 1 0\r\nv 0 1 0\r\nf 1 2 3 4\r\n", 0, 1, 4},
        {"a zero byte ends the line", corners + std::string("f 1 2 3\0 4\n", 11), 1, 0, 3},
        {"negative zero is another place", "v 0 0 0\nv 1 0 0\nv 0 1 0\nv -0 0 0\nf 1 2 3\nf 4 2 3\n", 2, 0, 4},
        {"equal positions weld", corners + corners + "f 1 2 3\nf 5 7 8\n", 2, 0, 4},
        {"uvs keep vertices apart", corners + "vt 0 0\nvt 1 0\nf 1/1 2/1 3/1\nf 1/2 3/1 4/1\nf 1/2 3/1 2/9\n", 3, 0, 5},
        {"empty", "", 0, 0, 0},
    };
    for (const auto& row : rows) {
        const Part part = Read(row.text);
        EXPECT_EQ(part.triangles.size(), row.triangles) << row.name;
        EXPECT_EQ(part.tetragons.size(), row.tetragons) << row.name;
        EXPECT_EQ(part.positions.size(), row.vertices) << row.name;
        EXPECT_EQ(part.uvs[0].values.size(), row.vertices) << row.name;
        EXPECT_EQ(output, row.output) << row.name;
    }
}

TEST_F(Obj, NumbersOfAPosition)
{
    const struct {
        const char* line;
        Vector      position;
    } rows[] = {{"v 1 2 3 4 5 6", {1, 2, 3}}, {"v 1e1 -.5 +2.", {10, -0.5f, 2}},
                {"v 1", {1, 0, 0}},           {"v 1 abc 3", {1, 0, 3}},
                {"v 1.5x 2 3", {1.5f, 2, 3}}, {"v nan inf 0x7", {0, 0, 0}},
                {"v\t1\t2\t3", {1, 2, 3}},    {"v 1 2 3\r", {1, 2, 3}},
                {"v 1,5 2 3", {1, 2, 3}},     {"v 0.1 16777217 1e-46", {0.1f, 16777216, 0}}};
    for (const auto& row : rows) {
        StagedMesh staged;
        ReadObjFile(staged, folder.Write("v.obj", row.line));
        ASSERT_EQ(staged.positions.size(), 1u) << row.line;
        EXPECT_EQ(staged.positions[0], row.position) << row.line;
    }
}

// The limit of a line is that of its reader: the rest is read as a line of its own.
TEST_F(Obj, OverlongLinesComeInPieces)
{
    const std::string face = "f 1 2 3";
    const std::string filler(4095 - face.size(), ' ');
    EXPECT_EQ(Read(kCorners + face + filler + "\n").triangles.size(), 1u);
    EXPECT_EQ(Read(kCorners + face + filler + " 4\n").triangles.size(), 1u) << "the fourth corner is cut off";
    EXPECT_EQ(Read(kCorners + face + filler + "f 1 3 4\n").triangles.size(), 2u);
    EXPECT_EQ(Read(kCorners + face + filler + face + filler + "f 1 3 4").triangles.size(), 3u);
    EXPECT_EQ(Read("#" + std::string(4093, ' ') + kCorners).positions.size(), 0u);
}

TEST_F(Obj, NumberingOfASecondFileFollowsTheFirst)
{
    StagedMesh        staged;
    const std::string path =
        folder.Write("a.obj", std::string(kCorners) + "vt 0 0\nvn 0 0 1\nf 1/1/1 2/1/1 -1/-1/-1\n");
    ReadObjFile(staged, path);
    ReadObjFile(staged, path);
    ASSERT_EQ(staged.triangles.size(), 2u);
    const StagedCorner* corners = staged.triangles[1].corners;
    EXPECT_EQ(corners[0].position, 4u);
    EXPECT_EQ(corners[2].position, 7u);
    EXPECT_EQ(corners[1].uv, 1u);
    EXPECT_EQ(corners[2].normal, 1u);
    EXPECT_EQ(corners[2].tangent, kNone);
}

TEST_F(Obj, NormalsFollowTheSmoothingSwitchAndTheSideOfTheFace)
{
    const PackedDirection up{0, 0, 127}, side{127, 0, 0};
    const std::string     head = std::string(kCorners) + "vn 1 0 0.001\nvn 1 0 -0.001\nvn 0 0 -5\n";
    const struct {
        const char*     lines;
        PackedDirection first;
    } rows[] = {
        {"f 1//1 2//1 3//1\n", side},
        {"s off\nf 1//1 2//1 3//1\n", up},         // the face's own direction
        {"s off\ns 0\nf 1//1 2//1 3//1\n", side},  // anything but "off" switches on
        {"s  off # x\nf 1//1 2//1 3//1\n", up},
        {"s off\ns\nf 1//1 2//1 3//1\n", up},  // a keyword without a blank is none
        {"f 1 2 3\n", up},
        {"f 1//9 2//1 3//1\n", up},
        {"f 1//3 2//3 3//3\n", up},    // all lean over the back: turned round
        {"f 1//2 2//2 3//1\n", side},  // one does not
    };
    for (const auto& row : rows) {
        const Part part = Read(head + row.lines);
        ASSERT_EQ(part.normals.size(), 3u) << row.lines;
        EXPECT_EQ(part.normals[0], row.first) << row.lines;
        EXPECT_TRUE(part.tangents.empty());
    }
    EXPECT_TRUE(Read(std::string(kCorners) + "f 1//1 2//1 3//1\n").normals.empty());
}

TEST_F(Obj, MaterialsNameShaders)
{
    Shaders.resize(1);
    const Part                 part = Read(std::string(kCorners) +
                                           "f 1 2 3\nusemtl red  paint\nf 1 2 3\n usemtl no\nf 1 2 3\nusemtl\nusemtl \t\nusemtlx y\n"
                                                           "usemtl blue\r\nf 1 2 3\nf 1 2 3 4\nusemtl red\nf 1 2 3\n");
    std::vector<std::uint32_t> shaders;
    for (const Triangle& triangle : part.triangles) shaders.push_back(triangle.shader);
    EXPECT_EQ(shaders, (std::vector<std::uint32_t>{0, 1, 1, 2, 1}));
    EXPECT_EQ(part.tetragons.at(0).shader, 2u);
    ASSERT_EQ(Shaders.size(), 3u);
    EXPECT_EQ(Shaders[1].name, "red");
    EXPECT_EQ(Shaders[2].name, "blue");
}

TEST_F(Obj, WhatCannotBeOpenedPrintsAnError)
{
    for (const std::string& path :
         {folder.Path() + "/missing.obj", folder.Path(), std::string(), std::string("/dev/zero")}) {
        const Part part = ReadFile(path);
        EXPECT_TRUE(part.triangles.empty());
        EXPECT_EQ(output, "error :( \tobject - cannot open " + path + "\n" + std::string(80, '_') + "\n\n");
    }
}

// Whatever a file holds, reading it ends, and no primitive names a vertex that is not there.
TEST_F(Obj, MalformedFilesEndCleanly)
{
    constexpr std::string_view letters = "vtnfs usemtl/-0123456789.eE+ \t\r\n#off \nf \nf -1/ 1\nv 1";
    std::mt19937               random(5);
    for (int file = 0; file < 500; ++file) {
        std::string text = kCorners;
        for (int i = 0; i < 400; ++i) text += i % 100 == 99 ? '\0' : letters[random() % letters.size()];
        const Part part = Read(text);
        for (const Triangle& t : part.triangles) EXPECT_LT(std::max({t.i0, t.i1, t.i2}), part.positions.size());
        for (const Tetragon& t : part.tetragons) EXPECT_LT(std::max({t.i0, t.i1, t.i2, t.i3}), part.positions.size());
        EXPECT_EQ(part.uvs[0].values.size(), part.positions.size());
        EXPECT_TRUE(part.normals.empty() || part.normals.size() == part.positions.size());
    }
}

// Welding loses nothing and joins all that is equal: every corner finds its values again, and no two vertices are alike.
TEST(Flatten, WeldsExactlyWhatIsEqual)
{
    std::mt19937 random(11);
    const auto   pick = [&](std::size_t count) { return static_cast<std::uint32_t>(random() % count); };
    StagedMesh   staged;
    for (int i = 0; i < 300; ++i)
        staged.positions.push_back(
            {static_cast<float>(pick(6)), static_cast<float>(pick(6)), static_cast<float>(pick(6))});
    for (std::uint32_t i = 0; i < 5; ++i) staged.uvs.push_back({static_cast<float>(i / 2), 0});
    for (int i = 0; i < 3000; ++i) {
        StagedTriangle triangle;
        for (StagedCorner& corner : triangle.corners) corner = {pick(300), pick(6), kNone, kNone};
        triangle.shader = static_cast<std::uint32_t>(i);
        staged.triangles.push_back(triangle);
    }
    const StagedMesh given = staged;
    Part             part;
    part.positions.resize(2);  // vertices that came by another road stay as they are
    FlattenStagedMesh(staged, part);
    EXPECT_TRUE(staged.positions.empty() && staged.triangles.empty());

    using Values = std::tuple<float, float, float, float, float>;
    std::map<Values, int> seen;
    for (std::size_t i = 2; i < part.positions.size(); ++i) {
        const Vector  p  = part.positions[i];
        const Vector2 uv = part.uvs[0].values[i];
        EXPECT_EQ(seen[Values(p.x, p.y, p.z, uv.u, uv.v)]++, 0);
    }
    EXPECT_EQ(part.uvs[0].values.size(), part.positions.size());
    for (const Triangle& triangle : part.triangles) {
        const StagedTriangle& from       = given.triangles[triangle.shader];
        const std::uint32_t   vertices[] = {triangle.i0, triangle.i1, triangle.i2};
        for (int k = 0; k < 3; ++k) {
            const StagedCorner& corner = from.corners[k];
            EXPECT_GE(vertices[k], 2u);
            EXPECT_EQ(part.positions[vertices[k]], given.positions[corner.position]);
            EXPECT_EQ(part.uvs[0].values[vertices[k]], corner.uv < 5 ? given.uvs[corner.uv] : Vector2{});
        }
    }
    const auto has_twins = [&](const StagedTriangle& t) {
        const Vector a = given.positions[t.corners[0].position], b = given.positions[t.corners[1].position],
                     c = given.positions[t.corners[2].position];
        return a == b || b == c || a == c;
    };
    const auto dropped = std::count_if(given.triangles.begin(), given.triangles.end(), has_twins);
    EXPECT_EQ(part.triangles.size(), 3000u - static_cast<std::size_t>(dropped));

    // A second mesh for the same part meets the vertices of the first.
    StagedMesh        again = given;
    const std::size_t count = part.positions.size();
    FlattenStagedMesh(again, part);
    EXPECT_EQ(part.positions.size(), count);
}

// Positions on a grid share the low bits of all their coordinates, and a fan has all its seams at one position. Chains
// that grow with the mesh would make these take minutes.
TEST(Flatten, GridsAndFansStayFast)
{
    StagedMesh          grid;
    const std::uint32_t size = 512;
    for (std::uint32_t i = 0; i < size * size; ++i)
        grid.positions.push_back({static_cast<float>(i % size), static_cast<float>(i / size), 0});
    for (std::uint32_t i = 0; i + size + 1 < size * size; ++i)
        grid.triangles.push_back(
            {{{i, kNone, kNone, kNone}, {i + 1, kNone, kNone, kNone}, {i + size, kNone, kNone, kNone}}, 0});
    Part part;
    FlattenStagedMesh(grid, part);
    EXPECT_EQ(part.positions.size(), size * size - 1u);

    StagedMesh          fan;
    const std::uint32_t blades = 200000;
    fan.positions              = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}};
    for (std::uint32_t i = 0; i < blades; ++i) {
        fan.uvs.push_back({static_cast<float>(i), 0});
        fan.triangles.push_back({{{0, i, kNone, kNone}, {1, 0, kNone, kNone}, {2, 0, kNone, kNone}}, 0});
    }
    Part apex;
    FlattenStagedMesh(fan, apex);
    EXPECT_EQ(apex.positions.size(), blades + 2u);
}

// Counts of faces taken from the files by other tools; triangles are theirs, plus two for each quadrangle that is not
// flat and square, less those with two corners at one place.
TEST_F(Obj, FilesOfManyExportersComeInWhole)
{
    const char* const data = std::getenv("HV_TEST_DATA");
    if (data == nullptr) GTEST_SKIP() << "HV_TEST_DATA does not name the folder of test models";
    const struct {
        const char* name;
        std::size_t triangles, quads, flat_and_square, dropped;
        bool        has_polygons;
        std::size_t shaders;
    } rows[] = {
        {"CornellBox-Glossy", 1112, 0, 0, 0, false, 8},
        {"CornellBox-Original", 0, 18, 13, 0, false, 8},
        {"CornellBox-Sphere", 2188, 0, 0, 0, false, 8},
        {"CornellBox-Water", 7088, 0, 0, 0, false, 9},
        {"catmark_tent_level4", 0, 9216, 171, 0, false, 0},
        {"chair_model", 12756, 0, 0, 0, false, 3},
        {"cornell_box_tinyobj", 0, 18, 11, 0, false, 5},
        {"cornellbox_suzanne", 968, 6, 6, 0, false, 1},
        {"cow_viewpoint1992", 734, 2519, 0, 0, true, 0},
        {"cylinder_maya_ngon", 0, 200, 200, 0, true, 1},
        {"fuze", 1000, 0, 0, 0, false, 1},
        {"groups", 2308, 0, 0, 0, false, 0},
        {"horse_quad", 0, 2398, 0, 0, false, 0},
        {"legocar", 10992, 0, 0, 112, false, 8},
        {"negative_indices", 0, 6, 6, 0, false, 0},
        {"quadknot", 0, 1440, 0, 0, false, 1},
        {"rabbit", 176, 496, 0, 0, true, 1},
        {"rocket", 367, 0, 0, 0, false, 1},
        {"spider_milkshape", 1368, 0, 0, 56, false, 4},
        {"sponza_3dsmax_quads", 2273, 15695, 2264, 0, false, 11},
        {"spot_control_mesh", 4, 160, 0, 0, true, 0},
        {"spot_quadrangulated", 0, 2928, 0, 0, false, 0},
        {"spot_triangulated", 5856, 0, 0, 0, false, 0},
        {"suzanne_uv", 32, 468, 0, 0, false, 1},
        {"sword_quad_dominant", 348, 22117, 0, 0, false, 0},
        {"teapot_3dsmax_crlf_quads", 352, 7676, 0, 0, false, 1},
    };
    for (const auto& row : rows) {
        ClearScene();
        const Part part = ReadFile(std::string(data) + "/models2/" + row.name + ".obj");
        EXPECT_EQ(part.triangles.size(), row.triangles + 2 * (row.quads - row.flat_and_square) - row.dropped)
            << row.name;
        EXPECT_EQ(part.tetragons.size(), row.flat_and_square) << row.name;
        EXPECT_EQ(output, row.has_polygons ? kPolygonWarning : "") << row.name;
        EXPECT_EQ(Shaders.size(), row.shaders) << row.name;
    }
}

}  // namespace
}  // namespace hv
