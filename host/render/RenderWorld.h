#pragma once
// Everything that a picture shows: camera, lights, surfaces, volumes and settings. Filled on one thread, then read by
// all render threads.

#include <vector>

#include "globals/Result.h"
#include "host/objects/BaseDocument.h"
#include "host/render/Camera.h"
#include "host/render/Light.h"
#include "host/render/RenderSettings.h"
#include "host/render/SurfaceScene.h"
#include "host/render/VolumeShader.h"

namespace orlix {

class RenderWorld {
 public:
  Camera camera;
  RenderSettings settings;
  std::vector<Light> lights;
  SurfaceScene surfaces;
  std::vector<VolumeShader*> volumes;  // owned by others, in the order of creation

  // The share of a light that surfaces let through to a point off all surfaces, one value a colour: white, or black in
  // the shadow. White for a light that casts none.
  Vec3D ShadowColour(const Light& light, const Vec3D& x) const;
  // The same with the volumes in between, for a ray of a surface or of the air.
  Vec3D LightPassing(const Light& light, const Vec3D& x, int worker, MersenneTwister& random) const;
};

// Gathers a document as it stands at its time: the settings (the first of their type), their camera or the first one,
// all lights that are on, and every object with polygons that is shown. Without a camera the picture frames everything,
// without a light there is a distant one over the camera's shoulder. extraLow and extraHigh, when low lies below high,
// is a further box that a camera of ours must see. size overrides the settings' where it is above 0.
struct GatherOptions {
  int width = 0, height = 0;
  Vec3D boxLow{1, 1, 1}, boxHigh{0, 0, 0};
};
Status GatherRenderWorld(const BaseDocument& document, const GatherOptions& options, RenderWorld& world);

}  // namespace orlix
