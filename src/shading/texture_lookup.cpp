#include "shading/texture_lookup.h"

#include "session/sampling.h"
#include "shading/byte_powers.h"

#include <array>
#include <cmath>
#include <cstdint>
#include <limits>
#include <type_traits>

namespace hv {

namespace {

// ---- Pixel stores: each gives the colour of pixel y * width + x, gamma applied ----

Color Raised(Color color, float gamma)
{
    if (gamma == 1.0f) return color;
    return {std::pow(color.r, gamma), std::pow(color.g, gamma), std::pow(color.b, gamma)};
}

/// Samples with their channels interleaved. One channel stands for all three.
template <class Sample>
struct Interleaved {
    const Sample* samples;
    std::size_t   step, green, blue;

    Interleaved(const std::vector<Sample>& store, const Image& image)
        : samples(store.data()),
          step(static_cast<std::size_t>(image.channels)),
          green(step > 1 ? 1 : 0),
          blue(step > 2 ? 2 : 0)
    {
    }
};

constexpr std::array<float, 256> kScaledBytes = [] {
    std::array<float, 256> table{};
    for (std::size_t i = 0; i < table.size(); ++i) table[i] = static_cast<float>(i) * kByteScale;
    return table;
}();

/// Bytes through a table: quicker than converting and scaling them even where there is no power to take.
struct ByteTexels : Interleaved<std::uint8_t> {
    const float* powers;

    ByteTexels(const Image& image, const float* table) : Interleaved(image.pixels8, image), powers(table) {}

    Color operator()(std::size_t pixel) const
    {
        const std::uint8_t* p = samples + pixel * step;
        return {powers[p[0]], powers[p[green]], powers[p[blue]]};
    }
};

/// Any samples as they stand, or scaled when they are whole numbers.
template <class Sample>
struct PlainTexels : Interleaved<Sample> {
    float gamma;

    PlainTexels(const std::vector<Sample>& store, const Image& image, float power)
        : Interleaved<Sample>(store, image), gamma(power)
    {
    }

    Color operator()(std::size_t pixel) const
    {
        constexpr float kScale = std::is_integral_v<Sample> ? kByteScale : 1.0f;
        const Sample*   p      = this->samples + pixel * this->step;
        const Color     color  = {static_cast<float>(p[0]), static_cast<float>(p[this->green]),
                                  static_cast<float>(p[this->blue])};
        return Raised(color * kScale, gamma);
    }
};

struct PackedTexels {
    const std::uint32_t* words;
    float                gamma;

    Color operator()(std::size_t pixel) const
    {
        const std::uint32_t word     = words[pixel];
        const std::uint32_t exponent = word >> 24;
        const float         scale    = exponent != 0 ? PowerTable[exponent] : 0.0f;
        const Color         bytes    = {static_cast<float>(word & 255u), static_cast<float>(word >> 8 & 255u),
                                        static_cast<float>(word >> 16 & 255u)};
        return Raised(bytes * scale, gamma);
    }
};

/// Calls `read` with the store that is in use, so that everything behind it is chosen once a lookup. Black without one,
/// and where it holds less than the picture's size says.
template <class Read>
Color WithTexels(const Image& image, const ShaderElement& element, Read&& read)
{
    if (image.width < 1 || image.height < 1) return kBlack;
    const std::size_t pixels  = static_cast<std::size_t>(image.width) * static_cast<std::size_t>(image.height);
    const std::size_t samples = pixels * static_cast<std::size_t>(image.channels);
    const auto        plain   = [&](const auto& store) {
        return samples <= store.size() ? read(PlainTexels(store, image, element.gamma)) : kBlack;
    };
    if (image.packed) {
        if (pixels > image.pixels_rgbe.size()) return kBlack;
        return read(PackedTexels{image.pixels_rgbe.data(), element.gamma});
    }
    switch (image.bits) {
    case 8: {
        const float* const powers = element.gamma == 1.0f ? kScaledBytes.data() : element.byte_powers;
        if (powers == nullptr) return plain(image.pixels8);  // an element that was not prepared
        return samples <= image.pixels8.size() ? read(ByteTexels(image, powers)) : kBlack;
    }
    case 16:
        return plain(image.pixels16);
    case 32:
        return plain(image.pixels32);
    case 64:
        return plain(image.pixels64);
    default:
        return kBlack;
    }
}

// ---- Coordinates ----

constexpr std::uint8_t kRepeat = 0, kClamp = 1;

/// A coordinate in texels: whole part, and fraction of 0 to 1. No overflow in `texel` + 1.
struct Coordinate {
    int   texel;
    float fraction;
};

Coordinate Split(float value)
{
    const float whole    = std::floor(value);
    const float fraction = value - whole;  // of an infinite value no number: none is left
    return {ClampToInt(whole, std::numeric_limits<int>::min(), std::numeric_limits<int>::max() - 1),
            fraction > 0.0f ? fraction : 0.0f};
}

int Wrap(int c, int size, std::uint8_t mode)
{
    if (static_cast<unsigned>(c) < static_cast<unsigned>(size)) [[likely]]
        return c;
    if (mode == kRepeat) return c >= 0 ? c % size : size - 1 - -(c + 1) % size;
    if (mode == kClamp) return c < 0 ? 0 : size - 1;
    return c;
}

/// Wrap of c + 1, given that of c: repeating needs no second division.
int WrapNext(int c, int wrapped, int size, std::uint8_t mode)
{
    if (wrapped + 1 < size && mode == kRepeat) [[likely]]
        return wrapped + 1;
    return mode == kRepeat ? 0 : Wrap(c + 1, size, mode);
}

/// A picture under the wrap modes of an element.
template <class Texels>
struct Surface {
    const Texels&        texels;
    const Image&         image;
    const ShaderElement& element;

