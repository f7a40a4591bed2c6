#pragma once

#include <immintrin.h>
#include <cstdint>

/// Four and eight floats side by side. The only file that names intrinsics: kernels are written with these operators.
/// Nothing here is fused or approximate unless its name says so, so a lane gives the bits of the same scalar
/// expression.
namespace hv {

struct Float8 {
    __m256 lanes;
};
struct Float4 {
    __m128 lanes;
};

inline Float8 Splat8(float x) { return {_mm256_set1_ps(x)}; }
inline Float4 Splat4(float x) { return {_mm_set1_ps(x)}; }
inline Float8 Load8(const float* p) { return {_mm256_load_ps(p)}; }        // p aligned to 32 bytes
inline Float4 Load4(const float* p) { return {_mm_load_ps(p)}; }           // p aligned to 16 bytes
inline void   Store8(float* p, Float8 a) { _mm256_store_ps(p, a.lanes); }  // p aligned to 32 bytes
inline void   Store4(float* p, Float4 a) { _mm_store_ps(p, a.lanes); }     // p aligned to 16 bytes

inline Float8 operator+(Float8 a, Float8 b) { return {_mm256_add_ps(a.lanes, b.lanes)}; }
inline Float8 operator-(Float8 a, Float8 b) { return {_mm256_sub_ps(a.lanes, b.lanes)}; }
inline Float8 operator*(Float8 a, Float8 b) { return {_mm256_mul_ps(a.lanes, b.lanes)}; }
inline Float8 operator/(Float8 a, Float8 b) { return {_mm256_div_ps(a.lanes, b.lanes)}; }
inline Float8 operator|(Float8 a, Float8 b) { return {_mm256_or_ps(a.lanes, b.lanes)}; }
inline Float8 operator&(Float8 a, Float8 b) { return {_mm256_and_ps(a.lanes, b.lanes)}; }
inline Float4 operator+(Float4 a, Float4 b) { return {_mm_add_ps(a.lanes, b.lanes)}; }
inline Float4 operator-(Float4 a, Float4 b) { return {_mm_sub_ps(a.lanes, b.lanes)}; }
inline Float4 operator*(Float4 a, Float4 b) { return {_mm_mul_ps(a.lanes, b.lanes)}; }
inline Float4 operator/(Float4 a, Float4 b) { return {_mm_div_ps(a.lanes, b.lanes)}; }
inline Float4 operator&(Float4 a, Float4 b) { return {_mm_and_ps(a.lanes, b.lanes)}; }

// When either operand is a non-number, Max and Min give b: put what may be none first and what is known second.
inline Float8 Max(Float8 a, Float8 b) { return {_mm256_max_ps(a.lanes, b.lanes)}; }
inline Float8 Min(Float8 a, Float8 b) { return {_mm256_min_ps(a.lanes, b.lanes)}; }
inline Float4 Max(Float4 a, Float4 b) { return {_mm_max_ps(a.lanes, b.lanes)}; }
inline Float4 Min(Float4 a, Float4 b) { return {_mm_min_ps(a.lanes, b.lanes)}; }

inline Float8 Absolute(Float8 a) { return {_mm256_andnot_ps(_mm256_set1_ps(-0.0f), a.lanes)}; }

inline Float8 Root(Float8 a) { return {_mm256_sqrt_ps(a.lanes)}; }  // exact, as the scalar one

/// Lanes of a where the comparison holds, of b elsewhere.
inline Float8 Select(Float8 holds, Float8 a, Float8 b) { return {_mm256_blendv_ps(b.lanes, a.lanes, holds.lanes)}; }

/// 1 / sqrt(a) with a relative error near 2 to the power -12; infinity at 0.
inline Float8 FastReciprocalRoot(Float8 a) { return {_mm256_rsqrt_ps(a.lanes)}; }

/// Eight numbers of half precision, aligned to 16 bytes.
inline Float8 LoadHalves8(const std::uint16_t* p)
{
    return {_mm256_cvtph_ps(_mm_load_si128(reinterpret_cast<const __m128i*>(p)))};
}

/// Eight whole numbers of two bytes, aligned to 16 bytes.
inline Float8 LoadWords8(const std::uint16_t* p)
{
    return {_mm256_cvtepi32_ps(_mm256_cvtepu16_epi32(_mm_load_si128(reinterpret_cast<const __m128i*>(p))))};
}

/// The nearest half, and the smallest half that is no less.
inline std::uint16_t NearestHalf(float x)
{
    return static_cast<std::uint16_t>(_mm_extract_epi16(_mm_cvtps_ph(_mm_set_ss(x), _MM_FROUND_TO_NEAREST_INT), 0));
}
inline std::uint16_t HalfAbove(float x)
{
    return static_cast<std::uint16_t>(_mm_extract_epi16(_mm_cvtps_ph(_mm_set_ss(x), _MM_FROUND_TO_POS_INF), 0));
}

/// a * b + c and a * b - c, rounded once: not the bits of the two operations.
inline Float8 FusedAdd(Float8 a, Float8 b, Float8 c) { return {_mm256_fmadd_ps(a.lanes, b.lanes, c.lanes)}; }
inline Float8 FusedSubtract(Float8 a, Float8 b, Float8 c) { return {_mm256_fmsub_ps(a.lanes, b.lanes, c.lanes)}; }

// Comparisons fill a lane with ones or zeroes; a non-number never passes.
inline Float8 Less(Float8 a, Float8 b) { return {_mm256_cmp_ps(a.lanes, b.lanes, _CMP_LT_OQ)}; }
inline Float8 LessEqual(Float8 a, Float8 b) { return {_mm256_cmp_ps(a.lanes, b.lanes, _CMP_LE_OQ)}; }
inline Float8 Equal(Float8 a, Float8 b) { return {_mm256_cmp_ps(a.lanes, b.lanes, _CMP_EQ_OQ)}; }

/// Each lane gets the next one's value, the last one `last`.
inline Float8 Following(Float8 a, float last)
{
    const __m256 turned = _mm256_permutevar8x32_ps(a.lanes, _mm256_setr_epi32(1, 2, 3, 4, 5, 6, 7, 0));
    return {_mm256_blend_ps(turned, _mm256_set1_ps(last), 0x80)};
}

/// Bit i of the result is lane i of a comparison.
inline unsigned Bits(Float8 a) { return static_cast<unsigned>(_mm256_movemask_ps(a.lanes)); }

/// The largest lane, in all lanes.
inline Float8 SplatHighest(Float8 a)
{
    const __m256 quads = _mm256_max_ps(a.lanes, _mm256_permute2f128_ps(a.lanes, a.lanes, 1));
    const __m256 pairs = _mm256_max_ps(quads, _mm256_permute_ps(quads, 0b01001110));
    return {_mm256_max_ps(pairs, _mm256_permute_ps(pairs, 0b10110001))};
}

/// Bit i: the i-th of eight words, aligned to 32 bytes, equals `value`.
inline unsigned EqualBits8(const std::uint32_t* p, std::uint32_t value)
{
    const __m256i words = _mm256_load_si256(reinterpret_cast<const __m256i*>(p));
    const __m256i equal = _mm256_cmpeq_epi32(words, _mm256_set1_epi32(static_cast<int>(value)));
    return static_cast<unsigned>(_mm256_movemask_ps(_mm256_castsi256_ps(equal)));
}

/// Bit i: an eighth of the i-th of eight words, aligned to 32 bytes, rounded down, equals `value`.
inline unsigned EighthEqualBits8(const std::uint32_t* p, std::uint32_t value)
{
    const __m256i words = _mm256_load_si256(reinterpret_cast<const __m256i*>(p));
    const __m256i equal = _mm256_cmpeq_epi32(_mm256_srli_epi32(words, 3), _mm256_set1_epi32(static_cast<int>(value)));
    return static_cast<unsigned>(_mm256_movemask_ps(_mm256_castsi256_ps(equal)));
}

/// Bit i: the i-th of eight bytes is not 0.
inline unsigned NonZeroBits8(const std::uint8_t* p)
{
    const __m128i bytes = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(p));
    const __m128i zero  = _mm_cmpeq_epi8(bytes, _mm_setzero_si128());
    return ~static_cast<unsigned>(_mm_movemask_epi8(zero)) & 255u;
}

