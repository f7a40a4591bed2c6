#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

/// Scene folders: the reader of .hv files and the importers. They fill the registries and prepare nothing.
namespace hv {

class LineSource;
struct Transcript;

/// Filled by hvGo, read by nothing: geometry paths are opened as written.
extern std::vector<std::string> GeometrySearchPaths;

/// The folder given to hvGo, read by nothing.
extern std::string SceneFolder;

/// Sets the search lists for a folder, reads its five subfolders in order and reports the time. Returns the number of
/// files read.
int LoadScene(std::string_view folder);

/// The scene files of a folder in the order in which they are read: subfolder by subfolder, sorted by name.
std::vector<std::string> SceneFiles(const std::string& folder);

/// Sets ImageSearchPaths, GeometrySearchPaths and SceneFolder as LoadScene does.
void SetSearchPaths(const std::string& folder);

/// Reads every .hv file directly in `path`, sorted by name. A missing folder is empty. Returns the number of files
/// read.
int LoadFolder(const std::string& path);

/// Reads one file; false when it cannot be opened.
bool ReadSceneFile(const std::string& path);

/// The same, and notes what is read. Nothing is printed, and files that lines name are not looked at.
bool ReadSceneFile(const std::string& path, Transcript& transcript);
void ReadSceneLines(std::unique_ptr<LineSource> lines, Transcript& transcript);

/// Something in a scene folder that is not as its author will have meant it.
struct Finding {
    std::string file;              ///< path, or the folder itself
    int         line     = 0;      ///< 0: the file or folder as a whole
    int         column   = 0;      ///< in bytes, from 1
    bool        is_error = false;  ///< the scene lacks what is written there; else it is read, but in vain or oddly
    std::string text;
};

/// Reads a scene folder as LoadScene does, apart from the session, and tells what is wrong with it, sorted by file and
/// line. Models and pictures are looked for, not read.
std::vector<Finding> CheckScene(const std::string& folder);

/// All keywords of scene files as tables in Markdown, from the tables of the reader itself.
std::string SceneFormatReference();

}  // namespace hv
