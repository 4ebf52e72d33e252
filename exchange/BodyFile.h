#pragma once
// Where bodies are after a frame, as lines of JSON: another program moves the meshes that it has by them.
//
//   {"frame": 12, "object": "Crate", "volume": "Splash/Crate volume", "matrix": [[1,0,0],[0,1,0],[0,0,1],[10,42,5]],
//    "velocity": [0,-30,0], "spin": [0,0,0.1], "mass": 32, "asleep": false}
//
// The rows of matrix are the three axes and the place: a point p of the object's own goes to
// p.x row0 + p.y row1 + p.z row2 + row3.

#include <filesystem>

#include "exchange/vdb/ExportSpace.h"
#include "fluids/rigid_bodies/BodyTransforms.h"
#include "globals/Result.h"

namespace orlix {

Status WriteBodyFile(const std::filesystem::path& path, const std::vector<BodyTransform>& bodies, int frame,
                     const ExportSpace& space);

}  // namespace orlix
