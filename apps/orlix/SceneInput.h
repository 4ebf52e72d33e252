#pragma once
// A scene from its file, with all that can be found wrong with it before a run. Commands that go on with one begin
// here.

#include "apps/orlix/Command.h"
#include "scene_file/SceneReader.h"

namespace orlix {

// out: the folder of results; empty for the scene's own.
Result<SceneFile> ReadScene(const Program& program, const SceneOptions& options, const std::string& out = {},
                            bool allowOutside = false);

}  // namespace orlix
