// Photons through the exports: what lights give arrives on surfaces, in caustics and in the picture, and nowhere else.
// Power is in watts over pi throughout: a point light of colour C gives 4 pi C, and a square metre of radiance L gives
// L.

#include "geometry/object.h"
#include "light_scenes.h"
#include "lights/lights.h"
#include "lights/sky_tables.h"
#include "scene_files.h"
#include "transport/photon_tree.h"

#include <unistd.h>

#include <cstring>
#include <functional>

namespace hv {
namespace {

using enum Element;
using enum Material;

/// A surface of this albedo keeps what lands on it, as what it sends on is below the cut-off: only first hits count.
constexpr float kFaint = 0.0015f;
constexpr Color kTint{1.0f, 2.0f, 0.5f};

enum class Source { Point, Ball, Spot, Beam, Sky, Lamp, PlainLamp };

struct PhotonScene : DarkScene {
    explicit PhotonScene(float distance = 1e-3f, float resolution = 0.1f, int frames = 1) : DarkScene(frames)
    {
        hvSetRendererDistance(distance);
        hvSetRendererResolution(resolution);
        hvSetSkyLightPhoton(0);
        hvSetGeometryLightPhoton(0);
    }

    int AddMatte(float albedo) { return AddShader(Lambertian, kWhite * albedo); }

    /// A cube about the origin; of a negative size one whose faces look inwards.
    void AddCube(int shader, float half) { AddBox(shader, {-half, -half, -half}, {half, half, half}); }

    void AddFloor(int shader) { AddPatch(shader, {}, {1, 0, 0}, {0, 1, 0}); }  // 4 m2 that face up

    /// Two triangles that make a square of 4 m2 and face up, in a part of their own.
    void AddTriangles(int shader, Vector centre)
    {
        const Vector square[4]  = {{-1, -1, 0}, {1, -1, 0}, {1, 1, 0}, {-1, 1, 0}};
        const int    corners[6] = {0, 1, 2, 0, 2, 3}, part = hvAddPart(0);
        hvSetShaderID(0, part, shader);
        for (Vector corner : square) hvAddPositions(0, part, 1, &(corner += centre).x);
        hvAddTriangles(0, part, 2, corners);
    }

    /// A mirror that meets 1 m2 of a beam along +x and sends it down.
    void AddTiltedMirror()
    {
        AddPatch(AddShader(Specular, kWhite, Conductor, 5.0f), {0, 0, 1}, {0.5f, 0, -0.5f}, {0, -0.5f, 0});
    }

    /// Adds a light that casts photons: a point, or a lamp of 0.5 m2 a side that faces -x and +x, stands at `place`, a
    /// beam comes from there. Of a lamp's photons those of a virtual light may be kept; a plain one is none.
    void Shine(Source source, Vector place, int photons, int link = -1)
    {
        if (source == Source::Sky) {
            hvSetSkyLightColor(kTint.r, kTint.g, kTint.b);
            hvSetSkyLightPhoton(photons);
            if (link >= 0) hvSetSkyLightShaderLink(link);
        } else if (source == Source::Beam) {
            const int beam = AddParallelLight(place, kTint);
            hvSetParallelLightPhoton(beam, photons);
            if (link >= 0) hvSetParallelLightShaderLink(beam, link);
        } else if (source == Source::Lamp || source == Source::PlainLamp) {
            const int lamp = AddEmitter(kTint, source == Source::Lamp, Sideness::Both);
            SetSlot(lamp, Lambertian, kWhite * kFaint);
            AddPatch(lamp, place, {0, 0.5f, 0}, {0, 0, 0.25f});
            hvSetGeometryLightPhoton(photons);
            if (link >= 0) hvSetGeometryLightShaderLink(link);
        } else {
            const int point = AddPointLight(place, kTint);
            hvSetPointLightPhoton(point, photons);
            hvSetPointLightOffset(point, 0);
            if (source == Source::Ball) hvSetPointLightBlur(point, 0.3f);
            if (source == Source::Spot) hvSetPointLightInnerAngle(point, 0);
            if (link >= 0) hvSetPointLightShaderLink(point, link);
        }
    }

