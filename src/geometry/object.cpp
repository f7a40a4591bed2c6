#include "geometry/object.h"

#include "geometry/weld.h"

namespace hv {

std::vector<Object> Objects;

std::uint32_t RootObject = 0;
Box           SceneBox{{0, 0, 0}, {0, 0, 0}};
Vector        SceneCenter;
float         SceneRadius = 0.0f;

Part::Part()
{
    scalars.push_back({"radius", {}});
    uvs.push_back({"uv", {}});
}

Part::Part(Part&&) noexcept            = default;
Part& Part::operator=(Part&&) noexcept = default;
Part::~Part()                          = default;

// The weld table is scratch of one import: a copy starts without one.
Part::Part(const Part& other)
    : particles(other.particles),
      cylinders(other.cylinders),
      triangles(other.triangles),
      tetragons(other.tetragons),
      strandSizes(other.strandSizes),
      vectors(other.vectors),
      uvs(other.uvs),
      scalars(other.scalars),
      positions(other.positions),
      normals(other.normals),
      tangents(other.tangents),
      shaderID(other.shaderID),
      name(other.name),
      shaderName(other.shaderName),
      hasMotion(other.hasMotion),
      isPrepared(other.isPrepared)
{
}

Part& Part::operator=(const Part& other)
{
    Part copy(other);
    *this = std::move(copy);
    return *this;
}

PackedDirection PackDirection(Vector direction)
{
    const float square = Dot(direction, direction);
    const float scale  = square == 0.0f ? 128.0f : 128.0f / SafeRoot(square);
    const auto  pack   = [scale](float component) {
        return static_cast<std::int8_t>(ClampToInt(component * scale, -127, 127));
    };
    return {pack(direction.x), pack(direction.y), pack(direction.z)};
}

Vector UnpackDirection(PackedDirection packed)
{
    return Normalized({static_cast<float>(packed.x), static_cast<float>(packed.y), static_cast<float>(packed.z)});
}

}  // namespace hv
