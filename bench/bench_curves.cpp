// Shoots rays at strands of hair through the library's walks and, where it is there, through Embree's flat Hermite
// curves with as many pieces a segment: million rays per second, the ratio of the two, and how many answers differ and
// why. Two models: a HAIR file and a fur ball of a million segments.

#include "accel/accel.h"
#include "accel/primitives.h"
#include "model.h"
#include "pcg32.h"
#include "race.h"
#include "recipe.h"
#include "session/settings.h"
#include "shading/shading.h"

#include <CLI/CLI.hpp>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>

namespace {

using hv::Vector;

constexpr unsigned kPieces = 8;  ///< of a segment, in both walkers

struct Options {
    std::string      file;
    View             view;
    int              segments = 1'000'000;
    std::vector<int> threads{1, hv::TeamSize()};
    int              runs = 5;
};

void AddOptions(CLI::App& app, Options& options)
{
    if (const char* const data = std::getenv("HV_TEST_DATA")) options.file = std::string(data) + "/hair/straight.hair";
    options.view.size = 512;
    app.add_option("file", options.file, "HAIR file; default: hair/straight.hair below HV_TEST_DATA");
    app.add_option("--segments", options.segments, "of the fur ball, 0 for none")->check(CLI::Range(0, 100'000'000));
    app.add_option("--fov", options.view.field_of_view, "field of view, degrees");
    app.add_option("--size", options.view.size, "pixels on a side")->check(CLI::Range(1, 8192));
    app.add_option("--threads", options.threads, "thread numbers to time")->check(CLI::Range(1, hv::kMaxThreads));
    app.add_option("--runs", options.runs, "timed runs; the median counts")->check(CLI::Range(1, 1000));
}

/// Starts a scene of one empty part.
hv::Part& NewPart()
{
    hv::Shaders.clear();
    hv::EnsureDefaultShader();
    hv::PrepareShaders();
    hv::Objects.assign(1, {});
    hv::RootObject = 0;
    return hv::Objects[0].parts.emplace_back();
}

/// Appends a strand of even radius. The tangent of a vertex points along the segments that meet there. All vertices get
/// one, which a scene's last ones do not: both walkers are to see all strands.
void AddStrand(hv::Part& part, const std::vector<Vector>& points, float radius)
{
    const auto first = static_cast<std::uint32_t>(part.positions.size());
    for (std::size_t n = 0; n < points.size(); ++n) {
        const Vector ahead = points[std::min(n + 1, points.size() - 1)] - points[n == 0 ? 0 : n - 1];
        part.positions.push_back(points[n]);
        part.tangents.push_back(hv::PackDirection(ahead));
        part.scalars[0].values.push_back(radius);
        if (n + 1 < points.size()) part.cylinders.push_back(first + static_cast<std::uint32_t>(n));
    }
}

/// Reads a HAIR file whose strands all have its default number of segments and its default thickness.
bool ReadStrands(const std::string& path, hv::Part& part)
{
    std::ifstream file(path, std::ios::binary);
    struct Header {
        char          signature[4];
        std::uint32_t strand_count, point_count, arrays, segments;
        float         thickness;
        char          rest[104];
    } header;
    static_assert(sizeof(Header) == 128);
    if (!file.read(reinterpret_cast<char*>(&header), sizeof(header))) return false;
    if (std::memcmp(header.signature, "HAIR", 4) != 0 || (header.arrays & 3) != 2) return false;
    std::vector<Vector> points(std::size_t{header.segments} + 1);
    for (std::uint32_t n = 0; n < header.strand_count; ++n) {
        if (!file.read(reinterpret_cast<char*>(points.data()),
                       static_cast<std::streamsize>(points.size() * sizeof(Vector))))
            break;
        AddStrand(part, points, 0.5f * header.thickness);
    }
    return !part.cylinders.empty();
}

Vector RandomDirection(Pcg32& random)
{
    const float z = 1.0f - 2.0f * random.Uniform(), phi = hv::kTwoPi * random.Uniform();
    const float r = std::sqrt(std::max(0.0f, 1.0f - z * z));
    return {r * std::cos(phi), r * std::sin(phi), z};
}

/// Strands of ten segments, each about a unit long, that stand out from a ball and curl.
void GrowFur(int segments, hv::Part& part)
{
    constexpr int kLength = 10;
    const int     strands = segments / kLength;
    const float   ball    = 0.1f * std::sqrt(static_cast<float>(std::max(strands, 1)));
    Pcg32         random(4, 4);
    for (int n = 0; n < strands; ++n) {
        const Vector        normal = RandomDirection(random), curl = RandomDirection(random);
        std::vector<Vector> points{ball * normal};
        Vector              direction = normal;
        for (int k = 0; k < kLength; ++k) {
            direction = hv::Normalized(direction + 0.2f * curl + 0.1f * RandomDirection(random));
            points.push_back(points.back() + direction);
        }
        AddStrand(part, points, 0.01f);
    }
}

/// Points on the strands that camera rays met, drawn back from the strand by a little more than its diameter along the
/// direction of the ray that is to leave. Over and over until there are as many rays as in `camera`.
template <class MakeRay>
RaySet LeaveStrands(const char* name, RayKind kind, const RaySet& camera, const std::vector<Vector>& starts,
                    MakeRay&& make_ray)
{
    RaySet set{name, kind, camera.radius, {}};
    for (std::size_t n = 0; !starts.empty() && n < camera.rays.size(); ++n)
        set.rays.push_back(make_ray(starts[n % starts.size()]));
    return set;
}

std::vector<RaySet> MakeSets(const hv::Part& part, const View& view)
{
    const hv::Box       box    = hv::Objects[0].box;
    const Vector        center = 0.5f * (box.min + box.max);
    RaySet              camera = MakeCameraRays(box, view);
    std::vector<Answer> answers(camera.rays.size());
    std::vector<Vector> starts;
    ShootAll(ShootOwn, camera, hv::TeamSize(), answers);
    for (std::size_t n = 0; n < answers.size(); ++n)
        if (answers[n].triangle != hv::kNone)
            starts.push_back(camera.rays[n].origin + answers[n].t * camera.rays[n].direction);

    const float clearance = 2.5f * part.scalars[0].values[0];
    Pcg32       bounce_random(2, 2), shadow_random(3, 3);
    RaySet      bounce = LeaveStrands("bounce", RayKind::Closest, camera, starts, [&](Vector start) {
        const Vector d = RandomDirection(bounce_random);
        return FileRay{start + clearance * d, hv::kFarAway, d, hv::kNone};
    });
    RaySet      shadow = LeaveStrands("shadow", RayKind::Occlusion, camera, starts, [&](Vector start) {
        const Vector towards = center + 2.0f * camera.radius * RandomDirection(shadow_random) - start;
        const float  length  = std::sqrt(hv::Dot(towards, towards));
        const Vector d       = hv::Normalized(towards);
        return FileRay{start + clearance * d, length - clearance, d, hv::kNone};
    });
    return {std::move(camera), std::move(bounce), std::move(shadow)};
}

#ifdef HV_WITH_EMBREE

/// Whether the segment would be met if its strand were `share` times as thick.
bool IsMet(const hv::Part& part, std::uint32_t segment, const FileRay& ray, float share)
{
    const std::uint32_t vertex = part.cylinders[segment];
    hv::Part            alone;
    alone.cylinders = {0};
    for (const std::uint32_t v : {vertex, vertex + 1}) {
        alone.positions.push_back(part.positions[v]);
        alone.tangents.push_back(part.tangents[v]);
        alone.scalars[0].values.push_back(share * hv::RadiusAt(part, v));
    }
    hv::RayRecord record;
    record.origin    = ray.origin;
    record.direction = ray.direction;
    hv::CylinderHit hit;
    return hv::IntersectCylinder(alone, 0, record, hit);
}

/// Why a ray met a segment with one walker only. Embree passes over what lies within a diameter of the origin, and
/// mitres its ribbons at the ends of the pieces, where this side cuts straight ones by planes.
enum class Reason { Near, Edge, Joint };

Reason ReasonOf(const hv::Part& part, const FileRay& ray, const Answer& answer)
{
    if (answer.t < 2.1f * hv::RadiusAt(part, 0)) return Reason::Near;
    const bool is_edge = IsMet(part, answer.triangle, ray, 1.1f) && !IsMet(part, answer.triangle, ray, 0.9f);
    return is_edge ? Reason::Edge : Reason::Joint;
}

void PrintDifferences(const hv::Part& part, const RaySet& set, const std::vector<Answer>& own,
                      const std::vector<Answer>& other)
{
    const double      rays = 0.01 * static_cast<double>(set.rays.size());
    const Differences all  = Compare(set, own, other, 0.01f * hv::RadiusAt(part, 0) / set.radius);
    std::printf("  %-8s hit in one only %.3f %%", set.name.c_str(), static_cast<double>(all.one_sided) / rays);
    if (set.kind == RayKind::Closest) {
        std::size_t counts[3] = {}, shifted = 0;
        for (std::size_t n = 0; n < set.rays.size(); ++n) {
            if (own[n].triangle == other[n].triangle) {
                shifted += own[n].triangle != hv::kNone && std::fabs(own[n].t - other[n].t) > hv::RadiusAt(part, 0);
            } else {
                ++counts[static_cast<int>(ReasonOf(part, set.rays[n], own[n].t < other[n].t ? own[n] : other[n]))];
            }
        }
        std::printf(
            ", another segment %.3f %%: near the origin %.3f, edge %.3f, joint %.3f; same one elsewhere %.3f %%",
            static_cast<double>(counts[0] + counts[1] + counts[2]) / rays, static_cast<double>(counts[0]) / rays,
            static_cast<double>(counts[1]) / rays, static_cast<double>(counts[2]) / rays,
            static_cast<double>(shifted) / rays);
    }
    std::printf("\n");
}

#endif

void Bench(const char* name, const Options& options)
{
    const hv::Part& part = hv::Objects[0].parts[0];
    BuildModel();
    const hv::Object& object = hv::Objects[0];
    std::printf("%s: %zu segments, %zu curve nodes, %zu bundles\n", name, part.cylinders.size(),
                object.curveNodes.size(), object.curveBundles.size());
#ifdef HV_WITH_EMBREE
    MakeEmbreeCurves(part, kPieces);
#endif
    for (const RaySet& set : MakeSets(part, options.view)) {
        std::vector<Walker> walkers = MakeWalkers(set);
        for (const int threads : options.threads) TimeSet(set, threads, options.runs, walkers);
#ifdef HV_WITH_EMBREE
        PrintDifferences(part, set, walkers[0].answers, walkers[1].answers);
#endif
    }
#ifdef HV_WITH_EMBREE
    ReleaseEmbreeScene();
#endif
}

}  // namespace

int main(int argc, char** argv)
{
    Options  options;
    CLI::App app{"Rays per second on strands of hair"};
    AddOptions(app, options);
    CLI11_PARSE(app, argc, argv);
    hv::CurrentFrame = 1;
    if (!options.file.empty()) {
        if (!ReadStrands(options.file, NewPart())) {
            std::fprintf(stderr, "cannot use %s\n", options.file.c_str());
            return 1;
        }
        Bench(options.file.c_str(), options);
    }
    if (options.segments >= 10) {
        GrowFur(options.segments, NewPart());
        Bench("fur ball", options);
    }
    return 0;
}
