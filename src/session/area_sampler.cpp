#include "session/area_sampler.h"

#include "base/per_thread.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

namespace hv {
namespace {

/// First of the first count - 1 sums that is above u; count - 1 when none is.
std::uint32_t FirstAbove(const AreaSampler& sampler, std::uint32_t begin, std::uint32_t end, float u)
{
    const auto sums = sampler.cumulative.begin();
    return static_cast<std::uint32_t>(std::upper_bound(sums + begin, sums + end, u) - sums);
}

float SectionStart(const AreaSampler& sampler, std::uint32_t section)
{
    return static_cast<float>(section) / static_cast<float>(sampler.count);
}

/// The section i of the lookup table with i / count <= u. The product may round up to the next section, whose entry
/// could already lie behind the one that is looked for.
std::uint32_t SectionOf(const AreaSampler& sampler, float u)
{
    if (!(u > 0.0f)) return 0;
    const double  position = std::min(static_cast<double>(u), 1.0) * sampler.count;
    std::uint32_t section  = std::min(static_cast<std::uint32_t>(position), sampler.count - 1);
    while (section > 0 && SectionStart(sampler, section) > u) --section;
    return section;
}

}  // namespace

void BuildAreaSampler(AreaSampler& sampler, const std::vector<float>& weights)
{
    sampler = AreaSampler{};

    double total = 0.0;
    for (const float weight : weights) total += weight;
    if (!(total > 0.0) || !std::isfinite(total)) return;

    const std::size_t count = weights.size();
    sampler.count           = static_cast<std::uint32_t>(count);
    sampler.total           = total;
    sampler.weights.resize(count);
    sampler.cumulative.resize(count + 1);
    sampler.lookup.resize(count + 1);

    double sum = 0.0;
    for (std::size_t i = 0; i < count; ++i) {
        sum += weights[i];
        sampler.cumulative[i] = static_cast<float>(sum / total);
        sampler.weights[i]    = static_cast<float>(weights[i] / total);
    }
    sampler.cumulative[count] = 1.0f;

    const std::uint32_t last = sampler.count - 1;
#pragma omp parallel for schedule(static) num_threads(TeamSize()) if (count > 4096)
    for (std::uint32_t i = 0; i < sampler.count; ++i)
        sampler.lookup[i] = FirstAbove(sampler, 0, last, SectionStart(sampler, i));
    sampler.lookup[count] = last;
}

std::uint32_t PickIndex(const AreaSampler& sampler, float u, float* remainder)
{
    if (!sampler.IsUsable()) return kNone;

    const std::uint32_t section = SectionOf(sampler, u);
    const std::uint32_t index   = FirstAbove(sampler, sampler.lookup[section], sampler.lookup[section + 1], u);
    if (!(sampler.weights[index] > 0.0f)) return kNone;

    if (remainder) {
        const float low   = index > 0 ? sampler.cumulative[index - 1] : 0.0f;
        const float width = sampler.cumulative[index] - low;
        *remainder        = width > 0.0f ? std::clamp((u - low) / width, 0.0f, 1.0f) : 0.0f;
    }
    return index;
}

}  // namespace hv
