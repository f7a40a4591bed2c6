// Shoots reproducible ray sets through the library's walks and, where it is there, through Embree: million rays per
// second, the ratio of the two, and how many answers differ.

#include "accel/accel.h"
#include "model.h"
#include "race.h"
#include "recipe.h"
#include "session/settings.h"
#include "timing.h"

#include <CLI/CLI.hpp>

#include <cstdio>

namespace {

struct Options {
    std::string              model;
    std::vector<std::string> ray_files;
    std::string              write_rays, write_answers, compare;
    std::vector<float>       eye, target;
    View                     view;
    std::vector<int>         threads{1, hv::TeamSize()};
    int                      runs          = 5;
    float                    tolerance     = 1e-5f;
    bool                     log_occlusion = false;
};

void AddOptions(CLI::App& app, Options& options)
{
    app.add_option("model", options.model, "OBJ file")->required()->check(CLI::ExistingFile);
    app.add_option("--rays", options.ray_files, "ray files to shoot instead of the made sets");
    app.add_option("--write-rays", options.write_rays, "prefix: writes the sets as PREFIX-camera.rays and so on");
    app.add_option("--write-answers", options.write_answers, "prefix: writes the library's answers");
    app.add_option("--compare", options.compare, "prefix: compares with answer files PREFIX-camera.answers and so on");
    app.add_option("--eye", options.eye, "eye point")->expected(3);
    app.add_option("--target", options.target, "point looked at")->expected(3);
    app.add_option("--fov", options.view.field_of_view, "field of view, degrees");
    app.add_option("--size", options.view.size, "pixels on a side")->check(CLI::Range(1, 8192));
    app.add_option("--threads", options.threads, "thread numbers to time")->check(CLI::Range(1, hv::kMaxThreads));
    app.add_option("--runs", options.runs, "timed runs; the median counts")->check(CLI::Range(1, 1000));
    app.add_option("--tolerance", options.tolerance, "of distances, times the radius of the scene");
    app.add_flag("--log-occlusion", options.log_occlusion, "count blocked rays as the first frame does");
}

void SetPoint(const std::vector<float>& values, hv::Vector& point, bool& given)
{
    given = values.size() == 3;
    if (given) point = {values[0], values[1], values[2]};
}

void PrintDifferences(const char* with, const RaySet& set, const std::vector<Answer>& a, const std::vector<Answer>& b,
                      float tolerance)
{
    const Differences d = Compare(set, a, b, tolerance);
    std::printf("  %-8s against %s: %zu hit in one only, %zu other distances, %zu other triangles of %zu rays\n",
                set.name.c_str(), with, d.one_sided, d.distance, d.triangle, set.rays.size());
}

/// Every second ray of a set, from the first or from the second on.
RaySet Half(const RaySet& set, std::size_t first)
{
    RaySet half{set.name, set.kind, set.radius, {}};
    for (std::size_t n = first; n < set.rays.size(); n += 2) half.rays.push_back(set.rays[n]);
    return half;
}

/// What the order of lanes that the first frame of a render finds gains over the order by area: blocked rays are
/// counted on one half of a set, both orders are timed on the other.
void TimeTuning(const RaySet& set, const Options& options)
{
    hv::Object&         object = hv::Objects[0];
    const RaySet        logged = Half(set, 0), timed = Half(set, 1);
    std::vector<Answer> answers(timed.rays.size() + 1);
    const int           threads = options.threads.back();

    hv::ClearVisits(object);
    hv::CurrentFrame = 0;
    ShootAll(ShootOwn, logged, threads, answers);
    hv::CurrentFrame = 1;
    std::vector<double> by_area, tuned;
    for (int run = 0; run <= options.runs; ++run) {
        hv::SortWideLanes(object);
        const double area = ShootAll(ShootOwn, timed, threads, answers);
        hv::TuneChildOrder(object);
        const double visits = ShootAll(ShootOwn, timed, threads, answers);
        if (run == 0) continue;  // warms up
        by_area.push_back(area);
        tuned.push_back(visits);
    }
    std::printf("  %-8s %3d threads  lanes by area %8.3f, by blocked rays %8.3f Mrays/s  ratio %.3f\n",
                set.name.c_str(), threads, 1e-6 * static_cast<double>(timed.rays.size()) / Median(by_area),
                1e-6 * static_cast<double>(timed.rays.size()) / Median(tuned), Median(by_area) / Median(tuned));
}

void BenchSet(const RaySet& set, const Options& options)
{
    std::vector<Walker> walkers = MakeWalkers(set);
    for (const int threads : options.threads) TimeSet(set, threads, options.runs, walkers);
    if (walkers.size() > 1) PrintDifferences("Embree", set, walkers[0].answers, walkers[1].answers, options.tolerance);
    if (set.kind == RayKind::Occlusion) TimeTuning(set, options);

    const std::string file = "-" + set.name + ".answers";
    if (!options.write_answers.empty() && !WriteAnswers(options.write_answers + file, walkers[0].answers))
        std::fprintf(stderr, "cannot write %s\n", (options.write_answers + file).c_str());
    std::vector<Answer> given;
    if (options.compare.empty()) return;
    if (!ReadAnswers(options.compare + file, given) || given.size() != set.rays.size())
        std::fprintf(stderr, "cannot use %s\n", (options.compare + file).c_str());
    else
        PrintDifferences("the file", set, walkers[0].answers, given, options.tolerance);
}

std::vector<RaySet> GatherSets(const Options& options)
{
    std::vector<RaySet> sets;
    for (const std::string& path : options.ray_files) {
        RaySet set;
        if (!ReadRays(path, set))
            std::fprintf(stderr, "cannot read %s\n", path.c_str());
        else {
            set.name = std::filesystem::path(path).stem().string();
            sets.push_back(std::move(set));
        }
    }
    if (options.ray_files.empty())
        for (RaySet& set : MakeRaySets(hv::Objects[0].parts[0], options.view)) sets.push_back(std::move(set));
    return sets;
}

}  // namespace

int main(int argc, char** argv)
{
    Options  options;
    CLI::App app{"Rays per second on one model"};
    AddOptions(app, options);
    CLI11_PARSE(app, argc, argv);
    SetPoint(options.eye, options.view.eye, options.view.has_eye);
    SetPoint(options.target, options.view.target, options.view.has_target);

    if (!LoadModel(options.model)) return 1;
    BuildModel();
    hv::CurrentFrame = options.log_occlusion ? 0 : 1;
#ifdef HV_WITH_EMBREE
    MakeEmbreeScene(hv::Objects[0].parts[0]);
#endif
    const std::vector<RaySet> sets = GatherSets(options);
    for (const RaySet& set : sets) {
        if (!options.write_rays.empty()) WriteRays(options.write_rays + "-" + set.name + ".rays", set);
        BenchSet(set, options);
    }
#ifdef HV_WITH_EMBREE
    ReleaseEmbreeScene();
#endif
    return sets.empty() ? 1 : 0;
}
