#pragma once

#include <FreeImage.h>

#include <cstdint>
#include <vector>

namespace hv {

/// One way to save a picture: format, pixel type, bits of a pixel and flags of the library.
struct PictureRow {
    const char*       name;
    FREE_IMAGE_FORMAT format;
    FREE_IMAGE_TYPE   type;
    unsigned          bits;
    unsigned          channels;  ///< that the reader gives; 0: none, it reads black
    int               flags = 0;
};

/// Every byte picture has three channels or four, since the library has a palette for each of them.
constexpr PictureRow kPictureRows[] = {
    {"bits.bmp", FIF_BMP, FIT_BITMAP, 1, 0},
    {"palette.bmp", FIF_BMP, FIT_BITMAP, 8, 3},
    {"runs.bmp", FIF_BMP, FIT_BITMAP, 8, 3, BMP_SAVE_RLE},
    {"color.bmp", FIF_BMP, FIT_BITMAP, 24, 3},
    {"alpha.bmp", FIF_BMP, FIT_BITMAP, 32, 4},
    {"palette.png", FIF_PNG, FIT_BITMAP, 8, 3},
    {"color.png", FIF_PNG, FIT_BITMAP, 24, 3},
    {"interlaced.png", FIF_PNG, FIT_BITMAP, 24, 3, PNG_INTERLACED},
    {"alpha.png", FIF_PNG, FIT_BITMAP, 32, 4},
    {"grey16.png", FIF_PNG, FIT_UINT16, 16, 1},
    {"color16.png", FIF_PNG, FIT_RGB16, 48, 3},
    {"alpha16.png", FIF_PNG, FIT_RGBA16, 64, 4},
    {"color.jpg", FIF_JPEG, FIT_BITMAP, 24, 3, JPEG_QUALITYSUPERB},
    {"progressive.jpg", FIF_JPEG, FIT_BITMAP, 24, 3, JPEG_QUALITYSUPERB | JPEG_PROGRESSIVE},
    {"runs.tga", FIF_TARGA, FIT_BITMAP, 24, 3, TARGA_SAVE_RLE},
    {"alpha.tga", FIF_TARGA, FIT_BITMAP, 32, 4},
    {"bits.tif", FIF_TIFF, FIT_BITMAP, 1, 0, TIFF_CCITTFAX4},
    {"palette.tif", FIF_TIFF, FIT_BITMAP, 8, 3, TIFF_LZW},
    {"plain.tif", FIF_TIFF, FIT_BITMAP, 24, 3, TIFF_NONE},
    {"packed.tif", FIF_TIFF, FIT_BITMAP, 24, 3, TIFF_PACKBITS},
    {"deflated.tif", FIF_TIFF, FIT_BITMAP, 32, 4, TIFF_DEFLATE},
    {"jpeg.tif", FIF_TIFF, FIT_BITMAP, 24, 3, TIFF_JPEG},
    {"inks.tif", FIF_TIFF, FIT_BITMAP, 32, 3, TIFF_CMYK | TIFF_NONE},
    {"grey16.tif", FIF_TIFF, FIT_UINT16, 16, 1},
    {"color16.tif", FIF_TIFF, FIT_RGB16, 48, 3},
    {"alpha16.tif", FIF_TIFF, FIT_RGBA16, 64, 4},
    {"integers.tif", FIF_TIFF, FIT_UINT32, 32, 1},
    {"floats.tif", FIF_TIFF, FIT_FLOAT, 32, 1},
    {"doubles.tif", FIF_TIFF, FIT_DOUBLE, 64, 0},
    {"colorfloats.tif", FIF_TIFF, FIT_RGBF, 96, 3},
    {"alphafloats.tif", FIF_TIFF, FIT_RGBAF, 128, 4},
    {"bits.pbm", FIF_PBMRAW, FIT_BITMAP, 1, 0},
    {"grey.pgm", FIF_PGMRAW, FIT_BITMAP, 8, 3},
    {"text.pgm", FIF_PGM, FIT_BITMAP, 8, 3, PNM_SAVE_ASCII},
    {"color.ppm", FIF_PPMRAW, FIT_BITMAP, 24, 3},
    {"text.ppm", FIF_PPM, FIT_BITMAP, 24, 3, PNM_SAVE_ASCII},
    {"palette.gif", FIF_GIF, FIT_BITMAP, 8, 3},
    {"color.psd", FIF_PSD, FIT_BITMAP, 24, 3, PSD_RLE},
    {"plain.psd", FIF_PSD, FIT_BITMAP, 24, 3, PSD_NONE},
    {"color16.psd", FIF_PSD, FIT_RGB16, 48, 3, PSD_RLE},
    {"color.hdr", FIF_HDR, FIT_RGBF, 96, 3},
    {"plain.exr", FIF_EXR, FIT_RGBF, 96, 3, EXR_NONE | EXR_FLOAT},
    {"zip.exr", FIF_EXR, FIT_RGBF, 96, 3, EXR_ZIP},
    {"piz.exr", FIF_EXR, FIT_RGBAF, 128, 4, EXR_PIZ},
    {"pxr24.exr", FIF_EXR, FIT_RGBF, 96, 3, EXR_PXR24},
    {"b44.exr", FIF_EXR, FIT_RGBF, 96, 3, EXR_B44},
    {"chroma.exr", FIF_EXR, FIT_RGBF, 96, 3, EXR_LC},
    {"grey.pfm", FIF_PFM, FIT_FLOAT, 32, 1},
    {"color.pfm", FIF_PFM, FIT_RGBF, 96, 3},
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
