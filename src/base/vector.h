#pragma once

#include "base/constants.h"

#include <algorithm>
#include <cmath>

namespace hv {

/// Point, direction or normal.
struct Vector {
    float x = 0.0f, y = 0.0f, z = 0.0f;

    // Of the whole: clang takes (&x)[axis] for x alone when it orders accesses.
    float  operator[](int axis) const { return reinterpret_cast<const float*>(this)[axis]; }
    float& operator[](int axis) { return reinterpret_cast<float*>(this)[axis]; }
    bool   operator==(const Vector&) const = default;
};

/// Linear RGB, no fixed range.
struct Color {
    float r = 0.0f, g = 0.0f, b = 0.0f;

    float  operator[](int channel) const { return reinterpret_cast<const float*>(this)[channel]; }
    float& operator[](int channel) { return reinterpret_cast<float*>(this)[channel]; }
    bool   operator==(const Color&) const = default;
};

inline constexpr Color kBlack{0.0f, 0.0f, 0.0f};
inline constexpr Color kWhite{1.0f, 1.0f, 1.0f};

inline Vector  operator-(Vector a) { return {-a.x, -a.y, -a.z}; }
inline Vector  operator+(Vector a, Vector b) { return {a.x + b.x, a.y + b.y, a.z + b.z}; }
inline Vector  operator-(Vector a, Vector b) { return {a.x - b.x, a.y - b.y, a.z - b.z}; }
inline Vector  operator*(Vector a, float s) { return {a.x * s, a.y * s, a.z * s}; }
inline Vector  operator*(float s, Vector a) { return {s * a.x, s * a.y, s * a.z}; }
inline Vector  operator/(Vector a, float s) { return {a.x / s, a.y / s, a.z / s}; }
inline Vector& operator+=(Vector& a, Vector b) { return a = a + b; }

inline Color  operator+(Color a, Color b) { return {a.r + b.r, a.g + b.g, a.b + b.b}; }
inline Color  operator*(Color a, Color b) { return {a.r * b.r, a.g * b.g, a.b * b.b}; }
inline Color  operator*(Color a, float s) { return {a.r * s, a.g * s, a.b * s}; }
inline Color  operator*(float s, Color a) { return {s * a.r, s * a.g, s * a.b}; }
inline Color  operator/(Color a, float s) { return {a.r / s, a.g / s, a.b / s}; }
inline Color& operator+=(Color& a, Color b) { return a = a + b; }
inline Color& operator*=(Color& a, Color b) { return a = a * b; }
inline Color& operator*=(Color& a, float s) { return a = a * s; }

inline float  Dot(Vector a, Vector b) { return a.x * b.x + a.y * b.y + a.z * b.z; }
inline Vector Cross(Vector a, Vector b)
{
    return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
}
inline Vector Min(Vector a, Vector b) { return {std::min(a.x, b.x), std::min(a.y, b.y), std::min(a.z, b.z)}; }
inline Vector Max(Vector a, Vector b) { return {std::max(a.x, b.x), std::max(a.y, b.y), std::max(a.z, b.z)}; }

inline float Mean(Color c) { return (c.r + c.g + c.b) * 0.33333334f; }
inline float MaxChannel(Color c) { return std::max(c.r, std::max(c.g, c.b)); }

/// The one cut-off of transport and shader preparation. A non-number is not present.
inline bool IsPresent(Color c) { return c.r > kPresent || c.g > kPresent || c.b > kPresent; }

/// Root with a floor: lengths and sines never come out as 0, so that dividing by them is safe.
inline float SafeRoot(float x) { return x > 1e-10f ? std::sqrt(x) : 1e-5f; }

/// Logarithm with a floor of -10.
inline float SafeLog(float x) { return x >= 1e-10f ? std::log(x) : -10.0f; }

/// Length under the guard of SafeRoot: never below 1e-5.
inline float Length(Vector v) { return SafeRoot(Dot(v, v)); }

/// The length guard of all normalisations: a zero vector stays as it is, a very short one is divided by 1e-5.
inline Vector Normalized(Vector v)
{
    const float square = Dot(v, v);
    return square == 0.0f ? v : v * (1.0f / SafeRoot(square));
}

/// A unit vector at right angles to the unit vector d: d x (d.z, -d.x, d.y), normalised. That product vanishes at
/// d = (1, 1, -1) / sqrt 3, where another axis stands in.
inline Vector PerpendicularTo(Vector d)
{
    const Vector e{d.y * d.y + d.z * d.x, d.z * d.z - d.x * d.y, -d.x * d.x - d.y * d.z};
    if (Dot(e, e) >= 1e-12f) return Normalized(e);
    return Normalized(Cross(d, Vector{1.0f, 0.0f, 0.0f}));
}

/// Clamps before converting, as an out-of-range conversion is undefined; a non-number takes the lower bound.
inline int ClampToInt(float x, int low, int high)
{
    if (!(x > static_cast<float>(low))) return low;
    return x < static_cast<float>(high) ? static_cast<int>(x) : high;
}

inline bool IsFinite(Vector v) { return std::isfinite(v.x) && std::isfinite(v.y) && std::isfinite(v.z); }

}  // namespace hv
