#pragma once
// Whether frames stand alone: then a picture of frame 40 needs no frame before it.

#include "host/objects/BaseDocument.h"

namespace orlix {

// Whether caches play back, in every frame, all simulated objects that pictures show: what the gas materials lead to,
// or every channel, solver and particle group where there is no such material, or when slices of all are asked for.
bool PicturesArePlayedBack(const BaseDocument& document, bool slices);

}  // namespace orlix
