#pragma once

#include "output/aov.h"

#include <cstdint>
#include <string>
#include <vector>

/// Steps that the preparation of all lights shares.
namespace hv {

/// Appends the shaders that bear the names; a name that no shader bears is dropped.
void ResolveLinks(const std::vector<std::string>& names, std::vector<std::uint32_t>& shaders);

/// Allocates the AOVs of a light in the size of the active camera. Without a camera they stay as they are.
void PrepareLightAOVs(std::vector<CameraAOV>& aovs);

/// Writes the AOVs of a light at its end and drops its shares: lists that last beyond a session keep none of them.
void CloseLightAOVs(std::vector<CameraAOV>& aovs);

}  // namespace hv
