// Makes a viewable picture of a linear one: exposure, then the sRGB curve, 8 bits a channel. The ending of the output
// names its format.

#include <CLI/CLI.hpp>

#include <FreeImage.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <iostream>
#include <string>

namespace {

/// IEC 61966-2-1, from linear to encoded. A non-number is black.
BYTE Encode(float linear)
{
    const float limited = linear > 0.0f ? std::min(linear, 1.0f) : 0.0f;
    const float encoded = limited <= 0.0031308f ? 12.92f * limited : 1.055f * std::pow(limited, 1.0f / 2.4f) - 0.055f;
    return static_cast<BYTE>(encoded * 255.0f + 0.5f);
}

FIBITMAP* LoadLinear(const std::string& path)
{
    FREE_IMAGE_FORMAT format = FreeImage_GetFileType(path.c_str(), 0);
    if (format == FIF_UNKNOWN) format = FreeImage_GetFIFFromFilename(path.c_str());
    FIBITMAP* const loaded = format == FIF_UNKNOWN ? nullptr : FreeImage_Load(format, path.c_str(), 0);
    if (loaded == nullptr) return nullptr;
    FIBITMAP* const linear = FreeImage_ConvertToRGBF(loaded);
    FreeImage_Unload(loaded);
    return linear;
}

FIBITMAP* EncodePicture(FIBITMAP* linear, float scale)
{
    const unsigned  width = FreeImage_GetWidth(linear), height = FreeImage_GetHeight(linear);
    FIBITMAP* const encoded = FreeImage_Allocate(static_cast<int>(width), static_cast<int>(height), 24);
    for (unsigned y = 0; encoded != nullptr && y < height; ++y) {
        const auto* from = reinterpret_cast<const FIRGBF*>(FreeImage_GetScanLine(linear, static_cast<int>(y)));
        BYTE*       to   = FreeImage_GetScanLine(encoded, static_cast<int>(y));
        for (unsigned x = 0; x < width; ++x, to += 3) {
            to[FI_RGBA_RED]   = Encode(from[x].red * scale);
            to[FI_RGBA_GREEN] = Encode(from[x].green * scale);
            to[FI_RGBA_BLUE]  = Encode(from[x].blue * scale);
        }
    }
    return encoded;
}

int Convert(const std::string& input, const std::string& output, float stops)
{
    FIBITMAP* const linear = LoadLinear(input);
    if (linear == nullptr) {
        std::fprintf(stderr, "hdr2png: cannot read '%s'\n", input.c_str());
        return 1;
    }
    FIBITMAP* const         encoded = EncodePicture(linear, std::exp2(stops));
    const FREE_IMAGE_FORMAT format  = FreeImage_GetFIFFromFilename(output.c_str());
    const bool              is_saved =
        encoded != nullptr && format != FIF_UNKNOWN && FreeImage_Save(format, encoded, output.c_str(), 0) != 0;
    if (!is_saved) std::fprintf(stderr, "hdr2png: cannot write '%s'\n", output.c_str());
    FreeImage_Unload(linear);
    FreeImage_Unload(encoded);
    return is_saved ? 0 : 1;
}

}  // namespace

int main(int argument_count, char** arguments)
{
    std::string input, output;
    float       stops = 0.0f;
    CLI::App    app("Makes a viewable picture of a linear one.", "hdr2png");
    app.add_option("input", input, "linear picture, such as .hdr or .exr")->required();
    app.add_option("output", output, "picture to write, such as .png")->required();
    app.add_option("--exposure", stops, "stops: each doubles the brightness")->capture_default_str();
    try {
        app.parse(argument_count, arguments);
    } catch (const CLI::ParseError& error) {
        return app.exit(error, std::cout, std::cerr) == 0 ? 0 : 2;
    }
    FreeImage_Initialise(0);
    const int status = Convert(input, output, stops);
    FreeImage_DeInitialise();
    return status;
}
