#pragma once
// From a document to what a picture shows.

#include "globals/Result.h"
#include "host/objects/BaseDocument.h"
#include "host/render/RenderWorld.h"

namespace orlix {

struct GatherOptions {
  int width = 0, height = 0;  // instead of the settings' where above 0
  // A further box that a camera of our own choice must see, when low lies below high: the volumes'.
  Vec3D boxLow{1, 1, 1}, boxHigh{0, 0, 0};
};

// Fills all of the world but its volumes from the document as it stands at its time: the first render settings, their
// camera or else the first one, all lights that are on, and every object with polygons that is shown. Without a camera
// the picture frames everything but floors; without a light there are a key over the camera's shoulder and a fill. An
// object whose material is of another kind than a surface's, a volume's say, isn't shown itself. The polygons of the
// document must stay as they are while the world lives. Where the settings ask for velocities, the document's time
// moves by a frame and back to learn how meshes move.
Status GatherRenderWorld(BaseDocument& document, const GatherOptions& options, RenderWorld& world);

}  // namespace orlix
