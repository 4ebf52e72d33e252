#include "host/render/RenderTypes.h"

#include "host/render/Camera.h"
#include "host/render/Light.h"
#include "host/render/RenderSettings.h"
#include "host/render/SurfaceMaterial.h"

namespace orlix {

void RegisterRenderTypes(TypeRegistry& types) {
  for (const TypeInfo* type : {&kPointLightType, &kSpotLightType, &kDistantLightType, &kAreaLightType, &kCameraType,
                               &kSurfaceMaterialType, &kRenderSettingsType}) {
    types.Add(*type);
  }
}

}  // namespace orlix
