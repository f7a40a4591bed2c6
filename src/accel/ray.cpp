#include "accel/ray.h"

namespace hv {

PerThread<NormalMatrixStack> InstanceNormalMatrices;

}  // namespace hv
