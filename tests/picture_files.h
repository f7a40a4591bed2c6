#pragma once

#include <FreeImage.h>

#include <cstdint>
#include <string>
#include <vector>

namespace hv {

/// A picture file in memory.
struct PictureFile {
    std::string               name;
    std::vector<std::uint8_t> bytes;
};

/// One way to save a picture: format, pixel type, bits of a pixel and flags of the library.
struct PictureRow {
    const char*       name;
    FREE_IMAGE_FORMAT format;
    FREE_IMAGE_TYPE   type;
    unsigned          bits;
    int               flags = 0;
};

constexpr PictureRow kPictureRows[] = {
    {"bits.bmp", FIF_BMP, FIT_BITMAP, 1},
    {"nibbles.bmp", FIF_BMP, FIT_BITMAP, 4},
    {"palette.bmp", FIF_BMP, FIT_BITMAP, 8},
    {"runs.bmp", FIF_BMP, FIT_BITMAP, 8, BMP_SAVE_RLE},
    {"color.bmp", FIF_BMP, FIT_BITMAP, 24},
    {"alpha.bmp", FIF_BMP, FIT_BITMAP, 32},
    {"bits.png", FIF_PNG, FIT_BITMAP, 1},
    {"palette.png", FIF_PNG, FIT_BITMAP, 8},
    {"color.png", FIF_PNG, FIT_BITMAP, 24},
    {"interlaced.png", FIF_PNG, FIT_BITMAP, 24, PNG_INTERLACED},
    {"alpha.png", FIF_PNG, FIT_BITMAP, 32},
    {"grey16.png", FIF_PNG, FIT_UINT16, 16},
    {"color16.png", FIF_PNG, FIT_RGB16, 48},
    {"alpha16.png", FIF_PNG, FIT_RGBA16, 64},
    {"grey.jpg", FIF_JPEG, FIT_BITMAP, 8, JPEG_QUALITYSUPERB},
    {"color.jpg", FIF_JPEG, FIT_BITMAP, 24, JPEG_QUALITYSUPERB},
    {"progressive.jpg", FIF_JPEG, FIT_BITMAP, 24, JPEG_QUALITYSUPERB | JPEG_PROGRESSIVE},
    {"palette.tga", FIF_TARGA, FIT_BITMAP, 8},
    {"color.tga", FIF_TARGA, FIT_BITMAP, 24},
    {"runs.tga", FIF_TARGA, FIT_BITMAP, 24, TARGA_SAVE_RLE},
    {"alpha.tga", FIF_TARGA, FIT_BITMAP, 32},
    {"bits.tif", FIF_TIFF, FIT_BITMAP, 1, TIFF_CCITTFAX4},
    {"palette.tif", FIF_TIFF, FIT_BITMAP, 8, TIFF_LZW},
    {"plain.tif", FIF_TIFF, FIT_BITMAP, 24, TIFF_NONE},
    {"packed.tif", FIF_TIFF, FIT_BITMAP, 24, TIFF_PACKBITS},
    {"deflated.tif", FIF_TIFF, FIT_BITMAP, 32, TIFF_DEFLATE},
    {"jpeg.tif", FIF_TIFF, FIT_BITMAP, 24, TIFF_JPEG},
    {"inks.tif", FIF_TIFF, FIT_BITMAP, 32, TIFF_CMYK | TIFF_NONE},
    {"grey16.tif", FIF_TIFF, FIT_UINT16, 16},
    {"color16.tif", FIF_TIFF, FIT_RGB16, 48},
    {"alpha16.tif", FIF_TIFF, FIT_RGBA16, 64},
    {"integers.tif", FIF_TIFF, FIT_UINT32, 32},
    {"floats.tif", FIF_TIFF, FIT_FLOAT, 32},
    {"doubles.tif", FIF_TIFF, FIT_DOUBLE, 64},
    {"colorfloats.tif", FIF_TIFF, FIT_RGBF, 96},
    {"alphafloats.tif", FIF_TIFF, FIT_RGBAF, 128},
    {"bits.pbm", FIF_PBMRAW, FIT_BITMAP, 1},
    {"text.pbm", FIF_PBM, FIT_BITMAP, 1, PNM_SAVE_ASCII},
    {"grey.pgm", FIF_PGMRAW, FIT_BITMAP, 8},
    {"text.pgm", FIF_PGM, FIT_BITMAP, 8, PNM_SAVE_ASCII},
    {"grey16.pgm", FIF_PGMRAW, FIT_UINT16, 16},
    {"color.ppm", FIF_PPMRAW, FIT_BITMAP, 24},
    {"text.ppm", FIF_PPM, FIT_BITMAP, 24, PNM_SAVE_ASCII},
    {"color16.ppm", FIF_PPMRAW, FIT_RGB16, 48},
    {"palette.gif", FIF_GIF, FIT_BITMAP, 8},
    {"color.psd", FIF_PSD, FIT_BITMAP, 24, PSD_RLE},
    {"plain.psd", FIF_PSD, FIT_BITMAP, 24, PSD_NONE},
    {"color16.psd", FIF_PSD, FIT_RGB16, 48, PSD_RLE},
    {"color.hdr", FIF_HDR, FIT_RGBF, 96},
    {"plain.exr", FIF_EXR, FIT_RGBF, 96, EXR_NONE | EXR_FLOAT},
    {"zip.exr", FIF_EXR, FIT_RGBF, 96, EXR_ZIP},
    {"piz.exr", FIF_EXR, FIT_RGBAF, 128, EXR_PIZ},
    {"pxr24.exr", FIF_EXR, FIT_RGBF, 96, EXR_PXR24},
    {"b44.exr", FIF_EXR, FIT_RGBF, 96, EXR_B44},
    {"chroma.exr", FIF_EXR, FIT_RGBF, 96, EXR_LC},
    {"grey.exr", FIF_EXR, FIT_FLOAT, 32},
    {"grey.pfm", FIF_PFM, FIT_FLOAT, 32},
    {"color.pfm", FIF_PFM, FIT_RGBF, 96},
};

/// Saves a bitmap and frees it. Empty where the library cannot.
inline std::vector<std::uint8_t> SavedBytes(FIBITMAP* bitmap, FREE_IMAGE_FORMAT format, int flags)
{
    std::vector<std::uint8_t> bytes;
    FIMEMORY*                 stream = FreeImage_OpenMemory();
    BYTE*                     data   = nullptr;
    DWORD                     size   = 0;
    if (bitmap && FreeImage_SaveToMemory(format, bitmap, stream, flags) &&
        FreeImage_AcquireMemory(stream, &data, &size))
        bytes.assign(data, data + size);
    FreeImage_CloseMemory(stream);
    if (bitmap) FreeImage_Unload(bitmap);
    return bytes;
}

}  // namespace hv
