#pragma once

#include "base/box.h"

#include <cstdint>

/// Records of the bbvh, the hierarchy of one Object: a binary tree that is built and refitted, and the eight-lane tree
/// made from it that rays walk.
namespace hv {

enum class PrimitiveKind : std::uint8_t {
    None     = 0,
    Particle = 1,
    Cylinder = 2,
    Triangle = 3,
    Tetragon = 4,
    Instance = 5
};

inline constexpr std::uint8_t kNoKind = 255;  ///< `hit_kind` of every ray but a primary one before its trace

/// One primitive of an Object. A reference of kind None fills up a packed block; every walk skips it.
struct PrimitiveRef {
    std::uint16_t part  = 0;  ///< index in Object::parts; 0 for an instance
    std::uint16_t kind  = 0;  ///< PrimitiveKind
    std::uint32_t index = 0;  ///< position in the part's array of that kind, or the Instance's number

    bool operator==(const PrimitiveRef&) const = default;
};

struct BinaryNode {
    Box           box;        ///< written by Update
    std::uint32_t first = 0;  ///< inner: left child, the right one is first + 1; leaf: first entry in binaryRefs
    std::uint16_t count = 0;  ///< 0 for an inner node, else number of references
    float         cost  = 0;  ///< surface-area cost of the subtree
    std::uint32_t sum   = 0;  ///< number of references below
};

/// Node of the traversal tree: exactly four cache lines. The counters of its lanes stand apart, in Object::wideVisits.
/// An unused lane has an inverted box, which no slab test passes, `first` ~0 and `count` 0. Not set when made: arrays
/// of nodes are filled, and their memory touched first, by all threads.
struct alignas(64) WideNode {
    WideNode() {}

    float         minX[8], minY[8], minZ[8], maxX[8], maxY[8], maxZ[8];
    std::uint32_t first[8];  ///< inner lane: WideNode of the child; leaf lane: first entry in wideRefs, a multiple of 4
    std::uint16_t count[8];  ///< 0 for an inner lane, else number of references
    std::uint32_t reserved[4];
};
static_assert(sizeof(WideNode) == 256);

/// Up to four triangles or three tetragons of one leaf, packed for the lane test: exactly three cache lines. Block b
/// holds what wideRefs[4 b] to wideRefs[4 b + 3] name. A leaf is a run of blocks, each of one kind class; its `used`
/// references add up to the lane's count, and the next block follows at b + 1.
/// Triangles: values[axis * 4 + lane] of p0 at 0, e1 = p1 - p0 at 12, e2 = p2 - p0 at 24.
/// Tetragons: values[(corner * 3 + axis) * 3 + lane]. Unused lanes hold zeroes. Not set when made, as WideNode.
struct alignas(64) LeafBlock {
    LeafBlock() {}

    float         values[36];
    std::uint32_t index[4];  ///< primitive index of each lane, kNone when the lane is unused
    std::uint16_t part[4];
    std::uint8_t  kind;  ///< PrimitiveKind of all lanes when Triangle or Tetragon; else None: read wideRefs
    std::uint8_t  used;  ///< lanes in use, 1 to 4
    std::uint8_t  padding[22];
};
static_assert(sizeof(LeafBlock) == 192);

}  // namespace hv
