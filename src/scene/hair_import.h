#pragma once

#include "geometry/object.h"

#include <array>
#include <cstdint>
#include <string>
#include <vector>

/// Strands from files: the binary HAIR format and a plain text list.
namespace hv {

/// A HAIR file in memory: its header and the arrays that its flags name, the others empty.
struct HairContainer {
    std::uint32_t hair_count = 0, point_count = 0;
    std::uint32_t arrays               = 0;  ///< bit flags: 1 segments, 2 points, 4 thickness, 8 transparency, 16 color
    std::uint32_t default_segments     = 0;
    float         default_thickness    = 1.0f;
    float         default_transparency = 0.0f;
    float         default_color[3]     = {1, 1, 1};

    std::vector<std::uint16_t>        segments;      ///< of each strand; a strand of s segments has s + 1 points
    std::vector<std::array<float, 3>> points;        ///< strand after strand
    std::vector<float>                thickness;     ///< of each point: the diameter
    std::vector<float>                transparency;  ///< of each point
    std::vector<std::array<float, 3>> color;         ///< of each point
};

/// Reads a whole file. Returns its number of strands, or a negative status, with the container as if new: -1 cannot
/// open, -2 no header, -3 wrong signature, -4 segments, -5 points (a file without the array included), -6 thickness, -7
/// transparency, -8 color. Sizes are held against the file's before anything is allocated.
std::int64_t LoadHairContainer(HairContainer& container, const std::string& path);

/// Fills a part with the strands of a file: positions, radii of half the thickness, uvs that count the points, one
/// cylinder a segment, strandSizes. A strand that the points do not reach ends at the last one. On failure one line on
/// the console tells the damage, and the part stays empty.
void ReadHairFile(Part& part, const std::string& path);

/// The same from lines `segment <count>` (a strand; below 0 counts as 0) and `position <x> <y> <z>` (a point), with
/// radius 0.003 and uv (0, 0). A file that cannot be opened is an empty one.
void ReadFurFile(Part& part, const std::string& path);

}  // namespace hv
