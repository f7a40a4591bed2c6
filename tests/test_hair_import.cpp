// Hair files and fur lists: what good ones hold, what damaged ones say, and that no count is believed.

#include "scene/hair_import.h"

#include "scene_files.h"
#include "scene_fixture.h"
#include "session/console.h"

#include <sys/stat.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <random>

namespace hv {
namespace {

enum : std::uint32_t { kSegments = 1, kPoints = 2, kThickness = 4, kTransparency = 8, kColor = 16, kAll = 31 };

constexpr const char* kMessages[] = {
    "cannot open ",
    "cannot open hair file header ",
    "hair file has wrong signature ",
    "cannot read hair segments ",
    "cannot read hair points ",
    "cannot read hair thickness ",
    "cannot read hair transparency ",
    "cannot read hair color ",
};

template <class T>
void Put(std::string& bytes, T value)
{
    bytes.append(reinterpret_cast<const char*>(&value), sizeof(value));
}

std::string Header(std::uint32_t hairs, std::uint32_t points, std::uint32_t arrays, std::uint32_t segments = 2)
{
    std::string bytes = "HAIR";
    for (const std::uint32_t value : {hairs, points, arrays, segments}) Put(bytes, value);
    for (const float value : {0.5f, 0.25f, 0.1f, 0.2f, 0.3f}) Put(bytes, value);
    bytes.resize(128, 'i');
    return bytes;
}

constexpr std::uint16_t kSizes[]    = {2, 0, 3};  // 3 + 1 + 4 points
constexpr std::uint32_t kPointCount = 8;

/// Three strands with the arrays that `arrays` names; value n of an array is its flag + n / 16.
std::string File(std::uint32_t arrays)
{
    std::string bytes = Header(3, kPointCount, arrays);
    if ((arrays & kSegments) != 0)
        for (const std::uint16_t size : kSizes) Put(bytes, size);
    for (const auto& [flag, width] : {std::pair{kPoints, 3u}, {kThickness, 1u}, {kTransparency, 1u}, {kColor, 3u}})
        for (std::uint32_t n = 0; (arrays & flag) != 0 && n < width * kPointCount; ++n)
            Put(bytes, static_cast<float>(flag) + static_cast<float>(n) / 16.0f);
    return bytes;
}

bool IsEmpty(const Part& part)
{
    return part.positions.empty() && part.cylinders.empty() && part.strandSizes.empty() && part.uvs[0].values.empty() &&
           part.scalars[0].values.empty();
}

struct HairImport : SceneTest {
    Part Read(std::string_view bytes, void (*read)(Part&, const std::string&) = ReadHairFile)
    {
        return ReadPath(Write("a.hair", bytes), read);
    }

    Part ReadPath(const std::string& path, void (*read)(Part&, const std::string&) = ReadHairFile)
    {
        Part part;
        testing::internal::CaptureStdout();
        read(part, path);
        output = testing::internal::GetCapturedStdout();
        return part;
    }

