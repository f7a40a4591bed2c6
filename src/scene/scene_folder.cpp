#include "scene/scene.h"
#include "session/console.h"
#include "session/guard.h"
#include "session/search_paths.h"

#include <algorithm>
#include <filesystem>
#include <system_error>

namespace hv {

std::vector<std::string> GeometrySearchPaths;
std::string              SceneFolder;

namespace {

bool IsSceneFileName(std::string_view name)
{
    constexpr std::string_view kEnding = ".hv";
    if (name.size() < kEnding.size()) return false;
    name.remove_prefix(name.size() - kEnding.size());
    return std::equal(name.begin(), name.end(), kEnding.begin(),
                      [](char c, char lower) { return (c >= 'A' && c <= 'Z' ? c + ('a' - 'A') : c) == lower; });
}

// Sorted by bytes: the order of the file system would let chance decide which of two sections comes last.
std::vector<std::string> SceneFilesIn(const std::string& path)
{
    std::vector<std::string>                  files;
    std::error_code                           error;
    const std::filesystem::directory_iterator end;
    for (std::filesystem::directory_iterator entry(path, error); !error && entry != end; entry.increment(error)) {
        std::error_code   unreadable;
        const std::string name = entry->path().filename().string();
        if (IsSceneFileName(name) && entry->is_regular_file(unreadable)) files.push_back(path + "/" + name);
    }
    std::sort(files.begin(), files.end());
    return files;
}

constexpr const char* kSubfolders[] = {"/shader", "/render", "/light", "/camera", "/geometry"};

}  // namespace

// Image folders glue their word to the path as it is: inside a path that ends in a separator, beside any other.
void SetSearchPaths(const std::string& folder)
{
    ImageSearchPaths.clear();
    AddImageSearchPath(folder + "image");
    AddImageSearchPath(folder);
    AddImageSearchPath("");
    GeometrySearchPaths = {folder + "geometry", folder, ""};
    SceneFolder         = folder;
}

std::vector<std::string> SceneFiles(const std::string& folder)
{
    std::vector<std::string> files;
    for (const char* subfolder : kSubfolders)
        for (std::string& file : SceneFilesIn(folder + subfolder)) files.push_back(std::move(file));
    return files;
}

int LoadFolder(const std::string& path)
{
    int count = 0;
    Guarded([&] {
        for (const std::string& file : SceneFilesIn(path)) count += ReadSceneFile(file) ? 1 : 0;
    });
    return count;
}

int LoadScene(std::string_view folder)
{
    const std::string path(folder);
    SetSearchPaths(path);
    const std::int64_t start = Milliseconds();
    int                count = 0;
    for (const char* subfolder : kSubfolders) count += LoadFolder(path + subfolder);
    ReportValue("scene parsing", static_cast<float>(Milliseconds() - start) / 1000.0f, "seconds");
    PrintRule();
    return count;
}

}  // namespace hv
