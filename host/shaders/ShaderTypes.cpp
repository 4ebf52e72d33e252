#include "host/shaders/ShaderTypes.h"

namespace orlix {

void RegisterShaderTypes(TypeRegistry& registry) {
  registry.Add(kNoiseShaderType);
  registry.Add(kPictureShaderType);
}

}  // namespace orlix