    std::string output;
};

// ---- HAIR files ----

TEST_F(HairImport, EveryCombinationOfArraysComesBack)
{
    for (std::uint32_t arrays = 0; arrays <= kAll; ++arrays) {
        if ((arrays & kPoints) == 0) continue;
        SCOPED_TRACE(arrays);
        const std::string path = Write("a.hair", File(arrays) + "what follows is not read");
        HairContainer     hair;
        ASSERT_EQ(LoadHairContainer(hair, path), 3);
        const auto values = [](std::uint32_t flag, std::size_t n) {
            return static_cast<float>(flag) + static_cast<float>(n) / 16.0f;
        };
        EXPECT_EQ(hair.arrays, arrays);
        EXPECT_EQ(hair.default_transparency, 0.25f);
        EXPECT_EQ(hair.default_color[2], 0.3f);
        EXPECT_EQ(hair.segments.size(), (arrays & kSegments) != 0 ? 3 : 0);
        EXPECT_EQ(hair.transparency.size(), (arrays & kTransparency) != 0 ? kPointCount : 0);
        EXPECT_EQ(hair.color.size(), (arrays & kColor) != 0 ? kPointCount : 0);
        EXPECT_TRUE(hair.transparency.empty() || hair.transparency[7] == values(kTransparency, 7));
        EXPECT_TRUE(hair.color.empty() || hair.color[7][2] == values(kColor, 23));

        const Part part = ReadPath(path);
        EXPECT_EQ(output, "");
        ASSERT_EQ(part.positions.size(), kPointCount);
        ASSERT_EQ(part.scalars[0].values.size(), kPointCount);
        ASSERT_EQ(part.uvs[0].values.size(), kPointCount);
        for (std::size_t i = 0; i < kPointCount; ++i) {
            const Vector point{values(kPoints, 3 * i), values(kPoints, 3 * i + 1), values(kPoints, 3 * i + 2)};
            const float  thickness = (arrays & kThickness) != 0 ? values(kThickness, i) : 0.5f;
            EXPECT_EQ(Length(part.positions[i] - point), Length({}));
            EXPECT_EQ(part.scalars[0].values[i], 0.5f * thickness);
            EXPECT_EQ(part.uvs[0].values[i].u, static_cast<float>(i) / 8.0f);
            EXPECT_EQ(part.uvs[0].values[i].v, static_cast<float>(i + 1) / 8.0f);
        }
        // Without sizes, strands of two segments each: the last one has no more than two points.
        const bool has_sizes = (arrays & kSegments) != 0;
        EXPECT_EQ(part.strandSizes, has_sizes ? (std::vector<std::uint32_t>{2, 0, 3}) : (std::vector{2u, 2u, 1u}));
        EXPECT_EQ(part.cylinders, has_sizes ? (std::vector{0u, 1u, 4u, 5u, 6u}) : (std::vector{0u, 1u, 3u, 4u, 6u}));
    }
}

// A file cut at any byte says which of its arrays is damaged, and leaves nothing behind.
TEST_F(HairImport, CutFilesNameTheArrayThatIsDamaged)
{
    const std::string                 whole    = File(kAll);
    const std::pair<std::size_t, int> ends[]   = {{128, -2}, {134, -4}, {230, -5}, {262, -6}, {294, -7}, {390, -8}};
    std::size_t                       reported = 0;
    ASSERT_EQ(whole.size(), ends[5].first);
    for (std::size_t size = 0; size < whole.size(); ++size) {
        SCOPED_TRACE(size);
        int status = 0;
        for (const auto& [end, of_array] : ends)
            if (status == 0 && size < end) status = of_array;
        const std::string path = Write("cut.hair", whole.substr(0, size));
        HairContainer     hair;
        hair.points.resize(5);
        ASSERT_EQ(LoadHairContainer(hair, path), status);
        ASSERT_TRUE(hair.points.empty() && hair.segments.empty() && hair.color.empty());
        ASSERT_EQ(hair.hair_count + hair.point_count + hair.arrays, 0u);
        ASSERT_EQ(hair.default_thickness, 1.0f);
        ASSERT_TRUE(IsEmpty(ReadPath(path)));
        ASSERT_EQ(output, kMessages[-1 - status] + path + "\n");
        ++reported;
    }
    EXPECT_EQ(reported, whole.size());
}

TEST_F(HairImport, WhatIsNoHairFileIsToldApart)
{
    const std::string pipe = (folder / "pipe").string();
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    const struct {
        const char* name;
        std::string path;
        int         status;
    } rows[] = {
        {"missing", (folder / "missing").string(), -1},
        {"no name", "", -1},
        {"directory", folder.string(), -1},
        {"pipe", pipe, -1},
        {"device", "/dev/zero", -1},
        {"other signature", Write("b.hair", "hair" + File(kAll).substr(4)), -3},
        {"no points array", Write("c.hair", File(kAll & ~kPoints)), -5},
        {"damaged sizes before missing points", Write("d.hair", Header(3, 8, kSegments)), -4},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        HairContainer hair;
        EXPECT_EQ(LoadHairContainer(hair, row.path), row.status);
        EXPECT_TRUE(IsEmpty(ReadPath(row.path)));
        EXPECT_EQ(output, kMessages[-1 - row.status] + row.path + "\n");
        EXPECT_TRUE(IsEmpty(ReadPath(row.path, ReadFurFile)) && output.empty()) << "a fur list is empty instead";
    }
    for (const std::uint32_t arrays : {0u, std::uint32_t{kPoints}, std::uint32_t{kAll}}) {
        EXPECT_TRUE(IsEmpty(Read(Header(0, 0, arrays)))) << arrays;
        EXPECT_EQ(output, "") << "no hair is no damage";
    }
}

// Counts that nothing in the file stands behind: neither memory nor time may follow them.
TEST_F(HairImport, CountsAreHeldAgainstTheFile)
{
    constexpr std::uint32_t kHuge = 0xffffffffu;
    for (std::uint32_t flag = kSegments; flag <= kColor; flag *= 2) {
        std::string bytes = Header(flag == kSegments ? kHuge : 1, flag == kSegments ? 2 : kHuge, flag | kPoints);
        bytes.resize(200, '\0');
        HairContainer hair;
        EXPECT_EQ(LoadHairContainer(hair, Write("a.hair", bytes)), flag == kSegments ? -4 : -5) << flag;
    }
    const struct {
        const char*                name;
        std::uint32_t              hairs, points, segments;
        std::vector<std::uint32_t> sizes;
    } rows[] = {
        {"endless strand", 1, 4, kHuge, {3}},
        {"endless strands of endless length", kHuge, 4, kHuge, {3}},
        {"endless strands without a segment", kHuge, 4, 0, {0, 0, 0, 0}},
        {"the last point alone", 9, 4, 2, {2, 0}},
        {"one point", 1, 1, 7, {0}},
        {"no point", 7, 0, 7, {}},
        {"points that no strand takes", 1, 9, 1, {1}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        std::string bytes = Header(row.hairs, row.points, kPoints, row.segments);
        bytes.resize(128 + 12 * row.points, '\0');
        const Part part = Read(bytes);
        EXPECT_EQ(part.strandSizes, row.sizes);
        EXPECT_EQ(part.positions.size(), row.points);
        std::size_t total = 0;
        for (const std::uint32_t size : row.sizes) total += size;
        EXPECT_EQ(part.cylinders.size(), total);
        for (const std::uint32_t cylinder : part.cylinders) EXPECT_LT(cylinder + 1, row.points);
    }
}

// ---- Fur lists ----

TEST_F(HairImport, FurListsAreReadAsSceneFilesAre)
{
    const Part part = Read(
        "# segment 9\n"
        "segment 1 of two points\r\n"
        "position 1 2 3\n"
        "\n"
        "\tposition 4 5e-1 +6 7 \"8\"\n"
        "Segment 5\nsegments 5\nend\n   # segment 5\n"
        "segment -3\n"
        "position 7 x 9\n"
        "segment\n"
        "position 1e99 1 1\n"
        "segment 2147483647\n"
        "position 0 0 1\nposition 0 0 2",
        ReadFurFile);
    EXPECT_EQ(output, "");
    EXPECT_EQ(part.strandSizes, (std::vector<std::uint32_t>{1, 0, 0, 1}));
    EXPECT_EQ(part.cylinders, (std::vector<std::uint32_t>{0, 4}));
    const Vector points[] = {{1, 2, 3}, {4, 0.5f, 6}, {7, 0, 0}, {0, 0, 0}, {0, 0, 1}, {0, 0, 2}};
    ASSERT_EQ(part.positions.size(), std::size(points));
    for (std::size_t i = 0; i < std::size(points); ++i) EXPECT_EQ(part.positions[i] - points[i], Vector{}) << i;
    EXPECT_EQ(part.scalars[0].values, std::vector(6, 0.003f));
    EXPECT_EQ(part.uvs[0].values, std::vector(6, Vector2{}));

    EXPECT_TRUE(Read("position 1 2 3\nposition 4 5 6\n", ReadFurFile).cylinders.empty()) << "points without a strand";
    const std::string fitting = "position 1 2 3" + std::string(4095 - 14, ' ');
    EXPECT_EQ(Read(fitting + "\nposition 4 5 6\n", ReadFurFile).positions.size(), 2u);
    EXPECT_EQ(Read(fitting + " \nposition 4 5 6\n", ReadFurFile).positions.size(), 0u) << "one character too many";
    EXPECT_NE(output.find("too long"), std::string::npos);
}

// ---- Through to the picture ----

TEST_F(HairImport, KeywordsAddAPartEach)
{
    const std::string cut = Write("cut.hair", File(kAll).substr(0, 200)), whole = Write("a.hair", File(kAll));
    const std::string fur   = Write("fur.txt", "segment 1\nposition 0 0 0\nposition 0 1 0\n");
    const std::string scene = Write("a.hv", "object\nhair \"" + cut + "\"\nfur \"" + fur + "\"\nhair \"" + whole +
                                                "\"\nfur \"no such file\"\nname tuft\nend\n");
    testing::internal::CaptureStdout();
    ASSERT_TRUE(ReadSceneFile(scene));
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "cannot read hair points " + cut + "\n");
    ASSERT_EQ(Objects.size(), 1u);
    EXPECT_EQ(Objects[0].name, "tuft");
    std::vector<std::size_t> cylinders;
    for (const Part& part : Objects[0].parts) cylinders.push_back(part.cylinders.size());
    EXPECT_EQ(cylinders, (std::vector<std::size_t>{0, 1, 5, 0}));
}

// Non-numbers, infinities and huge values among the points, the radii and the lengths must not reach a pixel or a loop.
TEST_F(HairImport, StrandsOfAnyNumbersRender)
{
    const float  odd[] = {std::numeric_limits<float>::quiet_NaN(),
                          std::numeric_limits<float>::infinity(),
                          -1.0f,
                          3e38f,
                          -3e38f,
                          1e-40f,
                          0.0f,
                          1.0f};
    std::mt19937 random(3);
    std::string  bytes = Header(200, 1000, kPoints | kThickness, 4);
    for (int i = 0; i < 4000; ++i) {
        const float usual = 0.002f * static_cast<float>(random() % 1000) - 1.0f;
        Put(bytes, random() % 20 == 0 ? odd[random() % std::size(odd)] : usual);
    }
    const std::string path = Write("odd.hair", bytes);
    TestScene         scene(2, 16, 16);
    scene.LookFrom({0, -4, 0}, {0, 0, 0}, 40.0f);
    ReadHairFile(Objects[0].parts.emplace_back(), path);
    ASSERT_EQ(Objects[0].parts[0].cylinders.size(), 800u);
    for (const Color& pixel : scene.Render()) {
        EXPECT_TRUE(std::isfinite(pixel.r) && std::isfinite(pixel.g) && std::isfinite(pixel.b));
        EXPECT_GE(std::min(pixel.r, std::min(pixel.g, pixel.b)), 0.0f);
    }
}

TEST_F(HairImport, RealFilesComeInWhole)
{
    const char* const data = std::getenv("HV_TEST_DATA");
    if (data == nullptr) GTEST_SKIP() << "HV_TEST_DATA does not name the folder of test models";
    const struct {
        const char*   name;
        std::size_t   strands, points;
        std::uint32_t segments;
        Vector        size;
        float         root, tip;
    } rows[] = {
        {"straight", 10000, 160000, 15, {63, 58, 86}, 0.05f, 0.05f},
        {"sintel_lite", 228, 7296, 31, {20, 27, 25}, 0.03f, 0.005f},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const Part part = ReadPath(std::string(data) + "/hair/" + row.name + ".hair");
        EXPECT_EQ(output, "");
        EXPECT_EQ(part.positions.size(), row.points);
        EXPECT_EQ(part.strandSizes, std::vector(row.strands, row.segments));
        EXPECT_EQ(part.cylinders.size(), row.strands * row.segments);
        Box box;
        for (const Vector& point : part.positions) Grow(box, point);
        for (int axis = 0; axis < 3; ++axis) EXPECT_NEAR(box.max[axis] - box.min[axis], row.size[axis], 0.6f) << axis;
        EXPECT_NEAR(part.scalars[0].values[0], row.root, 1e-6f);
        EXPECT_NEAR(part.scalars[0].values[row.segments], row.tip, 1e-6f);
    }
}

}  // namespace
}  // namespace hv
