#include "geometry/assembly.h"
#include "session/console.h"

#include <algorithm>
#include <numeric>
#include <unordered_map>

namespace hv {

namespace {

/// A place in a walk over the instance tree that keeps its own stack: scenes may nest deeper than the machine's.
struct Visit {
    std::uint32_t object;
    std::size_t   next_instance;
};

void PlaceStrayRoots(const std::vector<std::uint32_t>& roots)
{
    PrintTitle("object - " + Objects[RootObject].name + " is treated as the root object");
    PrintRule();
    for (const std::uint32_t root : roots) {
        if (root == RootObject) continue;
        Instance instance;
        instance.object = root;
        Objects[RootObject].instances.push_back(std::move(instance));
    }
}

/// Walks everything below `start`, unmarking instances whose target is still open above them.
void CutCyclesBelow(std::uint32_t start, std::vector<std::uint8_t>& state)
{
    constexpr std::uint8_t kOpen = 1, kDone = 2;
    if (state[start] != 0) return;
    std::vector<Visit> stack{{start, 0}};
    state[start] = kOpen;
    while (!stack.empty()) {
        Visit& visit = stack.back();
        auto&  list  = Objects[visit.object].instances;
        if (visit.next_instance == list.size()) {
            state[visit.object] = kDone;
            stack.pop_back();
            continue;
        }
        Instance& instance = list[visit.next_instance++];
        if (instance.object == kNone) continue;
        if (state[instance.object] == kOpen) {
            PrintError("object - " + Objects[visit.object].name + " contains itself, the instance is left out");
            PrintRule();
            instance.object = kNone;
        } else if (state[instance.object] == 0) {
            state[instance.object] = kOpen;
            stack.push_back({instance.object, 0});
        }
    }
}

/// Appends `object` to the order after all that it places.
void AppendWithTargets(std::uint32_t object, std::vector<bool>& listed, std::vector<std::uint32_t>& order)
{
    if (listed[object]) return;
    std::vector<Visit> stack{{object, 0}};
    listed[object] = true;
    while (!stack.empty()) {
        Visit&      visit = stack.back();
        const auto& list  = Objects[visit.object].instances;
        if (visit.next_instance == list.size()) {
            order.push_back(visit.object);
            stack.pop_back();
            continue;
        }
        const std::uint32_t target = list[visit.next_instance++].object;
        if (target == kNone || listed[target]) continue;
        listed[target] = true;
        stack.push_back({target, 0});
    }
}

}  // namespace

void ResolveInstanceNames()
{
    std::unordered_map<std::string, std::uint32_t> by_name;
    for (std::uint32_t index = 0; index < Objects.size(); ++index) by_name.try_emplace(Objects[index].name, index);
    for (Object& object : Objects) {
        for (Instance& instance : object.instances) {
            if (instance.object == kNone && !instance.objectName.empty()) {
                const auto found = by_name.find(instance.objectName);
                if (found != by_name.end()) instance.object = found->second;
            }
            if (instance.object >= Objects.size()) instance.object = kNone;
        }
    }
}

bool FindRoot()
{
    for (Object& object : Objects) object.isReferenced = false;
    for (const Object& object : Objects)
        for (const Instance& instance : object.instances)
            if (instance.object != kNone) Objects[instance.object].isReferenced = true;

    std::vector<std::uint32_t> roots;
    for (std::uint32_t index = 0; index < Objects.size(); ++index)
        if (!Objects[index].isReferenced) roots.push_back(index);

    RootObject = roots.empty() ? 0 : roots.back();
    if (roots.size() > 1) PlaceStrayRoots(roots);
    return !roots.empty();
}

void CutCycles()
{
    std::vector<std::uint8_t> state(Objects.size(), 0);
    CutCyclesBelow(RootObject, state);
    for (std::uint32_t index = 0; index < Objects.size(); ++index) CutCyclesBelow(index, state);
}

void AssignDepths()
{
    // Instances are taken from last to first and every object keeps the first depth it gets: the same as the last depth
    // of a walk in forward order that visits shared objects again and again, without its exponential cost.
    for (Object& object : Objects) object.depth = 0;
    std::vector<bool>  reached(Objects.size(), false);
    std::vector<Visit> stack{{RootObject, Objects[RootObject].instances.size()}};
    reached[RootObject] = true;
    while (!stack.empty()) {
        Visit& visit = stack.back();
        if (visit.next_instance == 0) {
            stack.pop_back();
            continue;
        }
        const std::uint32_t target = Objects[visit.object].instances[--visit.next_instance].object;
        if (target == kNone || reached[target]) continue;
        reached[target]       = true;
        Objects[target].depth = Objects[visit.object].depth + 1;
        stack.push_back({target, Objects[target].instances.size()});
    }
}

std::vector<std::uint32_t> PreparationOrder()
{
    std::vector<std::uint32_t> by_depth(Objects.size());
    std::iota(by_depth.begin(), by_depth.end(), 0u);
    std::stable_sort(by_depth.begin(), by_depth.end(),
                     [](std::uint32_t a, std::uint32_t b) { return Objects[a].depth > Objects[b].depth; });
    std::vector<std::uint32_t> order;
    order.reserve(Objects.size());
    std::vector<bool> listed(Objects.size(), false);
    for (const std::uint32_t object : by_depth) AppendWithTargets(object, listed, order);
    return order;
}

}  // namespace hv
