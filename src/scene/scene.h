#pragma once

#include <string>
#include <string_view>
#include <vector>

/// Scene folders: the reader of .hv files and the importers. They fill the registries and prepare nothing.
namespace hv {

/// Filled by hvGo, read by nothing: geometry paths are opened as written.
extern std::vector<std::string> GeometrySearchPaths;

/// The folder given to hvGo, read by nothing.
extern std::string SceneFolder;

/// Sets the search lists for a folder, reads its five subfolders in order and reports the time. Returns the number of
/// files read.
int LoadScene(std::string_view folder);

/// Reads every .hv file directly in `path`, sorted by name. A missing folder is empty. Returns the number of files
/// read.
int LoadFolder(const std::string& path);

/// Reads one file; false when it cannot be opened.
bool ReadSceneFile(const std::string& path);

}  // namespace hv
