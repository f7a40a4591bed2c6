// The command-line host: renders a scene folder to a picture. It uses nothing but the public headers. Standard output
// carries the library's report alone; whatever this program has to say goes to standard error.

#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include "hv.h"
#include "hvx.h"
#include "lint.h"
#include "options.h"
#include "output_file.h"
#include "progress.h"

namespace {

namespace fs = std::filesystem;

enum ExitStatus { kPictureWritten = 0, kFailed = 1 };

/// Everything decided before the render starts.
struct Plan {
    fs::path              scene;   ///< absolute
    fs::path              beauty;  ///< absolute
    std::vector<fs::path> aovs;    ///< absolute, one for each requested AOV
};

/// What the library told about the files of this run.
struct Written {
    std::string           beauty;                  ///< path to watch for
    bool                  beauty_written = false;  ///< the last attempt made a file
    std::set<std::string> failed         = {};     ///< each is told once, though the library writes twice
};

int Fail(const std::string& message)
{
    std::fprintf(stderr, "halvorne: %s\n", message.c_str());
    return kFailed;
}

/// Last part of a folder's path: "room" for "scenes/room/" and for "." inside it.
std::string FolderName(const fs::path& folder)
{
    const fs::path name = folder.has_filename() ? folder.filename() : folder.parent_path().filename();
    return name.empty() ? "scene" : name.string();
}

/// Resolves all paths against the folder that the program was started in, and tries them. Returns what is wrong.
std::string MakePlan(const Options& options, Plan& plan)
{
    std::error_code error;
    plan.scene = fs::canonical(options.scene, error);
    if (error || !fs::is_directory(plan.scene, error)) return "'" + options.scene + "' is not a folder";

    const std::string name = options.output.empty() ? FolderName(plan.scene) + ".hdr" : options.output;
    plan.beauty            = fs::absolute(name, error).lexically_normal();
    if (error) return "cannot resolve '" + name + "'";
    if (std::string problem = CheckEnding(plan.beauty); !problem.empty()) return problem;

    for (const AovRequest& aov : options.aovs) plan.aovs.push_back(BesideBeauty(plan.beauty, aov.word));
    if (std::string problem = CheckCreatable(plan.beauty); !problem.empty()) return problem;
    for (const fs::path& file : plan.aovs) {
        if (std::string problem = CheckCreatable(file); !problem.empty()) return problem;
    }

    // Geometry paths of a scene are relative to the working folder.
    if (options.change_folder) fs::current_path(plan.scene, error);
    return error ? "cannot enter '" + plan.scene.string() + "'" : "";
}

void ApplySettings(const Options& options)
{
    if (options.seed) hvxSetSeed(*options.seed);
    if (options.threads) hvxSetThreadCount(*options.threads);
    if (options.quiet) hvxSetReport(false);
    hvSetPreviewWindow(options.preview);
    hvxSetPictureChild(true, 0, 0);  // scenes come from anywhere
}

/// Puts the wishes of the command line over camera 0 as the scene made it.
void OverrideCamera(const Options& options, const Plan& plan)
{
    if (options.frames) hvSetCameraSample(0, *options.frames);
    if (options.size) hvSetCameraResolution(0, (*options.size)[0], (*options.size)[1]);
    if (const auto& region = options.region) {
        hvSetCameraRegion(0, (*region)[0], (*region)[1], (*region)[2], (*region)[3]);
    }
    hvSetCameraAOVName(0, 0, plan.beauty.c_str());
    for (std::size_t i = 0; i < options.aovs.size(); ++i) {
        const int aov = hvAddCameraAOV(0);
        hvSetCameraAOVName(0, aov, plan.aovs[i].c_str());
        hvSetCameraAOVChannel(0, aov, options.aovs[i].channel);
        if (!options.aovs[i].user_data.empty()) hvSetCameraAOVUserData(0, aov, options.aovs[i].user_data.c_str());
    }
    // The other cameras do not render; without a name their black pictures stay out of the folder.
    for (int camera = 1; camera < hvxGetCameraCount(); ++camera) hvSetCameraAOVName(camera, 0, "");
}

/// Checks what only the loaded scene can tell. Returns what is wrong.
std::string CheckCamera(const Options& options)
{
    int width = 0, height = 0;
    if (!hvxGetCamera(0, &width, &height, nullptr)) return "the scene has no camera";
    if (width < 1 || height < 1) return "the camera's film has no pixels";
    if (const auto& region = options.region) {
        const bool is_outside =
            (*region)[0] >= width || (*region)[1] >= height || (*region)[2] <= 0 || (*region)[3] <= 0;
        if (is_outside)
            return "the region lies outside the film of " + std::to_string(width) + "x" + std::to_string(height);
    }
    return "";
}

/// Asks for the pictures of a light's share, one for each lobe. Returns what is wrong.
std::string AddLightShares(const Plan& plan, hvxLight kind, int light, const std::string& name)
{
    constexpr struct {
        const char* word;
        Channel     channel;
    } kLobes[] = {{"lambertian", Channel::Lambertian},
                  {"transmissive", Channel::Transmissive},
                  {"glossy", Channel::Glossy},
                  {"specular", Channel::Specular}};
    for (const auto& lobe : kLobes) {
        const fs::path file = BesideBeauty(plan.beauty, name + "-" + lobe.word);
        if (std::string problem = CheckCreatable(file); !problem.empty()) return problem;
        if (hvxAddLightShare(kind, light, lobe.channel, file.c_str()) < 0)
            return "no memory for '" + file.string() + "'";
    }
    return "";
}

/// The same for all lights of the loaded scene.
std::string AddAllLightShares(const Plan& plan)
{
    std::string problem = AddLightShares(plan, hvxLight::Sky, 0, "sky");
    if (problem.empty()) problem = AddLightShares(plan, hvxLight::Geometry, 0, "emitters");
    for (int i = 0; problem.empty() && i < hvxGetPointLightCount(); ++i)
        problem = AddLightShares(plan, hvxLight::Point, i, "point" + std::to_string(i));
    for (int i = 0; problem.empty() && i < hvxGetParallelLightCount(); ++i)
        problem = AddLightShares(plan, hvxLight::Parallel, i, "parallel" + std::to_string(i));
    return problem;
}

bool OnFrame(int finished, int total, void* user) { return static_cast<Progress*>(user)->AfterFrame(finished, total); }

/// Says what would fit. `resolution` is close to the limit: the advice is rounded up to two digits.
void OnTooManyCells(double megabytes, double, float resolution, void*)
{
    std::string advice = "halvorne: the density cells of one part would take " +
                         std::to_string(static_cast<long>(std::ceil(megabytes))) + " MB, the limit is 1024 MB; ";
    if (resolution > 0.0f) {
        const double digit = std::pow(10.0, std::floor(std::log10(resolution)) - 1.0);
        char         number[32];
        std::snprintf(number, sizeof number, "%.8g", std::ceil(resolution / digit) * digit);
        advice += std::string("'resolution ") + number + "' in the block final_gather would fit";
    } else {
        advice += "its faces are too many for any 'resolution'; '--path-tracing' needs no cells";
    }
    std::fprintf(stderr, "%s\n", advice.c_str());
}

void OnWrite(const char* path, bool written, void* user)
{
    Written& files = *static_cast<Written*>(user);
    if (!written && files.failed.insert(path).second) Fail(std::string("cannot write '") + path + "'");
    if (files.beauty == path) files.beauty_written = written;
}

/// The library's report, for as long as it is not ended, in a file that nobody sees.
class HiddenReport {
public:
    HiddenReport() : file_(std::tmpfile()), output_(file_ != nullptr ? dup(STDOUT_FILENO) : -1)
    {
        if (output_ < 0) return;
        std::fflush(stdout);
        dup2(fileno(file_), STDOUT_FILENO);
        hvxSetReport(true);
    }

