#include "scene/format.h"
#include "scene/lint.h"

#include "scene_files.h"
#include "shading/image_store.h"
#include "shading/shading.h"

#include <random>
#include <sstream>

namespace hv {
namespace {

/// A sound scene, into which a test puts one file of its own.
struct Lint : SceneTest {
    Lint()
    {
        Write("scene/camera/main.hv", "camera\npose\nposition 0 0 9\ntarget 0 0 0\nup_vector 0 1 0\nend\nend\n");
        Write("scene/geometry/wall.hv", "object\nname wall\nshader \"red\"\nobj \"" +
                                            Write("wall.obj", "v 0 0 0\nv 1 0 0\nv 0 1 0\nf 1 2 3\n") + "\"\nend\n");
        Write("scene/shader/red.hv", "shader\nname \"red\"\nsurface_shader\nlambertian\ncolor 1 0 0\nend\nend\nend\n");
    }

    std::string Scene() const { return (folder / "scene").string(); }

    /// What is found, a line each: file:line:column: error|warning: text, the files as seen from the scene folder.
    std::string Findings() const
    {
        std::string text;
        for (const Finding& finding : CheckScene(Scene())) {
            const std::string file = std::filesystem::path(finding.file).lexically_relative(Scene()).string();
            text += file + ':' + std::to_string(finding.line) + ':' + std::to_string(finding.column) +
                    (finding.is_error ? ": error: " : ": warning: ") + finding.text + '\n';
        }
        return text;
    }

