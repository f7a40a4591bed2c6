#pragma once

/// The list of points on emitters that direct lighting draws from; private to this folder. lights.h tells how to draw.
namespace hv {

/// Draws the points anew on what the root object holds of virtual lights. Makes no list when `sample` of the geometry
/// light, the area of the root's emitters or that of its virtual lights is not above 0, or when no point emits.
void BuildEmitterPoints();

/// Drops the list and gives its memory back.
void ReleaseEmitterPoints();

}  // namespace hv
