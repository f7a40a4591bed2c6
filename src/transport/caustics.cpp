#include "base/float8.h"
#include "base/per_thread.h"
#include "session/settings.h"
#include "transport/photon_tree.h"
#include "transport/transport.h"

#include <algorithm>
#include <bit>

namespace hv {

namespace {

/// Where a thread looked last from the first vertex of a path, and the squared radius of the 32 photons there; kFarAway
/// without any.
struct LastLookup {
    Vector position;
    float  radius2 = kFarAway;
};

/// One slot a thread: reset by the build and before every row of pixels.
PerThread<LastLookup> LastLookups;

/// Whether a photon of this packed direction came from behind a surface. Only the sign counts: nothing is normalised.
bool CameFromBehind(std::uint16_t packed, Vector normal) { return Dot(UnpackedDirection(packed), normal) < 0.0f; }

/// Index of the largest of 32 distances.
std::uint32_t FindFarthest(const NeighbourList& list)
{
    const float*      d = list.distances;
    const Float8      a = Max(Load8(d), Load8(d + 8)), b = Max(Load8(d + 16), Load8(d + 24));
    alignas(32) float lanes[8];
    Store8(lanes, Max(a, b));
    const Float8 top   = Splat8(*std::max_element(lanes, lanes + 8));
    unsigned     found = 0;
    for (unsigned n = 0; n < 4; ++n) found |= Bits(LessEqual(top, Load8(d + 8 * n))) << (8 * n);
    return static_cast<std::uint32_t>(std::countr_zero(found));
}

/// Takes a photon into the list, in place of the farthest when it is full. Returns the squared radius left to search.
float Insert(NeighbourList& list, std::uint32_t photon, float distance, float radius2)
{
    if (list.count < kNeighbourCount) {
        list.distances[list.count] = distance;
        list.photons[list.count]   = photon;
        if (distance > list.farthest_distance) {
            list.farthest          = list.count;
            list.farthest_distance = distance;
        }
        return ++list.count == kNeighbourCount ? list.farthest_distance : radius2;
    }
    if (!(list.farthest_distance > distance)) return list.farthest_distance;
    list.distances[list.farthest] = distance;
    list.photons[list.farthest]   = photon;
    list.farthest                 = FindFarthest(list);
    return list.farthest_distance = list.distances[list.farthest];
}

/// Looks at all photons of a leaf. Returns the squared radius left to search.
float SearchLeaf(NeighbourList& list, const KdNode& leaf, Vector position, Vector normal, float radius2)
{
    for (std::uint32_t i = leaf.child; i < leaf.child + leaf.count; ++i) {
        const Photon& photon   = Photons[i];
        const Vector  offset   = photon.position - position;
        const float   distance = Dot(offset, offset);
        if (radius2 > distance && !CameFromBehind(photon.direction, normal))
            radius2 = Insert(list, i, distance, radius2);
    }
    return radius2;
}

/// Whether all photons below a node came from behind a surface. A node that may hold others gives false.
bool CameAllFromBehind(const DirectionBounds& bounds, Vector normal)
{
    constexpr float kStep = 1.0f / 127.0f, kRounding = 1e-4f;
    float           highest = 0.0f;  // of the dot product of such a direction and the normal
    for (int i = 0; i < 3; ++i)
        highest += normal[i] * kStep * static_cast<float>(normal[i] > 0.0f ? bounds.high[i] : bounds.low[i]);
    return highest < -kRounding;
}

/// A side left for later.
struct FarSide {
    std::uint32_t node;
    float         distance2;  ///< squared, to the plane before it
};

/// Goes down on the near sides and returns the leaf at their end, kNone where the near side is missing.
std::uint32_t Descend(std::uint32_t index, Vector position, float radius2, FarSide* stack, int& height)
{
    for (;;) {
        const KdNode& node = KdNodes[index];
        if (node.shape == KdShape::Leaf) return index;
        const float         d    = position[node.axis] - node.split;
        const std::uint32_t left = node.shape == KdShape::RightOnly ? kNone : node.child;
        const std::uint32_t right =
            node.shape == KdShape::LeftOnly ? kNone : node.child + (node.shape == KdShape::Both);
        const std::uint32_t near = d > 0.0f ? right : left, far = d > 0.0f ? left : right;
        if (far != kNone && d * d < radius2) stack[height++] = {far, d * d};
        if (near == kNone) return kNone;
        index = near;
    }
}

/// Radius in which the 32 nearest photons surely lie: they are those of the last lookup or nearer, so they lie in its
/// sphere grown by the way from there. A little more makes up for rounding.
float BoundedRadius2(const LastLookup& last, Vector position)
{
    const Vector way   = position - last.position;
    const float  bound = (SafeRoot(last.radius2) + SafeRoot(Dot(way, way))) * 1.000001f;
    return Settings.Radius > bound ? bound * bound : Settings.RadiusSquare;
}

Color PowerOf(const NeighbourList& list)
{
    Color power = kBlack;
    for (std::uint32_t n = 0; n < list.count; ++n) power += Photons[list.photons[n]].power;
    return power;
}

}  // namespace

void ForgetLastLookup(int thread) { LastLookups[thread].radius2 = kFarAway; }

void GatherPhotons(NeighbourList& list, Vector position, Vector normal, float radius2)
{
    list.count = list.farthest = 0;
    list.farthest_distance     = 0.0f;
    if (KdNodes.empty()) return;

    FarSide       stack[kKdDepthLimit + 1];
    int           height = 0;
    std::uint32_t index  = 0;
    for (;;) {
        index = Descend(index, position, radius2, stack, height);
        if (index != kNone) radius2 = SearchLeaf(list, KdNodes[index], position, normal, radius2);
        do {
            if (height == 0) return;
            --height;
        } while (!(stack[height].distance2 < radius2) || CameAllFromBehind(KdDirections[stack[height].node], normal));
        index = stack[height].node;
    }
}

Color CausticEstimate(const RayRecord& ray, const SurfacePoint& point)
{
    if (Photons.empty() || !(Settings.Radius >= 1e-8f)) return kBlack;
    LastLookup& last     = LastLookups[ray.thread];
    const bool  is_first = ray.depth == 0;
    const float radius2  = is_first ? BoundedRadius2(last, point.position) : Settings.RadiusSquare;

    NeighbourList list;
    GatherPhotons(list, point.position, point.geometric_normal, radius2);
    if (is_first) last = {point.position, list.count == kNeighbourCount ? list.farthest_distance : kFarAway};
    if (list.count < 2 || !(list.farthest_distance > 1e-20f)) return kBlack;
    return PowerOf(list) / (kPi * list.farthest_distance);
}

}  // namespace hv
