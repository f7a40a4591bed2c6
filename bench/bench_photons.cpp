// Photons: the tree over a million of them and lookups in it, beside nanoflann where there is one; and for scene
// folders the cast by kind of light, and what caustic lookups take of a render.

#include "hvx.h"
#include "lights/lights.h"
#include "neighbour_search.h"
#include "output/output.h"
#include "pcg32.h"
#include "session/session.h"
#include "session/settings.h"
#include "timing.h"
#include "transport/photon_tree.h"
#include "transport/transport.h"

#include <CLI/CLI.hpp>

#include <cstdio>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace {

using hv::Vector;

struct Options {
    std::vector<std::string> scenes;
    int                      photons = 1000000, runs = 5, frames = 8, width = 480, height = 270;
    std::uint64_t            seed = 0;
    bool                     tree = true;
};

// ---- A million photons on a floor, a wall and a ball, or in a few filaments and a focus on the floor alone ----

constexpr float  kBallRadius = 0.5f;
constexpr Vector kBall{0.3f, 0.5f, -0.4f};

hv::Photon MakePhoton(Vector position, Vector normal, Pcg32& random)
{
    const Vector way{random.Uniform() - 0.5f, random.Uniform() - 0.5f, random.Uniform() - 0.5f};
    return {position, hv::kWhite, hv::EncodeDirection(normal + way), hv::EncodeDirection(normal)};
}

/// A point in the plane about (0, 0): on one side of one of some bent arcs, close to it.
Vector FilamentPoint(std::uint32_t arcs, Pcg32& random)
{
    Pcg32       shape(random.Next() % arcs, 5);
    const float x = 2.0f * shape.Uniform() - 1.0f, y = 2.0f * shape.Uniform() - 1.0f;
    const float size = 0.1f + 0.6f * shape.Uniform(), lobes = 1.0f + static_cast<float>(shape.Next() % 4);
    const float turn = (2.0f + 4.0f * shape.Uniform()) * random.Uniform(), u = random.Uniform();
    const float away = size * (1.0f + 0.3f * std::cos(lobes * turn)) + 0.1f * u * u * u;
    return {x + away * std::cos(turn), y + away * std::sin(turn), 0.0f};
}

Vector SpherePoint(Pcg32& random)
{
    const float z = 2.0f * random.Uniform() - 1.0f, turn = hv::kTwoPi * random.Uniform(),
                ring = hv::SafeRoot(1 - z * z);
    return {ring * std::cos(turn), ring * std::sin(turn), z};
}

/// Light everywhere, or caustics with nothing about them.
enum class Spread { Everywhere, Caustics };

hv::Photon DrawPhoton(Spread spread, Pcg32& random)
{
    const Vector up{0, 1, 0}, front{0, 0, 1};
    const float  choice = random.Uniform() * (spread == Spread::Everywhere ? 1.0f : 0.6f);
    const Vector arc    = FilamentPoint(spread == Spread::Everywhere ? 24 : 3, random);
    const Vector sphere = SpherePoint(random);
    if (choice < 0.45f) return MakePhoton({arc.x, 0, arc.y}, up, random);
    if (choice < 0.6f) {
        const float away = 0.05f * random.Uniform() * random.Uniform();
        return MakePhoton({0.9f + away * sphere.x, 0, 0.6f + away * sphere.y}, up, random);
    }
    if (choice < 0.75f) return MakePhoton({arc.x, 1.2f + 0.7f * arc.y, -2}, front, random);
    const Vector even{4 * random.Uniform() - 2, 0, 4 * random.Uniform() - 2};
    if (choice < 0.9f) return MakePhoton(even, up, random);
    return MakePhoton(kBall + kBallRadius * sphere, sphere, random);
}

/// What a camera before the wall sees through one place of its film: false where that is nothing.
bool Look(float x, float y, View& view)
{
    const Vector eye{0, 1.6f, 3.4f}, d = hv::Normalized({0.06f + 0.9f * x, -0.3f - 0.5f * y, -1});
    const Vector from_ball = eye - kBall;
    const float  b = Dot(from_ball, d), root = b * b - Dot(from_ball, from_ball) + kBallRadius * kBallRadius;
    if (root > 0.0f) {
        view.position = eye + (-b - std::sqrt(root)) * d;
        view.normal   = hv::Normalized(view.position - kBall);
        return true;
    }
    const float wall = (-2 - eye.z) / d.z, floor = d.y < 0.0f ? -eye.y / d.y : hv::kFarAway;
    view.position = eye + std::min(wall, floor) * d;
    view.normal   = floor < wall ? Vector{0, 1, 0} : Vector{0, 0, 1};
    return std::fabs(view.position.x) < 2.0f && view.position.y < 2.5f;
}

