#pragma once
// Shaders: host objects that give a colour to a place, for what takes colours and masks from a texture.

#include "host/description/TypeRegistry.h"

namespace orlix {

extern const TypeInfo kNoiseShaderType, kPictureShaderType;

void RegisterShaderTypes(TypeRegistry& registry);

}  // namespace orlix
