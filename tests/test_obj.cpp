#include "scene/obj_import.h"

#include "geometry/weld.h"
#include "scene_files.h"

#include <algorithm>
#include <random>
#include <set>
#include <tuple>

namespace hv {
namespace {

struct Obj : SceneTest {
    Part Read(std::string_view text) { return ReadFile(Write("model.obj", text)); }

    Part ReadFile(const std::string& path)
    {
        Part part;
        testing::internal::CaptureStdout();
        ReadObjFile(part, path);
        output = testing::internal::GetCapturedStdout();
        return part;
    }

    std::string output;
};

const std::string kCorners = "v 0 0 0\nv 1 0 0\nv 1 1 0\nv 0 1 0\n";
const std::string kLine    = std::string(80, '_') + "\n\n";
const std::string kPolygonWarning =
    "warning :( \tobject - please triangulate/quadrangulate the input model(s)\n" + kLine;
const std::string kDegenerateWarning = "warning :( \tobject - there are degenerated quadrangles\n" + kLine;
const std::string kRangeError        = "error :( \tobject - faces with vertices that do not exist are left out\n";

TEST_F(Obj, FacesBecomeTrianglesAndTetragons)
{
    const struct {
        const char* name;
        std::string text;
        std::size_t triangles, tetragons, vertices;
        std::string output = "";
    } rows[] = {
        {"no line feed at the end", kCorners + "f 1 2 3", 1, 0, 3},
        {"all forms of a corner", kCorners + "f 1 2/1 3/1/1\nf 1//1 3/ 4//\n", 2, 0, 4},
        {"blanks and tabs", "  " + kCorners + "\tf\t1 \t 2  3  \t\n", 1, 0, 3},
        {"rectangle stays whole", kCorners + "f 1 2 3 4\n", 0, 1, 4},
        {"bow tie is split", kCorners + "f 1 3 2 4\n", 2, 0, 4},
        {"negative numbers", kCorners + "f -4 -3 -2\nv 5 5 5\nf -4 -3 -2\n", 2, 0, 4},
        {"corners that come later", "f 1 2 3 4\n" + kCorners, 2, 0, 4},
        {"five corners, told once", kCorners + "f 1 2 3 4 1\nf 1 2 3 4 1 2 3 4 1 2 3\nf 1 2\nf \nf 1 2 3\n", 1, 0, 3,
         kPolygonWarning},
        {"degenerate, told once", kCorners + "f 1 2 2 3\nf 1 2 3 1\nf 1 1 2 3\nf 1 2 1 2\n", 3, 0, 3,
         kDegenerateWarning},
        {"bad numbers, told once", kCorners + "f 1 2 9\nf 0 1 2\nf -9 1 2\nf a b c\nf 1 2 99999999999\nf 1 2 3 9\n", 1,
         0, 3, kRangeError},
        {"other keywords",
         "mtllib a.mtl\no x\ng y\n# v 9 9 9\nvp 1 2\nvertex 1\nfoo 1 2 3\nv1 2 3\n" + kCorners + "f 1 2 3\n", 1, 0, 3},
        {"numbers of any kind",
         "v 1 abc 3 4 5\nv nan inf 0x7\nv\t1\t2,5\t3\r\nv 1 0 3\nv 0 0 0\nv 1 2 3\nf 1 2 3\nf 4 5 6\n", 2, 0, 3},
        {"a zero byte ends the line", kCorners + std::string("f 1 2 3\0 4\n", 11), 1, 0, 3},
        {"negative zero is another place", "v 0 0 0\nv 1 0 0\nv 0 1 0\nv -0 0 0\nf 1 2 3\nf 4 2 3\n", 2, 0, 4},
        {"equal positions weld", kCorners + kCorners + "f 1 2 3\nf 5 7 8\n", 2, 0, 4},
        {"uvs keep vertices apart", kCorners + "vt 0 0\nvt 1 0\nf 1/1 2/1 3/1\nf 1/2 3/1 4/1\nf 1/2 3/1 2/9\n", 3, 0,
         5},
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

// The limit of a line is that of its reader: the rest is read as a line of its own.
TEST_F(Obj, OverlongLinesComeInPieces)
{
    const std::string face = "f 1 2 3";
    const std::string filler(4095 - face.size(), ' ');
    EXPECT_EQ(Read(kCorners + face + filler + " 4\n").triangles.size(), 1u) << "the fourth corner is cut off";
    EXPECT_EQ(Read(kCorners + face + filler + face + filler + "f 1 3 4").triangles.size(), 3u);
    EXPECT_EQ(Read("#" + std::string(4093, ' ') + kCorners).positions.size(), 0u);
}

TEST_F(Obj, NumberingOfASecondFileFollowsTheFirst)
{
    StagedMesh        staged;
    const std::string path = Write("a.obj", kCorners + "vt 0 0\nvn 0 0 1\nf 1/1/1 2/1/1 -1/-1/-1\n");
    ReadObjFile(staged, path);
    ReadObjFile(staged, path);
    ASSERT_EQ(staged.triangles.size(), 2u);
    const StagedCorner& first = staged.triangles[1].corners[0];
    EXPECT_EQ(std::tuple(first.position, first.uv, first.normal), std::tuple(4u, 1u, 1u));
    EXPECT_EQ(staged.triangles[1].corners[2].position, 7u);
}

TEST_F(Obj, NormalsFollowTheSmoothingSwitchAndTheSideOfTheFace)
{
    const PackedDirection up{0, 0, 127}, side{127, 0, 0};
    const std::string     head = kCorners + "vn 1 0 0.001\nvn 1 0 -0.001\nvn 0 0 -5\n";
    using Row                  = std::pair<const char*, PackedDirection>;
    for (const auto& [lines, first] :
         {Row("s off\nf 1//1 2//1 3//1\n", up),                          // the face's own direction
          Row("s off\ns 0\nf 1//1 2//1 3//1\n", side),                   // all but "off" switches on
          Row("s off\ns\nf 1//1 2//1 3//1\n", up),                       // a keyword without a blank is none
          Row("f 1//9 2//1 3//1\n", up), Row("f 1//3 2//3 3//3\n", up),  // all lean over the back: turned round
          Row("f 1//2 2//2 3//1\n", side)})
        EXPECT_EQ(Read(head + lines).normals.at(0), first) << lines;
}

TEST_F(Obj, MaterialsNameShaders)
{
    Shaders.resize(1);
    const Part  part = Read(kCorners +
                            "f 1 2 3\nusemtl red  paint\nf 1 2 3\n usemtl no\nf 1 2 3\nusemtl\nusemtl \t\n"
                             "usemtlx y\nusemtl blue\r\nf 1 2 3\nf 1 2 3 4\nusemtl red\nf 1 2 3\n");
    std::string shaders;
    for (const Triangle& triangle : part.triangles) shaders += Shaders.at(triangle.shader).name + ' ';
    EXPECT_EQ(shaders, "undefined red red blue red ");
}

TEST_F(Obj, WhatCannotBeOpenedPrintsAnError)
{
    for (const std::string& path :
         {folder.string() + "/missing.obj", folder.string(), std::string(), std::string("/dev/zero")}) {
        EXPECT_TRUE(ReadFile(path).triangles.empty());
        EXPECT_EQ(output, "error :( \tobject - cannot open " + path + "\n" + kLine);
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

// Welding loses nothing and joins all that is equal: every corner finds its values again, and no two vertices are
// alike.
TEST(Flatten, WeldsExactlyWhatIsEqual)
{
    std::mt19937 random(11);
    const auto   pick = [&](std::size_t count) { return static_cast<std::uint32_t>(random() % count); };
    const auto   step = [&] { return static_cast<float>(pick(6)); };
    StagedMesh   staged;
    for (int i = 0; i < 300; ++i) staged.positions.push_back({step(), step(), step()});
    for (std::uint32_t i = 0; i < 5; ++i) staged.uvs.push_back({static_cast<float>(i / 2), 0});
    for (std::uint32_t i = 0; i < 3000; ++i) {
        StagedTriangle& triangle = staged.triangles.emplace_back();
        for (StagedCorner& corner : triangle.corners) corner = {pick(300), pick(6), kNone, kNone};
        triangle.shader = i;
    }
    const StagedMesh given = staged;
    Part             part;
    part.positions.resize(2);  // vertices that came by another road stay as they are
    FlattenStagedMesh(staged, part);

    std::set<std::tuple<float, float, float, float, float>> seen;
    for (std::size_t i = 2; i < part.positions.size(); ++i) {
        const Vector  p  = part.positions[i];
        const Vector2 uv = part.uvs[0].values[i];
        EXPECT_TRUE(seen.emplace(p.x, p.y, p.z, uv.u, uv.v).second);
    }
    EXPECT_GT(part.triangles.size(), 2500u);  // all but the few with twins
    for (const Triangle& triangle : part.triangles) {
        const std::uint32_t vertices[] = {triangle.i0, triangle.i1, triangle.i2};
        for (int k = 0; k < 3; ++k) {
            const StagedCorner& corner = given.triangles[triangle.shader].corners[k];
            EXPECT_GE(vertices[k], 2u);
            EXPECT_EQ(part.positions[vertices[k]], given.positions[corner.position]);
            EXPECT_EQ(part.uvs[0].values[vertices[k]], corner.uv < 5 ? given.uvs[corner.uv] : Vector2{});
        }
    }

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
    const std::uint32_t size = 512;
    StagedMesh          grid, fan;
    Part                plane, apex;
    const auto at = [](std::uint32_t i, std::uint32_t uv = kNone) { return StagedCorner{i, uv, kNone, kNone}; };
    for (std::uint32_t i = 0; i < size * size; ++i)
        grid.positions.push_back({static_cast<float>(i % size), static_cast<float>(i / size), 0});
    for (std::uint32_t i = 0; i + size + 1 < size * size; ++i)
        grid.triangles.push_back({{at(i), at(i + 1), at(i + size)}, 0});
    FlattenStagedMesh(grid, plane);
    EXPECT_EQ(plane.positions.size(), size * size - 1u);

    fan.positions = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}};
    for (std::uint32_t i = 0; i < 200000; ++i) {
        fan.uvs.push_back({static_cast<float>(i), 0});
        fan.triangles.push_back({{at(0, i), at(1), at(2)}, 0});
    }
    FlattenStagedMesh(fan, apex);
    EXPECT_EQ(apex.positions.size(), 200002u);
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
        {"CornellBox-Original", 0, 18, 13, 0, false, 8}, {"catmark_tent_level4", 0, 9216, 171, 0, false, 0},
        {"cow_viewpoint1992", 734, 2519, 0, 0, true, 0}, {"cylinder_maya_ngon", 0, 200, 200, 0, true, 1},
        {"legocar", 10992, 0, 0, 112, false, 8},         {"negative_indices", 0, 6, 6, 0, false, 0},
        {"spider_milkshape", 1368, 0, 0, 56, false, 4},  {"sponza_3dsmax_quads", 2273, 15695, 2264, 0, false, 11},
        {"suzanne_uv", 32, 468, 0, 0, false, 1},         {"teapot_3dsmax_crlf_quads", 352, 7676, 0, 0, false, 1},
    };
    for (const auto& row : rows) {
        ClearScene();
        const Part part  = ReadFile(std::string(data) + "/models2/" + row.name + ".obj");
        const auto split = row.quads - row.flat_and_square;
        EXPECT_EQ(part.triangles.size(), row.triangles + 2 * split - row.dropped) << row.name;
        EXPECT_EQ(part.tetragons.size(), row.flat_and_square) << row.name;
        EXPECT_EQ(output, row.has_polygons ? kPolygonWarning : "") << row.name;
        EXPECT_EQ(Shaders.size(), row.shaders) << row.name;
    }
}

}  // namespace
}  // namespace hv
