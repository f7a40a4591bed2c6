// Writes a small picture in every format into a folder: the beginnings for fuzz_picture.
// usage: picture_seeds folder

#include "../picture_files.h"

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>

namespace {

/// Flat areas and busy ones, so that runs as well as plain data are written.
FIBITMAP* Scene(const hv::PictureRow& row, int width, int height)
{
    FIBITMAP* bitmap = FreeImage_AllocateT(row.type, width, height, static_cast<int>(row.bits));
    for (int y = 0; bitmap && y < height; ++y) {
        BYTE* const line = FreeImage_GetScanLine(bitmap, y);
        for (unsigned i = 0; i < FreeImage_GetLine(bitmap); ++i)
            line[i] = static_cast<BYTE>(y < height / 2 ? 60 : (i * 37u + static_cast<unsigned>(y) * 11u) % 64u);
    }
    return bitmap;
}

}  // namespace

int main(int argument_count, char** arguments)
{
    if (argument_count != 2) {
        std::fputs("usage: picture_seeds folder\n", stderr);
        return 2;
    }
    FreeImage_Initialise(0);
    const std::filesystem::path folder = arguments[1];
    std::filesystem::create_directories(folder);
    for (const hv::PictureRow& row : hv::kPictureRows) {
        const std::vector<std::uint8_t> bytes = hv::SavedBytes(Scene(row, 20, 12), row.format, row.flags);
        if (bytes.empty()) std::fprintf(stderr, "picture_seeds: %s cannot be saved\n", row.name);
        std::ofstream(folder / row.name, std::ios::binary)
            .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    }
    FreeImage_DeInitialise();
}
