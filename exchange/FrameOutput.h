#pragma once
// Writes what a scene's outputs ask for, a frame at a time.

#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "exchange/OutputType.h"
#include "fluids/scene/OrlixHook.h"

namespace orlix {

class FrameOutput {
 public:
  // results: the folder that relative output folders stand in.
  FrameOutput(const BaseDocument& document, std::filesystem::path results);

  // VDB, meshes and quick looks of a simulated frame. The first error ends it; files that are there are whole.
  Status WriteFrame(const OrlixHook& hook, int frame);
  // Where the frame's picture goes; empty when no output asks for one.
  std::filesystem::path PictureFolder(int frame) const;
  // Every folder that files go to.
  std::vector<std::filesystem::path> Folders() const;
  // Mesh velocities of a frame come from the points written before it. A run that goes on after a frame sets the
  // document's time to the last one that WritesVelocities and lets its points be remembered.
  bool WritesVelocities(int frame) const;
  void RememberMeshes();
  // How many files the last frame gave.
  const std::vector<std::filesystem::path>& written() const { return written_; }

 private:
  Status WriteScene(OrlixScene& scene, const OutputSettings& output, const std::string& suffix, int frame);
  Status WriteMeshes(const OutputSettings& output, int frame);
  // From the points that were written before, host units a second; none for the first frame and where their number
  // changed.
  std::vector<Vec3D> VelocitiesOf(const BaseObject& object, const std::vector<Vec3D>& points);
  std::filesystem::path PathOf(const OutputSettings& output, const std::string& suffix, int frame,
                               const char* extension) const;

  const BaseDocument& document_;
  std::filesystem::path results_;
  std::vector<OutputSettings> outputs_;
  std::vector<std::filesystem::path> written_;
  struct PointsBefore {
    std::vector<Vec3D> points;
    double seconds = 0;
  };
  std::map<std::uint64_t, PointsBefore> pointsBefore_;
};

}  // namespace orlix
