#pragma once
// A column of water that falls in a tank, with a surface and a mesh, as a scene file.

#include <string>

namespace orlix::test {

// caches: more children of the scene; outputs: of the file. cell: m. settings: more of the scene's.
inline std::string WaterScene(const std::string& caches, const std::string& outputs, int lastFrame = 5,
                              const std::string& cell = "0.1", const std::string& settings = "") {
  return R"({ "orlix": 1, "fps": 24, "frames": [0, )" + std::to_string(lastFrame) + R"(], "up": "y",
  "objects": [
    { "type": "box", "name": "Column", "size": [30, 40, 30], "position": [-20, 20, 0] },
    { "type": "scene", "name": "Dam", "scale_units": 100, "scale_metres": 1, "voxel_size": )" +
         cell + R"(,
      "render_voxel_size": )" +
         cell + R"(, "cfl": 2, )" + settings + R"( "children": [
        { "type": "volume", "name": "Column volume", "object": "Column" },
        { "type": "particlegroup", "name": "Water" },
        { "type": "particlegridemitter", "name": "Fill", "group": "Water", "kind": "liquid",
          "volume": "Column volume", "settings": "At the start", "deep_limit": 1000 },
        { "type": "particlemesh_emission_setting", "name": "At the start", "active_in": "First frame", "jitter": 0.5 },
        { "type": "duration", "name": "First frame", "use_frames": true, "length_frames": 1 },
        { "type": "liquid", "name": "Tank", "container": [80, 60, 40], "anchor_mode": "bottom" },
        { "type": "force_gravity", "name": "Fall", "strength": 0 },
        { "type": "particle_advection", "name": "Flow", "group": "Water", "kind": "liquid",
          "motion_source": "solvers" },
        { "type": "surface_reconstruction", "name": "Level", "source": "Water" },
        { "type": "mesher", "name": "Surface", "input": "Level", "advection_time": 0 },
        )" +
         caches + R"(] } ],
  "output": [)" +
         outputs + "] }";
}

}  // namespace orlix::test
