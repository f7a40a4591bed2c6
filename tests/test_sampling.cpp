#include "session/area_sampler.h"
#include "session/sampling.h"

#include "base/constants.h"

#include <gtest/gtest.h>
#include <omp.h>

#include <cmath>
#include <cstring>
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

TEST_F(Sampling, RadicalInverseMirrorsTheDigits)
{
    EXPECT_EQ(RadicalInverse(0, 1), 0.5f);
    EXPECT_EQ(RadicalInverse(0, 2), 0.25f);
    EXPECT_EQ(RadicalInverse(0, 3), 0.75f);
    EXPECT_EQ(RadicalInverse(1, 1), 1.0f / 3.0f);
    for (const auto& [dimension, prime] : kSomePrimes) {
        const auto d = static_cast<std::uint32_t>(dimension);
        EXPECT_EQ(RadicalInverse(d, 0), 0.0f);
        for (std::uint32_t index = 1; index < 70000; index += 13)
            ASSERT_NEAR(RadicalInverse(d, index), MirroredDigits(prime, index), 2e-6) << prime << ' ' << index;
        EXPECT_EQ(RadicalInverse(d + 64, 4711), RadicalInverse(d, 4711));
    }
}

// A render must not change at frame 4096 or dimension 16, where the tables end.
TEST_F(Sampling, TablesHoldExactlyWhatTheLoopComputes)
{
    std::vector<float> from_tables;
    for (std::uint32_t d = 0; d < kTableDimensions; ++d)
        for (std::uint32_t i = 0; i < kTableEntries; ++i) from_tables.push_back(RadicalInverse(d, i));
    ClearSamplingTables();
    std::size_t next = 0;
    for (std::uint32_t d = 0; d < kTableDimensions; ++d)
        for (std::uint32_t i = 0; i < kTableEntries; ++i) ASSERT_EQ(RadicalInverse(d, i), from_tables[next++]);
}

TEST_F(Sampling, RotateWrapsAboveOneOnly)
{
    EXPECT_EQ(Rotate(0.25f, 0.5f), 0.75f);
    EXPECT_EQ(Rotate(0.5f, 0.5f), 1.0f);
    EXPECT_EQ(Rotate(0.75f, 0.5f), 0.25f);
}

TEST_F(Sampling, PowerTableDecodesExponents)
{
    EXPECT_EQ(PowerTable[136], 1.0f);
    EXPECT_EQ(PowerTable[128], 1.0f / 256.0f);
    EXPECT_EQ(PowerTable[255], 664613997892457936451903530140172288.0f);  // 2^119
    EXPECT_GT(PowerTable[0], 0.0f);
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
    float jitter[32][32][2];
    std::memcpy(jitter, PixelJitterTable, sizeof jitter);
    std::vector<std::vector<float>> serial;
    for (int item = 0; item < kItems; ++item) serial.push_back(Draw(static_cast<std::uint64_t>(item), 3, 5));

    FillSamplingTables();
    EXPECT_EQ(std::memcmp(jitter, PixelJitterTable, sizeof jitter), 0);
    std::vector<std::vector<float>> parallel(kItems);
#pragma omp parallel for schedule(dynamic, 1) num_threads(4)
    for (int item = kItems - 1; item >= 0; --item)
        parallel[static_cast<std::size_t>(item)] = Draw(static_cast<std::uint64_t>(item), 3, 5);
    EXPECT_EQ(serial, parallel);

    EXPECT_NE(Draw(0, 3, 5), Draw(0, 4, 5));
    SetSeed(18);
    EXPECT_EQ(Draw(0, 3, 5), serial[0]) << "a seed takes effect with the next start-up";
    FillSamplingTables();
    EXPECT_NE(Draw(0, 3, 5), serial[0]);
    EXPECT_NE(std::memcmp(jitter, PixelJitterTable, sizeof jitter), 0);
}

// Streams of neighbouring pixels and frames, seen as one sequence, must look as random as one stream does: a weak mix of
// item and frame would show as a pattern in the picture.
TEST_F(Sampling, StreamsOfNeighboursAreUncorrelated)
{
    SetSeed(0);
    FillSamplingTables();
    constexpr int kCount = 100000;
    for (const bool along_frames : {false, true}) {
        std::vector<float> first, second;
        for (int i = 0; i < kCount; ++i) {
            const auto numbers =
                along_frames ? Draw(5, static_cast<std::uint32_t>(i), 2) : Draw(static_cast<std::uint64_t>(i), 5, 2);
            first.push_back(numbers[0]);
            second.push_back(numbers[1]);
        }
        double mean = 0.0, neighbours = 0.0, pairs = 0.0;
        for (std::size_t i = 0; i + 1 < kCount; ++i) {
            mean += first[i];
            neighbours += (first[i] - 0.5) * (first[i + 1] - 0.5);
            pairs += (first[i] - 0.5) * (second[i + 1] - 0.5);
        }
        const double deviation = 1.0 / 12.0 / std::sqrt(kCount);  // of a mean of products of centred uniforms
        EXPECT_NEAR(mean / kCount, 0.5, 5.0 * std::sqrt(1.0 / 12.0 / kCount));
        EXPECT_NEAR(neighbours / kCount, 0.0, 5.0 * deviation);
        EXPECT_NEAR(pairs / kCount, 0.0, 5.0 * deviation);
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
    for (const std::size_t count : {1u, 2u, 3u, 7u, 100u, 5000u}) {
        std::vector<float> weights(count);
        for (float& weight : weights) weight = std::pow(HardwareRandom(), 8.0f);  // very uneven
        weights[0] = 1.0f;
        AreaSampler sampler;
        BuildAreaSampler(sampler, weights);
        std::vector<float> numbers = {0.0f, 0.99999994f, 1.0f};
        for (int i = 0; i < 20000; ++i) numbers.push_back(HardwareRandom());
        for (std::size_t i = 0; i <= count; ++i) numbers.push_back(static_cast<float>(i) / static_cast<float>(count));
        for (std::size_t i = 0; i < count; ++i) numbers.push_back(sampler.cumulative[i]);
        for (const float u : numbers) {
            const std::uint32_t expected = LinearPick(sampler, u);
            const std::uint32_t picked   = PickIndex(sampler, u);
            ASSERT_EQ(picked, sampler.weights[expected] > 0.0f ? expected : kNone) << count << ' ' << u;
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
    constexpr float kNumberless = std::numeric_limits<float>::quiet_NaN();
    constexpr float kInfinite   = std::numeric_limits<float>::infinity();
    for (const std::vector<float>& weights : {std::vector<float>{}, {0.0f, 0.0f}, {kNumberless, 1.0f}, {kInfinite}}) {
        AreaSampler sampler;
        BuildAreaSampler(sampler, {1.0f});
        BuildAreaSampler(sampler, weights);
        EXPECT_FALSE(sampler.IsUsable());
        EXPECT_EQ(PickIndex(sampler, 0.5f), kNone);
    }
    AreaSampler sampler;
    BuildAreaSampler(sampler, {1.0f, 1.0f});
    EXPECT_EQ(PickIndex(sampler, kNumberless), 1u) << "a non-number must stay in range";
}

}  // namespace
}  // namespace hv
