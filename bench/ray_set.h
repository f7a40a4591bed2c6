#pragma once

#include "base/vector.h"

#include <cstdint>
#include <string>
#include <vector>

/// Rays and answers in the file formats that benchmark programs exchange, little endian.

enum class RayKind : std::uint32_t { Closest = 0, Occlusion = 1 };

struct FileRay {
    hv::Vector    origin;
    float         tmax;
    hv::Vector    direction;  ///< unit length
    std::uint32_t from;       ///< triangle that the ray leaves, counted in file order; kNone for a camera ray
};
static_assert(sizeof(FileRay) == 32);

struct RaySet {
    std::string          name;
    RayKind              kind   = RayKind::Closest;
    float                radius = 1;  ///< of the scene: the unit of tolerances
    std::vector<FileRay> rays;
};

struct Answer {
    float         t;         ///< closest: distance, infinity on a miss; occlusion: 1 when blocked, else 0
    std::uint32_t triangle;  ///< kNone on a miss and in occlusion
};
static_assert(sizeof(Answer) == 8);

bool ReadRays(const std::string& path, RaySet& set);
bool WriteRays(const std::string& path, const RaySet& set);
bool WriteAnswers(const std::string& path, const std::vector<Answer>& answers);
bool ReadAnswers(const std::string& path, std::vector<Answer>& answers);

/// Counts of rays that two walkers see differently.
struct Differences {
    std::size_t one_sided = 0;  ///< only one of them has a hit
    std::size_t distance  = 0;  ///< both hit, farther apart than the tolerance times the radius
    std::size_t triangle  = 0;  ///< both hit within the tolerance, but other triangles, which may be ties
};

Differences Compare(const RaySet& set, const std::vector<Answer>& a, const std::vector<Answer>& b, float tolerance);
