#pragma once

#include "ray_set.h"

namespace hv {
struct Part;
}

/// Shoots rays [first, last) of a set as thread number `thread` and writes their answers.
using Shoot = void (*)(const RaySet& set, std::size_t first, std::size_t last, int thread, Answer* answers);

/// Through TraceClosest and TraceOcclusion, over Objects[0].
void ShootOwn(const RaySet& set, std::size_t first, std::size_t last, int thread, Answer* answers);

/// Through rtcIntersect1 and rtcOccluded1 of a default scene; between the calls that make and release it. A scene holds
/// the triangles of a part, or its cylinders as flat Hermite curves cut into `pieces`.
void MakeEmbreeScene(const hv::Part& part);
void MakeEmbreeCurves(const hv::Part& part, unsigned pieces);
void ShootEmbree(const RaySet& set, std::size_t first, std::size_t last, int thread, Answer* answers);
void ReleaseEmbreeScene();
