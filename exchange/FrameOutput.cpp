#include "exchange/FrameOutput.h"

#include <algorithm>
#include <cctype>

#include "exchange/SliceView.h"
#include "exchange/particles/ParticleFile.h"
#include "fluids/particles/KindChoices.h"
#include "fluids/scene/RootObject.h"
#include "host/files/AtomicStream.h"
#include "host/files/FrameFiles.h"
#include "host/geometry/MeshWriter.h"
#include "host/pictures/PictureFile.h"
#include "host/render/RenderSettings.h"

namespace orlix {

namespace {

constexpr int kFrameDigits = 4;

std::string FileStem(const std::string& name) {
  std::string stem;
  for (const char c : name) stem += std::isalnum(static_cast<unsigned char>(c)) || c == '-' ? c : '_';
  return stem;
}

// "_Scene_Group_liquid"
std::string ParticleSuffix(const BaseObject& group, std::int32_t kind) {
  std::string word = kParticleKindChoices[kind].key;
  return "_" + FileStem(group.Path()) + "_" + word;
}

// The object's polygons in host space.
PolygonObject InHostSpace(const BaseObject& object, const PolygonObject& local) {
  PolygonObject placed = local;
  const LMatrix matrix = object.GlobalMatrix();
  for (Vec3D& point : placed.points) point = matrix * point;
  for (Vec3D& velocity : placed.velocities) velocity = matrix.Rotate(velocity);
  for (Vec3D& normal : placed.normals) normal = Normalized(matrix.Rotate(normal));
  return placed;
}

}  // namespace

std::filesystem::path ResultPath(const std::filesystem::path& folder, const std::string& name, int frame,
                                 const char* extension) {
  return folder / (name + "." + PadNumber(frame, kFrameDigits) + extension);
}

std::string PictureName(const BaseDocument& document) {
  const std::vector<BaseObject*> settings = document.ObjectsOfType(kRenderSettingsId);
  return settings.empty() ? RenderSettings().name : settings.front()->GetString(kRenderFileNameId);
}

std::string SceneSuffix(const BaseObject& root) {
  return root.document().ObjectsOfType(kRootTypeId).size() > 1 ? "_" + FileStem(root.Path()) : "";
}

FrameOutput::FrameOutput(const BaseDocument& document, std::filesystem::path results)
    : document_(document), results_(std::move(results)), roots_(document.ObjectsOfType(kRootTypeId)) {
  for (const BaseObject* object : document.ObjectsOfType(OutputSettings::Type().id)) {
    outputs_.push_back(OutputSettings::Read(*object));
  }
}

std::vector<std::filesystem::path> FrameOutput::PictureFolders(std::optional<int> frame) const {
  std::vector<std::filesystem::path> folders;
  for (const OutputSettings& output : outputs_) {
    if (output.pictures && (!frame || *frame % output.every == 0)) folders.push_back(results_ / output.folder);
  }
  return folders;
}

std::vector<ResultName> FrameOutput::Names(int frame) const {
  std::vector<ResultName> names;
  for (const OutputSettings& output : outputs_) {
    const auto add = [&](const std::string& suffix, const char* extension) {
      names.push_back({output.object, OutputSettings::kFileNameId, PathOf(output, suffix, frame, extension)});
    };
    for (const BaseObject* root : roots_) {
      if (output.vdb) add(SceneSuffix(*root), ".vdb");
      if (output.preview) add(kPreviewSuffix + SceneSuffix(*root), ".png");
    }
    for (const BaseObject* group : document_.ObjectsOfType(ParticleGroup::Type().id)) {
      for (std::int32_t kind = 0; output.particles && kind < kParticleKinds; ++kind) {
        add(ParticleSuffix(*group, kind), ".ply");
      }
    }
    document_.ForEachObject([&](const BaseObject& object) {
      if (output.meshes == MeshOutput::None || !object.Polygons()) return;
      add("_" + FileStem(object.Path()), output.meshes == MeshOutput::Ply ? ".ply" : ".obj");
    });
    if (output.pictures) {
      for (const char* extension : {".exr", ".png"}) {
        const auto path = ResultPath(results_ / output.folder, PictureName(document_), frame, extension);
        names.push_back({output.object, OutputSettings::kFolderId, path});
      }
    }
  }
  return names;
}

Status FrameOutput::WriteFrame(const OrlixHook& hook, int frame) {
  written_.clear();
  for (const OutputSettings& output : outputs_) {
    if (frame % output.every != 0) continue;
    if (Status made = CreateFolders(results_ / output.folder); !made) return made;
    for (const auto& [key, scene] : hook.scenes()) {
      if (Status status = WriteScene(*scene, output, SceneSuffix(*scene->GetHostObject()), frame); !status)
        return status;
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
  if (output.particles) {
    if (Status status = WriteParticles(scene, output, frame); !status) return status;
  }
  if (output.preview) {
    const Picture picture = DrawSliceView(scene);
    if (picture.pixelCount() == 0) return {};
    const auto path = PathOf(output, kPreviewSuffix + suffix, frame, ".png");
    if (Status status = WritePicture(path, picture); !status) return status;
    written_.push_back(path);
  }
  return {};
}

// A kind has files from the first of its particles on, empty ones when all have died, so that a sequence has no gaps.
Status FrameOutput::WriteParticles(OrlixScene& scene, const OutputSettings& output, int frame) {
  Status status;
  scene.ForEachNode(NODE_PARTICLES, NODE_PARTICLES, [&](iBase& node) {
    const auto* group = dynamic_cast<const ParticleGroup*>(&node);
    for (std::int32_t kind = 0; status && group && group->IsEnabled() && kind < kParticleKinds; ++kind) {
      if (!group->list(kind) || !group->list(kind)->everHeld()) continue;
      const BaseObject& object = *group->handler.hostObject();
      const auto path = PathOf(output, ParticleSuffix(object, kind), frame, ".ply");
      status = WriteParticleFile(path, *group, kind, {.group = object.Path(), .space = output.space});
      if (status) written_.push_back(path);
    }
  });
  return status;
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
    if (ply && placed.velocities.empty()) placed.velocities = VelocitiesOf(object, placed.points);
    for (std::vector<Vec3D>* vectors : {&placed.points, &placed.velocities, &placed.normals}) {
      for (Vec3D& v : *vectors) v = output.space(v);
    }
    for (Vec3D& n : placed.normals) n = Normalized(n);
    if (ply)
      WritePly(placed, stream);
    else
      WriteObj(placed, stream);
    status = stream.Commit();
    if (status) written_.push_back(path);
  });
  return status;
}

}  // namespace orlix
