#include "session/area_sampler.h"
#include "session/sampling.h"

#include "base/constants.h"

#include <gtest/gtest.h>
#include <omp.h>

#include <cmath>
#include <functional>
#include <limits>
#include <numeric>
#include <vector>

namespace hv {
namespace {

constexpr int kSomePrimes[][2] = {{0, 2}, {1, 3}, {2, 5}, {9, 29}, {15, 53}, {16, 59}, {40, 179}, {63, 311}};

/// Digits of `index` in a base, mirrored at the point, in double precision.
double MirroredDigits(int base, std::uint32_t index)
{
    double value = 0.0, place = 1.0;
    for (; index > 0; index /= static_cast<std::uint32_t>(base)) {
        place /= base;
        value += place * (index % static_cast<std::uint32_t>(base));
    }
    return value;
}

class Sampling : public testing::Test {
protected:
    void SetUp() override { FillSamplingTables(); }
    void TearDown() override
    {
        ClearSeed();
        FillSamplingTables();
    }
};

// A render must not change at frame 4096 or dimension 16, where the tables end.
TEST_F(Sampling, RadicalInverseMirrorsTheDigits)
{
    for (const bool tables : {true, false}) {
        if (!tables) ClearSamplingTables();
        for (const auto& [dimension, prime] : kSomePrimes) {
            const auto d = static_cast<std::uint32_t>(dimension);
            EXPECT_EQ(RadicalInverse(d, 0), 0.0f);
            for (std::uint32_t index = 1; index < 70000; index += 13)
                ASSERT_NEAR(RadicalInverse(d, index), MirroredDigits(prime, index), 2e-6) << prime << ' ' << index;
            EXPECT_EQ(RadicalInverse(d + 64, 4711), RadicalInverse(d, 4711));
        }
    }
}

std::vector<float> Draw(std::uint64_t item, std::uint32_t frame, int count)
{
    BeginRandomStream(item, frame);
    std::vector<float> numbers;
    for (int i = 0; i < count; ++i) numbers.push_back(HardwareRandom());
    return numbers;
}

TEST_F(Sampling, SeededNumbersDependOnItemAndFrameAlone)
{
    SetSeed(17);
    FillSamplingTables();
    const float              jitter = PixelJitterTable[3][4][0];
    const std::vector<float> drawn  = Draw(0, 3, 5);
    FillSamplingTables();
    EXPECT_EQ(PixelJitterTable[3][4][0], jitter);
#pragma omp parallel num_threads(4)
    EXPECT_EQ(Draw(0, 3, 5), drawn);

    SetSeed(18);
    EXPECT_EQ(Draw(0, 3, 5), drawn) << "a seed takes effect with the next start-up";
    FillSamplingTables();
    EXPECT_NE(Draw(0, 3, 5), drawn);
    EXPECT_NE(PixelJitterTable[3][4][0], jitter);
}

// Streams of neighbouring pixels and frames, seen as one sequence, must look as random as one stream does: a weak mix
// of item and frame would show as a pattern in the picture. So must the numbers that come without a seed.
TEST_F(Sampling, StreamsOfNeighboursAreUncorrelated)
{
    constexpr int kCount     = 100000;
    const double  kDeviation = 1.0 / 12.0 / std::sqrt(kCount);  // of a mean of products of centred uniforms
    const std::function<std::vector<float>(std::uint32_t)> streams[] = {
        [](std::uint32_t) {
            return std::vector{HardwareRandom(), HardwareRandom()};
        },
        [](std::uint32_t i) { return Draw(i, 5, 2); }, [](std::uint32_t i) { return Draw(5, i, 2); }};
    for (const auto& stream : streams) {
        double mean = 0.0, neighbours = 0.0, pairs = 0.0, last = 0.5;
        for (std::uint32_t i = 0; i < kCount; ++i) {
            const std::vector<float> drawn = stream(i);
            ASSERT_TRUE(drawn[0] >= 0.0f && drawn[0] < 1.0f);
            mean += drawn[0];
            neighbours += (drawn[0] - 0.5) * (last - 0.5);
            pairs += (drawn[1] - 0.5) * (last - 0.5);
            last = drawn[0];
        }
        EXPECT_NEAR(mean / kCount, 0.5, 5.0 * std::sqrt(1.0 / 12.0 / kCount));
        EXPECT_NEAR(neighbours / kCount, 0.0, 5.0 * kDeviation);
        EXPECT_NEAR(pairs / kCount, 0.0, 5.0 * kDeviation);
        SetSeed(0);
        FillSamplingTables();
    }
}

// ---- AreaSampler ----

// A pick is the first inclusive sum above u; what is left of u runs from 0 to 1 over its weight.
TEST(AreaSamplerTest, PicksTheFirstSumAbove)
{
    FillSamplingTables();
    for (const std::size_t count : {1u, 2u, 7u, 5000u}) {
        std::vector<float> weights(count, 1.0f);
        for (std::size_t i = 1; i < count; ++i) weights[i] = std::pow(HardwareRandom(), 8.0f);  // very uneven
        weights[count / 2] = count > 2 ? 0.0f : 1.0f;
        AreaSampler sampler;
        BuildAreaSampler(sampler, weights);
        EXPECT_NEAR(sampler.total, std::accumulate(weights.begin(), weights.end(), 0.0), 1e-4);
        std::vector<float> numbers(sampler.cumulative.begin(), sampler.cumulative.end());
        numbers.insert(numbers.end(), {0.0f, 0.99999994f, 1.0f});
        for (int i = 0; i < 20000; ++i) numbers.push_back(HardwareRandom());
        for (const float u : numbers) {
            std::uint32_t expected = 0;
            while (expected + 1 < sampler.count && !(sampler.cumulative[expected] > u)) ++expected;
            const float weight    = sampler.weights[expected];
            float       remainder = -1.0f;
            ASSERT_EQ(PickIndex(sampler, u, &remainder), weight > 0.0f ? expected : kNone) << count << ' ' << u;
            EXPECT_NEAR(weight, weights[expected] / sampler.total, 1e-6);
            const float below = expected > 0 ? sampler.cumulative[expected - 1] : 0.0f;
            if (weight > 1e-3f && u < 1.0f) {
                EXPECT_NEAR(remainder, (u - below) / weight, 1e-3f);
            }
        }
    }
}

TEST(AreaSamplerTest, ListsWithoutWeightAreUnusable)
{
    AreaSampler     sampler;
    constexpr float kNumberless = std::numeric_limits<float>::quiet_NaN();
    BuildAreaSampler(sampler, {1.0f, 1.0f});
    EXPECT_EQ(PickIndex(sampler, kNumberless), 1u) << "a non-number must stay in range";
    for (const std::vector<float>& weights : {std::vector<float>{}, {0.0f, 0.0f}, {kNumberless, 1.0f}, {INFINITY}}) {
        BuildAreaSampler(sampler, weights);
        EXPECT_FALSE(sampler.IsUsable());
        EXPECT_EQ(PickIndex(sampler, 0.5f), kNone);
    }
}

}  // namespace
}  // namespace hv
