#pragma once
// Where a scene's gas and particles will be in the frames whose pictures are asked for: a camera that isn't the scene's
// own must stand still and see all of it, and no frame knows what later ones hold. So the frames are run once before,
// with cells of twice the size, which takes a tenth of the time.

#include "run/PictureMaker.h"
#include "run/SceneRun.h"

namespace orlix {

// Whether pictures of the document have no camera of its own.
bool WantsRehearsal(const BaseDocument& document);

// Runs a document that is there for this alone: its cells grow, and its caches record nothing. The box is empty where
// the plan's frames show nothing, or can't be made: that is the run's own to tell.
FramedBox Rehearse(Engine& engine, BaseDocument& document, WorkerPool& pool, const FramePlan& plan);

}  // namespace orlix
