#pragma once
// The host object of a grid cache: what its interface says of the folder and of the frame.

#include <string>

#include "fluids/caches/GridCacher.h"

namespace orlix {

std::string CacheFolderText(const CacheInfo& info);
std::string GridFrameText(const GridCacheInfo& info);

// Writes both texts, and the folder and name that the cacher uses, into the object's settings.
void UpdateGridCacheDescription(GridCacher& cacher);

}  // namespace orlix
