#pragma once
// Everything that a picture shows: camera, lights, surfaces, volumes and settings. Filled on one thread, then read by
// all render threads.

#include <algorithm>
#include <vector>

#include "host/render/Camera.h"
#include "host/render/Light.h"
#include "host/render/PointCloud.h"
#include "host/render/RenderSettings.h"
#include "host/render/SkyMap.h"
#include "host/render/SurfaceScene.h"
#include "host/render/VolumeShader.h"

namespace orlix {

class RenderWorld {
 public:
  Camera camera;
  Camera closing;  // where the camera is when the shutter closes; camera is where it is when it opens
  bool cameraMoves = false, lightsMove = false;
  // What motion in the picture is measured between: the frame, and the one before it (in the first, the one after it,
  // motionSign 1). Without a camera in the document both are the camera.
  Camera ofFrame, ofNeighbour;
  int motionSign = -1;
  RenderSettings settings;
  std::vector<Light> lights;  // those that are on
  SurfaceScene surfaces;
  std::vector<VolumeShader*> volumes;  // owned by others, in the order of creation
  std::vector<PointCloud> points;      // rays of the camera see them; lights and other rays pass

  SkyMap sky;  // empty without a shader for it

  // What a ray that leaves the scene meets: the colour at the horizon and below, and overhead that of the settings.
  Vec3D SkyColour(const Vec3D& direction) const {
    if (!sky.empty()) return sky.Colour(direction);
    const double low = 1 - std::max(0.0, direction.y), weight = low * low * low;
    return settings.skyColour * (Vec3D(1.0) + (settings.skyHorizon - Vec3D(1.0)) * weight);
  }

  // The share of a light that surfaces let through to a point off all surfaces, one value a colour: white, black in
  // the shadow, or what comes through clear ones. White for a light that casts none.
  Vec3D ShadowColour(const Light& light, const Vec3D& x, double time = 0.5) const {
    if (!light.castsShadow || surfaces.empty()) return {1, 1, 1};
    const Vec3D toLight = light.PositionFrom(x) - x;
    const double distance = Length(toLight);
    return distance > 0 ? surfaces.Passing(x, toLight / distance, distance, time) : Vec3D{1, 1, 1};
  }
};

}  // namespace orlix
