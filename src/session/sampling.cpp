#include "session/sampling.h"

#include "base/per_thread.h"
#include "session/console.h"

#include <sys/random.h>

#include <algorithm>
#include <cmath>
#include <cstddef>

namespace hv {

std::vector<float> RadicalInverseTables[kTableDimensions];
float              PixelJitterTable[32][32][2];
float              PowerTable[256];

namespace {

constexpr std::uint32_t kPrimeCount = 64;

constexpr std::uint32_t kPrimes[kPrimeCount] = {
    2,   3,   5,   7,   11,  13,  17,  19,  23,  29,  31,  37,  41,  43,  47,  53,  59,  61,  67,  71,  73,  79,
    83,  89,  97,  101, 103, 107, 109, 113, 127, 131, 137, 139, 149, 151, 157, 163, 167, 173, 179, 181, 191, 193,
    197, 199, 211, 223, 227, 229, 233, 239, 241, 251, 257, 263, 269, 271, 277, 281, 283, 293, 307, 311};

/// Items of BeginRandomStream that no pixel, photon or list of emitters has.
constexpr std::uint64_t kIdleItem   = ~std::uint64_t{0};
constexpr std::uint64_t kJitterItem = ~std::uint64_t{1};

/// Where the threads' generators take their state from. Written between parallel regions only.
struct RandomSource {
    std::uint64_t seed            = 0;
    std::uint64_t requested_seed  = 0;  ///< becomes `seed` at the next start-up
    bool          fixed           = false;
    bool          requested_fixed = false;
    std::uint32_t start_up        = 1;  ///< number of the start-up; a generator of an older one starts anew
};
RandomSource source;

/// PCG-XSH-RR (O'Neill 2014): 64 bits of state, 63 bits of stream, 32 bits out.
struct Generator {
    std::uint64_t state     = 0;
    std::uint64_t increment = 1;  ///< odd
    std::uint32_t start_up  = 0;
};

// Read on every draw: the initial-exec model makes that one load off the thread pointer instead of a call.
__attribute__((tls_model("initial-exec"))) thread_local Generator generator;

std::uint32_t Next(Generator& g)
{
    const std::uint64_t old     = g.state;
    const std::uint32_t shifted = static_cast<std::uint32_t>(((old >> 18) ^ old) >> 27);
    const std::uint32_t turn    = static_cast<std::uint32_t>(old >> 59);
    g.state                     = old * 6364136223846793005ULL + g.increment;
    return (shifted >> turn) | (shifted << ((32 - turn) & 31));
}

/// The finaliser of SplitMix64 (Steele, Lea and Flood 2014): every input bit changes half of the output bits.
std::uint64_t Mix(std::uint64_t x)
{
    x = (x ^ (x >> 30)) * 0xbf58476d1ce4e5b9ULL;
    x = (x ^ (x >> 27)) * 0x94d049bb133111ebULL;
    return x ^ (x >> 31);
}

void StartFixedStream(Generator& g, std::uint64_t item, std::uint32_t frame)
{
    constexpr std::uint64_t kGolden = 0x9e3779b97f4a7c15ULL;

    const std::uint64_t key = Mix(Mix(Mix(source.seed + kGolden) ^ item) + kGolden * (frame + 1ULL));
    g.state                 = Mix(key + kGolden);
    g.increment             = Mix(key + 2 * kGolden) | 1;
    g.start_up              = source.start_up;
}

void StartFreeStream(Generator& g)
{
    std::uint64_t entropy[2] = {};
    if (getrandom(entropy, sizeof entropy, 0) != static_cast<ssize_t>(sizeof entropy)) {
        // No entropy from the system: the clock and the thread's own address still keep streams apart.
        entropy[0] ^= Mix(static_cast<std::uint64_t>(Ticks()));
        entropy[1] ^= Mix(entropy[0] + reinterpret_cast<std::uintptr_t>(&g));
    }
    g.state     = entropy[0];
    g.increment = entropy[1] | 1;
    g.start_up  = source.start_up;
}

/// The one loop behind the tables and the values beyond them. The order of the sums in single precision is part of the
/// definition: both must agree to the bit.
float ComputeRadicalInverse(std::uint32_t base, std::uint32_t index)
{
    const float reciprocal = 1.0f / static_cast<float>(base);
    float       sum        = 0.0f;
    float       factor     = reciprocal;
    for (std::uint32_t n = index; n > 0; n /= base) {
        sum += static_cast<float>(n % base) * factor;
        factor *= reciprocal;
    }
    return sum;
}

void FillPixelJitter()
{
    BeginRandomStream(kJitterItem, 0);
    for (auto& row : PixelJitterTable)
        for (auto& pair : row)
            for (float& offset : pair) offset = HardwareRandom();
}

}  // namespace

void FillSamplingTables()
{
    source.seed  = source.requested_seed;
    source.fixed = source.requested_fixed;
    ++source.start_up;

    for (int i = 0; i < 256; ++i) PowerTable[i] = std::ldexp(1.0f, i - 136);

    for (std::vector<float>& table : RadicalInverseTables) table.resize(kTableEntries);
#pragma omp parallel for schedule(static) num_threads(TeamSize())
    for (int dimension = 0; dimension < kTableDimensions; ++dimension)
        for (int i = 0; i < kTableEntries; ++i)
            RadicalInverseTables[dimension][static_cast<std::size_t>(i)] =
                ComputeRadicalInverse(kPrimes[dimension], static_cast<std::uint32_t>(i));

    FillPixelJitter();
}

void ClearSamplingTables()
{
    for (std::vector<float>& table : RadicalInverseTables) table.clear();
}

float RadicalInverse(std::uint32_t dimension, std::uint32_t index)
{
    dimension %= kPrimeCount;
    if (dimension < kTableDimensions && index < RadicalInverseTables[dimension].size())
        return RadicalInverseTables[dimension][index];
    return ComputeRadicalInverse(kPrimes[dimension], index);
}

float HardwareRandom()
{
    Generator& g = generator;
    if (g.start_up != source.start_up) [[unlikely]] {
        if (source.fixed)
            StartFixedStream(g, kIdleItem, 0);
        else
            StartFreeStream(g);
    }
    return std::min(static_cast<float>(Next(g)) * 2.3283064e-10f, 0.99999994f);
}

void SetSeed(std::uint64_t seed)
{
    source.requested_seed  = seed;
    source.requested_fixed = true;
}

void ClearSeed() { source.requested_fixed = false; }

bool HasFixedSeed() { return source.fixed; }

void BeginRandomStream(std::uint64_t item, std::uint32_t frame)
{
    if (source.fixed) StartFixedStream(generator, item, frame);
}

}  // namespace hv
