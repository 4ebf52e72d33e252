#pragma once
// Bars in the lower left corner of a picture that say what the colours of particles mean.

#include <vector>

#include "host/pictures/Picture.h"
#include "host/render/PointCloud.h"

namespace orlix {

// One above the other, as many as the picture has room for. exposure: stops by which the picture will be brightened.
void DrawLegends(const std::vector<Legend>& legends, double exposure, Picture& picture);

}  // namespace orlix