    /// A mode that does not wrap may lead out of the picture, where it is black.
    Color Read(int x, int y) const
    {
        const auto pixel = static_cast<std::size_t>(std::int64_t{y} * image.width + x);
        const auto count = static_cast<std::size_t>(image.width) * static_cast<std::size_t>(image.height);
        return pixel < count ? texels(pixel) : kBlack;
    }

    Color Fetch(int x, int y) const
    {
        return Read(Wrap(x, image.width, element.wrap_u), Wrap(y, image.height, element.wrap_v));
    }

    Color Bilinear(Coordinate x, Coordinate y) const
    {
        const int   x0 = Wrap(x.texel, image.width, element.wrap_u);
        const int   y0 = Wrap(y.texel, image.height, element.wrap_v);
        const int   x1 = WrapNext(x.texel, x0, image.width, element.wrap_u);
        const int   y1 = WrapNext(y.texel, y0, image.height, element.wrap_v);
        const Color a = Read(x0, y0), b = Read(x1, y0), c = Read(x0, y1), d = Read(x1, y1);
        const Color low = Mix(a, b, x.fraction), high = Mix(c, d, x.fraction);
        return Mix(low, high, y.fraction);
    }

    /// Exact where both agree, so that an even picture stays even.
    static Color Mix(Color a, Color b, float share)
    {
        return {a.r + (b.r - a.r) * share, a.g + (b.g - a.g) * share, a.b + (b.b - a.b) * share};
    }
};

template <class Texels>
Surface(const Texels&, const Image&, const ShaderElement&) -> Surface<Texels>;

// ---- The lookup ----

enum : std::uint8_t { kNearest, kStochastic, kBilinear };

template <class Texels>
Color Sample(const Surface<Texels>& surface, Coordinate x, Coordinate y)
{
    switch (surface.element.sampler) {
    case kNearest:
        return surface.Fetch(x.texel, y.texel);
    case kStochastic: {
        // Always two numbers, whatever the fractions, in this order.
        const bool right = x.fraction > HardwareRandom();
        const bool up    = y.fraction > HardwareRandom();
        return surface.Fetch(x.texel + right, y.texel + up);
    }
    case kBilinear:
        return surface.Bilinear(x, y);
    default:
        return kBlack;
    }
}

void TransformUv(float& u, float& v, const float (&m)[9])
{
    const float w     = m[6] * u + m[7] * v + m[8];
    const float new_u = (m[0] * u + m[1] * v + m[2]) / w;
    const float new_v = (m[3] * u + m[4] * v + m[5]) / w;
    u                 = new_u;
    v                 = new_v;
}

/// Meant: in the divisor both middle entries act on green, and blue takes no part.
Color TransformColor(Color c, const float (&m)[16])
{
    const float w = m[12] * c.r + (m[13] + m[14]) * c.g + m[15];
    return {(m[0] * c.r + m[1] * c.g + m[2] * c.b + m[3]) / w, (m[4] * c.r + m[5] * c.g + m[6] * c.b + m[7]) / w,
            (m[8] * c.r + m[9] * c.g + m[10] * c.b + m[11]) / w};
}

}  // namespace

Color FetchTexel(const Image& image, int x, int y, const ShaderElement& element)
{
    return WithTexels(image, element, [&](const auto& texels) { return Surface{texels, image, element}.Fetch(x, y); });
}

Color LookupTexture(const Image& image, const float uv[2], const ShaderElement& element)
{
    float u = uv[0], v = uv[1];
    if (!element.uv_matrix_is_identity) TransformUv(u, v, element.uv_matrix);
    // Texel 0 begins at 0: there is no shift by half a texel.
    const Coordinate x = Split(static_cast<float>(image.width) * u), y = Split(static_cast<float>(image.height) * v);

    const Color color = WithTexels(image, element, [&](const auto& texels) {
        return Sample(Surface{texels, image, element}, x, y);
    });
    return element.color_matrix_is_identity ? color : TransformColor(color, element.color_matrix);
}

}  // namespace hv
