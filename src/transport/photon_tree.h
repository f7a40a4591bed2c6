#pragma once

#include "base/box.h"
#include "base/vector.h"

#include <cstdint>
#include <vector>

/// The caustic photons of a render and the kd tree over them; private to this folder.
namespace hv {

/// Light that reached a diffuse surface over mirrors and lenses alone.
struct Photon {
    Vector        position;       ///< metres, world space
    Color         power;          ///< flux / pi, watts; before the colour of the surface
    std::uint16_t direction = 0;  ///< packed unit vector towards where the photon came from
    std::uint16_t normal    = 0;  ///< packed geometric normal at the hit; read by nothing
};
static_assert(sizeof(Photon) == 28);

enum class KdShape : std::uint8_t { Leaf = 0, LeftOnly = 1, RightOnly = 2, Both = 3 };

struct KdNode {
    std::uint32_t child = 0;  ///< first child, the right one of two behind it; in a leaf its first photon
    union {
        float         split;      ///< where the plane cuts the axis
        std::uint32_t count = 0;  ///< photons of a leaf
    };
    std::uint8_t axis  = 0;
    KdShape      shape = KdShape::Leaf;
};

/// Components of the unit directions that the photons of a node came from, in steps of 1/127, rounded outwards.
struct DirectionBounds {
    std::int8_t low[3], high[3];
};

/// Filled by the cast, sorted in place by BuildPhotonTree, emptied (storage kept) by ReleasePhotons; frozen while
/// frames are rendered. The root of the nodes is at 0; there are none without photons.
extern std::vector<Photon>          Photons;
extern std::vector<KdNode>          KdNodes;
extern std::vector<DirectionBounds> KdDirections;  ///< parallel
extern Box                          PhotonBox;

inline constexpr int           kKdDepthLimit   = 31;  ///< depth of the deepest leaves
inline constexpr std::uint32_t kNeighbourCount = 32;

/// The photons nearest to a point.
struct NeighbourList {
    std::uint32_t count             = 0;
    std::uint32_t farthest          = 0;           ///< entry with the largest distance
    float         farthest_distance = 0.0f;        ///< squared, square metres
    alignas(32) float distances[kNeighbourCount];  ///< squared
    std::uint32_t photons[kNeighbourCount];        ///< positions in Photons
};

/// Packs a direction of any length into 15 bits. From the low end: 2 bits axis of the largest component (1 x, 2 y, 3
/// z), 3 bits octant (4 x negative, 2 y, 1 z), 5 bits each for the next two components in cyclic order, over the
/// largest, the first of them on top.
std::uint16_t EncodeDirection(Vector v);

/// Sign bit of each axis in the octant, the first two once more.
inline constexpr int kOctantBit[5] = {4, 2, 1, 4, 2};

/// Components of a packed direction, the largest of them 31.
inline Vector UnpackedDirection(std::uint16_t packed)
{
    const int axis = (packed & 3) - 1;
    Vector    v;
    if (axis < 0) return v;
    v[axis]           = 31.0f;
    v[(axis + 1) % 3] = static_cast<float>(packed >> 10 & 31);
    v[(axis + 2) % 3] = static_cast<float>(packed >> 5 & 31);
    for (int i = 0; i < 3; ++i)
        if (packed >> 2 & kOctantBit[i]) v[i] = -v[i];
    return v;
}

/// Unit vector of a packed direction, within 2.6 degrees of what was packed.
Vector DecodeDirection(std::uint16_t packed);

/// Fills `list` with up to 32 photons nearest to `position`, closer than the root of `radius2`, that did not arrive
/// from behind a surface of this normal. The last photon of each range that a node splits takes no part in the sort, so
/// that a search may pass by it.
void GatherPhotons(NeighbourList& list, Vector position, Vector normal, float radius2);

}  // namespace hv
