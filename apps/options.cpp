#include "options.h"

#include <CLI/CLI.hpp>

#include <charconv>
#include <iostream>
#include <sstream>

#include "hvx.h"

namespace {

struct ChannelWord {
    const char* word;
    Channel     channel;
};

constexpr ChannelWord kChannelWords[] = {
    {"light_path", Channel::LightPath},
    {"lambertian", Channel::Lambertian},
    {"lambertian_color", Channel::LambertianColor},
    {"transmissive", Channel::Transmissive},
    {"transmissive_color", Channel::TransmissiveColor},
    {"glossy", Channel::Glossy},
    {"glossy_color", Channel::GlossyColor},
    {"specular", Channel::Specular},
    {"specular_color", Channel::SpecularColor},
    {"emissive", Channel::Emissive},
    {"normal", Channel::Normal},
    {"tangent", Channel::Tangent},
    {"position", Channel::Position},
    {"depth", Channel::Depth},
};

constexpr std::string_view kUserDataPrefix = "user_data:";

std::string ChannelList()
{
    std::string list;
    for (const ChannelWord& entry : kChannelWords) list += std::string(entry.word) + ", ";
    return list + std::string(kUserDataPrefix) + "NAME";
}

bool ReadAov(const std::string& word, std::vector<AovRequest>& aovs)
{
    for (const AovRequest& known : aovs) {
        if (known.word == word) return true;
    }
    for (const ChannelWord& entry : kChannelWords) {
        if (word != entry.word) continue;
        aovs.push_back({word, entry.channel, ""});
        return true;
    }
    if (!word.starts_with(kUserDataPrefix) || word.size() == kUserDataPrefix.size()) return false;
    aovs.push_back({word, Channel::UserData, word.substr(kUserDataPrefix.size())});
    return true;
}

/// Reads Count whole ints with `separator` between them and nothing around them.
template <std::size_t Count>
bool ReadInts(const std::string& text, char separator, std::array<int, Count>& values)
{
    const char*       at  = text.data();
    const char* const end = at + text.size();
    for (std::size_t i = 0; i < Count; ++i) {
        if (i > 0 && (at == end || *at++ != separator)) return false;
        const auto [stop, error] = std::from_chars(at, end, values[i]);
        if (error != std::errc()) return false;
        at = stop;
    }
    return at == end;
}

CLI::Validator WholeNumber(int low, int high)
{
    return CLI::Range(low, high).description(std::to_string(low) + ".." + std::to_string(high));
}

void AddAovOption(CLI::App& app, Options& options)
{
    // One text, split here: an option of several values would swallow the scene folder behind it.
    const auto read = [&options](const std::string& text) {
        std::istringstream words(text);
        for (std::string word; std::getline(words, word, ',');) {
            if (!ReadAov(word, options.aovs)) {
                throw CLI::ValidationError("--aov", "'" + word + "' is none of " + ChannelList());
            }
        }
    };
    app.add_option_function<std::string>("--aov", read, "further pictures, by comma: " + ChannelList())
        ->type_name("WORD,...");
}

void AddSeedOption(CLI::App& app, Options& options)
{
    const auto read = [&options](const std::string& text) {
        std::uint64_t     seed   = 0;
        const char* const end    = text.data() + text.size();
        const auto [stop, error] = std::from_chars(text.data(), end, seed);
        if (error != std::errc() || stop != end) {
            throw CLI::ValidationError("--seed", "'" + text + "' is not a number of 64 bits");
        }
        options.seed = seed;
    };
    app.add_option_function<std::string>("--seed", read,
                                         "fixes the random numbers: the same seed gives the same picture")
        ->type_name("UINT");
}

void AddSizeOption(CLI::App& app, Options& options)
{
    const auto read = [&options](const std::string& text) {
        std::array<int, 2> size{};
        if (!ReadInts(text, 'x', size) || size[0] < 1 || size[1] < 1 || size[0] > 65536 || size[1] > 65536) {
            throw CLI::ValidationError("--size", "'" + text + "' is not WIDTHxHEIGHT, each 1 to 65536");
        }
        options.size = size;
    };
    app.add_option_function<std::string>("--size", read, "film size in pixels instead of the scene's")
        ->type_name("WxH");
}

void AddRegionOption(CLI::App& app, Options& options)
{
    const auto read = [&options](const std::string& text) {
        std::array<int, 4> region{};
        if (!ReadInts(text, ',', region) || region[0] >= region[2] || region[1] >= region[3]) {
            throw CLI::ValidationError("--region", "'" + text + "' is not x0,y0,x1,y1 with x0 < x1 and y0 < y1");
        }
        options.region = region;
    };
    app.add_option_function<std::string>("--region", read, "rectangle of pixels to render, half-open, y downwards")
        ->type_name("x0,y0,x1,y1");
}

}  // namespace

std::optional<int> ReadOptions(int argument_count, char** arguments, Options& options)
{
    CLI::App app("Renders a scene folder to a picture.", "halvorne");
    bool     keep_folder = false;
    app.footer(
        "Other commands: 'halvorne lint SCENE-FOLDER' looks for mistakes in scene files, 'halvorne keywords'\n"
        "lists their keywords.");
    app.set_version_flag("--version", std::string("halvorne ") + hvxVersion());
    app.add_option("scene-folder", options.scene, "folder with shader, render, light, camera and geometry")->required();
    app.add_option("-o,--output", options.output,
                   "picture to write; the ending names the format. Default: NAME.hdr here")
        ->type_name("FILE");
    AddAovOption(app, options);
    app.add_flag("--light-aovs", options.light_aovs,
                 "pictures of what each light brings over each lobe, NAME-LIGHT-LOBE beside the output");
    app.add_option("--frames", options.frames, "samples per pixel instead of the scene's")
        ->check(WholeNumber(1, 65535));
    AddSizeOption(app, options);
    AddRegionOption(app, options);
    app.add_option("--threads", options.threads, "threads to render with. Default: all")->check(WholeNumber(1, 256));
    AddSeedOption(app, options);
    app.add_flag("--path-tracing", options.path_tracing,
                 "paths end at no density cell, as with distance 0 and resolution 0");
    app.add_flag("--preview", options.preview,
                 "show the picture in a window while it converges; closing it ends the render");
    app.add_flag("-q,--quiet", options.quiet, "print errors of this program only");
    app.add_flag("--no-chdir", keep_folder, "geometry paths of the scene are relative to the present folder");
    try {
        app.parse(argument_count, arguments);
    } catch (const CLI::ParseError& error) {
        return app.exit(error, std::cout, std::cerr) == 0 ? 0 : 2;
    }
    options.change_folder = !keep_folder;
    return std::nullopt;
}