/// Bit i: the i-th of eight numbers of two bytes, aligned to 16, is not 0.
inline unsigned NonZeroBits16(const std::uint16_t* p)
{
    const __m128i zero = _mm_cmpeq_epi16(_mm_load_si128(reinterpret_cast<const __m128i*>(p)), _mm_setzero_si128());
    return ~static_cast<unsigned>(_mm_movemask_epi8(_mm_packs_epi16(zero, zero))) & 255u;
}

/// Bit i: the i-th of eight bytes equals `value`.
inline unsigned EqualByteBits8(const std::uint8_t* p, std::uint8_t value)
{
    const __m128i bytes = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(p));
    const __m128i equal = _mm_cmpeq_epi8(bytes, _mm_set1_epi8(static_cast<char>(value)));
    return static_cast<unsigned>(_mm_movemask_epi8(equal)) & 255u;
}

/// Three coordinates in lanes.
template <class Lanes>
struct VectorLanes {
    Lanes x, y, z;
};
using Vector8 = VectorLanes<Float8>;

// The operation order of the scalar Dot and Cross.
template <class L>
inline VectorLanes<L> operator+(VectorLanes<L> a, VectorLanes<L> b)
{
    return {a.x + b.x, a.y + b.y, a.z + b.z};
}
template <class L>
inline VectorLanes<L> operator-(VectorLanes<L> a, VectorLanes<L> b)
{
    return {a.x - b.x, a.y - b.y, a.z - b.z};
}
template <class L>
inline VectorLanes<L> operator*(L s, VectorLanes<L> a)
{
    return {s * a.x, s * a.y, s * a.z};
}
template <class L>
inline VectorLanes<L> operator/(VectorLanes<L> a, L s)
{
    return {a.x / s, a.y / s, a.z / s};
}
template <class L>
inline L Dot(VectorLanes<L> a, VectorLanes<L> b)
{
    return a.x * b.x + a.y * b.y + a.z * b.z;
}
template <class L>
inline VectorLanes<L> Cross(VectorLanes<L> a, VectorLanes<L> b)
{
    return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
}

// The same, fused, for tests that need no bits of a scalar twin.
inline Float8  FusedDot(Vector8 a, Vector8 b) { return FusedAdd(a.x, b.x, FusedAdd(a.y, b.y, a.z * b.z)); }
inline Vector8 FusedCross(Vector8 a, Vector8 b)
{
    return {FusedSubtract(a.y, b.z, a.z * b.y), FusedSubtract(a.z, b.x, a.x * b.z), FusedSubtract(a.x, b.y, a.y * b.x)};
}

}  // namespace hv
