#pragma once
// The types that pictures need: lights, camera, material, settings.

#include "host/description/TypeRegistry.h"

namespace orlix {

void RegisterRenderTypes(TypeRegistry& types);

}  // namespace orlix
