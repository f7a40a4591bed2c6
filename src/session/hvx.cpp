#include "hvx.h"

#include "base/per_thread.h"
#include "lights/light.h"
#include "output/output.h"
#include "output/picture_child.h"
#include "scene/scene.h"
#include "session/guard.h"
#include "session/sampling.h"
#include "session/session.h"
#include "shading/shader.h"
#include "transport/transport.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <sstream>
#include <system_error>

using namespace hv;

namespace {

const Camera* FindCamera(int camera)
{
    if (camera < 0 || static_cast<std::size_t>(camera) >= Cameras.size()) return nullptr;
    return &Cameras[static_cast<std::size_t>(camera)];
}

const CameraAOV* FindAOV(int camera, int aov)
{
    const Camera* owner = FindCamera(camera);
    if (!owner || aov < 0 || static_cast<std::size_t>(aov) >= owner->aovs.size()) return nullptr;
    return &owner->aovs[static_cast<std::size_t>(aov)];
}

/// AOVs of a point or parallel light; null for a bad handle.
template <class LightType>
std::vector<CameraAOV>* FindLightAOVs(std::vector<LightType>& lights, int light)
{
    if (light < 0 || static_cast<std::size_t>(light) >= lights.size()) return nullptr;
    return &lights[static_cast<std::size_t>(light)].aovs;
}

std::vector<CameraAOV>* FindLightAOVs(hvxLight kind, int light)
{
    switch (kind) {
    case hvxLight::Sky:
        return &SkyLightAOVs;
    case hvxLight::Geometry:
        return &GeometryLightAOVs;
    case hvxLight::Point:
        return FindLightAOVs(PointLights, light);
    case hvxLight::Parallel:
        return FindLightAOVs(ParallelLights, light);
    }
    return nullptr;
}

bool IsLobe(Channel channel)
{
    return channel == Channel::Lambertian || channel == Channel::Transmissive || channel == Channel::Glossy ||
           channel == Channel::Specular;
}

int AddLightShare(std::vector<CameraAOV>& aovs, Channel element, const char* name)
{
    CameraAOV share;
    share.image.path = name ? name : "";
    share.channel    = static_cast<std::uint32_t>(element);
    share.is_share   = true;
    aovs.push_back(std::move(share));
    return static_cast<int>(aovs.size()) - 1;
}

/// Shows the pixels of an AOV to a host.
bool ShowAOV(const CameraAOV& aov, hvxImage* image)
{
    if (!image || !aov.image.loaded) return false;
    *image = {aov.image.width, aov.image.height, aov.image.channels, aov.image.pixels32.data()};
    return true;
}

bool IsReadableFolder(const char* folder)
{
    std::error_code error;
    if (!folder || !std::filesystem::is_directory(folder, error)) return false;
    std::filesystem::directory_iterator readable(folder, error);
    return !error;
}

int LoadSceneFolder(const char* folder) { return IsReadableFolder(folder) ? LoadScene(folder) : -1; }

int CheckSceneFolder(const char* folder, hvxFindingCallback callback, void* user)
{
    if (!IsReadableFolder(folder)) return -1;
    const std::vector<Finding> findings = CheckScene(folder);
    for (const Finding& finding : findings) {
        const hvxFinding told = {finding.file.c_str(), finding.line, finding.column, finding.is_error,
                                 finding.text.c_str()};
        if (callback) callback(&told, user);
    }
    return static_cast<int>(findings.size());
}

void ListKeywords(hvxLineCallback callback, void* user)
{
    std::istringstream text(SceneFormatReference());
    for (std::string line; std::getline(text, line);) callback(line.c_str(), user);
}

}  // namespace

extern "C" {

const char* hvxVersion() { return HV_VERSION; }

void hvxSetSeed(uint64_t seed) { SetSeed(seed); }
void hvxClearSeed() { ClearSeed(); }

void hvxSetThreadCount(int count)
{
    static const int available = omp_get_max_threads();  // as found before the first call
    omp_set_num_threads(count < 1 ? available : std::min(count, kMaxThreads));
}

void hvxSetReport(bool on) { SetReport(on); }

void hvxPrintBanner() { Guarded(PrintBanner); }

int hvxLoadScene(const char* folder)
{
    return Guarded(-1, [&] { return LoadSceneFolder(folder); });
}

int hvxCheckScene(const char* folder, hvxFindingCallback callback, void* user)
{
    return Guarded(-1, [&] { return CheckSceneFolder(folder, callback, user); });
}

void hvxListKeywords(hvxLineCallback callback, void* user)
{
    if (callback) Guarded([&] { ListKeywords(callback, user); });
}

int hvxGetCameraCount() { return static_cast<int>(Cameras.size()); }

bool hvxGetCamera(int camera, int* width, int* height, int* sample)
{
    const Camera* found = FindCamera(camera);
    if (!found) return false;
    if (width) *width = found->width;
    if (height) *height = found->height;
    if (sample) *sample = found->sample;
    return true;
}

int hvxGetCameraAOVCount(int camera)
{
    const Camera* found = FindCamera(camera);
    return found ? static_cast<int>(found->aovs.size()) : 0;
}

bool hvxGetCameraAOV(int camera, int aov, hvxImage* image)
{
    const CameraAOV* found = FindAOV(camera, aov);
    return found && ShowAOV(*found, image);
}

int hvxGetPointLightCount() { return static_cast<int>(PointLights.size()); }
int hvxGetParallelLightCount() { return static_cast<int>(ParallelLights.size()); }

int hvxAddLightShare(hvxLight kind, int light, Channel element, const char* name)
{
    std::vector<CameraAOV>* const aovs = FindLightAOVs(kind, light);
    if (!aovs || !IsLobe(element)) return -1;
    return Guarded(-1, [&] { return AddLightShare(*aovs, element, name); });
}

bool hvxGetLightAOV(hvxLight kind, int light, int aov, hvxImage* image)
{
    const std::vector<CameraAOV>* const aovs = FindLightAOVs(kind, light);
    if (!aovs || aov < 0 || static_cast<std::size_t>(aov) >= aovs->size()) return false;
    return ShowAOV((*aovs)[static_cast<std::size_t>(aov)], image);
}

void hvxSetFrameCallback(hvxFrameCallback callback, void* user) { SetFrameObserver(callback, user); }
void hvxSetDensityCallback(hvxDensityCallback callback, void* user) { SetDensityObserver(callback, user); }
void hvxSetWriteCallback(hvxWriteCallback callback, void* user) { SetWriteObserver(callback, user); }

void hvxSetHairAbsorption(int shader, float r, float g, float b)
{
    if (shader < 0 || static_cast<std::size_t>(shader) >= Shaders.size()) return;
    const auto valid = [](float x) { return x >= 0.0f && std::isfinite(x); };
    if (!valid(r) || !valid(g) || !valid(b)) return;
    float(&absorption)[3] = Shaders[static_cast<std::size_t>(shader)].volume_shader.hair_absorption;
    absorption[0]         = r;
    absorption[1]         = g;
    absorption[2]         = b;
}

void hvxSetPictureChild(bool on, int seconds, int megabytes) { SetPictureChild(on, seconds, megabytes); }

}  // extern "C"
