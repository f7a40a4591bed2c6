#pragma once

#include "transport/photon_tree.h"

#include <cstddef>
#include <memory>
#include <vector>

/// A point that a camera sees first.
struct View {
    hv::Vector position, normal;
    int        row;
};

/// The measuring stick of bench_photons: nanoflann's kd tree over photons, which it leaves where they are.
class NeighbourSearch {
public:
    NeighbourSearch(const std::vector<hv::Photon>& photons, std::size_t leaf_size);
    ~NeighbourSearch();

    /// Squared distances of the farthest of the 32 photons nearest to each view, closer than the root of `radius2`; 0
    /// where there are fewer. With `facing`, photons from behind are left out, as our lookups do it.
    void Search(const std::vector<View>& views, float radius2, bool facing, std::vector<float>& farthest) const;

private:
    struct Tree;
    std::unique_ptr<Tree> tree_;
};
