#pragma once

#include "output/aov.h"
#include "output/camera.h"
#include "output/image.h"

#include <cstdint>

/// Cameras, their AOV buffers and the picture files.
namespace hv {

struct RayRecord;
struct SurfacePoint;

/// Sets the defaults and makes the beauty AOV, named "beauty-" + local time as yyyymmdd-hhmmss + ".hdr".
void CameraDefaults(Camera& camera);

/// Limits sample and region, fills unset pose fields, prepares both poses, allocates the AOVs, prints the report.
void PrepareCamera(Camera& camera);

/// Whether the beauty buffer has the size of the film: a camera may be added or resized after the camera stage.
bool IsFilmPrepared(const Camera& camera);

/// Derives basis, focus and image distance of a pose for a film of `width` pixels.
void PreparePose(CameraPose& pose, int width);

/// The pose at the time t, 0 at shutter start to 1 at shutter end, prepared.
CameraPose InterpolatePose(const Camera& camera, float t);

/// Fills a primary ray for the pixel (x, y), y downwards, from `pose` = InterpolatePose(camera, (0.5 + frame) /
/// sample). Records the pixel in PixelSlot of the calling thread `thread`.
void GenerateCameraRay(const Camera& camera, const CameraPose& pose, RayRecord& ray, int x, int y, int thread);

/// Writes the images of all AOVs of a camera, first to last.
void WriteCameraAOVs(const Camera& camera);

/// Writes the images of a list of AOVs.
void WriteAOVs(const std::vector<CameraAOV>& aovs);

/// Allocates the buffer of an AOV, zeroed, and finds its shader. Sets its size from width x height.
void PrepareAOV(CameraAOV& aov, int width, int height);

/// What a primary hit adds to the AOVs of the active camera.
struct PrimaryHit {
    Color lambertian, transmissive, glossy, specular;  ///< light through each element
    Color emission;
};

/// Adds a primary hit to every AOV of the active camera whose channel asks for a part of it, at PixelSlot[ray.thread].
void AddPrimaryHit(const RayRecord& ray, const SurfacePoint& point, const PrimaryHit& hit);

/// Adds `value` to the buffer of an AOV at a pixel; out of range it does nothing.
void AddToAOV(CameraAOV& aov, std::uint32_t pixel, Color value);

/// Mean and variance of an image as the closing report defines them: one sum of the squared largest channel serves all
/// three variances. Zero for an image without pixels.
void ImageStatistics(const Image& image, float mean[3], float variance[3]);

/// Called after each attempt to write an image with a name. Null: none.
using WriteObserver = void (*)(const char* path, bool written, void* user);
void SetWriteObserver(WriteObserver observer, void* user);

/// Starts and ends the picture library.
void StartImageLibrary();
void StopImageLibrary();

}  // namespace hv
