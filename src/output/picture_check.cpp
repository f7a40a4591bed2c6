#include "output/picture_check.h"

#include "base/physical_memory.h"
#include "output/picture_formats.h"

#include <algorithm>
#include <string_view>

namespace hv {
namespace {

/// A picture may take this part of the memory as the library holds it; our store comes beside it.
constexpr std::uint64_t kMemoryShare = 4;
constexpr std::uint64_t kLongestSide = 1 << 20;

/// How the files of a format begin.
struct Beginning {
    std::string_view bytes;
    PictureFormat    format;
};

constexpr Beginning kBeginnings[] = {
    {"BM", PictureFormat::Bmp},
    {"\xff\xd8\xff", PictureFormat::Jpeg},
    {"\x89PNG\r\n\x1a\n", PictureFormat::Png},
    {"GIF87a", PictureFormat::Gif},
    {"GIF89a", PictureFormat::Gif},
    {"8BPS", PictureFormat::Psd},
    {"#?", PictureFormat::Radiance},
    {"\x76\x2f\x31\x01", PictureFormat::Exr},
    {{"II\x2a\0", 4}, PictureFormat::Tiff},
    {{"MM\0\x2a", 4}, PictureFormat::Tiff},
    {"P1", PictureFormat::Anymap},
    {"P2", PictureFormat::Anymap},
    {"P3", PictureFormat::Anymap},
    {"P4", PictureFormat::Anymap},
    {"P5", PictureFormat::Anymap},
    {"P6", PictureFormat::Anymap},
    {"PF", PictureFormat::FloatMap},
    {"Pf", PictureFormat::FloatMap},
};

bool BeginsWith(FileBytes file, std::string_view bytes)
{
    return file.size() >= bytes.size() &&
           std::equal(bytes.begin(), bytes.end(), file.begin(),
                      [](char a, std::uint8_t b) { return static_cast<std::uint8_t>(a) == b; });
}

PictureFormat FormatOf(FileBytes file)
{
    for (const Beginning& row : kBeginnings)
        if (BeginsWith(file, row.bytes)) return row.format;
    return LooksLikeTarga(file) ? PictureFormat::Targa : PictureFormat::Other;
}

std::string CheckFormat(PictureFormat format, std::span<std::uint8_t> file, bool& needs_child)
{
    switch (format) {
    case PictureFormat::Bmp:
        return CheckBmp(file);
    case PictureFormat::Jpeg:
        return CheckJpeg(file, needs_child);
    case PictureFormat::Png:
        return CheckPng(file);
    case PictureFormat::Gif:
        return CheckGif(file);
    case PictureFormat::Psd:
        return CheckPsd(file, needs_child);
    case PictureFormat::Targa:
        return CheckTarga(file);
    case PictureFormat::Tiff:
        return CheckTiff(file, needs_child);
    case PictureFormat::Exr:
        return CheckExr(file, needs_child);
    case PictureFormat::Radiance:
        return CheckRadiance(file);
    case PictureFormat::FloatMap:
        return CheckFloatMap(file);
    case PictureFormat::Anymap:
        return CheckAnymap(file);
    default:
        needs_child = true;
        return "";
    }
}

}  // namespace

std::string Overclaim(std::uint64_t width, std::uint64_t height, FileBytes file)
{
    return "claims " + std::to_string(width) + " x " + std::to_string(height) + " pixels in " +
           std::to_string(file.size()) + " bytes";
}

std::string CheckSize(std::uint64_t width, std::uint64_t height, std::uint64_t pixel_bits, FileBytes file)
{
    if (width == 0 || height == 0) return "has no pixels";
    if (width > kLongestSide || height > kLongestSide) return Overclaim(width, height, file);
    const std::uint64_t bytes = width * height * pixel_bits / 8;
    return bytes > PhysicalMemory() / kMemoryShare ? Overclaim(width, height, file) : "";
}

PictureVerdict CheckPicture(std::span<std::uint8_t> file)
{
    PictureVerdict verdict;
    if (file.empty()) {
        verdict.problem = "is empty";
        return verdict;
    }
    verdict.format  = FormatOf(file);
    verdict.problem = CheckFormat(verdict.format, file, verdict.needs_child);
    if (verdict.needs_child) verdict.format = PictureFormat::Other;
    return verdict;
}

}  // namespace hv
