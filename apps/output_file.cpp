#include "output_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace {

/// Endings that the library knows and can save a colour picture with, lower and upper case being equal. It finds them
/// anywhere in a path, so the folders count too.
constexpr const char* kEndings[][2] = {
    {".bmp", ".BMP"}, {".exr", ".EXR"}, {".hdr", ".HDR"},   {".j2k", ".J2K"},     {".jng", ".JNG"},
    {".jp2", ".JP2"}, {".jpg", ".JPG"}, {".jpeg", ".JPEG"}, {".pbm", ".PBM"},     {".pfm", ".PFM"},
    {".pgm", ".PGM"}, {".png", ".PNG"}, {".ppm", ".PPM"},   {".psd", ".PSD"},     {".tga", ".TGA"},
    {".tif", ".TIF"}, {".xpm", ".XPM"}, {".tiff", ".TIFF"}, {".targa", ".TARGA"},
};

std::string EndingList()
{
    std::string list;
    for (const auto& ending : kEndings) list.append(list.empty() ? "" : " ").append(ending[0]);
    return list;
}

bool IsKnownEnding(const std::string& text)
{
    for (const auto& ending : kEndings) {
        if (text == ending[0] || text == ending[1]) return true;
    }
    return false;
}

std::string Quoted(const std::string& text) { return std::string("'").append(text).append("'"); }

}  // namespace

std::string CheckEnding(const std::filesystem::path& file)
{
    const std::string ending = file.extension().string();
    if (!IsKnownEnding(ending)) return Quoted(file.string()) + " has none of the endings " + EndingList();

    const std::string whole = file.string();
    const std::string rest  = whole.substr(0, whole.size() - ending.size());
    for (const auto& pair : kEndings) {
        for (const char* other : pair) {
            if (rest.find(other) == std::string::npos) continue;
            return Quoted(whole) + " holds " + other + " besides its ending, which leaves the format open";
        }
    }
    return "";
}

std::string CheckCreatable(const std::filesystem::path& file)
{
    std::error_code             error;
    const bool                  existed = std::filesystem::exists(file, error);
    const std::filesystem::path folder  = file.parent_path();
    if (!std::filesystem::is_directory(folder, error))
        return "the folder " + Quoted(folder.string()) + " does not exist";

    if (existed && !std::filesystem::is_regular_file(file, error)) return Quoted(file.string()) + " is not a file";

    // Opened as a write would, without cutting off what is there.
    const int descriptor = open(file.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0666);
    if (descriptor < 0) return "cannot write " + Quoted(file.string()) + ": " + std::strerror(errno);
    close(descriptor);
    if (!existed) std::filesystem::remove(file, error);
    return "";
}

std::filesystem::path BesideBeauty(const std::filesystem::path& beauty, const std::string& word)
{
    std::string name = word;
    for (char& letter : name) {
        if (letter == '/' || letter == '.' || letter == ':') letter = '_';
    }
    return beauty.parent_path() / (beauty.stem().string() + "-" + name + beauty.extension().string());
}
