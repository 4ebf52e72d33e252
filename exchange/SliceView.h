#pragma once
// A quick look at a frame without a renderer: density summed along z, and slices of temperature and speed through the
// middle, side by side with a colour bar that says its range.

#include "fluids/scene/OrlixScene.h"
#include "host/pictures/Picture.h"

namespace orlix {

// R, G, B, linear. Empty when the scene has nothing to show.
Picture DrawSliceView(OrlixScene& scene);

}  // namespace orlix
