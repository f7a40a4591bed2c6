#include "shading/shading.h"

#include <cmath>

namespace hv {

float SchlickReflectance(float n, float c)
{
    if (std::fabs(n - 1.0f) < 1e-8f) return 0.0f;
    const float r0 = (n - 1.0f) * (n - 1.0f) / ((n + 1.0f) * (n + 1.0f));
    const float m  = 1.0f - c;
    return r0 + m * m * m * m * m * (1.0f - r0);
}

namespace {

float SlotMean(const SurfacePoint& point, Element element)
{
    Color value;
    ReadSlot(point.layer->Slot(element), value, point);
    return Mean(value);
}

/// The map's texels, 2 c - 1, are a direction in the tangent frame as it stands before any rotation.
void ApplyNormalMap(SurfacePoint& point)
{
    if (!point.layer->has_normal_map) return;
    Color c;
    ReadSlot(point.layer->Slot(Element::Normal), c, point);
    point.normal = Normalized((2.0f * c.r - 1.0f) * point.tangent + (2.0f * c.g - 1.0f) * point.bitangent +
                              (2.0f * c.b - 1.0f) * point.normal);
}

/// A shading normal that would mirror the ray into the surface gives way to the true one.
void FixNormal(SurfacePoint& point)
{
    const Vector mirrored = 2.0f * Dot(point.outgoing, point.normal) * point.normal - point.outgoing;
    if (Dot(mirrored, point.geometric_normal) < 0.0f) point.normal = point.geometric_normal;
    point.cos_outgoing = Dot(point.outgoing, point.normal);
}

void DeriveRoughness(SurfacePoint& point)
{
    point.roughness_x = point.roughness_y = 0.0f;
    if (!point.layer->is_glossy_rough) return;
    const float roughness = SlotMean(point, Element::Roughness) + 1e-6f;
    const float aspect    = point.layer->is_anisotropic ? 1.0f - SlotMean(point, Element::Anisotropy) : 1.0f;
    point.roughness_x     = roughness * aspect;
    point.roughness_y     = roughness / aspect;
}

void RotateFrame(SurfacePoint& point)
{
    if (!point.layer->frame_is_rotated) return;
    const float turns = SlotMean(point, Element::Angle);
    if (turns == 0.0f) return;
    const float  cosine = std::cos(turns * kTwoPi), sine = std::sin(turns * kTwoPi);
    const Vector tangent = point.tangent;
    point.tangent        = tangent * cosine - point.bitangent * sine;
    point.bitangent      = point.bitangent * cosine + tangent * sine;
}

void DeriveFresnel(SurfacePoint& point, bool front)
{
    const float n     = SlotMean(point, Element::Ior);
    float       share = SchlickReflectance(n, point.cos_outgoing);
    point.eta         = front ? 1.0f / n : n;
    if (point.layer->material == Material::ThinDielectric) {
        // F + (1 - F)^2 F / (1 - F^2), all inter-reflections in the slab; this form is 1 and not 0 / 0 at F = 1.
        share     = 2.0f * share / (1.0f + share);
        point.eta = 1.0f;
    }
    point.reflectance   = share;
    point.transmittance = 1.0f - share;
}

}  // namespace

void DeriveSurfaceTerms(SurfacePoint& point, bool front)
{
    ApplyNormalMap(point);
    FixNormal(point);
    DeriveRoughness(point);
    RotateFrame(point);
    DeriveFresnel(point, front);
}

}  // namespace hv
