#pragma once
// A small plume over a sphere as a scene file: smoke and heat, buoyancy, advection, a pressure solve, caches.

#include <fmt/format.h>

#include <string>

namespace orlix::test {

struct PlumeSettings {
  int cells = 16;  // of an edge of the container
  int lastFrame = 20;
  bool record = true;  // smoke, heat and velocity into "caches"
  bool play = false;   // instead of the simulation: the same from "caches", recorded again into "again"
};

inline std::string PlumeScene(const PlumeSettings& s) {
  const double cell = 4.0 / s.cells;
  const std::string cached = R"("nodes": ["smoke", "heat", "Air"], "folder_source": "own" },)";
  const std::string simulated = R"(
      { "type": "volume", "name": "source", "object": "ball", "extends_container": true },
      { "type": "emission_setting", "name": "smoke rate", "1013": 10, "1012": false },
      { "type": "emission_setting", "name": "heat rate", "1000": 1, "1001": true, "1013": 800, "1012": false },
      { "type": "channelsettings", "name": "smoke pair", "1000": "smoke", "1001": "smoke rate" },
      { "type": "channelsettings", "name": "heat pair", "1000": "heat", "1001": "heat rate" },
      { "type": "gridemitter", "name": "emitter", "1000": ["smoke pair", "heat pair"], "1002": "source" },
      { "type": "force_buoyancy", "name": "Lift", "1000": "heat", "1002": "smoke", "1004": 0.008, "1005": -0.02,
        "1004@": { "keys": [[0, 0.004], [12, 0.012, "linear"]] } },
      { "type": "grid_advection", "name": "carry velocity", "1002": 1, "1003": 1, "1005": "Air" },
      { "type": "grid_advection", "name": "carry smoke", "1000": "smoke", "1003": 1, "1005": "Air", "10001": 14 },
      { "type": "grid_advection", "name": "carry heat", "1000": "heat", "1003": 1, "1005": "Air", "10001": 14 },)";
  std::string nodes =
      s.play ? R"({ "type": "cache", "name": "play", "mode": "playback", "folder": "caches", )" + cached : simulated;
  if (s.record) nodes += R"({ "type": "cache", "name": "keep", "mode": "record", "folder": "caches", )" + cached;
  if (s.play) nodes += R"({ "type": "cache", "name": "keep", "mode": "record", "folder": "again", )" + cached;
  return fmt::format(R"({{
  "orlix": 1, "fps": 24, "frames": [0, {frames}],
  "objects": [
    {{ "type": "sphere", "name": "ball", "radius": 70, "position": [200, 90, 200] }},
    {{ "type": "scene", "name": "Plume", "voxel_size": {cell}, "render_voxel_size": {cell}, "max_substeps": 2,
       "children": [
      {{ "type": "fluid", "name": "Air", "1009": {cells}, "1010": [400, 400, 400], "1014": 0, "1020": 0, "1021": 200 }},
      {{ "type": "channel_scalar", "name": "smoke", "1051": 5 }},
      {{ "type": "channel_temp", "name": "heat" }},
      {nodes}
      {{ "type": "null", "name": "end" }}
    ] }}
  ]
}})",
                     fmt::arg("frames", s.lastFrame), fmt::arg("cell", cell), fmt::arg("cells", s.cells),
                     fmt::arg("nodes", nodes));
}

}  // namespace orlix::test
