#include "neighbour_search.h"

#include <cstdint>
#include <nanoflann.hpp>

namespace {

constexpr std::size_t kCount = 32;

struct Points {
    std::vector<hv::Photon> list;

    std::size_t kdtree_get_point_count() const { return list.size(); }
    float kdtree_get_pt(std::size_t i, std::size_t axis) const { return list[i].position[static_cast<int>(axis)]; }
    template <class Bounds>
    bool kdtree_get_bbox(Bounds&) const
    {
        return false;
    }
};

using Index =
    nanoflann::KDTreeSingleIndexAdaptor<nanoflann::L2_Simple_Adaptor<float, Points>, Points, 3, std::uint32_t>;
using Nearest = nanoflann::KNNResultSet<float, std::uint32_t>;

/// Takes in what faces a surface only.
class NearestFacing : public Nearest {
public:
    NearestFacing(const Points& points, hv::Vector normal) : Nearest(kCount), points_(points), normal_(normal) {}

    bool addPoint(float distance, std::uint32_t index)
    {
        return Dot(hv::UnpackedDirection(points_.list[index].direction), normal_) < 0.0f ||
               Nearest::addPoint(distance, index);
    }

private:
    const Points& points_;
    hv::Vector    normal_;
};

/// What knnSearch does, but with a bound to begin with.
template <class Found>
float Farthest(const Index& index, hv::Vector position, float radius2, Found&& found)
{
    std::uint32_t indices[kCount];
    float         distances[kCount];
    found.init(indices, distances);
    distances[kCount - 1] = radius2;
    index.findNeighbors(found, &position.x, nanoflann::SearchParams());
    return found.full() ? distances[kCount - 1] : 0.0f;
}

}  // namespace

struct NeighbourSearch::Tree {
    Points points;
    Index  index;

    Tree(const std::vector<hv::Photon>& list, std::size_t leaf_size) : points{list}, index(3, points, {leaf_size})
    {
        index.buildIndex();
    }
};

NeighbourSearch::NeighbourSearch(const std::vector<hv::Photon>& photons, std::size_t leaf_size)
    : tree_(std::make_unique<Tree>(photons, leaf_size))
{
}
NeighbourSearch::~NeighbourSearch() = default;

void NeighbourSearch::Search(const std::vector<View>& views, float radius2, bool facing,
                             std::vector<float>& farthest) const
{
    for (std::size_t n = 0; n < views.size(); ++n) {
        const View& view = views[n];
        farthest[n] = facing ? Farthest(tree_->index, view.position, radius2, NearestFacing(tree_->points, view.normal))
                             : Farthest(tree_->index, view.position, radius2, Nearest(kCount));
    }
}
