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

/// Boxes of the eight lanes of a node. An unused lane has an inverted box, which no slab test passes.
struct LaneBoxes {
    float minX[8], minY[8], minZ[8], maxX[8], maxY[8], maxZ[8];

    void SetBox(int lane, const Box& box)
    {
        minX[lane] = box.min.x;
        minY[lane] = box.min.y;
        minZ[lane] = box.min.z;
        maxX[lane] = box.max.x;
        maxY[lane] = box.max.y;
        maxZ[lane] = box.max.z;
    }
};

/// Node of the traversal tree: exactly four cache lines. The counters of its lanes stand apart, in Object::wideVisits.
/// An unused lane has `first` ~0 and `count` 0. Not set when made: arrays of nodes are filled, and their memory touched
/// first, by all threads.
struct alignas(64) WideNode : LaneBoxes {
    WideNode() {}

    std::uint32_t first[8];       ///< inner lane: WideNode of the child; leaf lane: first entry in wideRefs
    std::uint16_t count[8];       ///< 0 for an inner lane, else number of references
    std::uint8_t  blockLanes[8];  ///< leaf lane that lies in one of the two shared blocks: its lanes there; lane with
                                  ///< nothing but curves below: kCurveLane; else 0
    std::uint32_t block;          ///< first of the two leaf blocks that leaves of this node share; kNone when none does
    std::uint32_t reserved;
};
static_assert(sizeof(WideNode) == 256);

/// In WideNode::blockLanes: all that lies below is in the curve tree as well. No lanes look like it.
inline constexpr std::uint8_t kCurveLane = 0xa5;

/// Node of the curve tree, a second hierarchy of the cylinders of an Object. Curves that lean against the axes fill
/// their boxes badly, so its lanes have tubes besides: all that can be hit below a lane lies within a tube around the
/// line through the middle of the lane's box.
struct alignas(64) CurveNode : LaneBoxes {
    CurveNode() {}

    std::uint16_t axis[3][8];   ///< x, y and z of directions of about unit length, in half precision
    std::uint16_t diameter[8];  ///< in half precision; infinite where no tube is known
    std::uint32_t first[8];     ///< inner lane: CurveNode of the child; leaf lane: its first bundle; unused lane: kNone
    std::uint16_t count[8];     ///< 0 for an inner lane, else number of curves: all bundles but the last are full
    bool          usesTubes;    ///< the tubes turn down enough to be worth their test
};
static_assert(sizeof(CurveNode) == 320);

/// Up to eight curves, packed for the bound by which they are turned down at once.
struct alignas(64) CurveBundle {
    CurveBundle() {}

    std::uint16_t ends[6][8];  ///< x, y, z of the first points, then of the last: 65535ths of the way through the box
                               ///< of the lane that the bundle belongs to
    std::uint16_t reach[8];    ///< in half precision, see CurveReach; makes up for what the ends are off
    std::uint32_t first;       ///< of its curves in Object::curves
};
static_assert(sizeof(CurveBundle) == 128);

/// A segment of a strand: a cubic Hermite curve. The tangents are unit vectors or zero and are used as they are.
struct Curve {
    Vector p0, p1, t0, t1;
    float  radius0, radius1;
};

/// A curve of the curve tree: one cache line. Not set when made, as WideNode.
struct alignas(64) PlacedCurve {
    PlacedCurve() {}

    union {
        Curve curve;  ///< in a union as its vectors would be set
    };
    std::uint32_t index;  ///< of the cylinder in its part
    std::uint16_t part;
};
static_assert(sizeof(PlacedCurve) == 64);

inline constexpr std::uint32_t kBlockLength = 8;  ///< references of a leaf block

/// Up to eight triangles or tetragons, packed for the lane test: exactly eight cache lines. Block b holds
/// what wideRefs[8 b] to wideRefs[8 b + 7] name; the first `used` of these are references, the rest of kind None. The
/// leaves of one node share blocks: a leaf begins at any lane, and what does not fit goes on in the next block. Each
/// block is of one kind class. values[24 n + 8 axis + lane] is a coordinate of vector n of a lane: of triangles p0, the
/// normal n = e1 x e2, e2 x n and n x e1, with e1 = p1 - p0 and e2 = p2 - p0; of tetragons the corners.
/// Lanes that are not used hold zeroes. Not set when made, as WideNode.
struct alignas(64) LeafBlock {
    LeafBlock() {}

    float         values[96];
    float         square[8];  ///< n . n of triangles
    std::uint32_t index[8];   ///< primitive index of each lane, kNone when the lane is unused
    std::uint32_t shader[8];  ///< stamped on a packed face
    std::uint16_t part[8];
    std::uint8_t  kind;  ///< PrimitiveKind of all lanes when Triangle or Tetragon; else None: read wideRefs
    std::uint8_t  used;  ///< lanes in use, 1 to 8
    std::uint8_t  padding[14];
};
static_assert(sizeof(LeafBlock) == 512);

}  // namespace hv