/// First vertices in raster order, jittered as those of a frame are.
std::vector<View> MakeViews(int width, int height)
{
    std::vector<View> views;
    Pcg32             random(2, 0);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            const float film_x = (static_cast<float>(x) + random.Uniform()) / static_cast<float>(width) - 0.5f;
            const float film_y = (static_cast<float>(y) + random.Uniform()) / static_cast<float>(height) - 0.5f;
            View        view{{}, {}, y};
            if (Look(film_x, film_y, view)) views.push_back(view);
        }
    return views;
}

std::vector<View> Shuffled(std::vector<View> views)
{
    Pcg32 random(3, 0);
    for (std::size_t n = views.size(); n > 1; --n) std::swap(views[n - 1], views[random.Next() % n]);
    return views;
}

/// Median radius about the views that holds this many photons.
float RadiusOf(std::size_t count, const std::vector<View>& views)
{
    std::vector<double> radii;
    for (std::size_t n = 0; n < views.size(); n += views.size() / 100) {
        std::vector<float> squares;
        for (const hv::Photon& photon : hv::Photons)
            squares.push_back(Dot(photon.position - views[n].position, photon.position - views[n].position));
        std::nth_element(squares.begin(), squares.begin() + static_cast<std::ptrdiff_t>(count), squares.end());
        radii.push_back(std::sqrt(squares[count]));
    }
    return static_cast<float>(Median(radii));
}

// ---- Lookups ----

/// The lookups of a render's first vertices, bounded by each other along a row.
void EstimateAll(const std::vector<View>& views)
{
    hv::Color sum;
    int       row = -1;
    for (const View& view : views) {
        if (view.row != row) hv::ForgetLastLookup(0);
        row = view.row;
        hv::RayRecord    ray;
        hv::SurfacePoint point;
        point.position         = view.position;
        point.geometric_normal = view.normal;
        sum += CausticEstimate(ray, point);
    }
    if (hv::Mean(sum) < 0.0f) std::puts("");  // keeps the lookups
}

void GatherAll(const std::vector<View>& views, float radius2, std::vector<float>& farthest)
{
    hv::NeighbourList list;
    for (std::size_t n = 0; n < views.size(); ++n) {
        GatherPhotons(list, views[n].position, views[n].normal, radius2);
        farthest[n] = list.count == hv::kNeighbourCount ? list.farthest_distance : 0.0f;
    }
}

/// A way to look up, and the times it took.
struct Contestant {
    std::string           name;
    std::function<void()> work;
    std::vector<double>   seconds;
};

/// Runs all in turn, so that a slow moment of the machine strikes all alike. The first round warms up.
void RunInTurn(std::vector<Contestant>& contestants, int runs)
{
    for (int run = 0; run <= runs; ++run)
        for (Contestant& contestant : contestants) {
            const double seconds = TimeOf(contestant.work);
            if (run > 0) contestant.seconds.push_back(seconds);
        }
}

/// Ratios are of times: above 1, the first of the list is faster.
void PrintLookups(const std::vector<Contestant>& contestants, double count)
{
    const double own = Median(contestants[0].seconds);
    for (const Contestant& contestant : contestants) {
        const double seconds = Median(contestant.seconds);
        std::printf("    %-32s %7.3f M lookups/s  %7.0f ns", contestant.name.c_str(), 1e-6 * count / seconds,
                    1e9 * seconds / count);
        if (&contestant != contestants.data()) std::printf("  %6.2f x the first", seconds / own);
        std::puts("");
    }
    std::fflush(stdout);
}

/// A tree to compare with: of either leaf size, over photons in the order of their cast or as our tree has sorted them.
struct Stick {
    std::string                      name;
    std::shared_ptr<NeighbourSearch> search;
};

#ifdef HV_WITH_NANOFLANN
std::vector<Stick> MakeSticks(const std::vector<hv::Photon>& cast)
{
    std::vector<Stick> sticks;
    for (const bool sorted : {false, true})
        for (const std::size_t leaf : {10u, 16u}) {
            Stick        stick{"nanoflann, leaf " + std::to_string(leaf) + (sorted ? ", sorted" : ""), {}};
            const double seconds =
                TimeOf([&] { stick.search = std::make_shared<NeighbourSearch>(sorted ? hv::Photons : cast, leaf); });
            std::printf("  %-34s %7.3f M photons/s built\n", stick.name.c_str(),
                        1e-6 * static_cast<double>(cast.size()) / seconds);
            sticks.push_back(std::move(stick));
        }
    return sticks;
}