    /// Expects these findings and no others, each with a text that its line must hold.
    void Expect(const std::string& name, const std::vector<std::string>& wanted)
    {
        const std::string  found = Findings();
        std::istringstream lines(found);
        std::string        line;
        for (const std::string& part : wanted) {
            std::getline(lines, line);
            EXPECT_NE(line.find(part), line.npos) << name << ": '" << part << "' is not in\n" << found;
            line.clear();
        }
        EXPECT_FALSE(std::getline(lines, line)) << name << ": more is found than wanted:\n" << found;
    }
};

TEST_F(Lint, EachMistakeIsToldOnceWithItsPlace)
{
    const std::string shader = "shader\n name \"red\"\n", layer = " surface_shader\n";
    const struct {
        const char*              name;
        const char*              file;
        std::string              text;
        std::vector<std::string> findings;
    } rows[] = {
        {"a sound scene", "render/none.hv", "# nothing\n  # indented\nrender # remark\nend # of it\n", {}},

        // Blocks
        {"misspelt opener",
         "shader/red.hv",
         shader + layer + "  lambertain\n   color 1 0 0\n  end\n  weight\n   color 1 1 1\n  end\n end\nend\n",
         {":4:3: error: `lambertain` is no keyword of `surface_shader` (line 3): did you mean `lambertian`?; it opens "
          "no "
          "block, so the `end` of line 6 closes `surface_shader` (line 3)"}},
        {"misspelt section",
         "shader/red.hv",
         "shadr\n name \"red\"\nend\n" + shader + layer + " end\nend\n",
         {":1:1: error: unknown section `shadr`: did you mean `shader`?; it opens no block, so the `end` of line 3 is "
          "one too"}},
        {"unknown block",
         "shader/red.hv",
         shader + layer + "  coat\n   amount 1\n  end\n  lambertian\n   color 1 1 1\n  end\n end\nend\n",
         {":4:3: error: `coat` is no keyword of `surface_shader` (line 3); it opens no block, so the `end` of line 6 "
          "closes"}},
        {"block of another block",
         "shader/red.hv",
         shader + layer + "  sampler\n   gamma 2\n  end\n end\nend\n",
         {":4:3: error: `sampler` is no keyword of `surface_shader` (line 3), but of `emissive`; it opens no block"}},
        {"third pose",
         "camera/main.hv",
         "camera\npose\nend\npose\nend\npose\nbokeh 1\nend\nsample 5\nend\n",
         {":6:1: error: a camera has two poses at most: this is one more; it opens no block, so the `end` of line 8 "
          "closes "
          "`camera` (line 1)"}},
        {"forgotten end of an inner block",
         "shader/red.hv",
         shader + layer + "  lambertian\n   color 1 0 0\n  weight\n   color 1 1 1\n  end\n end\nend\n",
         {":6:3: error: `weight` is no keyword of `lambertian` (line 4): is an `end` missing above this line?"}},
        {"forgotten end of a section",
         "shader/red.hv",
         shader + layer + " end\nrender\n clamp 9 9 9\nend\n",
         {":5:1: error: `render` is no keyword of `shader` (line 1): is an `end` missing"}},
        {"misspelt end",
         "shader/red.hv",
         shader + layer + "  lambertian\n   color 1 0 0\n  edn\n  weight\n   color 1 1 1\n  End\n end\nend\n",
         {":6:3: error: `edn` does not close `lambertian` (line 4): did you mean `end`?",
          ":9:3: error: `End` does not close `weight` (line 7)"}},
        {"end of file inside blocks",
         "shader/red.hv",
         shader + layer + "  lambertian\n   color 1 0 0\n  end\n",
         {":3:2: error: `surface_shader` is not closed: an `end` is missing, nor is `shader` (line 1)"}},
        {"text outside",
         "render/s.hv",
         "hello there\nand more\nend\nrender\nend\ngamma 2\nend\n",
         {":1:1: error: `hello` stands outside of any section and is not read",
          ":6:1: error: `gamma` stands outside of any section and is not read: it is a keyword of `render`"}},
        {"stray end", "render/s.hv", "render\nend\n end\n", {":3:2: error: this `end` closes nothing"}},

        // Keywords and values
        {"unknown keyword",
         "camera/main.hv",
         "camera\n resolutoin 5 5\n Sample 3\n color 1 1 1\n frobnicate\nend\n",
         {":2:2: error: `resolutoin` is no keyword of `camera` (line 1): did you mean `resolution`?",
          ":3:2: error: `Sample` is no keyword of `camera` (line 1): did you mean `sample`?",
          ":4:2: error: `color` is no keyword of `camera` (line 1), but of `sky_light`, `",
          ":5:2: error: `frobnicate` is no keyword of `camera` (line 1)"}},
        {"numbers",
         "render/s.hv",
         "render\n clamp 1 2\n final_gather\n  sample 7.9\n  bounce x\n  radius 1e39\n  ray_depth\n  distance 0,5\n "
         "end\nend\n",
         {":2:11: error: `clamp` takes 3 numbers, here are 2", ":4:10: error: only the beginning of `7.9` is read",
          ":5:10: error: `x` is no number: `bounce` takes a whole number", ":6:10: error: `1e39` is out of range",
          ":7:12: error: `ray_depth` takes a whole number, here is none", ":8:12: error: only the beginning of `0,5`"}},
        {"behind the values",
         "render/s.hv",
         "render fast\n clamp 1 2 3 4\n final_gather\n  bounce 2 # fine\n  sample 1 metre\n end\nend it\n",
         {":1:8: warning: what stands behind `render` is not read: `fast`",
          ":2:14: warning: what stands behind the values of", ":5:12: warning: what",
          ":7:5: warning: what stands behind `end`"}},
        {"quotes and words",
         "camera/main.hv",
         "camera\n name main\n name \"main\n projection \"fisheye\"\n projection \"panoramic\"\nend\n"
         "object\n name\n name x\n obj x\"y\"\nend\n",
         {":2:2: warning: `name` is set again in line 3", ":2:7: error: `name` takes a text in quotation marks",
          ":3:7: error: the quotation mark is not closed", ":4:2: warning: `projection` is set again",
          ":4:13: error: `fisheye` is none of \"perspective\", \"pinhole\"", ":5:13: error: `panoramic` is none of",
          ":8:2: warning: `name` is set again", ":8:6: error: `name` takes a word",
          ":10:7: warning: what stands before the quotation mark", ":10:7: error: the file `y` cannot"}},
        {"a line too long",
         "render/s.hv",
         "render\n\nclamp 1 1 1 #" + std::string(5000, 'x') + "\nend\n",
         {":1:1: error: `render` is not closed", ":3:1: error: the line is longer than 4095"}},
        {"no text", "render/s.hv", std::string("render\0end\n", 11), {":0:0: error: is no text"}},

        // Names and files
        {"shaders",
         "light/l.hv",
         "point_light\nposition 0 5 0\nlink\n shader \"rad\"\nend\nend\nshader\n name \"red\"\n surface_shader\n "
         "end\nend\n"
         "shader\n name \"lost\"\nend\n",
         {":4:9: error: nothing defines the shader `rad`: did you mean `red`?",
          ":8:2: warning: replaces the shader `red` of red.hv, line 2",
          ":13:2: warning: the shader `lost` has no `surface_shader`",
          ":13:2: warning: nothing wears the shader `lost`"}},
        {"objects",
         "geometry/z.hv",
         "object\n name a\n instance\n  object b\n end\nend\nobject\n name b\n instance\n  object a\n  shader "
         "\"blue\"\n end\n"
         " instance\n  object c\n end\n instance\n end\nend\nobject\n name wall\nend\n",
         {":10:3: error: the object `a` contains itself", ":11:10: error: nothing defines the shader `blue`",
          ":14:10: error: nothing defines the object `c`", ":16:2: error: the instance names no `object`",
          ":19:1: warning: nothing is in the object",
          ":20:2: warning: instances of `wall` place the first object of that name, wall.hv, line 1"}},
        {"files",
         "geometry/z.hv",
         "sky_light\n image \"none.hdr\"\nend\nobject\n obj \"none.obj\"\n hair \"none.hair\"\n fur \"\"\n"
         " particle_texture \"none.exr\"\nend\n",
         {":2:8: error: the picture `none.hdr` is in none", ":5:6: error: the file `none.obj` cannot be opened",
          ":6:7: error: the file `none.hair`", ":7:6: error: the file ``", ":8:19: error: the picture `none.exr`"}},
        {"no camera", "camera/main.hv", "# none\n", {".:0:0: error: the scene has no camera"}},

        // What has no effect
        {"keywords that nothing reads",
         "shader/red.hv",
         "render\n gamma 2\nend\n" + shader + " opacity 1\n" + layer +
             "  lambertian\n   level 2\n  end\n  thickness\n  end\n"
             " end\n geometry_shader\n  vector\n   color 0 0 1\n   level 2\n  end\n end\n volume_shader\n  albedo 1 1 "
             "1\n end\nend\n",
         {":2:2: warning: `gamma` has no effect: pictures are linear", ":6:2: warning: `opacity` has no effect",
          ":9:4: warning: `level` has an effect in `vector` only", ":11:3: warning: `thickness` has no effect",
          ":21:3: warning: `albedo` has an effect in `sky_light` only"}},
        {"what is set again",
         "render/s.hv",
         "render\n clamp 1 1 1\nend\nrender\n clamp 2 2 2\n image_path \"a\"\n image_path \"b\"\nend\n",
         {":2:2: warning: `clamp` is set again in line 5, which counts"}},
        {"layers",
         "shader/red.hv",
         shader + layer + "  glossy\n   color 1 1 1\n  end\n end\n" + layer +
             "  roughness\n   color 1 1 1\n  end\n"
             "  virtual_light\n  normal\n   color 1 1 1\n  end\n  weight\n   color 1 1 1\n  end\n end\nend\n",
         {":3:2: warning: one of several layers of a side, and without a `weight`",
          ":4:3: warning: reflects nothing: the `ior` of the conductor is 1",
          ":9:3: warning: `roughness` has an effect on `glossy` only", ":12:3: warning: `virtual_light` has an effect",
          ":13:3: warning: `normal` has an effect with an `image` only"}},
        {"slots of a pane, albedo, words of which one counts",
         "shader/red.hv",
         shader + layer +
             "  dielectric\n  thin_dielectric\n  shadow_transparency\n   color 1 1 1\n  end\n  lambertian\n   color 1 "
             "1.5 "
             "1\n"
             "  end\n end\n geometry_shader\n  camera_primary 0\n  invisible 0\n  light_primary 0\n end\nend\n",
         {":4:3: warning: `dielectric` gives way to `thin_dielectric` in line 5",
          ":6:3: warning: has no effect in a `thin_dielectric`", ":9:3: warning: an albedo above 1",
          ":14:3: warning: `camera_primary` gives way to `light_primary` in line 16"}},
        {"an emitter that nothing samples",
         "shader/red.hv",
         shader + layer + "  emissive\n   color 1 1 1\n  end\n  virtual_light\n end\nend\n",
         {":7:3: warning: nothing samples the light"}},
        {"an emitter that is sampled",
         "shader/red.hv",
         shader + layer +
             "  emissive\n   color 1 1 1\n  end\n  virtual_light\n end\nend\ngeometry_light\n sample "
             "1\nend\n",
         {}},
        {"values out of bounds",
         "light/l.hv",
         "render\n final_gather\n  ray_depth 0\n  photon_depth 255\n end\nend\npoint_light\n position 0 1 0\n blur -1\n"
         " photon -5\n offset 1\nend\nparallel_light\n direction 0 0 -1\n offset 0.9\nend\n",
         {":3:13: warning: `ray_depth` goes from 1 to 255", ":4:16: warning: `photon_depth` goes from 1 to 254",
          ":9:7: warning: `blur` is 0 or more", ":10:9: warning: `photon` is 0 or more",
          ":11:9: warning: `offset` stays below 1"}},
        {"region and sample",
         "camera/main.hv",
         "camera\n region 10 0 10 5\n sample 65536\n aov\n  image \"a.txt\"\n  type \"mine\"\n end\n aov\n  image "
         "\"a.PNG\"\n  type \"mine\"\n end\nend\n",
         {":2:2: warning: no pixel of the film", ":3:9: warning: `sample` goes from 1 to 65535",
          ":5:9: warning: the picture is not written"}},
        {"photons that are dropped",
         "light/l.hv",
         "render\n final_gather\n  distance 0\n  radius 0\n end\nend\nsky_light\n photon 10\nend\npoint_light\n "
         "position 0 1 0\n"
         " photon 10\nend\ngeometry_light\n photon 0\nend\n",
         {":8:2: warning: the photons are dropped: without cells",
          ":12:2: warning: the photons are dropped: there are "
          "neither"}},
        {"matrices",
         "geometry/z.hv",
         "object\n instance\n  object wall\n  matrix 0 -1 0 5  1 0 0 0  0 0 -1.001 0  0 0 0 1\n end\n instance\n  "
         "object "
         "wall\n"
         "  matrix 2 0 0 0  0 2 0 0  0 0 2 0  0 0 0 1\n end\nend\n",
         {":8:3: warning: more than a turn and a shift"}},
        {"displacement",
         "shader/red.hv",
         shader + layer + " end\n geometry_shader\n  smooth_angle 0\n  vector\n   level 0\n  end\n end\nend\n",
         {":6:3: warning: displacement needs normals", ":7:3: warning: moves nothing",
          ":8:4: warning: a `level` below 1"}},
        {"lights",
         "light/l.hv",
         "point_light\n color 0 0 0\n sample 4\n inner_angle 50\n outer_angle 40\nend\nparallel_light\n aov\n  type "
         "\"depth\"\n"
         " end\nend\nsky_light\n zenith 0 1 0\nend\n",
         {":1:1: warning: the light has no `position`", ":2:2: warning: the light is black",
          ":3:2: warning: `sample` has", ":4:2: warning: `inner_angle` is above",
          ":7:1: warning: the light has no `direction`", ":8:2: warning: without an `image` the AOV",
          ":9:3: warning: a light's direct share", ":13:2: warning: `zenith` and `north`"}},
        {"cameras",
         "camera/main.hv",
         "camera\n resolution 0 5\n pose\n  position 0 1 0\n  target 0 1 0\n end\n aov\n  image \"n.exr\"\n  type "
         "\"normal\"\n"
         " end\n aov\n  image \"u.exr\"\n  type \"mine\"\n end\nend\ncamera\nend\n",
         {":2:2: error: the camera's film has no pixels", ":5:3: warning: the camera looks at the place",
          ":9:3: warning: the picture stays black", ":16:1: warning: only the first camera renders, line 1"}},
        {"pictures that nothing takes",
         "geometry/z.hv",
         "object\n position_texture \"../../wall.obj\"\n particle_texture \"../../wall.obj\"\n"
         " position_texture \"../../wall.obj\"\nend\n",
         {":2:19: error", ":3:19: error", ":4:2: warning: `position_texture` has an effect on keywords behind it",
          ":4:19: error"}},
    };
    for (const auto& row : rows) {
        const std::string path = Scene() + '/' + row.file;
        std::string       earlier;
        if (std::filesystem::exists(path)) {
            std::ostringstream text;
            text << std::ifstream(path).rdbuf();
            earlier = text.str();
        }
        Write("scene/" + std::string(row.file), row.text);
        Expect(row.name, row.findings);
        std::filesystem::remove(path);
        if (!earlier.empty()) Write("scene/" + std::string(row.file), earlier);
    }
}

TEST_F(Lint, ModelsAreScannedForTheirMaterials)
{
    Write("wall.obj", "usemtl red\nf 1 2 3\n usemtl blank\nusemtl  rde x\r\nusemtlx\nusemtl rde\nusemtl\n");
    Expect("usemtl", {"../wall.obj:4:9: error: nothing defines the shader `rde`: did you mean `red`?"});
}

TEST_F(Lint, FilesThatAreNotReadAreTold)
{
    Write("scene/shaders/a.hv", "");
    Write("scene/shader/a.hv.txt", "");
    Write("scene/shader/deep/a.hv", "");
    Write("scene/shader/.a.hv.swp", "");
    Write("scene/a.HV", "");
    Expect("unread", {"a.HV:0:0: warning: is not read", "shader/a.hv.txt:0:0: warning", "shader/deep/a.hv:0:0: warning",
                      "shaders/a.hv:0:0: warning"});
    std::filesystem::remove_all(Scene());
    std::filesystem::create_directories(Scene());
    Expect("empty", {"error: no scene file is in the folder", "error: the scene has no camera",
                     "warning: the scene has no object"});
}

// A picture is told as missing if and only if the image store misses it.
TEST_F(Lint, PicturesAreLookedForAsTheImageStoreDoes)
{
    const std::string picture = "P3 1 1 255 1 2 3\n";
    Write("sceneimage/beside.ppm", picture);
    Write("scene/inside.ppm", picture);
    Write("more/further.ppm", picture);
    std::filesystem::create_directories(folder / "scene/folder.ppm");
    Write("scene/render/paths.hv", "render\nimage_path \"" + (folder / "more").string() + "\"\nend\n");
    for (const std::string name : {"beside.ppm", "inside.ppm", "further.ppm", "folder.ppm", "Inside.ppm",
                                   "../more/further.ppm", "/inside.ppm"}) {
        Write("scene/light/sky.hv", "sky_light\nimage \"" + name + "\"\nend\n");
        testing::internal::CaptureStdout();
        LoadScene(Scene());
        Image image;
        image.path         = name;
        const bool is_read = LoadImage(image);
        testing::internal::GetCapturedStdout();
        ClearScene();
        EXPECT_EQ(Findings().empty(), is_read) << name;
    }
}

// Looking leaves no trace: what the session holds, and what it prints.
TEST_F(Lint, TheSessionIsLeftAlone)
{
    EnsureDefaultShader();
    Cameras.resize(2);
    SkyLight.link_names = {"mine"};
    Settings.RayDepth   = 77;
    ImageSearchPaths    = {"here"};
    Write("scene/render/s.hv",
          "render\nimage_path \"x\"\nfinal_gather\nray_depth 5\nradius 4\nend\nend\nsky_light\nlink\n"
          "shader \"red\"\nend\nend\n" +
              std::string(5000, 'x'));
    testing::internal::CaptureStdout();
    EXPECT_FALSE(CheckScene(Scene()).empty());
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(Cameras.size(), 2u);
    EXPECT_EQ(Shaders.size(), 1u);
    EXPECT_TRUE(Objects.empty());
    EXPECT_EQ(SkyLight.link_names, std::vector<std::string>{"mine"});
    EXPECT_EQ(std::pair(Settings.RayDepth, Settings.Radius), std::pair(77, 1.0f));
    EXPECT_EQ(ImageSearchPaths, std::vector<std::string>{"here"});
}

// The reference is made of what the reader does with each example, so every example must read whole.
TEST(SceneFormatTest, EveryExampleReadsInItsBlock)
{
    const auto format = LearnSceneFormat();
    int        count  = 0;
    for (const FormatBlock* block : format->Blocks()) {
        for (const FormatRow& row : block->rows) {
            const std::string name = std::string(block->word) + "/" + std::string(row.word);
            EXPECT_EQ(block->Find(row.word), &row) << name << " stands twice in its table";
            EXPECT_FALSE(row.note == nullptr || row.note->help.empty()) << name;
            EXPECT_EQ(row.note->effect == Effect::None, row.note->help.starts_with("none")) << name;
            EXPECT_EQ(row.values.empty(), row.note->example.empty()) << name;
            EXPECT_TRUE(row.block != nullptr || row.note->inside.empty()) << name;
            for (const ValueRecord& value : row.values) {
                EXPECT_TRUE(value.state == ValueState::Read && !value.is_glued) << name << ": " << value.text;
                const auto& words = value.choices;
                EXPECT_TRUE(words.empty() || std::find(words.begin(), words.end(), value.text) != words.end()) << name;
            }
            ++count;
        }
    }
    EXPECT_GT(count, 300);
    for (const LineRecord& line : format->transcript.lines) {
        EXPECT_EQ(line.rest, "") << line.word;
        EXPECT_TRUE(line.note != nullptr || line.word == "end") << line.word;
        for (const ValueRecord& value : line.values) EXPECT_EQ(value.state, ValueState::Read) << line.word;
    }
    for (const BlockRecord& block : format->transcript.blocks) EXPECT_TRUE(block.is_closed);
}

// Defaults are those of the records that a session starts with; a few against numbers from outside the code.
TEST(SceneFormatTest, DefaultsAreThoseOfTheRecords)
{
    const std::string text = SceneFormatReference();
    for (const char* row :
         {"| `photon_depth` | int | vertices | `8` |", "| `resolution` | 2 ints | pixels | `960 540` |",
          "| `outer_angle` | float | degrees | `180` |", "| `turbidity` | float | | `9` |",
          "| `up_vector` | 3 floats | | `0 0 1` |", "| `ior` | block | | `color 1 1 1` |",
          "| `weight` | block | | `color 0 0 0` |", "| `sideness` | quoted: `both`, `face`, `back` | | `both` |",
          "| `pixel_sampler` | quoted: `stochastic`, `bilinear`, `nearest` | | `bilinear` |",
          "| `camera_primary` | int | | `1` |", "| `uv_matrix` | 9 floats | | `1 0 0 0 1 0 0 0 1` |",
          "| `name` | word |", "| `dielectric` | stands alone |", "| `ior` `color 1.5 1.5 1.5` `end` |"})
        EXPECT_NE(text.find(row), text.npos) << row << "\n" << text;
    EXPECT_EQ(text.find("| |\n"), text.npos) << "a row without an example:\n" << text;
}

// Noise, cuts and broken bytes: every file is judged to its end, and no finding breaks its line.
TEST_F(Lint, MalformedFilesEndCleanly)
{
    const std::string scene =
        "render\nfinal_gather\nradius 2\nend\nend\ncamera\npose\nposition 1 2 3\nend\naov\ntype \"x\"\nend\nend\n"
        "sky_light\nlink\nshader \"a\"\nend\nend\nobject\nobj \"none.obj\"\ninstance\nmatrix 1 2 3\nend\nend\n"
        "shader\nname \"q\"\nsurface_shader\nior\nsampler\ngamma 2\nend\nend\nend\nend\n";
    std::mt19937      random(5);
    const std::string file     = "scene/light/x.hv";
    const auto        try_text = [&](const std::string& text) {
        Write(file, text);
        for (const Finding& finding : CheckScene(Scene())) {
            EXPECT_EQ(finding.text.find_first_of("\n\r"), std::string::npos);
            EXPECT_LT(finding.text.size(), 500u);
        }
    };
    for (std::size_t i = 0; i < scene.size(); i += 3) {
        try_text(scene.substr(0, i));
        std::string broken = scene;
        broken[i]          = static_cast<char>(1 + random() % 255);
        try_text(broken);
        std::istringstream lines(scene);  // one line left out, one twice
        std::string        line, without, doubled;
        for (std::size_t n = 0; std::getline(lines, line); ++n) {
            if (n != i / 3) without += line + '\n';
            doubled += line + '\n' + (n == i / 3 ? line + '\n' : "");
        }
        try_text(without);
        try_text(doubled);
    }
    std::string noise(100000, '\0');
    for (char& c : noise) c = static_cast<char>(1 + random() % 255);
    std::string open;
    for (int i = 0; i < 4000; ++i) open += "shader\nsurface_shader\n";
    for (const std::string& text : {noise, std::string(5000, '\0'), open, std::string(20000, '\n') + "end"})
        try_text(text);
    EXPECT_LE(CheckScene(Scene()).size(), 110u);
}

}  // namespace
}  // namespace hv
