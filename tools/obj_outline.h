#pragma once

#include <array>
#include <filesystem>
#include <set>
#include <string>

using Point = std::array<double, 3>;

/// What obj2scene needs to know of a model: where its faces are and which materials they name.
struct ObjOutline {
    Point                 low, high;  ///< bounds of all positions that a face uses
    std::set<std::string> materials;  ///< names of `usemtl` lines
    bool                  has_faces = false;
};

/// Reads a file. False when it cannot be read.
bool ReadOutline(const std::filesystem::path& file, ObjOutline& outline);
