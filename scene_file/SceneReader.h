#pragma once
// A scene file becomes a document:
//
//   {
//     "orlix": 1, "fps": 24, "frames": [0, 120], "up": "y", "include": ["lights.json"],
//     "objects": [ { "type": "scene", "name": "Plume", "voxel_size": 0.05, "children": [ ... ], "tags": [ ... ] } ],
//     "lights": [ ... ], "camera": { ... }, "materials": [ ... ], "render": { ... }, "output": [ ... ]
//   }
//
// Which types and parameters there are comes from the registry alone. All mistakes of a file and of those that it
// includes are found in one pass.

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "globals/Result.h"
#include "host/objects/BaseDocument.h"
#include "scene_file/ScenePlaces.h"
#include "scene_file/SourceText.h"

namespace orlix {

struct SceneReadOptions {
  std::vector<std::string> overrides;  // "Plume/Air.cell_size=0.1", set after the file
  LoadText load = LoadTextFile;
};

struct SceneFile {
  std::unique_ptr<BaseDocument> document;
  ScenePlaces places;
  std::vector<std::string> files;  // the scene file and those it includes, in the order of reading
  std::vector<std::string> off;    // paths of what "enabled": false leaves out of the document
};

// The registry outlives the document. Errors: Scene with one line for each mistake, InputFile when the file itself
// can't be read, Usage for an override without a path, key or value.
Result<SceneFile> ReadSceneFile(const std::string& path, const TypeRegistry& types,
                                const SceneReadOptions& options = {});
// The same from a text; name stands for the file in messages, and its folder is where included files are looked for.
Result<SceneFile> ReadSceneText(const std::string& name, std::string text, const TypeRegistry& types,
                                const SceneReadOptions& options = {});

}  // namespace orlix
