#pragma once
// Meshes, particles and whole sequences as USD text (.usda).
//
// A frame has a file of its own with the values of its time; a stage shows the sequence: it names the frames' files as
// value clips of its meshes and points, and the VDB files as time samples of its volumes. So a stage stays small, and a
// frame is written once.

#include <filesystem>
#include <map>
#include <optional>
#include <ostream>
#include <set>
#include <string>
#include <vector>

#include "exchange/points/PointSet.h"
#include "globals/Result.h"
#include "host/objects/BaseObject.h"

namespace orlix {

// A word that USD takes as a name: letters, digits, underscores, no digit first.
std::string UsdName(const std::string& name);

// What a prim of frames has: a line each, such as "vector3f[] velocities".
using UsdAttributes = std::set<std::string>;

// As the prim "Mesh" or "Points". frame: the time of the values; none for values of all times. Gives the attributes.
UsdAttributes WriteUsda(const PolygonObject& mesh, const FileUnits& units, std::optional<int> frame, std::ostream& out);
UsdAttributes WriteUsda(const PointSet& points, const FileUnits& units, std::optional<int> frame, std::ostream& out);

class UsdaStage {
 public:
  FileUnits units{};
  double fps = 24;

  // Files stand in the stage's folder, by frame.
  using Files = std::map<int, std::string>;
  struct Volume {
    std::string name;
    std::set<std::string> fields;
    Files files;
  };
  struct Clips {
    std::string name;
    bool points = false;  // a mesh otherwise
    UsdAttributes attributes;
    Files files;
  };
  std::vector<Volume> volumes;
  std::vector<Clips> clips;

  // The stage and, beside it, what its clips hold (NAME_PRIM.manifest.usda).
  Status Write(const std::filesystem::path& path) const;
};

}  // namespace orlix
