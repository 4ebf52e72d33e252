#pragma once
// The host object of a mesher: it shows the mesh that its node made.

#include "host/objects/BaseObject.h"

namespace orlix {

class SurfaceObject final : public ObjectData {
 public:
  const PolygonObject* Polygons() const override { return mesh.points.empty() ? nullptr : &mesh; }

  PolygonObject mesh;  // in the object's local space
};

}  // namespace orlix
