#include "transport/transport.h"

// Photons and density cells are not built yet. Their calls stand where the render needs them: nothing is cast, no
// photon is found, and no path may end at a density cell.
namespace hv {

void CastPhotonsFromParallelLights() {}
void CastPhotonsFromPointLights() {}
void CastPhotonsFromGeometryLight() {}
void CastPhotonsFromSky() {}
void BuildPhotonTree() {}
void ReleasePhotons() {}

Color CausticEstimate(const RayRecord& /*ray*/, const SurfacePoint& /*point*/) { return kBlack; }

bool  HasDensityCells() { return false; }
Color DensityFront(const RayRecord& /*ray*/) { return kBlack; }
Color DensityBack(const RayRecord& /*ray*/) { return kBlack; }
void  PrepareDensity(Part& /*part*/) {}

}  // namespace hv
