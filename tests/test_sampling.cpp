#include "session/area_sampler.h"
#include "session/sampling.h"

#include "base/constants.h"

#include <gtest/gtest.h>
#include <omp.h>

#include <cmath>
#include <limits>
#include <set>
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

// 64 cells, 16384 draws each on average: cells stray by 6 standard deviations about once in a thousand million.
TEST_F(Sampling, HardwareRandomFillsTheUnitIntervalEvenly)
{
    constexpr int    kCells = 64, kDraws = kCells * 16384;
    std::vector<int> cells(kCells);
    double           product = 0.0;
    float            last    = HardwareRandom();
    for (int i = 0; i < kDraws; ++i) {
        const float u = HardwareRandom();
        ASSERT_GE(u, 0.0f);
        ASSERT_LT(u, 1.0f);
        ++cells[static_cast<std::size_t>(u * kCells)];
        product += (u - 0.5) * (last - 0.5);
        last = u;
    }
    for (const int count : cells) EXPECT_NEAR(count, 16384, 6 * 128);
    EXPECT_NEAR(product / kDraws, 0.0, 6.0 / 12.0 / std::sqrt(kDraws));
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
    constexpr int kItems = 200;
    SetSeed(17);
    FillSamplingTables();
    const float                     jitter = PixelJitterTable[3][4][0];
    std::vector<std::vector<float>> serial, parallel(kItems);
    for (std::uint64_t item = 0; item < kItems; ++item) serial.push_back(Draw(item, 3, 5));
    FillSamplingTables();
    EXPECT_EQ(PixelJitterTable[3][4][0], jitter);
#pragma omp parallel for schedule(dynamic, 1) num_threads(4)
    for (std::size_t item = 0; item < kItems; ++item) parallel[item] = Draw(item, 3, 5);
    EXPECT_EQ(serial, parallel);

    SetSeed(18);
    EXPECT_EQ(Draw(0, 3, 5), serial[0]) << "a seed takes effect with the next start-up";
    FillSamplingTables();
    EXPECT_NE(Draw(0, 3, 5), serial[0]);
    EXPECT_NE(PixelJitterTable[3][4][0], jitter);
}

// Streams of neighbouring pixels and frames, seen as one sequence, must look as random as one stream does: a weak mix of
// item and frame would show as a pattern in the picture.
TEST_F(Sampling, StreamsOfNeighboursAreUncorrelated)
{
    constexpr int kCount     = 100000;
    const double  kDeviation = 1.0 / 12.0 / std::sqrt(kCount);  // of a mean of products of centred uniforms
    SetSeed(0);
    FillSamplingTables();
    for (const bool along_frames : {false, true}) {
        double mean = 0.0, neighbours = 0.0, pairs = 0.0, last = 0.5;
        for (std::uint32_t i = 0; i < kCount; ++i) {
            const std::vector<float> drawn = along_frames ? Draw(5, i, 2) : Draw(i, 5, 2);
            mean += drawn[0];
            neighbours += (drawn[0] - 0.5) * (last - 0.5);
            pairs += (drawn[1] - 0.5) * (last - 0.5);
            last = drawn[0];
        }
        EXPECT_NEAR(mean / kCount, 0.5, 5.0 * std::sqrt(1.0 / 12.0 / kCount));
        EXPECT_NEAR(neighbours / kCount, 0.0, 5.0 * kDeviation);
        EXPECT_NEAR(pairs / kCount, 0.0, 5.0 * kDeviation);
    }
}

TEST_F(Sampling, WithoutASeedNoTwoStartUpsAndNoTwoThreadsAgree)
{
    std::set<float> distinct;
    for (int start_up = 0; start_up < 2; ++start_up) {
        FillSamplingTables();
        distinct.insert(PixelJitterTable[0][0][0]);
        float numbers[4];
#pragma omp parallel num_threads(4)
        numbers[omp_get_thread_num()] = HardwareRandom();
        distinct.insert(numbers, numbers + 4);
    }
    EXPECT_GE(distinct.size(), 9u);  // two of ten equal floats would be chance, more are not
}

// ---- AreaSampler ----

/// What a pick is by definition: the first inclusive sum above u.
std::uint32_t LinearPick(const AreaSampler& sampler, float u)
{
    for (std::uint32_t i = 0; i + 1 < sampler.count; ++i)
        if (sampler.cumulative[i] > u) return i;
    return sampler.count - 1;
}

TEST(AreaSamplerTest, PicksTheFirstSumAbove)
{
    FillSamplingTables();
    for (const std::size_t count : {1u, 2u, 7u, 5000u}) {
        std::vector<float> weights(count, 1.0f);
        for (std::size_t i = 1; i < count; ++i) weights[i] = std::pow(HardwareRandom(), 8.0f);  // very uneven
        AreaSampler sampler;
        BuildAreaSampler(sampler, weights);
        std::vector<float> numbers(sampler.cumulative.begin(), sampler.cumulative.end());
        numbers.insert(numbers.end(), {0.0f, 0.99999994f, 1.0f});
        for (int i = 0; i < 20000; ++i) numbers.push_back(HardwareRandom());
        for (const float u : numbers) {
            const std::uint32_t expected = LinearPick(sampler, u);
            ASSERT_EQ(PickIndex(sampler, u), sampler.weights[expected] > 0.0f ? expected : kNone) << count << ' ' << u;
        }
    }
}

TEST(AreaSamplerTest, PicksInProportionAndLeavesAUniformRemainder)
{
    const std::vector<float> weights = {3.0f, 0.0f, 1.0f, 4.0f, 0.0f};
    AreaSampler              sampler;
    BuildAreaSampler(sampler, weights);
    EXPECT_EQ(sampler.total, 8.0);

    constexpr int kCount        = 80000;
    int           picked[5]     = {};
    double        remainders[5] = {}, squares[5] = {};
    for (int i = 0; i < kCount; ++i) {
        float               remainder = -1.0f;
        const std::uint32_t index     = PickIndex(sampler, (static_cast<float>(i) + 0.5f) / kCount, &remainder);
        ASSERT_LT(index, 5u);
        ++picked[index];
        remainders[index] += remainder;
        squares[index] += remainder * remainder;
    }
    for (std::size_t i = 0; i < 5; ++i) {
        EXPECT_NEAR(picked[i], kCount * weights[i] / 8.0, 2.0);
        EXPECT_FLOAT_EQ(sampler.weights[i], weights[i] / 8.0f);
        if (picked[i] == 0) continue;
        EXPECT_NEAR(remainders[i] / picked[i], 0.5, 1e-3);
        EXPECT_NEAR(squares[i] / picked[i], 1.0 / 3.0, 1e-3);
    }
    EXPECT_EQ(PickIndex(sampler, 1.0f), kNone) << "the last entry has weight 0";
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
