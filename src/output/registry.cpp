#include "output/output.h"

namespace hv {

std::vector<Camera> Cameras;

}  // namespace hv
