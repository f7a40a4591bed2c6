#include "transport/photon_store.h"

#include "base/per_thread.h"
#include "session/console.h"

#include <sys/mman.h>

#include <algorithm>
#include <memory>
#include <new>
#include <string>

namespace hv {

namespace {

constexpr std::size_t kShelfPhotons = 16384;
constexpr std::size_t kShelfBytes   = kShelfPhotons * sizeof(Photon);

/// Shelves are mapped one by one, so that each goes back to the system when it is emptied.
struct Unmap {
    void operator()(Photon* shelf) const { munmap(shelf, kShelfBytes); }
};
using Shelf = std::unique_ptr<Photon[], Unmap>;

Shelf NewShelf()
{
    void* memory = mmap(nullptr, kShelfBytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    return Shelf(memory == MAP_FAILED ? nullptr : static_cast<Photon*>(memory));
}

/// Photons of one batch, one behind the other on the shelves of a thread.
struct Run {
    std::uint64_t batch;
    std::uint32_t count;
    int           thread;
};

struct Rack {
    std::vector<Shelf> shelves;
    std::vector<Run>   runs;             ///< in ascending order of their batches
    std::size_t        count   = 0;      ///< photons stored
    std::size_t        taken   = 0;      ///< photons moved on
    std::uint64_t      batch   = 0;      ///< under way
    bool               ran_out = false;  ///< of memory: a photon was lost
};

/// Filled while photons are cast, emptied by CollectPhotons.
PerThread<Rack> Racks;

void Append(Rack& rack, int thread, const Photon& photon)
{
    if (rack.count == rack.shelves.size() * kShelfPhotons) {
        Shelf shelf = NewShelf();
        if (!shelf) throw std::bad_alloc();
        rack.shelves.push_back(std::move(shelf));
    }
    if (rack.runs.empty() || rack.runs.back().batch != rack.batch) rack.runs.push_back({rack.batch, 0, thread});
    rack.shelves[rack.count / kShelfPhotons][rack.count % kShelfPhotons] = photon;
    ++rack.count;
    ++rack.runs.back().count;
}

/// Moves the next photons of a thread.
void Take(Rack& rack, std::uint32_t count)
{
    for (std::uint32_t i = 0; i < count; ++i) {
        Shelf& shelf = rack.shelves[rack.taken / kShelfPhotons];
        Photons.push_back(shelf[rack.taken % kShelfPhotons]);
        if (++rack.taken % kShelfPhotons == 0) shelf.reset();
    }
}

/// The runs of all threads in the order of their batches.
std::vector<Run> SortedRuns()
{
    std::vector<Run> runs;
    for (int thread = 0; thread < kMaxThreads; ++thread)
        runs.insert(runs.end(), Racks[thread].runs.begin(), Racks[thread].runs.end());
    std::sort(runs.begin(), runs.end(), [](const Run& a, const Run& b) { return a.batch < b.batch; });
    return runs;
}

}  // namespace

void BeginPhotonBatch(int thread, std::uint64_t batch) { Racks[thread].batch = batch; }

void StorePhoton(int thread, const Photon& photon)
{
    Rack& rack = Racks[thread];
    try {  // no exception may leave the parallel region
        Append(rack, thread, photon);
    } catch (const std::bad_alloc&) {
        rack.ran_out = true;
    }
}

void ClearPhotonStore()
{
    for (int thread = 0; thread < kMaxThreads; ++thread) Racks[thread] = {};
}

void CollectPhotons()
{
    std::size_t count   = Photons.size();
    bool        ran_out = false;
    for (int thread = 0; thread < kMaxThreads; ++thread) {
        count += Racks[thread].count;
        ran_out = ran_out || Racks[thread].ran_out;
    }
    try {
        if (ran_out || count >= kNone) throw std::bad_alloc();
        Photons.reserve(count);
        for (const Run& run : SortedRuns()) Take(Racks[run.thread], run.count);
    } catch (const std::bad_alloc&) {
        Photons.clear();
        PrintError("photons - not enough memory for " + std::to_string(count) + " photons, caustics are left out");
        PrintRule();
    }
    ClearPhotonStore();
}

}  // namespace hv
