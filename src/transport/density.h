#pragma once

#include "accel/ray.h"

/// Deposits in the density cells; private to this folder.
namespace hv {

/// Adds light to the cell that a photon has hit, on the side that it has hit. `value`: flux / pi, watts, times the
/// colour of the surface. Threads may deposit at the same time.
void DepositDensity(const RayRecord& photon, Color value);

/// Blackens the cells of the root, as photons may be cast a second time, and drops the sums of a cast that broke off.
void ClearDensity();

/// With a seed deposits go through sums that do not depend on their order, from the first call to the second. `power`:
/// of a weak photon, which sets their precision.
void StartOrderFreeDeposits(double power);
void FinishOrderFreeDeposits();

/// Cells a side of a face of `area` square metres: the smallest of 1 to 254 with resolution * cells^2 above the area,
/// 255 if there is none. `resolution` must be above 0.
std::uint32_t DensityGridSize(float area, float resolution);

}  // namespace hv
