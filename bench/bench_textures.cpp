// Texture lookups on one picture of 1024 x 1024: nanoseconds each, by sampler, pixel store and gamma, at coordinates
// that follow one another as neighbouring pixels do, and at random ones.

#include "pcg32.h"
#include "session/sampling.h"
#include "shading/byte_powers.h"
#include "shading/texture_lookup.h"
#include "timing.h"

#include <CLI/CLI.hpp>

#include <cstdio>
#include <string>
#include <vector>

namespace {

constexpr int         kSize    = 1024;
constexpr std::size_t kLookups = std::size_t{1} << 18;

enum class Store { Byte, Packed, Float };

struct TextureCase {
    const char* name;
    Store       store;
};
constexpr TextureCase kStores[] = {{"byte", Store::Byte}, {"packed", Store::Packed}, {"float", Store::Float}};

hv::Image MakePicture(Store store)
{
    hv::Image image;
    Pcg32     random(1, 0);
    hv::AllocateImage(image, kSize, kSize, 3, store == Store::Byte ? 8 : 32, store == Store::Packed);
    for (std::uint8_t& sample : image.pixels8) sample = static_cast<std::uint8_t>(random.Next());
    for (float& sample : image.pixels32) sample = random.Uniform();
    // Exponents about that of 1, as in a picture of daylight.
    for (std::uint32_t& word : image.pixels_rgbe) word = (random.Next() & 0xffffffu) | (126u + random.Next() % 4) << 24;
    return image;
}

/// Rows of 512 neighbours, a third of a texel apart; or anywhere.
std::vector<float> MakeCoordinates(bool coherent)
{
    std::vector<float> uv;
    Pcg32              random(2, 0);
    for (std::size_t i = 0; i < kLookups; ++i) {
        const float u = coherent ? 0.2f + static_cast<float>(i % 512) / (3.0f * kSize) : random.Uniform();
        const float v = coherent ? 0.2f + static_cast<float>(i / 512) / (3.0f * kSize) : random.Uniform();
        uv.insert(uv.end(), {u, v});
    }
    return uv;
}

double NanosecondsEach(const hv::Image& image, const hv::ShaderElement& element, const std::vector<float>& uv, int runs)
{
    std::vector<double> seconds;
    hv::Color           sum;
    for (int run = 0; run <= runs; ++run) {
        const double time = TimeOf([&] {
            for (std::size_t i = 0; i < kLookups; ++i) sum += hv::LookupTexture(image, &uv[2 * i], element);
        });
        if (run > 0) seconds.push_back(time);  // the first warms up
    }
    if (hv::Mean(sum) < 0.0f) std::puts("");  // keeps the lookups
    return 1e9 * Median(seconds) / static_cast<double>(kLookups);
}

void BenchStore(const TextureCase& test, float gamma, int runs)
{
    const hv::Image       image    = MakePicture(test.store);
    const auto            coherent = MakeCoordinates(true), anywhere = MakeCoordinates(false);
    constexpr const char* kSamplers[] = {"nearest", "stochastic", "bilinear"};
    for (int sampler = 0; sampler < 3; ++sampler) {
        hv::ShaderElement element;
        element.gamma   = gamma;
        element.sampler = static_cast<std::uint8_t>(sampler);
        if (test.store == Store::Byte && gamma != 1.0f) element.byte_powers = hv::PowersOfBytes(gamma);
        std::printf("%-8s %-11s %5.1f %12.1f %12.1f\n", test.name, kSamplers[sampler], gamma,
                    NanosecondsEach(image, element, coherent, runs), NanosecondsEach(image, element, anywhere, runs));
    }
}

}  // namespace

int main(int argc, char** argv)
{
    int      runs = 7;
    CLI::App app{"Speed of texture lookups, ns each on one thread"};
    app.add_option("--runs", runs, "timed runs; the median counts")->check(CLI::Range(1, 1000));
    CLI11_PARSE(app, argc, argv);

    hv::FillSamplingTables();
    std::printf("%-8s %-11s %5s %12s %12s\n", "store", "sampler", "gamma", "coherent", "random");
    for (const float gamma : {1.0f, 2.2f})
        for (const TextureCase& test : kStores) BenchStore(test, gamma, runs);
    return 0;
}
