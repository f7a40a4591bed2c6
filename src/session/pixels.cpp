#include "accel/ray.h"
#include "output/output.h"
#include "session/console.h"
#include "session/path_stack.h"
#include "session/sampling.h"
#include "session/session.h"
#include "session/settings.h"
#include "transport/transport.h"

#include <omp.h>

#include <algorithm>
#include <cstddef>

namespace hv {
namespace {

constexpr int kMaxFrames = 65535;

/// Half-open rectangle of pixels.
struct Region {
    int x0, y0, x1, y1;

    std::size_t Width() const { return static_cast<std::size_t>(x1 - x0); }
};

/// The camera's region inside its film, empty where the two do not meet.
Region RegionOf(const Camera& camera)
{
    Region region;
    region.x0 = std::clamp(camera.x0, 0, std::max(camera.width, 0));
    region.y0 = std::clamp(camera.y0, 0, std::max(camera.height, 0));
    region.x1 = std::clamp(camera.x1, region.x0, std::max(camera.width, region.x0));
    region.y1 = std::clamp(camera.y1, region.y0, std::max(camera.height, region.y0));
    return region;
}

/// Meant: infinities are limited, a non-number passes on into the picture. The order of the operands decides.
Color Clamped(Color color)
{
    const Color limit = Settings.Clamp;
    return {limit.r < color.r ? limit.r : color.r, limit.g < color.g ? limit.g : color.g,
            limit.b < color.b ? limit.b : color.b};
}

Color RenderSample(const Camera& camera, const CameraPose& pose, int x, int y, int thread)
{
    RayRecord ray;
    GenerateCameraRay(camera, pose, ray, x, y, thread);
    return Clamped(Radiance(ray));
}

/// Renders every pixel of a region once and hands each sample to store(x, y, pixel, sample). Rows go out one at a time:
/// their cost is very uneven.
template <class Store>
void RenderRegion(const Camera& camera, const Region& region, int frame, const Store& store)
{
    const std::int64_t start = Ticks();
    const float        time  = (0.5f + static_cast<float>(frame)) / static_cast<float>(std::max(camera.sample, 1));
    const CameraPose   pose  = InterpolatePose(camera, time);
    CurrentFrame             = frame;
    LimitSettings();  // setters may have run since preparation, and the depth bounds the recursion
    Settings.RayDepth = std::min(Settings.RayDepth, DeepestPath());

#pragma omp parallel for schedule(dynamic, 1) num_threads(TeamSize())
    for (int y = region.y0; y < region.y1; ++y) {
        const int thread = omp_get_thread_num();
        ForgetLastLookup(thread);
        for (int x = region.x0; x < region.x1; ++x) {
            const std::uint32_t pixel = static_cast<std::uint32_t>(camera.width) * static_cast<std::uint32_t>(y) +
                                        static_cast<std::uint32_t>(x);
            BeginRandomStream(pixel, static_cast<std::uint32_t>(frame));
            store(x, y, pixel, RenderSample(camera, pose, x, y, thread));
        }
    }

    RenderTime += (Ticks() - start) / 10;
    RayTotal       = TakeSum(PrimaryRayCounters);
    OcclusionTotal = TakeSum(OcclusionRayCounters);
}

/// Folds one more sample into the mean of `count` samples.
void FoldIntoMean(Image& image, std::uint32_t pixel, Color sample, float count)
{
    float mean[3] = {sample.r, sample.g, sample.b};
    if (count > 0.0f) {  // the first sample counts as it is, whatever stood there
        float current[3];
        ReadImagePixel(image, current, pixel);
        for (int c = 0; c < 3; ++c) mean[c] = (count * current[c] + sample[c]) / (count + 1.0f);
    }
    WriteImagePixel(image, mean, pixel);
}

}  // namespace

void RenderPixels(std::uint16_t frame)
{
    Camera* camera = ActiveCamera();
    if (!camera || !IsFilmPrepared(*camera)) return;
    Image&      image = camera->aovs[0].image;
    const float count = static_cast<float>(frame);
    RenderRegion(*camera, RegionOf(*camera), frame,
                 [&](int, int, std::uint32_t pixel, Color sample) { FoldIntoMean(image, pixel, sample, count); });
}

void RenderPixelsTo(int count, float* out, int frame)
{
    Camera* camera = ActiveCamera();
    if (!camera || !IsFilmPrepared(*camera) || !out) return;
    CameraAOV&        beauty      = camera->aovs[0];
    const Region      region      = RegionOf(*camera);
    const std::size_t out_count   = static_cast<std::size_t>(std::max(count, 0));
    const float       frame_count = static_cast<float>(std::max(camera->sample, 1));
    RenderRegion(*camera, region, std::clamp(frame, 0, kMaxFrames),
                 [&](int x, int y, std::uint32_t pixel, Color sample) {
                     const std::size_t row   = static_cast<std::size_t>(y - region.y0);
                     const std::size_t index = row * region.Width() + static_cast<std::size_t>(x - region.x0);
                     if (index < out_count) std::copy_n(&sample.r, 3, out + 3 * index);
                     AddToAOV(beauty, pixel, sample / frame_count);
                 });
}

}  // namespace hv
