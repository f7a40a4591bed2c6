#include "accel/hierarchy.h"

#include <utility>

namespace hv {

namespace {

/// The places around a node: its children L and R, their children a, b and c, d.
enum Place : std::uint8_t { A, B, C, D, L, R, Nowhere };

/// A change of the tree by one or two exchanges of node records. `nested` is where the exchanged child of the node
/// lands; its own children change with the second exchange.
struct Rotation {
    Place first, first_other, second, second_other;
    Place nested;
};

/// Results, written as pairs: (a c) (b d), (a d) (c b), then each of a, b, c, d alone beside the other three, of which
/// the pair that stays and the two new ones are tried.
constexpr Rotation kRotations[14] = {
    {B, C, Nowhere, Nowhere, Nowhere},  // (a c) (b d)
    {B, D, Nowhere, Nowhere, Nowhere},  // (a d) (c b)
    {A, R, Nowhere, Nowhere, A},        // ((c d) b) a
    {A, R, B, C, A},                    // ((b d) c) a
    {A, R, B, D, A},                    // ((b c) d) a
    {B, R, Nowhere, Nowhere, B},        // ((c d) a) b
    {B, R, A, C, B},                    // ((a d) c) b
    {B, R, A, D, B},                    // ((a c) d) b
    {C, L, A, D, C},                    // c ((b d) a)
    {C, L, B, D, C},                    // c ((a d) b)
    {C, L, Nowhere, Nowhere, C},        // c ((a b) d)
    {D, L, A, C, D},                    // d ((b c) a)
    {D, L, B, C, D},                    // d ((a c) b)
    {D, L, Nowhere, Nowhere, D},        // d ((a b) c)
};
constexpr Rotation kLiftA = kRotations[2], kLiftB = kRotations[5], kLiftC = kRotations[10], kLiftD = kRotations[13];

/// Records of the family of a node; `places` are their positions among the binary nodes.
struct Family {
    std::vector<BinaryNode>& nodes;
    std::uint32_t            places[6];

    BinaryNode& operator[](Place place) const { return nodes[places[place]]; }
};

void Apply(const Family& family, const Rotation& rotation)
{
    std::swap(family[rotation.first], family[rotation.first_other]);
    if (rotation.second != Nowhere) {
        std::swap(family[rotation.second], family[rotation.second_other]);
        RefitInner(family.nodes, family.places[rotation.nested]);
    }
    if (family[L].count == 0) RefitInner(family.nodes, family.places[L]);
    if (family[R].count == 0) RefitInner(family.nodes, family.places[R]);
}

/// The cheapest of some candidates, or null when none is strictly cheaper than the present tree.
const Rotation* Cheapest(const Rotation* rotations, const float* costs, int count, float present_cost)
{
    const Rotation* best      = nullptr;
    float           best_cost = present_cost;
    for (int i = 0; i < count; ++i) {
        if (!(costs[i] < best_cost)) continue;
        best_cost = costs[i];
        best      = &rotations[i];
    }
    return best;
}

const Rotation* ChooseAmongFour(const Family& family, float present_cost)
{
    const BinaryNode &a = family[A], &b = family[B], &c = family[C], &d = family[D];
    const Box         box_ab = Union(a.box, b.box), box_cd = Union(c.box, d.box);
    const Box         box_ac = Union(a.box, c.box), box_bd = Union(b.box, d.box);
    const float       ab = HalfArea(box_ab), ac = HalfArea(box_ac), ad = HalfArea(Union(a.box, d.box));
    const float       bc = HalfArea(Union(b.box, c.box)), bd = HalfArea(box_bd), cd = HalfArea(box_cd);
    const float       abc = HalfArea(Union(box_ab, c.box)), abd = HalfArea(Union(box_ab, d.box));
    const float       acd = HalfArea(Union(box_cd, a.box)), bcd = HalfArea(Union(box_cd, b.box));
    const float       base      = HalfArea(Union(box_ab, box_cd)) + a.cost + b.cost + c.cost + d.cost;
    const float       costs[14] = {ac + bd + base,  ad + bc + base,  cd + bcd + base, bd + bcd + base, bc + bcd + base,
                                   cd + acd + base, ad + acd + base, ac + acd + base, bd + abd + base, ad + abd + base,
                                   ab + abd + base, bc + abc + base, ac + abc + base, ab + abc + base};
    return Cheapest(kRotations, costs, 14, present_cost);
}

/// Cost of three nodes when `x` and `y` are a pair and `z` stands beside it.
float PairCost(const BinaryNode& x, const BinaryNode& y, const BinaryNode& z)
{
    const Box pair = Union(x.box, y.box);
    return HalfArea(pair) + HalfArea(Union(pair, z.box)) + x.cost + y.cost + z.cost;
}

/// The single child changes places with one of the pair: `x` or `y`, whose places the rotations name in this order.
const Rotation* ChooseAmongThree(const BinaryNode& x, const BinaryNode& y, const BinaryNode& single,
                                 const Rotation (&rotations)[2], float present_cost)
{
    const float costs[2] = {PairCost(y, single, x), PairCost(x, single, y)};
    return Cheapest(rotations, costs, 2, present_cost);
}

}  // namespace

void RotateNode(Object& object, std::uint32_t node)
{
    static constexpr Rotation kLeft[2] = {kLiftA, kLiftB}, kRight[2] = {kLiftC, kLiftD};
    std::vector<BinaryNode>&  nodes = object.binaryNodes;
    if (nodes[node].count > 0) return;
    const std::uint32_t left = nodes[node].first, right = left + 1;
    const bool          left_inner = nodes[left].count == 0, right_inner = nodes[right].count == 0;
    const Family        family{
        nodes, {nodes[left].first, nodes[left].first + 1, nodes[right].first, nodes[right].first + 1, left, right}};
    RefitInner(nodes, node);
    const float     cost     = nodes[node].cost;
    const Rotation* rotation = nullptr;
    if (left_inner && right_inner)
        rotation = ChooseAmongFour(family, cost);
    else if (left_inner)
        rotation = ChooseAmongThree(family[A], family[B], family[R], kLeft, cost);
    else if (right_inner)
        rotation = ChooseAmongThree(family[C], family[D], family[L], kRight, cost);
    if (rotation == nullptr) return;
    Apply(family, *rotation);
    RefitInner(nodes, node);
}

}  // namespace hv
