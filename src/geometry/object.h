#pragma once

#include "accel/bbvh.h"
#include "base/matrix.h"
#include "session/area_sampler.h"

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace hv {

/// A direction in three signed bytes, unit length 128. (0, 0, 0): no usable direction.
struct PackedDirection {
    std::int8_t x = 0, y = 0, z = 0;

    bool operator==(const PackedDirection&) const = default;
};

PackedDirection PackDirection(Vector direction);
Vector          UnpackDirection(PackedDirection packed);  ///< unit length, or zero

struct Vector2 {
    float u = 0, v = 0;

    bool operator==(const Vector2&) const = default;
};

/// A named array with one value a vertex.
template <class T>
struct VertexData {
    std::string    name;
    std::vector<T> values;
};

struct Triangle {
    std::uint32_t i0, i1, i2;  ///< vertices, counter-clockwise seen from the front
    std::uint32_t shader;
};

struct Tetragon {
    std::uint32_t i0, i1, i2, i3;  ///< vertices of a planar convex face, counter-clockwise seen from the front
    std::uint32_t shader;
};

/// Density cells of the faces of one kind of a part: radiance by diffuse reflection on both sides, from photons. A face
/// has `size` squared cells from `base` on. Triangles: row r of (1 - u) size holds 2 r + 1 cells from r^2 on.
/// Tetragons: rows along u, columns along v.
struct DensityCells {
    struct Grid {
        std::uint32_t base = 0, size = 0;  ///< size: 1 to 255
    };
    std::vector<Grid>  grids;        ///< one a face; empty without density cells
    std::vector<Color> front, back;  ///< written by the photon cast alone
    std::size_t        first = 0;    ///< number of the first cell among all of the root; set while photons are cast
};

struct WeldTable;  ///< scratch of FlattenStagedMesh

/// A bag of primitives that share one set of vertex arrays, in the space of their Object.
struct Part {
    Part();
    Part(Part&&) noexcept;
    Part& operator=(Part&&) noexcept;
    Part(const Part&);
    Part& operator=(const Part&);
    ~Part();

    std::vector<std::uint32_t> particles;  ///< vertex of each sphere
    std::vector<std::uint32_t> cylinders;  ///< vertex i of each segment i to i + 1; a break in the run of values
                                           ///< is a break between strands
    std::vector<Triangle>            triangles;
    std::vector<Tetragon>            tetragons;
    std::vector<std::uint32_t>       strandSizes;  ///< cylinders of each strand; filled by the hair import
    std::vector<VertexData<Vector>>  vectors;      ///< a set named "motion" moves the vertices
    std::vector<VertexData<Vector2>> uvs;          ///< [0] is born as "uv": the texture coordinates
    std::vector<VertexData<float>>   scalars;      ///< [0] is born as "radius"
    std::vector<Vector>              positions;    ///< metres
    std::vector<PackedDirection>     normals;
    std::vector<PackedDirection>     tangents;
    std::uint32_t                    shaderID = 0;  ///< stamped on triangles and tetragons as they are added
    std::string                      name;
    std::string                      shaderName = "undefined";
    bool                             hasMotion  = false;            ///< set by PreparePart
    bool                             isPrepared = false;            ///< set by PreparePart: faces are flipped but once
    std::unique_ptr<WeldTable>       weldBuckets;                   ///< released when the part is prepared
    DensityCells                     triangleCells, tetragonCells;  ///< of parts of the root object
};

/// Places another Object inside the one that owns it.
struct Instance {
    Matrix4       matrix;           ///< placed object to parent
    Matrix4       inverse;          ///< parent to placed object
    Matrix3       normalMatrix;     ///< transpose of the upper 3 x 3 of `inverse`
    Matrix3       directionMatrix;  ///< upper 3 x 3 of `inverse`
    Box           box;              ///< of the placed object, in the parent's space; empty when nothing is placed
    std::uint32_t object = kNone;   ///< index in Objects; kNone: to be resolved by name
    std::string   objectName;
    std::string   shaderName = "undefined";
    std::uint32_t shader     = kNone;  ///< overrides the shader of a hit when it names one
};

/// One emissive primitive, side by side with its weight in the sampler.
struct EmissiveEntry {
    std::uint32_t part   = 0;  ///< index in Object::parts
    std::uint32_t index  = 0;  ///< primitive, or Instance number
    PrimitiveKind kind   = PrimitiveKind::None;
    std::uint8_t  side   = 0;  ///< 1 front, 0 back
    float         weight = 0;  ///< area in square metres; of an instance that of all it places
};

struct EmissiveList {
    std::vector<EmissiveEntry> entries;
    AreaSampler                sampler;
};

inline constexpr int kTreeLevels = 256;

struct Object {
    Box                   box;                                    ///< of everything in it, in its own space
    double                cost        = 0;                        ///< surface-area cost of its hierarchy
    float                 emitterArea = 0, virtualLightArea = 0;  ///< totals of the two lists below, square metres
    std::uint32_t         depth = 0;                              ///< in the instance tree; the root has 0
    std::string           name;
    std::string           shaderName = "undefined";
    std::uint32_t         shaderID   = 0;
    std::vector<Part>     parts;
    std::vector<Instance> instances;
    EmissiveList          emitters, virtualLights;
    bool                  isReferenced = false;  ///< an Instance names it
    bool                  hasMotion    = false;  ///< a Part moves
    bool                  isPrepared   = false;

    std::vector<WideNode>                     wideNodes;   ///< what rays walk; node 0 is the root
    std::vector<std::array<std::uint32_t, 8>> wideVisits;  ///< parallel: blocked shadow rays a lane, see OccludeLog
    std::vector<PrimitiveRef>                 wideRefs;    ///< eight to a block; kind None where a block is not full
    std::vector<LeafBlock>                    leafBlocks;  ///< block b packs wideRefs[8 b .. 8 b + 7]
    std::uint32_t                             wideDepth = 0;
    std::vector<CurveNode>                    curveNodes;      ///< what rays walk of the cylinders; node 0 is the root
    std::vector<CurveBundle>                  curveBundles;    ///< of its leaves
    std::vector<PlacedCurve>                  curves;          ///< of the bundles
    std::uint32_t                             curveDepth = 0;  ///< of the deepest node; that of the root is 0
    float                                     curveSize  = 0;  ///< largest |x| + |y| + |z| of its boxes
    std::vector<BinaryNode>                   binaryNodes;     ///< kept by moving objects only
    std::vector<PrimitiveRef>                 binaryRefs;
    std::vector<std::uint32_t>                levelCount, levelFill;  ///< nodes of each level, up to kTreeLevels
    std::vector<std::vector<std::uint32_t>>   levelNodes;
};

/// Filled by hvAddObject and scene files, emptied by hvFinalizeAccelerator and hvFinalize; frozen while rays fly but
/// for MoveObjects between frames.
extern std::vector<Object> Objects;

/// Scene values, set by PrepareScene and refreshed by MoveObjects.
extern std::uint32_t RootObject;  ///< index in Objects
extern Box           SceneBox;
extern Vector        SceneCenter;
extern float         SceneRadius;

}  // namespace hv
