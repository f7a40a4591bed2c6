#include "geometry/assembly.h"
#include "session/console.h"
#include "shading/shading.h"

#include <algorithm>
#include <cmath>

namespace hv {

namespace {

template <class Face>
bool AnyDisplaced(const std::vector<Face>& faces)
{
    return std::any_of(faces.begin(), faces.end(),
                       [](const Face& face) { return !ShaderAt(face.shader).geometry_shader.vector.empty(); });
}

template <class Face>
bool AllFaceted(const std::vector<Face>& faces)
{
    return std::all_of(faces.begin(), faces.end(), [](const Face& face) {
        return std::fabs(ShaderAt(face.shader).geometry_shader.smooth_angle) < 1e-8f;
    });
}

}  // namespace

void Displace(Part& part)
{
    if (AnyDisplaced(part.triangles) || AnyDisplaced(part.tetragons))
        PrintWarning("part - displacement is not applied by this release");
}

// Of the three regimes of smooth_angle two need no averaging: 0 on every face releases the normals, so that hits use
// the geometric one, and below 0 the normals that came with the file stay. Angles above 0 are left as if they were
// below.
void Smooth(Part& part)
{
    if (AllFaceted(part.triangles) && AllFaceted(part.tetragons)) part.normals = {};
}

}  // namespace hv
