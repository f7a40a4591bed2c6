#pragma once

#include "base/vector.h"
#include "output/aov.h"

#include <string>
#include <vector>

namespace hv {

/// Where a camera stands and looks, and what PreparePose derives from that.
struct CameraPose {
    Vector right, forward, up;      ///< orthonormal
    float  transposed[9] = {};      ///< rows (right.x, forward.x, up.x), (right.y, ...), (right.z, ...)
    Vector position{0, 0, 0};       ///< metres
    Vector target{0, 1, 0};         ///< metres, in focus
    Vector up_vector{0, 0, 1};      ///< as given
    float  bokeh          = 0.0f;   ///< half-angle of the blur cone in degrees; 0 is a pinhole
    float  focus_distance = 0.0f;   ///< metres
    float  image_distance = 0.0f;   ///< of the film, in pixels
    float  field_of_view  = 45.0f;  ///< horizontal, degrees

    /// Fields that were set, as bits 1 << PoseField; the others come from the other pose or from the defaults above.
    std::uint32_t set_fields = 0;
};

enum class PoseField : std::uint8_t { Position, Target, UpVector, Bokeh, FieldOfView };

struct Camera {
    float                  inverse_sample = 0.0f;   ///< 1 / sample, set by PrepareCamera
    bool                   moving         = false;  ///< the two poses differ, set by PrepareCamera
    std::vector<CameraAOV> aovs;                    ///< [0] is the beauty image
    Projection             projection    = Projection::Perspective;
    AngleMeasure           angle_measure = AngleMeasure::Degrees;  ///< stored, read by nothing
    int                    time          = 0;                      ///< pose that the pose setters address
    CameraPose             poses[2];                               ///< shutter start and end
    std::string            name;
    Color                  exposure   = kWhite;  ///< stored, read by nothing
    int                    pose_count = 0;       ///< pose blocks read from a scene file
    int                    width = 960, height = 540;
    int                    sample = 17;                                 ///< frames of a render
    int                    x0 = 0, y0 = 0, x1 = 1048576, y1 = 1048576;  ///< half-open region to render
    float                  ior = 1.0f;                                  ///< of the medium around the camera
};

/// Filled by hvAddCamera and scene files, emptied by hvFinalizeCameras and hvFinalize; frozen while rays fly.
extern std::vector<Camera> Cameras;

inline constexpr int ActiveCameraIndex = 0;  ///< the camera that renders

/// The camera that renders, or null when there is none. Do not keep the pointer across a call that adds cameras.
inline Camera* ActiveCamera() { return Cameras.empty() ? nullptr : &Cameras[ActiveCameraIndex]; }

}  // namespace hv
