#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "hv.h"

/// A further picture of the camera, asked for by `--aov`.
struct AovRequest {
    std::string word;       ///< part of its file name
    Channel     channel;    ///< what it shows
    std::string user_data;  ///< Channel::UserData: name of the vertex data
};

/// What the command line asks for. An empty optional leaves what the scene says.
struct Options {
    std::string                       scene;   ///< folder, as given
    std::string                       output;  ///< beauty picture; empty: the scene's name + ".hdr"
    std::vector<AovRequest>           aovs;
    bool                              light_aovs = false;  ///< each light's share of the picture, by lobe
    std::optional<int>                frames;              ///< 1 to 65535
    std::optional<std::array<int, 2>> size;                ///< width, height in pixels
    std::optional<std::array<int, 4>> region;              ///< x0, y0, x1, y1, half-open, y downwards
    std::optional<int>                threads;
    std::optional<std::uint64_t>      seed;
    bool                              path_tracing  = false;  ///< no path ends at a density cell
    bool                              preview       = false;  ///< a window shows the picture as it converges
    bool                              quiet         = false;
    bool                              change_folder = true;
};

/// Fills `options` from the command line. Returns the exit status with which the program is to end at once (0 after
/// --help and --version, 2 after a mistake, which is told on standard error), or nothing to go on.
std::optional<int> ReadOptions(int argument_count, char** arguments, Options& options);
