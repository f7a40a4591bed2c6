#pragma once

#include "base/per_thread.h"
#include "geometry/object.h"

#include <vector>

/// Steps of building and updating the hierarchy of one Object; private to this folder and its tests.
namespace hv {

/// Leaves hold at most this many references: their counts are 16 bits wide.
inline constexpr std::uint32_t kMaxLeafCount = 65535;

/// A level with fewer nodes is done by the calling thread: starting a team costs more than the work.
inline constexpr std::size_t kTeamLevel = 2048;

/// Consecutive primitives of one kind in one part, or instances: the portion that a thread takes at a time.
struct ReferenceRun {
    PrimitiveRef  first;
    std::uint32_t count;     ///< at least 1
    std::uint32_t position;  ///< of `first` among all references of the object
};

/// Fewer runs are done by the calling thread.
inline constexpr std::int64_t kTeamRuns = 4;

/// All references of an object in their first order: part after part, each with particles, cylinders, triangles and
/// tetragons, then the instances. Parts beyond the 65536 that a reference can name are left out.
std::vector<ReferenceRun> ListRuns(const Object& object);

/// The reference `offset` places behind the first of a run.
inline PrimitiveRef RefOfRun(const ReferenceRun& run, std::uint32_t offset)
{
    return {run.first.part, run.first.kind, run.first.index + offset};
}

/// Recomputes the matrices and boxes of all instances.
void RefreshInstances(Object& object);

/// Lists the binary nodes of each level in levelNodes, counts them in levelCount and levelFill. Reports a tree of more
/// than kTreeLevels levels as an error, once, and lists it all the same. Returns the number of levels.
std::size_t CollectLevels(Object& object);

/// Box, cost and number of references of a node: of an inner node from its children, of a leaf from its primitives.
void RefitNode(Object& object, std::uint32_t node);

/// The same for a node that is known to be an inner one.
void RefitInner(std::vector<BinaryNode>& nodes, std::uint32_t node);

/// Exchanges children and grandchildren of an inner node where that makes it strictly cheaper. What RefitNode sets must
/// be final in its children; its own is recomputed. Leaves stay as they are.
void RotateNode(Object& object, std::uint32_t node);

/// Makes wideNodes, wideVisits, wideRefs and wideDepth from a binary tree with boxes, costs and sums. An object without
/// references gets one node of unused lanes.
void MakeWideTree(Object& object);

}  // namespace hv
