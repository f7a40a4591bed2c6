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

#include <span>
#include <tuple>

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
    }

    int AddMatte(float albedo) { return AddShader(Lambertian, kWhite * albedo); }

    /// A cube about the origin; of a negative size one whose faces look inwards.
    void AddCube(int shader, float half) { AddBox(shader, {-half, -half, -half}, {half, half, half}); }

    void AddFloor(int shader) { AddPatch(shader, {}, {1, 0, 0}, {0, 1, 0}); }  // 4 m2 that face up

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
            hvSetSkyLightShaderLink(link);
        } else if (source == Source::Beam) {
            const int beam = AddParallelLight(place, kTint);
            hvSetParallelLightPhoton(beam, photons);
            hvSetParallelLightShaderLink(beam, link);
        } else if (source == Source::Lamp || source == Source::PlainLamp) {
            const int lamp = AddEmitter(kTint, source == Source::Lamp, Sideness::Both);
            SetSlot(lamp, Lambertian, kWhite * kFaint);
            AddPatch(lamp, place, {0, 0.5f, 0}, {0, 0, 0.25f});
            hvSetGeometryLightPhoton(photons);
            hvSetGeometryLightShaderLink(link);
        } else {
            const int point = AddPointLight(place, kTint);
            hvSetPointLightPhoton(point, photons);
            hvSetPointLightOffset(point, 0);
            if (source == Source::Ball) hvSetPointLightBlur(point, 0.3f);
            if (source == Source::Spot) hvSetPointLightInnerAngle(point, 0);
            hvSetPointLightShaderLink(point, link);
        }
    }

    /// An AOV of the film after all frames.
    std::vector<Color> Film(int aov)
    {
        hvxImage image{};
        EXPECT_TRUE(hvxGetCameraAOV(0, aov, &image));
        const auto* const pixels = reinterpret_cast<const Color*>(image.pixels);
        return {pixels, pixels + image.width * image.height};
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

Color Sum(std::span<const Color> colors)
{
    double sum[3] = {};
    for (const Color& color : colors)
        for (int c = 0; c < 3; ++c) sum[c] += static_cast<double>(color[c]);
    return {static_cast<float>(sum[0]), static_cast<float>(sum[1]), static_cast<float>(sum[2])};
}

/// Power in the cells of each tetragon: radiance times area, as the cells of a face are of one size.
std::vector<Color> CellPower(bool front)
{
    const Part&         part  = Objects[RootObject].parts[0];
    const DensityCells& cells = part.tetragonCells;
    std::vector<Color>  power;
    for (std::size_t i = 0; i < cells.grids.size(); ++i) {
        const Tetragon&    face  = part.tetragons[i];
        const Vector       p0    = part.positions[face.i0];
        const float        area  = Length(Cross(part.positions[face.i1] - p0, part.positions[face.i3] - p0));
        const std::size_t  count = cells.grids[i].size * cells.grids[i].size;
        const Color* const first = (front ? cells.front : cells.back).data() + cells.grids[i].base;
        power.push_back(Sum({first, count}) * (area / static_cast<float>(count)));
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
        Source source;
        Vector place;
        bool   inside;  // a room of 2 m, else a cube of 2 m
        int    count;
        float  expected, tolerance;
    } cases[] = {
        {Source::Point, {0.3f, -0.2f, 0.4f}, true, 99, 4 * kPi, 1e-5f},  // fewer than there are steps of progress
        {Source::Ball, {0.3f, -0.2f, 0.4f}, true, 20000, 4 * kPi, 1e-5f},
        {Source::Spot, {0, 0, 0}, true, 50000, 2 * kPi, 1e-4f},  // fades to its far end
        {Source::Lamp, {0, 0, 0}, true, 1, 1, 1e-5f},
        {Source::PlainLamp, {0.1f, 0, 0}, true, 20000, 1, 1e-5f},
        {Source::Point, {0, -1.5f, 0}, false, 50000, SquareAngle(0.5f), 2e-3f},
        {Source::Point, {0, -5, 0}, false, 50000, SquareAngle(4), 2e-3f},  // outside the sphere about the cube
        {Source::Point,
         {0, -5000, 0},
         false,
         50000,
         SquareAngle(4999),
         2e-3f},  // into a cone of a thousandth of a degree
        {Source::Beam, {0.6f, -0.8f, 0}, false, 50000, 4 * (0.6f + 0.8f), 2e-3f},
        {Source::Beam, {-1, -1, 1}, false, 50000, 4 * std::sqrt(3.0f), 2e-3f},  // the general rule for a
        {Source::Beam, {1, 1, -1}, false, 50000, 4 * std::sqrt(3.0f), 2e-3f},   // perpendicular fails here
        {Source::Sky, {}, false, 50000, 24, 2e-3f},  // its surface (Cauchy 1841: 4 cross-sections)
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(&test - cases);
        PhotonScene scene;
        scene.AddCube(scene.AddMatte(kFaint), test.inside ? -1.0f : 1.0f);
        scene.Shine(test.source, test.place, test.count);
        hvInitialize();
        ExpectShare(AllCellPower() / kFaint, kTint * test.expected, test.tolerance);
        EXPECT_EQ(Sum(CellPower(false)), kBlack);  // fronts face the light
        EXPECT_TRUE(Photons.empty());              // which comes over no mirror
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
// first: here that of a lid over the floor of a room of 2 m or over a cube of 2 m. Later hits are free: what the lid
// sends on lands in the room.
TEST(Photons, LinksChooseTheFirstHit)
{
    for (const Source source : {Source::Point, Source::Lamp, Source::Beam, Source::Sky}) {
        SCOPED_TRACE(static_cast<int>(source));
        const bool inside = source == Source::Point || source == Source::Lamp;
        Color      on_lid[2], elsewhere[2];
        for (const bool linked : {false, true}) {
            PhotonScene scene;
            const int   lid = scene.AddMatte(0.9f);
            scene.AddPatch(lid, {0, 0, inside ? -0.9f : 1.1f}, {0.5f, 0, 0}, {0, 0.5f, 0});
            scene.AddCube(scene.AddMatte(kFaint), inside ? -1.0f : 1.0f);
            scene.Shine(source, inside ? Vector{0, 0, 0.2f} : Vector{0.2f, 0.3f, 0.9f}, 20000, linked ? lid : -1);
            hvInitialize();
            const std::vector<Color> power = CellPower(true);
            on_lid[linked] = power[0], elsewhere[linked] = Sum(std::span(power).subspan(1));
        }
        EXPECT_GT(elsewhere[0].g, 1.5f * kFaint * on_lid[0].g);
        ExpectShare(on_lid[1], on_lid[0], 5e-3f);
        EXPECT_LE(elsewhere[1].g, 1.002f * kFaint * on_lid[1].g);
        EXPECT_GE(elsewhere[1].g, inside ? 0.99f * kFaint * on_lid[1].g : 0.0f);
    }
}

// Kept is what a beam or a virtual light sends to a diffuse surface over mirrors; cells take what any light sends.
TEST(Photons, LightsDecideWhatIsKept)
{
    for (const Source source : {Source::Beam, Source::Lamp, Source::PlainLamp, Source::Sky}) {
        SCOPED_TRACE(static_cast<int>(source));
        PhotonScene scene(1);
        scene.AddFloor(scene.AddShader(Transmissive, kWhite * 0.5f));
        scene.AddTiltedMirror();
        scene.Shine(source, {-1, 0, source == Source::Beam ? 0.0f : 1.0f}, 20000);
        hvInitialize();
        EXPECT_EQ(!Photons.empty(), source == Source::Beam || source == Source::Lamp);
        EXPECT_GT(AllCellPower().g, 0.0f);
        for (const Photon& photon : Photons) ASSERT_NEAR(photon.position.z, 0.0f, 1e-5f);
    }
}

// A caustic holds the light that its body meets, times what Fresnel's factor leaves of it, whatever the floor sends on,
// so long as that is above the cut-off. What cells take has the floor's colour and what passes its own interface, 0.96.
TEST(Photons, CausticsHoldTheLightThroughTheirBody)
{
    enum Body { Block, Pane, Mirror };
    const struct {
        Body  body;
        float floor, expected;
    } cases[] = {{Block, 0.5f, 0.96f * 0.96f},  // what turns round inside falls to the cut-off
                 {Pane, 0.5f, 0.5f * ThinPass(1.5f, 0.5f)},
                 {Mirror, 0.004f, Schlick(5.0f, std::sqrt(0.5f))},  // 0.446
                 {Mirror, 0.002f, 0.0f}};                           // 0.446 x 0.96 x 0.002 is below 1/1024
    for (const auto& [body, floor, expected] : cases)
        for (const float distance : {0.0f, 1.0f}) {  // without cells and with
            PhotonScene scene(distance);
            scene.AddFloor(scene.AddShader(Lambertian, kWhite * floor, Dielectric, 1.5f));
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
            std::vector<Color> power;
            for (const Photon& photon : Photons) power.push_back(photon.power);
            ExpectShare(Sum(power), kTint * expected, 2e-3f);
            if (body == Mirror) ExpectShare(AllCellPower(), Sum(power) * (0.96f * floor * distance), 1e-4f);
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

// Half of a room is lit, over a mirror too; the other half, behind a wall of one face, stays black: its cells, and the
// picture of the wall's far side, though photons lie on the near one. No cell of 10 cm belongs to both halves.
TEST(Photons, ThinWallsDoNotLeak)
{
    for (const bool lit : {true, false}) {
        PhotonScene scene(1e-3f, 0.011f, 2);
        const int   wall = scene.AddMatte(0.5f);
        scene.AddCube(wall, -1);
        scene.AddPatch(wall, {}, {0, 0, 1.1f}, {0, 1.1f, 0});  // its front is the lit side
        scene.AddPatch(scene.AddShader(Specular, kWhite, Conductor, 5.0f), {-0.9f, 0, 0}, {0, 0.9f, 0}, {0, 0, 0.9f});
        // No photon aims at the very edges, and photon 0 ends above the lamp: as its numbers are all 0, it would creep
        // along the faces, 1e-5 above them, into a corner, where faces are closer than rays see.
        const Vector lamp{-0.53f, 0.07f, 0.04f};
        scene.Shine(Source::Point, lamp, 50000);
        scene.AddPatch(scene.AddShader(Emissive, kBlack), lamp + Vector{0, 0, 0.16f}, {0.05f, 0, 0}, {0, 0.05f, 0});
        hvSetRendererRadius(0.3f);
        scene.LookFrom({lit ? -0.85f : 0.85f, 0, 0}, {}, 40);
        const std::vector<Color> film = scene.RenderFilm(8, 6), front = CellPower(true);
        ASSERT_GT(Photons.size(), 1000u);
        EXPECT_GT(front[6].g, 0.0f);
        EXPECT_EQ(front[2], kBlack);  // the far end of the dark half
        EXPECT_EQ(Sum(CellPower(false)), kBlack);
        for (const Color& pixel : film) EXPECT_EQ(pixel.g > 0.0f, lit);
    }
}

// A closed room with a translucent screen before the light, seen by long paths and by short ones that end in cells,
// shows the same light, whether paths end there at once or only where they go half a metre: to 1 %, of which the long
// paths' noise is half, and the blur of cells of 70 cm another. Walls of one cell lose 5 %.
TEST(Photons, CellsShowWhatLongPathsShow)
{
    const auto mean = [](Source source, float distance, float resolution, int bounce, int photons) {
        PhotonScene scene(distance, resolution, 16);
        hvSetRendererBounce(bounce);
        hvSetRendererRayDepth(32);
        hvSetRendererPhotonDepth(32);
        hvSetRendererSample(512);
        scene.AddCube(scene.AddMatte(0.6f), -1.5f);
        const int screen = scene.AddShader(Transmissive, kWhite * 0.6f);
        scene.AddPatch(screen, {0, 0, 0}, {0, 1.2f, 0}, {0, 0, 1.2f});
        scene.Shine(source, {0.5f, 0.2f, 0.3f}, photons);
        scene.LookFrom({-1.3f, -1, 0}, {1.5f, 1, -0.3f}, 80);
        return Sum(scene.RenderFilm(8, 6)) / 48;
    };
    for (const Source source : {Source::Point, Source::PlainLamp}) {
        const Color reference = mean(source, 0, 0, 24, 0);
        ExpectShare(mean(source, 9, 20, 1, 20000), reference, 0.06f);
        ExpectShare(mean(source, 9, 0.5f, 1, 50000), reference, 0.01f);
        ExpectShare(mean(source, 9, 0.01f, 1, 50000), reference, 0.01f);
        ExpectShare(mean(source, 0.5f, 0.01f, 24, 50000), reference, 0.01f);
    }
}

// Splats of a glossy plane under a point light are what it reflects to the camera before Fresnel's factor, whatever the
// number of frames: 4 pi times the lobe times colour and cosine over the distance squared, at the place that each pixel
// shows.
TEST(Photons, LightPathsShowGlossWhereTheCameraSeesIt)
{
    const Vector lamp{0.6f, -1.2f, -0.3f}, eye{0.4f, -2, 0.3f}, normal{0, -1, 0};
    const Color  gloss{0.5f, 0.25f, 1.0f};
    PhotonScene  scene(0, 0, 128);
    const int    plane = scene.AddShader(Glossy, gloss, Conductor, 3.0f);
    scene.SetSlot(plane, Roughness, kWhite * 0.3f);
    scene.AddScreen(plane, 0.0f, 1.5f);
    scene.Shine(Source::Point, lamp, 1000000);
    for (const Channel channel : {Channel::LightPath, Channel::Position})
        hvSetCameraAOVChannel(0, hvAddCameraAOV(0), channel);
    hvSetCameraUpVector(0, 0.3f, 0, 1);
    scene.LookFrom(eye, {0.3f, 0, -0.1f}, 40);
    scene.RenderFilm(16, 12);
    const std::vector<Color> paths = scene.Film(1), places = scene.Film(2);
    Color                    sum;
    for (std::size_t i = 0; i < paths.size(); ++i) {
        const Vector place{places[i].r, places[i].g, places[i].b};
        const Vector to_lamp = Normalized(lamp - place), to_eye = Normalized(eye - place);
        const float  light    = Dot(to_lamp, normal) / Dot(lamp - place, lamp - place);
        const Color  expected = kTint * gloss * (4 * kPi * Ward(to_eye, to_lamp, normal, 0.3f) * light);
        ExpectColor(paths[i], expected, 0.05f);  // 5 % of the brightest, some 500 photons
        sum += expected;
    }
    ExpectShare(Sum(paths), sum, 5e-3f);
}

// With a seed the number of threads changes no bit of picture, splats and cells, in a room with glass, gloss and all
// kinds of light.
TEST(Photons, SeededRendersAreEqualForAnyNumberOfThreads)
{
    std::vector<Color> expected;
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
        std::vector<Color>  all   = scene.RenderFilm(24, 16);
        const DensityCells& cells = Objects[RootObject].parts[0].tetragonCells;
        for (const std::vector<Color>& more : {scene.Film(1), cells.front, cells.back}) {
            EXPECT_GT(Sum(more).g, 0.0f);
            all.insert(all.end(), more.begin(), more.end());
        }
        EXPECT_GT(Photons.size(), 100u);
        if (threads == 1) expected = all;
        EXPECT_TRUE(all == expected) << threads << " threads";
    }
}

// Sums that do not depend on their order must hold the weakest photons beside the strongest: a light of a millionth of
// the colour and a thousand times the photons of another gives all of its power.
TEST(Photons, SeededDepositsKeepDimLightsBesideBrightOnes)
{
    PhotonScene scene;
    scene.AddCube(scene.AddMatte(kFaint), -1);
    hvSetPointLightPhoton(AddPointLight({0.3f, 0, 0}, {1e6f, 0, 0}), 50);
    hvSetPointLightPhoton(AddPointLight({-0.3f, 0, 0}, {0, 1, 0}), 50000);
    hvInitialize();
    EXPECT_NEAR(AllCellPower().g / kFaint, 4 * kPi, 1e-4f * 4 * kPi);
}

// The renderer stage may run again: cells and light paths then hold one cast, not two.
TEST(Photons, ASecondCastStartsAnew)
{
    PhotonScene scene;
    const int   floor = scene.AddShader(Glossy, kWhite, Conductor, 5.0f);
    scene.SetSlot(floor, Lambertian, kWhite * 0.5f);
    scene.SetSlot(floor, Roughness, kWhite * 0.4f);
    scene.AddFloor(floor);
    scene.LookFrom({0, -2, 2}, {0, 0, 0}, 60);
    scene.Shine(Source::Point, {0.2f, 1, 1}, 2000);
    hvSetCameraResolution(0, 8, 8);
    const int aov = hvAddCameraAOV(0);
    hvSetCameraAOVChannel(0, aov, Channel::LightPath);
    hvInitialize();
    const std::vector<Color> film = scene.Film(aov), cells = CellPower(true);
    EXPECT_GT(Sum(film).g, 0.0f);
    hvInitializeRenderer();
    EXPECT_EQ(scene.Film(aov), film);
    EXPECT_EQ(CellPower(true), cells);
}

// A face of 4 m2 has n x n cells with the smallest n below 255 at which they are strictly smaller than the resolution;
// one without diffuse light has one. Even light fills them evenly, on tetragons as on triangles.
TEST(Photons, CellsFollowTheResolution)
{
    const std::tuple<float, Element, std::size_t> cases[] = {
        {5.0f, Lambertian, 1},    {4.0f, Lambertian, 2}, {0.3f, Lambertian, 4}, {7e-5f, Lambertian, 240},
        {1e-6f, Lambertian, 255}, {0.3f, Specular, 1},   {0.0f, Lambertian, 0}};
    for (const auto& [resolution, element, size] : cases) {
        PhotonScene  scene(1, resolution);
        const int    floor = scene.AddShader(element, kWhite * 0.5f), part = hvAddPart(0);
        const int    triangle[] = {0, 1, 2};
        const Vector corners[]  = {{2, -1, 0}, {4, -1, 0}, {3, 1, 0}};
        hvSetShaderID(0, part, floor);
        hvAddPositions(0, part, 3, &corners[0].x);
        hvAddTriangles(0, part, 1, triangle);
        scene.AddFloor(floor);
        scene.Shine(Source::Beam, {0, 0, 1}, 200000);
        hvInitialize();
        const std::vector<Part>&  parts  = Objects[RootObject].parts;
        const std::vector<Color>& square = parts[1].tetragonCells.front;
        EXPECT_EQ(square.size(), size * size);
        if (size > 4 || element == Specular) continue;
        for (const auto* cells : {&square, &parts[0].triangleCells.front})
            for (const Color& cell : *cells) ExpectShare(cell, kTint * 0.5f, 0.04f);  // some 2000 photons
    }
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
