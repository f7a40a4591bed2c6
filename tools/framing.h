#pragma once

#include "obj_outline.h"

struct View {
    Point  eye, target, up;
    double fov;  ///< horizontal, degrees
};

/// From where a camera looks at a model.
struct ViewWish {
    double fov       = 40.0;  ///< horizontal, degrees
    double azimuth   = 30.0;  ///< degrees to the right of the model's front
    double elevation = 15.0;  ///< degrees above the horizon
    bool   z_up      = false;
    int    width = 1280, height = 720;
};

/// Moves the camera just so far back that all corners of the bounds lie on the film, with a margin.
View FrameBounds(const Point& low, const Point& high, const ViewWish& wish);
