#pragma once
// The host object of a cache: what its interface says of the folder and of the frame.

#include <string>

#include "fluids/caches/Cache_OperatorBase.h"

namespace orlix {

std::string CacheFolderText(const CacheInfo& info);

// Writes both texts, and the folder and name that the cacher uses, into the object's settings.
void UpdateCacheDescription(Cache_OperatorBase& cacher);

}  // namespace orlix
