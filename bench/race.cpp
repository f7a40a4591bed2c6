#include "race.h"

#include "timing.h"

#include <omp.h>

#include <atomic>
#include <cstdio>

namespace {

constexpr std::size_t kSpan = 4096;  ///< rays that a thread takes at a time

/// On a busy machine the fastest run says more than the middle one.
double Best(const std::vector<double>& seconds) { return *std::min_element(seconds.begin(), seconds.end()); }

}  // namespace

std::vector<Walker> MakeWalkers(const RaySet& set)
{
    std::vector<Walker> walkers;
    walkers.push_back({"halvorne", ShootOwn, std::vector<Answer>(set.rays.size()), {}});
#ifdef HV_WITH_EMBREE
    walkers.push_back({"Embree", ShootEmbree, std::vector<Answer>(set.rays.size()), {}});
#endif
    return walkers;
}

double ShootAll(Shoot shoot, const RaySet& set, int threads, std::vector<Answer>& answers)
{
    return TimeOf([&] {
        std::atomic<std::size_t> next{0};
#pragma omp parallel num_threads(threads)
        for (std::size_t first = next.fetch_add(kSpan); first < set.rays.size(); first = next.fetch_add(kSpan))
            shoot(set, first, std::min(first + kSpan, set.rays.size()), omp_get_thread_num(), answers.data());
    });
}

void TimeSet(const RaySet& set, int threads, int runs, std::vector<Walker>& walkers)
{
    for (Walker& walker : walkers) walker.seconds.clear();
    for (Walker& walker : walkers) ShootAll(walker.shoot, set, threads, walker.answers);  // warms up, not counted
    for (int run = 0; run < runs; ++run)
        for (Walker& walker : walkers) walker.seconds.push_back(ShootAll(walker.shoot, set, threads, walker.answers));

    const double millions = 1e-6 * static_cast<double>(set.rays.size());
    std::printf("  %-8s %3d threads", set.name.c_str(), threads);
    for (const Walker& walker : walkers)
        std::printf("  %s %8.3f Mrays/s", walker.name, millions / Median(walker.seconds));
    if (walkers.size() > 1)
        std::printf("  ratio %.3f, of the best runs %.3f", Median(walkers[1].seconds) / Median(walkers[0].seconds),
                    Best(walkers[1].seconds) / Best(walkers[0].seconds));
    std::printf("\n");
    std::fflush(stdout);
}
