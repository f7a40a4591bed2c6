#include "transport/hair.h"

#include "base/constants.h"

#include <algorithm>

namespace hv {

namespace {

/// The part of d in the plane at right angles to the fibre, unit length.
Vector AcrossFibre(Vector d, Vector tangent) { return Normalized(d - Dot(d, tangent) * tangent); }

}  // namespace

float HairDiffuse(const SurfacePoint& point, Vector d)
{
    const Vector across = AcrossFibre(d, point.tangent);
    const float  c      = std::clamp(Dot(AcrossFibre(point.outgoing, point.tangent), across), -1.0f, 1.0f);
    const float  angle  = std::acos(c);
    return std::fabs((kPi - angle) * c + std::sin(angle)) * Dot(d, across) * kInv4Pi;
}

// No shader has tables of its lobes yet.
HairLobeSet HairLobes(const SurfacePoint& /*point*/, Vector /*d*/) { return {}; }

}  // namespace hv
