#pragma once

#include "walker.h"

/// Walkers side by side over one set of rays.

struct Walker {
    const char*         name;
    Shoot               shoot;
    std::vector<Answer> answers;
    std::vector<double> seconds;
};

/// The library's walker and, in builds that have it, Embree's.
std::vector<Walker> MakeWalkers(const RaySet& set);

/// Seconds that a team of `threads` takes for a whole set.
double ShootAll(Shoot shoot, const RaySet& set, int threads, std::vector<Answer>& answers);

/// Shoots a set `runs` times with each walker in turn, after a turn to warm up, and prints million rays per second and
/// the ratio of the medians. The answers of the last run stay in the walkers.
void TimeSet(const RaySet& set, int threads, int runs, std::vector<Walker>& walkers);
