#pragma once
// Writes what a scene's outputs ask for, a frame at a time.

#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <ostream>
#include <set>
#include <string>
#include <vector>

#include "exchange/OutputType.h"
#include "fluids/particles/DiffuseClass.h"
#include "fluids/particles/ParticleGroup.h"
#include "fluids/scene/OrlixHook.h"

namespace orlix {

// A file that a scene's settings name.
struct ResultName {
  const BaseObject* object;  // whose
  int row;                   // which of its settings
  std::filesystem::path path;
  const BaseObject* of = nullptr;  // what the file holds; null for all of a scene
};

// FOLDER/NAME.0001EXTENSION
std::filesystem::path ResultPath(const std::filesystem::path& folder, const std::string& name, int frame,
                                 const std::string& extension);

// What pictures are called, by the render settings.
std::string PictureName(const BaseDocument& document);
inline constexpr const char* kPreviewSuffix = "_preview";  // behind the name of a quick look
inline constexpr const char* kBodiesSuffix = "_bodies";
// What stands behind the name in files of a scene: nothing for the only one, its own name for each of several.
std::string SceneSuffix(const BaseObject& root);

class FrameOutput {
 public:
  // results: the folder that relative output folders stand in.
  FrameOutput(const BaseDocument& document, std::filesystem::path results);

  // VDB, particles, meshes and quick looks of a simulated frame. The first error ends it; files that are there are
  // whole.
  Status WriteFrame(const OrlixHook& hook, int frame);
  // Where the frame's picture goes: a folder for each output that asks for one, of this frame or, without one, of any.
  std::vector<std::filesystem::path> PictureFolders(std::optional<int> frame) const;
  // All files that a frame may have.
  std::vector<ResultName> Names(int frame) const;
  // Every folder that files go to.
  std::vector<std::filesystem::path> Folders() const;
  // Loads the libraries that the files need, so that a run without one ends before its first frame.
  Status LoadLibraries() const;
  // Mesh velocities come from the points in the frame before, which needn't be written: of one that isn't, this
  // remembers them. A run that goes on after a frame sets the document's time to it first.
  void RememberMeshes();
  // How many files the last frame gave.
  const std::vector<std::filesystem::path>& written() const { return written_; }

 private:
  Status WriteScene(OrlixScene& scene, const OutputSettings& output, const std::string& suffix, int frame);
  Status WriteParticles(OrlixScene& scene, const OutputSettings& output, int frame);
  Status WritePoints(const ParticleGroup& group, std::int32_t kind, std::optional<DiffuseClass> only,
                     const OutputSettings& output, int frame);
  Status WriteMeshes(const OutputSettings& output, int frame);
  Status WriteMesh(const OutputSettings& output, BaseObject& object, const PolygonObject& mesh, int frame);
  Status WriteFrameFile(const std::filesystem::path& path, const std::function<Status(std::ostream&)>& write);
  Status WriteStage(const OutputSettings& output) const;
  FileUnits UnitsOf(const OutputSettings& output) const;
  // From the points of the frame before, host units a second; none for the first frame and where their number changed.
  std::vector<Vec3D> VelocitiesOf(const BaseObject& object, const std::vector<Vec3D>& points);
  std::filesystem::path PathOf(const OutputSettings& output, const std::string& suffix, int frame,
                               const std::string& extension) const {
    return ResultPath(results_ / output.folder, output.name + suffix, frame, extension);
  }

  const BaseDocument& document_;
  std::filesystem::path results_;
  std::vector<OutputSettings> outputs_;
  std::vector<BaseObject*> roots_;
  std::vector<std::filesystem::path> written_;
  // What a stage of USD shows: by the output, then the suffix of its files.
  struct StagePart {
    enum Kind { Volume, Mesh, Points } kind = Volume;
    std::set<std::string> contents;  // the grids of volumes, the attributes of others
  };
  std::map<const BaseObject*, std::map<std::string, StagePart>> stages_;
  double metresPerHost_ = 0;
  struct Points {
    std::vector<Vec3D> points;
    double seconds = 0;
  };
  struct Motion {
    Points before, now;
  };
  std::map<std::uint64_t, Motion> motions_;
};

}  // namespace orlix
