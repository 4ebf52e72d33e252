#pragma once
// A scene from its file, with all that can be found wrong with it before a run. Commands that go on with one begin
// here.

#include "apps/orlix/Command.h"
#include "run/PictureMaker.h"
#include "run/SceneRun.h"
#include "scene_file/SceneReader.h"

namespace orlix {

// out: the folder of results; empty for the scene's own.
Result<SceneFile> ReadScene(const Program& program, const SceneOptions& options, const std::string& out = {},
                            bool allowOutside = false);

// What a camera of our own choice has to see in all frames of the plan; empty for a scene with a camera of its own. A
// scene without a gas material gets one by what its channels hold in these frames.
FramedBox FindFraming(const Program& program, const SceneOptions& options, BaseDocument& document,
                      const FramePlan& plan, WorkerPool& pool);

}  // namespace orlix
