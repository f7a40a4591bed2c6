#include "scene/grammar.h"

#include "scene/number.h"
#include "scene_files.h"

#include <bit>
#include <clocale>
#include <cmath>
#include <functional>
#include <locale>
#include <random>

namespace hv {
namespace {

constexpr float kFails = -12345.0f;  // what the variable held before a reading that fails

struct Grammar : SceneTest {
    /// Reads a scene file and returns what it printed.
    std::string Read(std::string_view text)
    {
        testing::internal::CaptureStdout();
        EXPECT_TRUE(ReadSceneFile(Write("scene.hv", text)));
        return testing::internal::GetCapturedStdout();
    }

    template <class Value>
    Value ReadOne(const std::string& text)
    {
        SceneReader reader(Write("value.hv", "key " + text + "\n"));
        EXPECT_TRUE(reader.NextLine());
        auto value = static_cast<Value>(kFails);
        reader.Read(value);
        return value;
    }
};

/// A locale that would write 0.5 as 0,5.
struct CommaPunctuation : std::numpunct<char> {
    char do_decimal_point() const override { return ','; }
};

TEST_F(Grammar, NumbersReadAsInTheClassicLocale)
{
    const std::locale before = std::locale::global(std::locale(std::locale(), new CommaPunctuation));
    std::setlocale(LC_ALL, "de_DE.UTF-8");  // takes effect where the machine has it
    using Row = std::pair<const char*, float>;
    for (const auto& [text, value] :
         {Row("0.25", 0.25f), Row("-.5", -0.5f), Row("\t 7 x", 7), Row("1e5e", 1e5f), Row("0x10", 0), Row("1,5", 1),
          Row("1e-60", 0), Row("1e+", kFails), Row(".", kFails), Row("nan", kFails), Row("1e39", kFails),
          Row("1e99999999999", kFails)})
        EXPECT_EQ(ReadOne<float>(text), value) << text;
    for (const auto& [text, value] : {Row("-8", -8), Row("3.5", 3), Row("0x1F", 0), Row("99999999999", kFails),
                                      Row("+-3", kFails), Row("", kFails)})
        EXPECT_EQ(ReadOne<int>(text), static_cast<int>(value)) << text;
    EXPECT_EQ(ReadOne<std::int64_t>("99999999999"), 99999999999);
    std::setlocale(LC_ALL, "C");
    std::locale::global(before);
}

// The C library rounds correctly: so must the scanner, on short numbers, on long ones, and half way between two floats.
TEST(Numbers, ScannedFloatsAreTheNearest)
{
    std::mt19937_64 random(7);
    const auto      check = [](const char* text) {
        float       value = 0.0f;
        const char* end   = ScanFloat(text, value);
        char*       expected_end;
        const float expected = std::strtof(text, &expected_end);
        ASSERT_EQ(std::bit_cast<std::uint32_t>(value), std::bit_cast<std::uint32_t>(expected)) << text;
        ASSERT_EQ(end, expected_end) << text;
    };
    char text[128];
    for (int i = 0; i < 200000; ++i) {
        const float value = std::bit_cast<float>(static_cast<std::uint32_t>(random()) & 0xff7fffffu);
        if (!std::isfinite(value)) continue;
        const double exact    = static_cast<double>(value);
        const double half_way = (exact + std::nextafterf(value, 0.0f)) / 2;
        std::snprintf(text, sizeof text, "%.*g", static_cast<int>(1 + random() % 12), exact);
        check(text);
        std::snprintf(text, sizeof text, "%.*f", static_cast<int>(random() % 12), std::fmod(exact, 1e6));
        check(text);
        std::snprintf(text, sizeof text, "%.*e", static_cast<int>(14 + random() % 40), half_way);
        check(text);
    }
    for (const char* special : {"-1e50", "1e-50", "340282356779733661637539395458142568448", "16777217", "16777219",
                                "0e99999999999", "0000000000000000000001.5", "-0", "e5", "+.", "1.e2", "7e"})
        check(special);
}

TEST_F(Grammar, AFailedValueKeepsItsFieldAndSkipsTheRestOfTheLine)
{
    Read(
        "render\n clamp 1 2\n final_gather\n ray_depth x 9\n sample 7.9\nend\nend\n"
        "camera\n resolution 640 abc\n region 1 x 3 4\n exposure 0.5 zz 0.7\nend\n");
    EXPECT_EQ(Settings.Clamp, (Color{1, 2, kFarAway}));
    EXPECT_EQ(Settings.RayDepth, 8);
    EXPECT_EQ(Settings.RendererSample, 7);
    const Camera& camera = Cameras.at(0);
    EXPECT_EQ(std::pair(camera.width, camera.height), std::pair(640, 540));
    EXPECT_EQ(std::tuple(camera.x0, camera.y0, camera.x1), std::tuple(1, 0, 1048576));
    EXPECT_EQ(camera.exposure, (Color{0.5f, 1, 1}));
}

TEST_F(Grammar, QuotedTexts)
{
    using Row = std::pair<std::string, const char*>;
    for (const auto& [line, text] :
         {Row("name \"a b\" c", "a b"), Row("name x\"y\"", "y"), Row("name glass", ""), Row("name", ""),
          Row("name \"open\r", "open"), Row("name \"\"", ""), Row("name\"tight\"", "old")}) {
        ClearScene();
        Read("camera\nname \"old\"\n" + line + "\nend\n");
        EXPECT_EQ(Cameras.at(0).name, text) << line;
    }
}

TEST_F(Grammar, BlocksAndTheirEnds)
{
    const struct {
        const char*           name;
        std::string           text;
        std::function<bool()> holds;
    } rows[] = {
        {"comment in column 1, end as the first word",
         "camera\n  #end\n#end\nexposure 2 2 2 end\n sample 3\nend # of camera\nsample 9\n",
         [] { return Cameras.at(0).sample == 3; }},
        {"keywords are whole, values on their line", "camera\nSample 3\nsamples 4\nsampl 5\nsample\n5\nend\n",
         [] { return Cameras.at(0).sample == 17; }},
        {"carriage returns", "camera\r\n\r\nname \"c\"\r\nsample 5\r\nend\r\nobject\r\nname table top\r\nend\r\n",
         [] { return Cameras.at(0).name == "c" && Cameras.at(0).sample == 5 && Objects.at(0).name == "table"; }},
        {"a missing end closes at the end of the file", "shader\nname \"s\"\nsurface_shader\ndielectric",
         [] { return Shaders.at(0).name == "s" && Shaders[0].layers.at(0).material == Material::Dielectric; }},
        {"what falls out of a misspelt block opens sections", "camera\npse\nend\nshader \"x\"\nname \"fallen\"\nend\n",
         [] { return Shaders.at(0).name == "fallen"; }},
        {"a third pose is no block",
         "camera\npose\nposition 1 1 1\nend\npose\nbokeh 2\nend\npose\nposition 3 3 3\nsample 8\nend\nsample 9\nend\n",
         [] {
             const Camera& camera = Cameras.at(0);
             return camera.pose_count == 2 && camera.poses[0].position == Vector{1, 1, 1} &&
                    camera.poses[1].bokeh == 2 && camera.poses[0].set_fields == 1u &&
                    camera.poses[1].set_fields == 8u && camera.sample == 8;
         }},
    };
    for (const auto& row : rows) {
        ClearScene();
        EXPECT_EQ(Read(row.text), "") << row.name;
        EXPECT_TRUE(row.holds()) << row.name;
    }
}

// What a second entry does: some add, some replace, some are no entries.
TEST_F(Grammar, SectionsFillTheirRecords)
{
    Read(
        "camera\naov\ntype \"glossy\"\ntype \"depth\"\nend\naov\ntype \"mine\"\ntype \"normal\"\nend\nend\n"
        "point_light\nphoton 5000000000\nend\n"
        "parallel_light\nsky_light\ncolor 1 2 3\nend\n"  // inside the unclosed light: an unknown word, and an end
        "sky_light\nlink\nshader \"a\"\nend\nend\nsky_light\nlink\nshader \"b\"\nend\nend\n"
        "shader\nname \"floor\"\nsurface_shader\nthin_dielectric\nconductor\nend\nsurface_shader\nend\n"
        "geometry_shader\nvector\nend\nvector\nsampler\ngamma 3\nend\nend\ncamera_primary 0\nlight_primary 0\n"
        "camera_primary 1\nend\nend\n");
    ASSERT_EQ(Cameras.at(0).aovs.size(), 3u);                // the beauty image is there from birth
    EXPECT_EQ(Cameras[0].aovs[1].channel, 1u + 64 + 16384);  // beauty, too
    EXPECT_EQ(Cameras[0].aovs[2].channel, 32768u + 2048);    // an unknown word replaces what was there
    EXPECT_EQ(Cameras[0].aovs[2].user_data, "mine");
    EXPECT_EQ(PointLights.at(0).photon, 5000000000);
    EXPECT_EQ(ParallelLights.at(0).color, (Color{1, 2, 3}));
    EXPECT_EQ(SkyLight.link_names, (std::vector<std::string>{"a", "b"}));
    ASSERT_EQ(Shaders.at(0).layers.size(), 2u);
    EXPECT_EQ(Shaders[0].layers[0].material, Material::Conductor);
    EXPECT_EQ(Shaders[0].geometry_shader.vector.at(1).gamma, 3);
    EXPECT_EQ(Shaders[0].geometry_shader.visibility, Visibility::CameraPrimary);

    Read("object\nshader \"next\"\nend\nshader\nname \"next\"\nend\nshader\nname \"floor\"\nend\n");
    ASSERT_EQ(Shaders.size(), 2u);  // a definition lands on the reference that came first
    EXPECT_TRUE(Shaders[0].layers.empty()) << "a later section replaces the record, it does not add to it";
}

TEST_F(Grammar, ObjectSectionsMakePartsAndInstances)
{
    const std::string obj = Write("t.obj", "v 0 0 0\nv 1 0 0\nv 0 1 0\nf 1 2 3\n");
    const std::string out =
        Read("object\nname body\nobj \"" + obj + "\"\nposition_texture \"p.exr\"\ntriangle_texture \"t.exr\"\n" +
             "triangle_texture \"u.exr\"\nhair \"h.hair\"\nobj \"/nowhere/x.obj\"\n"
             "instance\nobject other thing\nshader \"steel\"\nmatrix 1 0 0 2 0 1 0\nend\nend\nobject\nname other\n");
    ASSERT_EQ(Objects.at(0).parts.size(), 5u);
    EXPECT_EQ(Objects[0].parts[0].triangles.size(), 1u);
    const Instance& instance = Objects[0].instances.at(0);
    EXPECT_EQ(instance.objectName, "other");
    EXPECT_EQ(instance.shaderName, "steel");
    EXPECT_EQ(instance.matrix.m[3], 2);
    // The position texture serves both triangle textures and is used up by the hair.
    const auto count = [&](std::string_view part) {
        int found = 0;
        for (auto at = out.find(part); at != out.npos; at = out.find(part, at + 1)) ++found;
        return found;
    };
    EXPECT_EQ(count("error :( \timage - p.exr\tcannot be found\n"), 3);
    EXPECT_EQ(count("error :( \timage - u.exr\tcannot be found\n"), 2);
    EXPECT_EQ(count("cannot open h.hair\n"), 1);
    EXPECT_EQ(count("error :( \tobject - cannot open /nowhere/x.obj\n" + std::string(80, '_')), 1);
}

TEST_F(Grammar, LineLengthLimit)
{
    for (const std::size_t length : {4094u, 4095u, 4096u, 9000u}) {
        ClearScene();
        std::string line = "sample 5 ";
        line.resize(length, 'x');
        const std::string out  = Read("camera\n" + line + "\nior 2\nend\nobject\n");
        const bool        fits = length <= kLineLimit;
        EXPECT_EQ(Cameras.at(0).sample, fits ? 5 : 17) << length;
        EXPECT_EQ(Objects.size(), fits ? 1u : 0u) << length;
        EXPECT_EQ(out.find("warning :( \t") == out.npos, fits) << length;
        Read("camera\n" + line);
        EXPECT_EQ(Cameras.at(1).sample, fits ? 5 : 17) << length << " without a line feed";
    }
}

// Whatever bytes a file holds, reading it ends: cut at every place, with every byte broken, and made of noise.
TEST_F(Grammar, MalformedFilesEndCleanly)
{
    const std::string scene =
        "render\nfinal_gather\nradius 2\nend\nend\ncamera\npose\nposition 1 2 3\nend\naov\ntype \"x\"\nend\nend\n"
        "sky_light\nlink\nshader \"a\"\nend\nend\nobject\nobj \"none.obj\"\ninstance\nmatrix 1 2 3\nend\nend\n"
        "shader\nname \"q\"\nsurface_shader\nior\nsampler\ngamma 2\nend\nend\nend\nend\n";
    std::mt19937 random(3);
    for (std::size_t i = 0; i < scene.size(); ++i) {
        Read(std::string_view(scene).substr(0, i));
        std::string broken = scene;
        broken[i]          = static_cast<char>(random());
        Read(broken);
    }
    std::string noise(100000, '\0');
    for (char& c : noise) c = static_cast<char>(random());
    for (const std::string& text : {noise, std::string(5000, '\0'), std::string(5000, '\n')}) Read(text);
    EXPECT_FALSE(ReadSceneFile(folder.string()));
    EXPECT_FALSE(ReadSceneFile((folder / "missing.hv").string()));
}

// Lines may lie anywhere in the file's buffer, across its ends as well.
TEST_F(Grammar, LongFilesAreReadWhole)
{
    std::string text;
    for (std::size_t i = 0; i < 20000; ++i)
        text += "object\nname n" + std::to_string(i) + std::string(i % 97, ' ') + "\nend\n";
    Read(text);
    ASSERT_EQ(Objects.size(), 20000u);
    for (std::size_t i = 0; i < 20000; ++i) ASSERT_EQ(Objects[i].name.substr(1), std::to_string(i));
}

TEST_F(Grammar, FoldersAreReadInOrderAndFilesByName)
{
    using Row = std::pair<const char*, const char*>;
    for (const auto& [file, name] :
         {Row("geometry/b.hv", "4"), Row("geometry/a.HV", "3"), Row("geometry/c.hv.txt", "no"),
          Row("geometry/deeper/x.hv", "no"), Row("geometry/folder.hv/x.hv", "no"), Row("shader/z.hv", "1"),
          Row("light/a.hv", "2"), Row("other/a.hv", "no")})
        Write("s/" + std::string(file), "object\nname " + std::string(name) + "\nend\nrender\nimage_path \"p\"\nend\n");
    for (const std::string& path : {folder.string() + "/s", folder.string() + "/s/"}) {
        ClearScene();
        testing::internal::CaptureStdout();
        EXPECT_EQ(LoadScene(path), 4);
        EXPECT_EQ(testing::internal::GetCapturedStdout().rfind("scene parsing ", 0), 0u);
        std::string names;
        for (const Object& entry : Objects) names += entry.name;
        EXPECT_EQ(names, "1234");
        EXPECT_EQ(ImageSearchPaths, (std::vector<std::string>{path + "image", path, "", "p", "p", "p", "p"}));
        EXPECT_EQ(GeometrySearchPaths, (std::vector<std::string>{path + "geometry", path, ""}));
    }
    EXPECT_EQ(LoadScene(folder.string() + "/missing"), 0);
}

}  // namespace
}  // namespace hv
