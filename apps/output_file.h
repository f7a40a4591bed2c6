#pragma once

#include <filesystem>
#include <string>

/// Checks made before any long work, so that no render ends without a place for its picture. Each returns what is wrong
/// in one line without a line end, or an empty text.
std::string CheckEnding(const std::filesystem::path& file);
std::string CheckCreatable(const std::filesystem::path& file);

/// "<stem>-<word><ending>" beside `beauty`. Characters of `word` that would leave the folder become '_'.
std::filesystem::path BesideBeauty(const std::filesystem::path& beauty, const std::string& word);