/// The last one answers our question as well: without the photons from behind, which a plain search finds.
void AddSticks(std::vector<Contestant>& contestants, const std::vector<Stick>& sticks, const std::vector<View>& views,
               float radius2, std::vector<float>& plain, std::vector<float>& facing)
{
    for (const Stick& stick : sticks)
        contestants.push_back({stick.name, [&, radius2] { stick.search->Search(views, radius2, false, plain); }, {}});
    contestants.push_back({sticks.back().name + ", facing",
                           [&, radius2] { sticks.back().search->Search(views, radius2, true, facing); },
                           {}});
}
#else
std::vector<Stick> MakeSticks(const std::vector<hv::Photon>&) { return {}; }
void               AddSticks(std::vector<Contestant>&, const std::vector<Stick>&, const std::vector<View>&, float,
                             std::vector<float>&, std::vector<float>&)
{
}
#endif

double ShareOfEqual(const std::vector<float>& a, const std::vector<float>& b)
{
    std::size_t same = 0;
    for (std::size_t n = 0; n < a.size(); ++n) same += std::fabs(a[n] - b[n]) <= 1e-4f * b[n];
    return static_cast<double>(same) / static_cast<double>(a.size());
}

void BenchOrder(const std::vector<View>& views, bool is_raster, float radius, const std::vector<Stick>& sticks,
                int runs)
{
    std::printf("  %s order\n", is_raster ? "raster" : "random");
    const float             radius2 = radius * radius;
    std::vector<float>      own(views.size()), plain(views.size()), facing(views.size());
    std::vector<Contestant> contestants;
    if (is_raster) contestants.push_back({"estimate, bounded by the last", [&] { EstimateAll(views); }, {}});
    contestants.push_back({"lookup", [&] { GatherAll(views, radius2, own); }, {}});
    AddSticks(contestants, sticks, views, radius2, plain, facing);
    RunInTurn(contestants, runs);
    PrintLookups(contestants, static_cast<double>(views.size()));
    if (!sticks.empty())
        std::printf("    %.2f %% find what nanoflann finds facing the surface, which is %.2f %% of the time all\n",
                    100.0 * ShareOfEqual(own, facing), 100.0 * ShareOfEqual(plain, facing));
}

void BenchBuild(const std::vector<hv::Photon>& cast, int runs)
{
    for (const int threads : {1, 0}) {
        std::vector<double> seconds;
        hvxSetThreadCount(threads);
        for (int run = 0; run < runs; ++run) {
            hv::Photons = cast;
            seconds.push_back(TimeOf(hv::BuildPhotonTree));
        }
        std::printf("  tree, by %-25s %7.3f M photons/s built\n", threads == 1 ? "1 thread" : "all threads",
                    1e-6 * static_cast<double>(cast.size()) / Median(seconds));
    }
}

void BenchTree(Spread spread, const Options& options)
{
    std::vector<hv::Photon> cast;
    Pcg32                   random(1, 0);
    for (int n = 0; n < options.photons; ++n) cast.push_back(DrawPhoton(spread, random));
    const std::vector<View> raster = MakeViews(640, 360), anywhere = Shuffled(raster);
    hv::Photons            = cast;
    const bool  spread_out = spread == Spread::Everywhere;
    const float some       = spread_out ? RadiusOf(200, raster) : 0.1f;
    for (const float radius : {some, spread_out ? 8.0f * some : 1.0f, 1e9f}) {
        hv::Settings.Radius = radius;
        std::printf("%s, radius %g m, %zu photons, %zu lookups\n", spread_out ? "light everywhere" : "caustics alone",
                    static_cast<double>(radius), cast.size(), raster.size());
        BenchBuild(cast, options.runs);
        const std::vector<Stick> sticks = MakeSticks(cast);
        BenchOrder(raster, true, radius, sticks, options.runs);
        BenchOrder(anywhere, false, radius, sticks, options.runs);
    }
    hv::ReleasePhotons();
}

// ---- Scenes ----

/// A kind of light, and how many photons each light of it casts.
struct LightKind {
    const char* name;
    void (*set_count)(int count);
    bool (*casts)();
};
constexpr LightKind kKinds[] = {
    {"parallel lights",
     [](int count) {
         for (hv::ParallelLight& light : hv::ParallelLights) light.photon = count;
     },
     [] { return !hv::ParallelLights.empty(); }},
    {"point lights",
     [](int count) {
         for (hv::PointLight& light : hv::PointLights) light.photon = count;
     },
     [] { return !hv::PointLights.empty(); }},
    {"geometry light", [](int count) { hv::GeometryLight.photon = count; },
     [] { return hv::GeometryLight.photon > 0 && hv::GeometryLight.area > 0.0f; }},
    {"sky", [](int count) { hv::SkyLight.photon = count; }, [] { return hv::SkyLight.photon > 0; }},
};

