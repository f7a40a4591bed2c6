#include "scene/scene.h"
