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

/// What photons are looked for.
struct Query {
    Vector position;
    float  normal[5];  ///< of the surface; the first two components once more, so that axes need no wrapping
};

/// Whether a photon of this packed direction came from behind a surface: the sign of the dot product with
/// DecodeDirection, for which nothing needs to be normalised.
bool CameFromBehind(std::uint16_t packed, const float* normal)
{
    const int axis = (packed & 3) - 1;
    if (axis < 0) return false;
    const auto term = [&](int n, int size) {
        const float product = normal[axis + n] * static_cast<float>(size);
        return packed >> 2 & kOctantBit[axis + n] ? -product : product;
    };
    return term(0, 31) + term(1, packed >> 10 & 31) + term(2, packed >> 5 & 31) < 0.0f;
}

/// Index of the largest of 32 distances.
std::uint32_t FindFarthest(const NeighbourList& list)
{
    const float* d = list.distances;
    const Float8 a = Load8(d), b = Load8(d + 8), c = Load8(d + 16), e = Load8(d + 24);
    const Float8 top   = SplatHighest(Max(Max(a, b), Max(c, e)));
    const auto   found = [top](Float8 lanes) { return Bits(LessEqual(top, lanes)); };
    return static_cast<std::uint32_t>(std::countr_zero(found(a) | found(b) << 8 | found(c) << 16 | found(e) << 24));
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
float SearchLeaf(NeighbourList& list, const KdNode& leaf, const Query& query, float radius2)
{
    for (std::uint32_t i = leaf.child; i < leaf.child + leaf.count; ++i) {
        const Photon& photon   = Photons[i];
        const Vector  offset   = photon.position - query.position;
        const float   distance = Dot(offset, offset);
        if (radius2 > distance && !CameFromBehind(photon.direction, query.normal))
            radius2 = Insert(list, i, distance, radius2);
    }
    return radius2;
}

/// Whether all photons below a node came from behind a surface. A node that may hold others gives false.
bool CameAllFromBehind(const DirectionBounds& bounds, const float* normal)
{
    constexpr float kStep = 1.0f / 127.0f, kRounding = 1e-4f;
    float           highest = 0.0f;  // of the dot product of such a direction and the normal
    for (int i = 0; i < 3; ++i)
        highest += normal[i] * kStep * static_cast<float>(normal[i] > 0.0f ? bounds.high[i] : bounds.low[i]);
    return highest < -kRounding;
}

/// A node whose turn comes, and how far its box is away: along each axis, and squared in all (Arya and Mount 1993). The
/// distance of one plane would not do: a caustic on a floor is never split along its height, and a lookup on the wall
/// above would search all of it.
struct Place {
    std::uint32_t node;
    Vector        away;
    float         distance2;
};

Place RootPlace(Vector position)
{
    const Vector away = Max(Max(PhotonBox.min - position, position - PhotonBox.max), Vector{});
    return {0, away, Dot(away, away)};
}

/// The side of a node that the position lies away from by `d`.
Place FarPlace(const Place& near, std::uint32_t child, int axis, float d)
{
    Place far      = {child, near.away, 0.0f};
    far.away[axis] = std::fabs(d);
    far.distance2  = Dot(far.away, far.away);
    return far;
}

/// Goes down on the near sides and leaves the far ones on the stack. Returns the leaf at the end, null where the near
/// side is missing.
const KdNode* Descend(Place place, Vector position, float radius2, Place* stack, int& height)
{
    for (;;) {
        const KdNode& node = KdNodes[place.node];
        if (node.shape == KdShape::Leaf) return &node;
        const float         d    = position[node.axis] - node.split;
        const std::uint32_t left = node.shape == KdShape::RightOnly ? kNone : node.child;
        const std::uint32_t right =
            node.shape == KdShape::LeftOnly ? kNone : node.child + (node.shape == KdShape::Both);
        const std::uint32_t near = d > 0.0f ? right : left, far = d > 0.0f ? left : right;
        if (far != kNone) {
            const Place place_there = FarPlace(place, far, node.axis, d);
            if (place_there.distance2 < radius2) stack[height++] = place_there;
        }
        if (near == kNone) return nullptr;
        place.node = near;
    }
}

/// Radius in which the 32 nearest photons lie: they are those of the last lookup or nearer, so they lie in its sphere
/// grown by the way from there. A little more makes up for rounding. Meant: where the surface turns between two
/// lookups, photons of the last one may come from behind now, and fewer than 32 are found.
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

    const Query query = {position, {normal.x, normal.y, normal.z, normal.x, normal.y}};
    Place       stack[kKdDepthLimit + 1];
    int         height = 0;
    stack[height++]    = RootPlace(position);
    while (height > 0) {
        const Place& place = stack[--height];
        if (!(place.distance2 < radius2) || CameAllFromBehind(KdDirections[place.node], query.normal)) continue;
        const KdNode* leaf = Descend(place, position, radius2, stack, height);
        if (leaf) radius2 = SearchLeaf(list, *leaf, query, radius2);
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