    /// An AOV of the film after all frames.
    std::vector<Color> Film(int aov)
    {
        hvxImage image{};
        EXPECT_TRUE(hvxGetCameraAOV(0, aov, &image));
        std::vector<Color> film(static_cast<std::size_t>(image.width * image.height));
        std::memcpy(static_cast<void*>(film.data()), image.pixels, film.size() * sizeof(Color));
        return film;
    }

    std::vector<Color> RenderFilm(int width, int height)
    {
        hvSetCameraResolution(0, width, height);
        Render();
        return Film(0);
    }
};

/// Solid angle of a square of 2 m from `height` above its middle.
float SquareAngle(float height) { return 4.0f * std::atan(1.0f / (height * std::sqrt(2.0f + height * height))); }

template <class Iterator, class Value = std::identity>
Color Sum(Iterator first, Iterator last, Value value = {})
{
    double sum[3] = {};
    for (; first != last; ++first)
        for (int c = 0; c < 3; ++c) sum[c] += static_cast<double>(std::invoke(value, *first)[c]);
    return {static_cast<float>(sum[0]), static_cast<float>(sum[1]), static_cast<float>(sum[2])};
}
Color Sum(const std::vector<Color>& colors) { return Sum(colors.begin(), colors.end()); }

Color TreePower() { return Sum(Photons.begin(), Photons.end(), &Photon::power); }

/// Power in the cells of each face, tetragons before triangles: radiance times area, as the cells of a face are of one
/// size.
std::vector<Color> CellPower(bool front)
{
    std::vector<Color> power;
    for (const Part& part : Objects[RootObject].parts) {
        const auto add = [&](const DensityCells& cells, const auto& faces, auto last_corner, float share) {
            for (std::size_t i = 0; i < cells.grids.size(); ++i) {
                const Vector corner = part.positions[faces[i].i0], u = part.positions[faces[i].i1] - corner;
                const Vector v     = part.positions[faces[i].*last_corner] - corner;
                const auto   count = cells.grids[i].size * cells.grids[i].size;
                const auto   first = (front ? cells.front : cells.back).begin() + cells.grids[i].base;
                power.push_back(Sum(first, first + count) * (share * Length(Cross(u, v)) / static_cast<float>(count)));
            }
        };
        add(part.tetragonCells, part.tetragons, &Tetragon::i3, 1.0f);
        add(part.triangleCells, part.triangles, &Triangle::i2, 0.5f);
    }
    return power;
}

Color AllCellPower() { return Sum(CellPower(true)) + Sum(CellPower(false)); }

void ExpectShare(Color actual, Color expected, float tolerance)
{
    for (int c = 0; c < 3; ++c) EXPECT_NEAR(actual[c], expected[c], tolerance * expected[c]) << "channel " << c;
}

// Power is kept: what a light gives, or that part of it which a convex body meets, is what lands on the body. In a
// closed room all photons land, however few there are; how many meet a body from outside is a sequence's count of an
// area.
TEST(Photons, WhatLightsGiveArrives)
{
    const struct {
        const char* name;
        Source      source;
        Vector      place;
        bool        inside;  // a room of 2 m, else a cube of 2 m
        int         count;
        float       expected, tolerance;
    } cases[] = {
        {"one photon", Source::Point, {0.3f, -0.2f, 0.4f}, true, 1, 4 * kPi, 1e-5f},
        {"fewer than there are steps of progress", Source::Point, {0.3f, -0.2f, 0.4f}, true, 99, 4 * kPi, 1e-5f},
        {"ball", Source::Ball, {0.3f, -0.2f, 0.4f}, true, 20000, 4 * kPi, 1e-5f},
        {"a spot that fades to its far end gives half", Source::Spot, {0, 0, 0}, true, 50000, 2 * kPi, 1e-4f},
        {"one photon of a lamp", Source::Lamp, {0, 0, 0}, true, 1, 1, 1e-5f},
        {"a lamp of 0.5 m2 to both sides", Source::PlainLamp, {0.1f, 0, 0}, true, 20000, 1, 1e-5f},
        {"a point close to a cube", Source::Point, {0, -1.5f, 0}, false, 50000, SquareAngle(0.5f), 2e-3f},
        {"and outside the sphere about it", Source::Point, {0, -5, 0}, false, 50000, SquareAngle(4), 2e-3f},
        {"a beam by its cross-section", Source::Beam, {0.6f, -0.8f, 0}, false, 50000, 4 * (0.6f + 0.8f), 2e-3f},
        {"a sky by the surface (Cauchy 1841: 4 cross-sections)", Source::Sky, {}, false, 50000, 24, 2e-3f},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(test.name);
        PhotonScene scene;
        const int   black = scene.AddMatte(kFaint);
        scene.AddCube(black, test.inside ? -1.0f : 1.0f);
        if (test.inside) scene.AddTriangles(black, {0, 0, -0.99f});  // close to the floor, whose light they take
        scene.Shine(test.source, test.place, test.count);
        hvInitialize();
        ExpectShare(AllCellPower() / kFaint, kTint * test.expected, test.tolerance);
        EXPECT_EQ(Sum(CellPower(false)), kBlack);  // fronts face the light
        EXPECT_TRUE(CellPower(true).back().g > 0.0f || !test.inside || test.count == 1);
    }
}

// A sky picture of 1 : 500 lights each face of a cube by the mean over the directions that it is drawn from, each of
// which stands for an equal part of the sphere: power A L cos times 4 pi / pi.
struct PhotonSky : SceneTest {};

TEST_F(PhotonSky, APictureLightsEachFaceByItsHalfOfTheSky)
{
    std::string picture = "#?RADIANCE\nFORMAT=32-bit_rle_rgbe\n\n-Y 2 +X 4\n";
    for (const int exponent : {121, 128, 125, 129, 127, 120, 129, 124})
        picture += {'\xff', '\xa0', '\x80', static_cast<char>(exponent)};
    PhotonScene scene;
    hvSetSkyLightImage(Write("sky.hdr", picture).c_str());
    scene.Shine(Source::Sky, {}, 100000);
    scene.AddCube(scene.AddMatte(kFaint), 1);
    hvInitialize();
    double expected[3][2] = {};  // green, by axis and side
    for (int cell = 0; cell < kSkyFaces * 65536; ++cell) {
        const Vector d     = CubeDirection(cell / 65536, cell / 256 % 256, cell % 256);
        const double light = 16.0 * static_cast<double>(SkyColor(d).g) / (kSkyFaces * 65536);
        for (const int axis : {0, 1, 2}) expected[axis][d[axis] > 0] += light * std::abs(static_cast<double>(d[axis]));
    }
    const int axes[] = {1, 1, 0, 0, 2, 2};
    for (std::size_t face = 0; face < 6; ++face)
        EXPECT_NEAR(CellPower(true)[face].g / kFaint / expected[axes[face]][face % 2], 1.0, 0.01) << face;
}

// In a room that shines by e everywhere, each hit leaves the albedo's share on all faces alike. A photon at the depth
// limit is still traced, which makes depth + 1 hits; a limit below 2 counts as 1. The camera meets e, one bounce, and
// cells that hold the rest: all in all e / (1 - a), but for the 0.1 % that the cut-off takes.
TEST(Photons, AFurnaceHoldsOnePowerOfItsAlbedoAHit)
{
    for (const auto& [limit, hits] : std::vector<std::pair<int, int>>{{0, 2}, {1, 2}, {2, 3}, {7, 8}, {100, 101}}) {
        SCOPED_TRACE(limit);
        PhotonScene scene(1e-3f, 5);
        const Color albedo{0.5f, 0.3f, 0.75f};
        const int   wall = scene.AddShader(Lambertian, albedo);
        scene.SetSlot(wall, Emissive, kTint);
        hvSetSurfaceSideness(wall, 0, Sideness::Face);
        scene.AddCube(wall, -1);
        scene.LookFrom({0.3f, -0.9f, 0.1f}, {0, 0, 0}, 1);
        hvSetRendererPhotonDepth(limit);
        hvSetRendererSample(4096);
        hvSetGeometryLightPhoton(20000);
        const Color seen  = scene.RenderPixel();
        Color       cells = kBlack, power = albedo * kTint;
        for (int i = 0; i < hits; ++i, power *= albedo) cells += power;
        ExpectShare(AllCellPower(), cells * 24.0f, 2e-3f);  // 24 m2; but for starts in the very corners
        for (const Color& face : CellPower(true)) ExpectShare(face, cells * 4.0f, 0.01f);  // the noise of 20000 paths
        ExpectShare(seen, kTint + albedo * (kTint + cells), 2e-3f);
    }
}

// A linked light's photons land where they would without the link, but only if they meet the shader that it names
// first.
TEST(Photons, LinksChooseTheFirstHit)
{
    const struct {
        Source source;
        Vector place;
        float  half;  // of a room or a cube
    } cases[] = {{Source::Point, {0, 0, 0.2f}, -1},
                 {Source::Lamp, {0, 0, 0.2f}, -1},
                 {Source::Beam, {0.2f, 0.3f, 0.9f}, 1},
                 {Source::Sky, {}, 1}};
    for (const auto& [source, place, half] : cases) {
        SCOPED_TRACE(static_cast<int>(source));
        std::vector<Color> power[2];
        for (const bool linked : {false, true}) {
            PhotonScene scene;
            const int   lid = scene.AddMatte(kFaint);
            scene.AddCube(scene.AddMatte(kFaint), half);
            scene.AddPatch(lid, {0, 0, 0.1f + half}, {0.5f, 0, 0}, {0, 0.5f, 0});
            scene.Shine(source, place, 20000, linked ? lid : -1);
            hvInitialize();
            power[linked] = CellPower(true);
        }
        for (std::size_t face = 0; face < 6; ++face) EXPECT_EQ(power[1][face], kBlack) << face;
        EXPECT_GT(power[0][3].g, 0.0f);
        EXPECT_GT(power[0][6].g, 0.0f);
        ExpectShare(power[1][6], power[0][6], 1e-5f);
    }
    // Later hits are free: what a square of albedo 0.5 gets from 1 m above goes on through the room.
    PhotonScene scene;
    const int   square = scene.AddMatte(0.5f);
    hvSetRendererPhotonDepth(4);
    scene.AddCube(scene.AddMatte(0.5f), -2);
    scene.AddFloor(square);
    scene.Shine(Source::Point, {0, 0, 1}, 50000, square);
    hvInitialize();
    ExpectShare(AllCellPower(), kTint * SquareAngle(1.0f) * (0.5f + 0.25f + 0.125f + 0.0625f + 0.03125f), 1e-3f);
    EXPECT_GT(CellPower(true)[5].g, 0.0f);  // the ceiling
}

// Kept is what reaches a diffuse surface, of either element, first and over mirrors, in both modes; cells take all
// diffuse hits, in one.
TEST(Photons, LightAndModeDecideWhatIsKept)
{
    const struct {
        const char* name;
        Source      source;
        Vector      place;
        float       distance;
        bool        mirror, tree, cells;
    } cases[] = {
        {"a beam over a mirror", Source::Beam, {-1, 0, 0}, 1, true, true, true},
        {"the same without cells in use", Source::Beam, {-1, 0, 0}, 0, true, true, false},
        {"a beam straight down", Source::Beam, {0, 0, 1}, 1, false, false, true},
        {"the same without cells in use", Source::Beam, {0, 0, 1}, 0, false, false, false},
        {"the sky", Source::Sky, {}, 1, true, false, true},
        {"emitters that are sampled", Source::Lamp, {-1, 0, 1}, 1, true, true, true},
        {"emitters that rays find", Source::PlainLamp, {-1, 0, 1}, 1, true, false, true},
    };
    for (const auto& test : cases)
        for (const Element element : {Lambertian, Transmissive}) {
            SCOPED_TRACE(test.name);
            PhotonScene scene(test.distance);
            scene.AddFloor(scene.AddShader(element, kWhite * 0.5f));
            if (test.mirror) scene.AddTiltedMirror();
            scene.Shine(test.source, test.place, 20000);
            hvInitialize();
            EXPECT_EQ(TreePower().g > 0.0f, test.tree);
            EXPECT_EQ(AllCellPower().g > 0.0f, test.cells);
            for (const Photon& photon : Photons) ASSERT_NEAR(photon.position.z, 0.0f, 1e-5f);
        }
}

// A caustic holds the light that its body meets, times what Fresnel's factor leaves of it, whatever the floor sends on,
// so long as that is above the cut-off. What cells take has the floor's colour and what passes its own interface, 0.96.
TEST(Photons, CausticsHoldTheLightThroughTheirBody)
{
    enum Body { Block, Pane, Mirror };
    for (const float distance : {0.0f, 1.0f}) {  // without cells and with
        const auto power = [&](Body body, float albedo) {
            PhotonScene scene(distance);
            scene.AddFloor(scene.AddShader(Lambertian, kWhite * albedo, Dielectric, 1.5f));
            if (body == Block)  // 1 m2
                scene.AddBox(scene.AddShader(Specular, kWhite, Dielectric, 1.5f), {-0.5f, -0.5f, 0.4f},
                             {0.5f, 0.5f, 0.6f});
            else if (body == Pane)  // 1 m2 that leans by 60 degrees
                scene.AddPatch(scene.AddShader(Specular, kWhite, ThinDielectric, 1.5f), {0, 0, 1},
                               {0.25f, 0, 0.4330127f}, {0, 0.5f, 0});
            else
                scene.AddTiltedMirror();
            scene.Shine(Source::Beam, body == Mirror ? Vector{-1, 0, 0} : Vector{0, 0, 1}, 100000);
            hvInitialize();
            if (body == Mirror) ExpectShare(AllCellPower(), TreePower() * (0.96f * albedo * distance), 1e-4f);
            return TreePower();
        };
        const float reflected = Schlick(5.0f, std::sqrt(0.5f));  // 0.446
        ExpectShare(power(Block, 0.5f), kTint * (0.96f * 0.96f),
                    2e-3f);  // what turns round inside falls to the cut-off
        ExpectShare(power(Pane, 0.5f), kTint * (0.5f * ThinPass(1.5f, 0.5f)), 2e-3f);
        ExpectShare(power(Mirror, 0.004f), kTint * reflected, 2e-3f);
        EXPECT_EQ(power(Mirror, 0.002f), kBlack);  // 0.446 x 0.96 x 0.002 is below 1/1024
    }
}

// The picture of a caustic of 1 m2, from afar past its mirror, holds the albedo's share of that light. Of 32 photons
// the farthest counts in full, up to 1 / 31 too much, and the edge of 4 m is soft by a gathering radius of 15 mm.
TEST(Photons, ThePictureOfACausticHoldsItsLight)
{
    PhotonScene  scene(0.0f, 0.1f, 4);
    const Vector direction = Normalized({0, -1, 0.4f});
    const float  distance = 100.0f, pixel = 0.05f;
    scene.AddFloor(scene.AddMatte(0.5f));
    scene.AddTiltedMirror();
    scene.Shine(Source::Beam, {-1, 0, 0}, 400000);
    hvSetRendererRadius(0.1f);
    scene.LookFrom(direction * distance, {}, 2.0f * std::atan(24 * pixel / distance) / kRadians);
    const Color power = Sum(scene.RenderFilm(48, 24)) * (pixel * pixel / direction.z);
    ExpectShare(power, kTint * (0.5f * Schlick(5.0f, std::sqrt(0.5f))), 0.04f);
}

// Half of a box is lit, over a mirror too; the other half, behind a wall of one face, stays black: its cells, and the
// picture of the wall's far side, though photons lie on the near one.
TEST(Photons, ThinWallsDoNotLeak)
{
    for (const bool lit : {true, false}) {
        PhotonScene scene(1e-3f, 0.01f, 2);
        const int   wall = scene.AddMatte(0.5f);
        scene.AddBox(wall, {0, 1, 1}, {-2, -1, -1});  // face 2 is the wall between the halves, at x = 0
        for (const float side : {-1.0f, 1.0f}) {
            scene.AddPatch(wall, {1, 0, side}, {1, 0, 0}, {0, -side, 0});
            scene.AddPatch(wall, {1, side, 0}, {1, 0, 0}, {0, 0, side});
        }
        scene.AddPatch(wall, {2, 0, 0}, {0, 0, 1}, {0, 1, 0});
        const int mirror = scene.AddShader(Specular, kWhite, Conductor, 5.0f);
        scene.AddPatch(mirror, {-1.9f, 0, 0}, {0, 0.9f, 0}, {0, 0, 0.9f});
        // No photon aims at the very edges, and photon 0 ends above the lamp: as its numbers are all 0, it would creep
        // along the faces, 1e-5 above them, into a corner, where faces are closer than rays see.
        scene.Shine(Source::Point, {-1.03f, 0.07f, 0.04f}, 50000);
        scene.AddPatch(scene.AddShader(Emissive, kBlack), {-1.03f, 0.07f, 0.2f}, {0.05f, 0, 0}, {0, 0.05f, 0});
        hvSetRendererRadius(0.3f);
        scene.LookFrom({lit ? -1.8f : 1.8f, 0, 0}, {}, 40);
        const std::vector<Color> film = scene.RenderFilm(8, 6), front = CellPower(true);
        ASSERT_GT(Photons.size(), 1000u);
        EXPECT_GT(front[2].g, 0.0f);
        EXPECT_EQ(Sum(CellPower(false)), kBlack);
        for (std::size_t face = 6; face < 11; ++face) EXPECT_EQ(front[face], kBlack) << face;
        for (const Color& pixel : film) EXPECT_EQ(pixel.g > 0.0f, lit);
    }
}

// A closed room with a translucent screen before the light, seen by long paths and by short ones that end in cells,
// shows the same light, whether paths end there at once or only where they go half a metre: to 1 %, of which the long
// paths' noise is half, and the blur of cells of 70 cm another. Walls of one cell lose 5 %.
TEST(Photons, CellsShowWhatLongPathsShow)
{
    struct Mode {
        float distance, resolution;
        int   bounce, photons;
        float tolerance;
    };
    const auto mean = [](Source source, const Mode& mode) {
        PhotonScene scene(mode.distance, mode.resolution, 16);
        hvSetRendererBounce(mode.bounce);
        hvSetRendererRayDepth(32);
        hvSetRendererPhotonDepth(32);
        hvSetRendererSample(512);
        scene.AddCube(scene.AddMatte(0.6f), -1.5f);
        const int screen = scene.AddShader(Transmissive, kWhite * 0.6f);
        scene.AddPatch(screen, {0, 0, 0}, {0, 1.2f, 0}, {0, 0, 1.2f});
        scene.Shine(source, {0.5f, 0.2f, 0.3f}, mode.photons);
        scene.LookFrom({-1.3f, -1, 0}, {1.5f, 1, -0.3f}, 80);
        return Sum(scene.RenderFilm(8, 6)) / 48;
    };
    for (const Source source : {Source::Point, Source::PlainLamp}) {
        const Color reference = mean(source, {0, 0, 24, 0, 0});
        for (const Mode& mode : {Mode{9, 20, 1, 20000, 0.06f}, Mode{9, 0.5f, 1, 50000, 0.01f},
                                 Mode{9, 0.01f, 1, 50000, 0.01f}, Mode{0.5f, 0.01f, 24, 50000, 0.01f}}) {
            SCOPED_TRACE(mode.resolution);
            ExpectShare(mean(source, mode), reference, mode.tolerance);
        }
    }
}

// Splats of a glossy plane under a point light are what it reflects to the camera before Fresnel's factor, whatever the
// number of frames: 4 pi times the lobe times colour and cosine over the distance squared, at the place that each pixel
// shows.
TEST(Photons, LightPathsShowGlossWhereTheCameraSeesIt)
{
    constexpr int kWidth = 16, kHeight = 12;
    const Vector  lamp{0.6f, -1.2f, -0.3f}, eye{0.4f, -2, 0.3f}, normal{0, -1, 0};
    const Color   gloss{0.5f, 0.25f, 1.0f};
    PhotonScene   scene(0, 0, 128);
    const int     plane      = scene.AddShader(Glossy, gloss, Conductor, 3.0f);
    const Channel channels[] = {Channel::LightPath, Channel::Position};
    scene.SetSlot(plane, Roughness, kWhite * 0.3f);
    scene.AddScreen(plane, 0.0f, 1.5f);
    scene.Shine(Source::Point, lamp, 1000000);
    for (const Channel channel : channels) hvSetCameraAOVChannel(0, hvAddCameraAOV(0), channel);
    hvSetCameraUpVector(0, 0.3f, 0, 1);
    scene.LookFrom(eye, {0.3f, 0, -0.1f}, 40);
    const std::vector<Color> beauty = scene.RenderFilm(kWidth, kHeight), paths = scene.Film(1), places = scene.Film(2);
    Vector                   moments[2];  // of splats and picture: sums of x, y and 1
    float                    brightest = 0.0f;
    for (const Color& path : paths) brightest = std::max(brightest, MaxChannel(path));
    for (std::size_t i = 0; i < paths.size(); ++i) {
        const Vector place{places[i].r, places[i].g, places[i].b};
        const Vector to_lamp = Normalized(lamp - place), to_eye = Normalized(eye - place);
        const float  light    = Dot(to_lamp, normal) / Dot(lamp - place, lamp - place);
        const Color  expected = kTint * gloss * (4 * kPi * Ward(to_eye, to_lamp, normal, 0.3f) * light);
        const Color  seen     = beauty[i] / Schlick(3.0f, Dot(to_eye, normal));
        ExpectColor(paths[i], expected, 0.05f * brightest);  // some 500 photons
        ExpectColor(seen, expected, 0.01f * brightest);
        const Vector pixel{static_cast<float>(i % kWidth), static_cast<float>(i / kWidth), 1};
        moments[0] += pixel * paths[i].g, moments[1] += pixel * seen.g;
    }
    EXPECT_NEAR(moments[0].z / moments[1].z, 1.0f, 1e-3f);
    EXPECT_NEAR(Length(moments[0] / moments[0].z - moments[1] / moments[1].z), 0.0f, 5e-3f);  // pixels
}

// With a seed the number of threads changes no bit of picture, splats and cells, in a room with glass, gloss and all
// kinds of light.
TEST(Photons, SeededRendersAreEqualForAnyNumberOfThreads)
{
    std::vector<Color> expected[4];
    for (const int threads : {1, 2, 7}) {
        PhotonScene scene(0.5f, 0.02f, 2);
        hvxSetThreadCount(threads);
        hvSetRendererBounce(2);
        hvSetRendererSample(8);
        hvSetRendererRadius(0.2f);
        hvSetCameraAOVChannel(0, hvAddCameraAOV(0), Channel::LightPath);
        const int gloss = scene.AddShader(Glossy, kTint * 0.4f, Conductor, 4.0f);
        scene.SetSlot(gloss, Roughness, kWhite * 0.2f);
        scene.SetSlot(gloss, Lambertian, kWhite * 0.3f);
        scene.AddCube(gloss, -2);
        scene.AddBox(scene.AddShader(Specular, kWhite, Dielectric, 1.5f), {-0.5f, 0, -1.9f}, {0.5f, 0.5f, -1});
        hvSetGeometryLightSample(8);
        scene.Shine(Source::Lamp, {0.5f, 0, 1}, 10000);
        scene.Shine(Source::Point, {-0.5f, -0.5f, 1}, 10000);
        scene.Shine(Source::Beam, {0.5f, -0.5f, 1}, 10000);
        scene.Shine(Source::Sky, {}, 1000);
        scene.LookFrom({0, -1.9f, 0}, {0, 0, -0.5f}, 80);
        const std::vector<Color> beauty   = scene.RenderFilm(24, 16);
        const DensityCells&      cells    = Objects[RootObject].parts[0].tetragonCells;
        const std::vector<Color> films[4] = {beauty, scene.Film(1), cells.front, cells.back};
        EXPECT_GT(Photons.size(), 100u);
        for (const int i : {0, 1, 2, 3}) {
            EXPECT_GT(Sum(films[i]).g, 0.0f);
            if (threads == 1) expected[i] = films[i];
            EXPECT_EQ(std::memcmp(films[i].data(), expected[i].data(), films[i].size() * sizeof(Color)), 0)
                << threads << " threads, film " << i;
        }
    }
}

// A face of 4 m2 has n x n cells with the smallest n below 255 at which they are strictly smaller than the resolution;
// one without diffuse light has one. Even light fills them evenly, on tetragons as on triangles.
TEST(Photons, CellsFollowTheResolution)
{
    const struct {
        float       resolution;
        Element     element;
        std::size_t size;
    } cases[] = {{5, Lambertian, 1},         {4, Lambertian, 2},  {0.3f, Transmissive, 4}, {7e-5f, Lambertian, 240},
                 {1e-6f, Transmissive, 255}, {0.3f, Specular, 1}, {0, Lambertian, 0}};
    for (const auto& test : cases) {
        PhotonScene scene(1, test.resolution);
        scene.AddFloor(scene.AddShader(test.element, kWhite * 0.5f));
        hvInitialize();
        const DensityCells& cells = Objects[RootObject].parts[0].tetragonCells;
        EXPECT_EQ(cells.front.size(), test.size * test.size);
        EXPECT_EQ(cells.back.size(), test.size * test.size);
    }
    PhotonScene scene(1, 0.3f);
    const int   matte = scene.AddMatte(0.5f);
    scene.AddFloor(matte);
    scene.AddTriangles(matte, {2.5f, 0, 0});
    scene.Shine(Source::Beam, {0, 0, 1}, 200000);
    hvInitialize();
    const std::vector<Part>& parts = Objects[RootObject].parts;
    ASSERT_EQ(parts[1].triangleCells.front.size(), 18u);                                            // of 2 x 3 x 3
    for (const Color& cell : parts[0].tetragonCells.front) ExpectShare(cell, kTint * 0.5f, 0.03f);  // some 2000 photons
    for (const Color& cell : parts[1].triangleCells.front) ExpectShare(cell, kTint * 0.5f, 0.03f);
}

// 255 x 255 cells of 24 bytes a face: 688 faces fit in 2^30 bytes, 689 do not, nor do 66053, whose cells 32 bits would
// count as 129029.
TEST(PhotonsDeathTest, MoreThanAGigabyteOfCellsEndsTheProcess)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto prepare = [](int faces) {
        dup2(STDERR_FILENO, STDOUT_FILENO);  // what the test reads
        PhotonScene scene(1, 1e-7f);
        const int   matte = scene.AddMatte(0.5f);
        for (int i = 0; i < faces; ++i) scene.AddPatch(matte, {0, 0, static_cast<float>(i)}, {1, 0, 0}, {0, 1, 0});
        hvxSetReport(true);
        hvInitialize();
    };
    for (const int faces : {689, 66053})
        EXPECT_EXIT(prepare(faces), testing::ExitedWithCode(1), "density estimator consumes more than 1GB memory\\.");
}

}  // namespace
}  // namespace hv
