#pragma once

#include "transport/photon_tree.h"

#include <cstdint>

/// Collects photons while threads cast them; private to this folder.
namespace hv {

/// Photons are cast in batches of this many; a batch is cast by one thread.
inline constexpr std::int64_t kPhotonBatch = 64;

/// Tells the store that `thread` now casts batch `batch`. Batches of a thread come in ascending order.
void BeginPhotonBatch(int thread, std::uint64_t batch);

/// Keeps a photon. No lock: every thread has shelves of its own.
void StorePhoton(int thread, const Photon& photon);

/// Drops what a cast that broke off has left.
void ClearPhotonStore();

/// Appends what was collected to Photons, batch by batch, so that their order does not depend on the threads. Shelves
/// are freed as they are emptied: at no time are there two copies. Where memory was or is missing, an error is told and
/// there are no photons.
void CollectPhotons();

}  // namespace hv
