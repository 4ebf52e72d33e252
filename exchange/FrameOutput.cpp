#include "exchange/FrameOutput.h"

#include <algorithm>
#include <cctype>

#include "exchange/SliceView.h"
#include "host/files/AtomicStream.h"
#include "host/files/FrameFiles.h"
#include "host/geometry/MeshWriter.h"
#include "host/pictures/PictureFile.h"

namespace orlix {

namespace {

constexpr int kFrameDigits = 4;

std::string FileStem(const std::string& name) {
  std::string stem;
  for (const char c : name) stem += std::isalnum(static_cast<unsigned char>(c)) || c == '-' ? c : '_';
  return stem;
}

// The object's polygons in host space.
PolygonObject InHostSpace(const BaseObject& object, const PolygonObject& local) {
  PolygonObject placed = local;
  const LMatrix matrix = object.GlobalMatrix();
  for (Vec3D& point : placed.points) point = matrix * point;
  return placed;
}

}  // namespace

FrameOutput::FrameOutput(const BaseDocument& document, std::filesystem::path results)
    : document_(document), results_(std::move(results)) {
  for (const BaseObject* object : document.ObjectsOfType(OutputSettings::Type().id)) {
    outputs_.push_back(OutputSettings::Read(*object));
  }
}

std::filesystem::path FrameOutput::PathOf(const OutputSettings& output, const std::string& suffix, int frame,
                                          const char* extension) const {
  return results_ / output.folder / (output.name + suffix + "." + PadNumber(frame, kFrameDigits) + extension);
}

std::filesystem::path FrameOutput::PictureFolder(int frame) const {
  for (const OutputSettings& output : outputs_) {
    if (output.pictures && frame % output.every == 0) return results_ / output.folder;
  }
  return {};
}

Status FrameOutput::WriteFrame(const OrlixHook& hook, int frame) {
  written_.clear();
  for (const OutputSettings& output : outputs_) {
    if (frame % output.every != 0) continue;
    if (Status made = CreateFolders(results_ / output.folder); !made) return made;
    for (const auto& [key, scene] : hook.scenes()) {
      // One scene has the plain name; each of several adds its own.
      const std::string suffix = hook.scenes().size() > 1 ? "_" + FileStem(scene->Name()) : "";
      if (Status status = WriteScene(*scene, output, suffix, frame); !status) return status;
    }
    if (Status status = WriteMeshes(output, frame); !status) return status;
  }
  return {};
}

Status FrameOutput::WriteScene(OrlixScene& scene, const OutputSettings& output, const std::string& suffix, int frame) {
  if (output.vdb) {
    const auto path = PathOf(output, suffix, frame, ".vdb");
    if (Status status =
            WriteVdb(path, CollectFields(scene, output.vdbNames, output.grids),
                     {.frame = frame, .space = output.space, .velocityEverywhere = output.velocityEverywhere});
        !status)
      return status;
    written_.push_back(path);
  }
  if (output.preview) {
    const Picture picture = DrawSliceView(scene);
    if (picture.pixelCount() == 0) return {};
    const auto path = PathOf(output, "_preview" + suffix, frame, ".png");
    if (Status status = WritePicture(path, picture); !status) return status;
    written_.push_back(path);
  }
  return {};
}

std::vector<Vec3D> FrameOutput::VelocitiesOf(const BaseObject& object, const std::vector<Vec3D>& points) {
  const double now = document_.time().Seconds();
  PointsBefore& before = pointsBefore_[object.creationNumber()];
  std::vector<Vec3D> velocities;
  if (before.points.size() == points.size() && now > before.seconds) {
    velocities.resize(points.size());
    for (std::size_t n = 0; n < points.size(); ++n) {
      velocities[n] = (points[n] - before.points[n]) / (now - before.seconds);
    }
  }
  before = {points, now};
  return velocities;
}

std::vector<std::filesystem::path> FrameOutput::Folders() const {
  std::vector<std::filesystem::path> folders;
  for (const OutputSettings& output : outputs_) folders.push_back(results_ / output.folder);
  return folders;
}

bool FrameOutput::WritesVelocities(int frame) const {
  return std::any_of(outputs_.begin(), outputs_.end(), [&](const OutputSettings& output) {
    return output.meshes == MeshOutput::Ply && frame % output.every == 0;
  });
}

void FrameOutput::RememberMeshes() {
  document_.ForEachObject([&](BaseObject& object) {
    const PolygonObject* polygons = object.Polygons();
    if (polygons && !polygons->points.empty()) VelocitiesOf(object, InHostSpace(object, *polygons).points);
  });
}

Status FrameOutput::WriteMeshes(const OutputSettings& output, int frame) {
  if (output.meshes == MeshOutput::None) return {};
  Status status;
  document_.ForEachObject([&](BaseObject& object) {
    const PolygonObject* polygons = object.Polygons();
    if (!status || !polygons || polygons->points.empty()) return;
    const bool ply = output.meshes == MeshOutput::Ply;
    const auto path = PathOf(output, "_" + FileStem(object.Path()), frame, ply ? ".ply" : ".obj");
    AtomicStream stream;
    status = stream.Open(path);
    if (!status) return;
    PolygonObject placed = InHostSpace(object, *polygons);
    std::vector<Vec3D> velocities;
    if (ply) velocities = VelocitiesOf(object, placed.points);
    for (std::vector<Vec3D>* vectors : {&placed.points, &velocities}) {
      for (Vec3D& v : *vectors) v = output.space(v);
    }
    if (ply)
      WritePly(placed, velocities, stream);
    else
      WriteObj(placed, stream);
    status = stream.Commit();
    if (status) written_.push_back(path);
  });
  return status;
}

}  // namespace orlix
