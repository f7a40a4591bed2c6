#include "scene/array_textures.h"

#include "scene/part_arrays.h"
#include "session/console.h"
#include "shading/image_store.h"

#include <numeric>

namespace hv {

namespace {

constexpr int kFloatBits = 32;

/// Reads a picture of plain floats, apart from the image store, and gives its pixels to `append`(count, floats).
template <class Append>
void WithPixels(const std::string& path, int channels, Append&& append)
{
    Image image;
    image.path          = path;
    image.allow_packing = false;
    if (!LoadImage(image) || image.width < 1 || image.height < 1) return;
    if (image.bits != kFloatBits || image.channels != channels) {
        PrintWarning("image - " + path + "\tis left out: an array takes " + std::to_string(channels) +
                     " channels of 32 bits");
        return;
    }
    append(image.pixels32.size() / static_cast<std::size_t>(channels), image.pixels32.data());
}

void AppendUVs(std::vector<Vector2>& uvs, std::size_t count, const float* pixels)
{
    uvs.reserve(uvs.size() + count);
    for (std::size_t i = 0; i < count; ++i, pixels += 3) uvs.push_back({pixels[0], pixels[1]});
}

// The shader 0 is the one that every session starts with: it stands for the part's own, or that of the object.
void AppendTriangles(std::vector<Triangle>& triangles, std::size_t count, const float* pixels)
{
    triangles.reserve(triangles.size() + count);
    for (std::size_t i = 0; i < count; ++i, pixels += 3) {
        std::uint32_t vertices[3];
        std::memcpy(vertices, pixels, sizeof vertices);
        triangles.push_back({vertices[0], vertices[1], vertices[2], 0});
    }
}

void AppendParticles(Part& part, std::size_t count, const float* pixels)
{
    const std::size_t   first = part.positions.size();
    std::vector<float>& radii = part.scalars[0].values;
    part.positions.reserve(first + count);
    radii.reserve(radii.size() + count);
    for (std::size_t i = 0; i < count; ++i, pixels += 4) {
        part.positions.push_back({pixels[0], pixels[1], pixels[2]});
        radii.push_back(pixels[3]);
    }
    part.particles.resize(count);
    std::iota(part.particles.begin(), part.particles.end(), static_cast<std::uint32_t>(first));
}

}  // namespace

void FinishArrayPart(Part& part, StagedMesh& staged, const ArrayTextures& textures)
{
    // Indices are stored as they come; what they name is looked at when the part is prepared.
    WithPixels(textures.position, 3, [&](auto count, auto pixels) { AppendItems(part.positions, count, pixels); });
    WithPixels(textures.uv, 3, [&](auto count, auto pixels) { AppendUVs(part.uvs[0].values, count, pixels); });
    WithPixels(textures.normal, 3, [&](auto count, auto pixels) { AppendDirections(part.normals, count, pixels); });
    WithPixels(textures.tangent, 3, [&](auto count, auto pixels) { AppendDirections(part.tangents, count, pixels); });
    WithPixels(textures.triangle, 3, [&](auto count, auto pixels) { AppendTriangles(part.triangles, count, pixels); });
    FlattenStagedMesh(staged, part);
}

void AppendParticleTexture(Part& part, const std::string& path)
{
    WithPixels(path, 4, [&](auto count, auto pixels) { AppendParticles(part, count, pixels); });
}

}  // namespace hv
