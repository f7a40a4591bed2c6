#include "hvx.h"

#include "base/per_thread.h"
#include "output/output.h"
#include "scene/scene.h"
#include "session/guard.h"
#include "session/sampling.h"
#include "session/session.h"

#include <algorithm>
#include <filesystem>
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

int LoadSceneFolder(const char* folder)
{
    std::error_code error;
    if (!folder || !std::filesystem::is_directory(folder, error)) return -1;
    std::filesystem::directory_iterator readable(folder, error);
    return error ? -1 : LoadScene(folder);
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
    if (!found || !image || !found->image.loaded) return false;
    *image = {found->image.width, found->image.height, found->image.channels, found->image.pixels32.data()};
    return true;
}

void hvxSetFrameCallback(hvxFrameCallback callback, void* user) { SetFrameObserver(callback, user); }
void hvxSetWriteCallback(hvxWriteCallback callback, void* user) { SetWriteObserver(callback, user); }

}  // extern "C"