    /// Gives standard output back and turns the report off. Returns the first error, empty without any.
    std::string End()
    {
        if (output_ < 0) return "";
        hvxSetReport(false);
        std::fflush(stdout);
        dup2(output_, STDOUT_FILENO);
        close(output_);
        constexpr std::string_view kMark = "error :( \t";
        std::string                error;
        char                       line[1024];
        for (std::rewind(file_); error.empty() && std::fgets(line, sizeof line, file_) != nullptr;) {
            const std::string text(line, std::strcspn(line, "\n"));
            if (const auto at = text.find(kMark); at != text.npos) error = text.substr(at + kMark.size());
        }
        std::fclose(file_);
        return error;
    }

private:
    std::FILE* file_;
    int        output_;  ///< standard output, set aside; below 0: the report stays off
};

/// Why the film of a quiet run is not there: only the library knows what kept the preview from opening.
std::string InitializeQuietly()
{
    HiddenReport report;
    hvInitialize();
    const std::string error = report.End();
    return error.empty() ? "no display for the preview, or no memory for the camera's film" : error;
}

/// Prepares and renders the loaded scene and writes its pictures.
int Render(const Options& options, const Plan& plan)
{
    Written  files{.beauty = plan.beauty.string()};
    Progress progress(!options.quiet);
    hvxSetWriteCallback(OnWrite, &files);
    hvxSetFrameCallback(OnFrame, &progress);
    hvxSetDensityCallback(OnTooManyCells, nullptr);

    std::string problem = "no memory for the camera's film";
    if (options.preview && options.quiet)
        problem = InitializeQuietly();
    else
        hvInitialize();
    hvxImage film{};
    if (!hvxGetCameraAOV(0, 0, &film)) {
        // Without a display nothing is prepared. The report has said so, unless it is off.
        return options.preview && !options.quiet ? kFailed : Fail(problem);
    }
    progress.Start();
    hvRender();
    hvFinalize();

    if (!files.beauty_written || !files.failed.empty()) return kFailed;
    if (progress.is_unfinished() && !options.quiet)
        std::fputs("halvorne: stopped early: the picture has more noise, those of --aov are darker\n", stderr);
    if (!options.quiet) std::fprintf(stderr, "halvorne: wrote %s\n", plan.beauty.c_str());
    return kPictureWritten;
}

/// Everything between start-up and shutdown of the library.
int RunSession(const Options& options, const Plan& plan)
{
    hvxPrintBanner();
    // With its separator, so that the folder's own "image" folder is searched.
    if (hvxLoadScene((plan.scene.string() + "/").c_str()) < 0) return Fail("cannot read '" + plan.scene.string() + "'");
    if (hvxGetCameraCount() < 1) return Fail("'" + plan.scene.string() + "' has no camera");
    OverrideCamera(options, plan);
    if (options.path_tracing) {
        hvSetRendererDistance(0);
        hvSetRendererResolution(0);
    }
    if (const std::string problem = CheckCamera(options); !problem.empty()) return Fail(problem);
    if (options.light_aovs) {
        if (const std::string problem = AddAllLightShares(plan); !problem.empty()) return Fail(problem);
    }
    return Render(options, plan);
}

}  // namespace

int main(int argument_count, char** arguments)
{
    if (const std::optional<int> status = RunCommand(argument_count, arguments)) return *status;

    Options options;
    if (const std::optional<int> status = ReadOptions(argument_count, arguments, options)) return *status;

    Plan plan;
    if (const std::string problem = MakePlan(options, plan); !problem.empty()) return Fail(problem);

    CatchStopSignals();
    ApplySettings(options);
    hvStartup();
    const int status = RunSession(options, plan);
    hvShutdown();
    return status;
}