/// Casts the photons of one kind after the other, by one thread and by all.
void BenchCast(const std::vector<LightKind>& kinds, const Options& options)
{
    for (const LightKind& kind : kinds) {
        for (const LightKind& other : kinds) other.set_count(other.name == kind.name ? options.photons : 0);
        std::vector<Contestant> casts;
        for (const int threads : {1, 0})
            casts.push_back({threads == 1 ? "1 thread" : "all threads",
                             [threads] {
                                 hvxSetThreadCount(threads);
                                 hv::CastPhotons();
                             },
                             {}});
        RunInTurn(casts, options.runs);
        for (const Contestant& cast : casts)
            std::printf("  %-16s cast by %-12s %7.3f M photons/s, %zu kept of %d a light\n", kind.name,
                        cast.name.c_str(), 1e-6 * options.photons / Median(cast.seconds), hv::Photons.size(),
                        options.photons);
    }
    for (const LightKind& kind : kinds) kind.set_count(options.photons);
}

/// Frames of a render with the photons and, in turn, without: then a lookup returns at once.
struct Frames {
    std::vector<hv::Photon> photons;  ///< put aside
    std::vector<hv::KdNode> nodes;
    std::vector<double>     with, without;
};

bool NoteFrame(int finished, int, void* user)
{
    Frames& frames = *static_cast<Frames*>(user);
    if (finished > 1)  // the first frame is slower: it finds the order of the tree's lanes
        (hv::Photons.empty() ? frames.without : frames.with).push_back(1e-6 * static_cast<double>(hv::RenderTime));
    hv::Photons.swap(frames.photons);
    hv::KdNodes.swap(frames.nodes);
    return true;
}

void BenchShare()
{
    Frames frames;
    hv::CastPhotons();
    hv::BuildPhotonTree();
    const std::size_t count = hv::Photons.size();
    if (count == 0) {
        std::printf("  no photons in the tree\n");
        return;
    }
    hvxSetFrameCallback(NoteFrame, &frames);
    hvRender();
    hvxSetFrameCallback(nullptr, nullptr);
    const double with = Median(frames.with), without = Median(frames.without);
    std::printf("  a frame takes %.4f s with %zu photons in the tree, %.4f s without: lookups are %.1f %% of it\n",
                with, count, without, 100.0 * (with - without) / with);
    std::fflush(stdout);
}

/// Loads a scene with no pictures to write. Models are found from inside its folder, as the command-line host does it.
bool Load(const std::string& scene, const Options& options)
{
    hvStartup();
    if (hvxLoadScene((scene + "/").c_str()) < 0 || hvxGetCameraCount() < 1) return false;
    hvSetCameraResolution(0, options.width, options.height);
    hvSetCameraRegion(0, 0, 0, options.width, options.height);
    hvSetCameraSample(0, 2 * options.frames + 1);
    for (int aov = 0; aov < hvxGetCameraAOVCount(0); ++aov) hvSetCameraAOVName(0, aov, "");
    for (const LightKind& kind : kKinds) kind.set_count(options.photons);
    return true;
}

void BenchScene(const std::string& scene, const Options& options)
{
    std::printf("%s\n", std::filesystem::path(scene).filename().c_str());
    if (!Load(scene, options)) {
        std::fprintf(stderr, "%s is no scene with a camera\n", scene.c_str());
    } else {
        hvInitialize();  // which clears the counts of lights that are off
        std::vector<LightKind> kinds;
        for (const LightKind& kind : kKinds)
            if (kind.casts()) kinds.push_back(kind);
        BenchCast(kinds, options);
        BenchShare();
    }
    hvFinalize();
    hvShutdown();
}

}  // namespace

int main(int argc, char** argv)
{
    Options  options;
    CLI::App app{"Photons cast, sorted into their tree and looked up"};
    app.add_option("scene", options.scenes, "scene folders")->check(CLI::ExistingDirectory);
    app.add_option("--photons", options.photons, "photons of the tree, and cast by each light")
        ->check(CLI::Range(1000, 100000000));
    app.add_option("--runs", options.runs, "runs of which the median counts")->check(CLI::Range(1, 1000));
    app.add_option("--frames", options.frames, "frames with photons, and as many without")->check(CLI::Range(1, 1000));
    app.add_option("--seed", options.seed, "fixes the random numbers, which makes sums order-free; 0: not");
    app.add_flag("!--no-tree", options.tree, "scenes only");
    CLI11_PARSE(app, argc, argv);

    hvxSetReport(false);
    if (options.seed != 0) hvxSetSeed(options.seed);
    if (options.tree)
        for (const Spread spread : {Spread::Caustics, Spread::Everywhere}) BenchTree(spread, options);
    const std::filesystem::path start = std::filesystem::current_path();
    for (const std::string& scene : options.scenes) {
        const std::string folder = std::filesystem::canonical(start / scene).string();
        std::filesystem::current_path(folder);
        BenchScene(folder, options);
        std::filesystem::current_path(start);
    }
    return 0;
}
