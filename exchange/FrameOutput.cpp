#include "exchange/FrameOutput.h"

#include <algorithm>
#include <cctype>
#include <utility>

#include "exchange/BodyFile.h"
#include "exchange/SliceView.h"
#include "exchange/meshes/MeshFiles.h"
#include "exchange/meshes/UsdaFile.h"
#include "exchange/particles/ParticleFile.h"
#include "exchange/points/PointFormats.h"
#include "fluids/caches/GridFrameFile.h"
#include "fluids/caches/MeshFrameFile.h"
#include "fluids/particles/DiffuseClass.h"
#include "fluids/particles/KindChoices.h"
#include "fluids/scene/RootObject.h"
#include "fluids/surfacing/ImplicitMesher.h"
#include "host/files/AtomicStream.h"
#include "host/files/FrameFiles.h"
#include "host/objects/PlaceObject.h"
#include "host/pictures/PictureFile.h"
#include "host/render/RenderSettings.h"

namespace orlix {

namespace {

constexpr int kFrameDigits = 4;

// Letters of all languages stay, as the bytes of UTF-8.
std::string FileStem(const std::string& name) {
  const auto stays = [](unsigned char c) { return c >= 0x80 || std::isalnum(c) || c == '-'; };
  std::string stem;
  for (const char c : name) stem += stays(static_cast<unsigned char>(c)) ? c : '_';
  return stem;
}

// "_Scene_Group_liquid"
std::string ParticleSuffix(const BaseObject& group, std::int32_t kind, std::optional<DiffuseClass> only = {}) {
  const std::string word = only ? kDiffuseClassNames[static_cast<int>(*only)] : kParticleKindChoices[kind].key;
  return "_" + FileStem(group.Path()) + "_" + word;
}

// The object's polygons in host space.
PolygonObject InHostSpace(const BaseObject& object, const PolygonObject& local) {
  PolygonObject placed = local;
  const LMatrix matrix = object.GlobalMatrix();
  for (Vec3D& point : placed.points) point = matrix * point;
  for (Vec3D& velocity : placed.velocities) velocity = matrix.Rotate(velocity);
  const LMatrix turn = NormalMatrix(matrix);
  for (Vec3D& normal : placed.normals) normal = Normalized(turn.Rotate(normal));
  if (matrix.Determinant() < 0) ReverseCorners(placed);
  return placed;
}

// One mesh as a frame of a mesh cache.
Status WriteMeshCache(const std::filesystem::path& path, const PolygonObject& mesh) {
  HyperFile file;
  if (!file.Open(kFrameFileIdent, path, HyperFile::Mode::Write)) return file.status();
  const PolygonObject* const meshes[] = {&mesh};
  WriteMeshFrame(file, meshes, true, path.stem().extension().string().substr(1));
  return file.Close();
}

// A mesher's points are other ones in each frame.
bool KeepsItsPoints(const BaseObject& object) { return object.typeId() != ImplicitMesher::Type().id; }

// The polygons of an object that may have some; an empty one's in a frame in which a mesher has no surface. Null for
// other objects, and for a mesh file that has none for this frame.
const PolygonObject* MeshOf(const BaseObject& object) {
  static const PolygonObject kEmpty;
  const PolygonObject* polygons = object.Polygons();
  return polygons || KeepsItsPoints(object) ? polygons : &kEmpty;
}

}  // namespace

std::filesystem::path ResultPath(const std::filesystem::path& folder, const std::string& name, int frame,
                                 const std::string& extension) {
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
    const BaseObject* of = nullptr;
    const auto add = [&](const std::string& suffix, const std::string& extension) {
      names.push_back({output.object, OutputSettings::kFileNameId, PathOf(output, suffix, frame, extension), of});
    };
    for (const BaseObject* root : roots_) {
      if (output.vdb) add(SceneSuffix(*root), ".vdb");
      if (output.bodies) add(kBodiesSuffix + SceneSuffix(*root), ".jsonl");
      if (output.preview) add(kPreviewSuffix + SceneSuffix(*root), ".png");
    }
    for (const BaseObject* group : document_.ObjectsOfType(ParticleGroup::Type().id)) {
      of = group;
      for (std::int32_t kind = 0; output.particles && kind < kParticleKinds; ++kind) {
        const auto addSuffix = [&](const std::string& suffix) {
          add(suffix, output.ParticleExtension());
          if (output.usd && output.particleFormat != ParticleOutput::Usda) add(suffix, ".usda");
        };
        addSuffix(ParticleSuffix(*group, kind));
        for (int c = 0; output.classes && kind == PK_Diffuse && c < kDiffuseClasses; ++c) {
          addSuffix(ParticleSuffix(*group, kind, static_cast<DiffuseClass>(c)));
        }
      }
    }
    document_.ForEachObject([&](const BaseObject& object) {
      if (output.meshes == MeshOutput::None || !MeshOf(object)) return;
      of = &object;
      add("_" + FileStem(object.Path()), output.MeshExtension());
      if (output.usd && output.meshes != MeshOutput::Usda) add("_" + FileStem(object.Path()), ".usda");
    });
    if (output.usd) {
      names.push_back({output.object, OutputSettings::kFileNameId, results_ / output.folder / (output.name + ".usda")});
    }
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
      metresPerHost_ = 1 / scene->GetSimulationSpace().hostPerSim.x;
      if (Status status = WriteScene(*scene, output, SceneSuffix(*scene->GetHostObject()), frame); !status)
        return status;
    }
    if (Status status = WriteMeshes(output, frame); !status) return status;
    if (Status status = output.usd ? WriteStage(output) : Status(); !status) return status;
  }
  return {};
}

Status FrameOutput::WriteScene(OrlixScene& scene, const OutputSettings& output, const std::string& suffix, int frame) {
  if (output.vdb) {
    const auto path = PathOf(output, suffix, frame, ".vdb");
    const std::vector<VdbField> fields = CollectFields(scene, output.vdbNames, output.grids);
    const VdbOptions options{.frame = frame,
                             .space = output.space,
                             .units = UnitsOf(output),
                             .velocityEverywhere = output.velocityEverywhere};
    if (Status status = WriteVdb(path, fields, options); !status) return status;
    written_.push_back(path);
    for (const VdbField& field : fields) stages_[output.object][suffix].contents.insert(field.name);
  }
  if (output.particles) {
    if (Status status = WriteParticles(scene, output, frame); !status) return status;
  }
  if (output.bodies) {
    const auto path = PathOf(output, kBodiesSuffix + suffix, frame, ".jsonl");
    if (Status status = WriteBodyFile(path, CollectBodyTransforms(scene), frame, output.space); !status) return status;
    written_.push_back(path);
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
      if (!output.classes || kind != PK_Diffuse) {
        status = WritePoints(*group, kind, {}, output, frame);
        continue;
      }
      for (int c = 0; c < kDiffuseClasses && status; ++c) {
        status = WritePoints(*group, kind, static_cast<DiffuseClass>(c), output, frame);
      }
    }
  });
  return status;
}

Status FrameOutput::WritePoints(const ParticleGroup& group, std::int32_t kind, std::optional<DiffuseClass> only,
                                const OutputSettings& output, int frame) {
  const BaseObject& object = *group.handler.hostObject();
  const std::string suffix = ParticleSuffix(object, kind, only);
  const FileUnits units = UnitsOf(output);
  const Result<PointSet> set = PointsOf(
      group, kind, {.group = object.Path(), .space = output.space, .metresPerUnit = units.metresPerUnit, .only = only});
  if (!set) return set.error();
  if (output.particleFormat != ParticleOutput::Usda) {
    const auto path = PathOf(output, suffix, frame, output.ParticleExtension());
    const Status status = output.particleFormat == ParticleOutput::Vdb
                              ? WriteVdbPoints(path, *set, frame)
                              : orlix::WritePoints(path, *set, false, &group.GetScene().pool());
    if (!status) return status;
    written_.push_back(path);
  }
  if (!output.UsdParticles()) return {};
  StagePart& part = stages_[output.object][suffix];
  part.kind = StagePart::Points;
  return WriteFrameFile(PathOf(output, suffix, frame, ".usda"), [&](std::ostream& out) {
    part.contents.merge(WriteUsda(*set, units, frame, out));
    return Status();
  });
}

Status FrameOutput::WriteFrameFile(const std::filesystem::path& path,
                                   const std::function<Status(std::ostream&)>& write) {
  AtomicStream stream;
  if (Status opened = stream.Open(path); !opened) return opened;
  if (Status status = write(stream); !status) return status;
  if (Status done = stream.Commit(); !done) return done;
  written_.push_back(path);
  return {};
}

FileUnits FrameOutput::UnitsOf(const OutputSettings& output) const {
  return {metresPerHost_ / output.space.scale, output.space.upZ};
}

// All frames that are there, also of a run before this one.
Status FrameOutput::WriteStage(const OutputSettings& output) const {
  UsdaStage stage;
  stage.units = UnitsOf(output);
  stage.fps = document_.fps;
  const std::filesystem::path folder = results_ / output.folder;
  const auto found = stages_.find(output.object);
  if (found == stages_.end()) return {};
  for (const auto& [suffix, part] : found->second) {
    UsdaStage::Files files;
    const char* extension = part.kind == StagePart::Volume ? "vdb" : "usda";
    for (const FrameFile& file : ScanFrameFiles(folder, output.name + suffix + ".", extension)) {
      files[file.frame] = file.path.filename().string();
    }
    const std::string name = suffix.empty() ? "volumes" : suffix.substr(1);
    if (part.kind == StagePart::Volume) {
      stage.volumes.push_back({name, part.contents, std::move(files)});
    } else {
      stage.clips.push_back({name, part.kind == StagePart::Points, part.contents, std::move(files)});
    }
  }
  return stage.Write(folder / (output.name + ".usda"));
}

// Several outputs ask in one frame.
std::vector<Vec3D> FrameOutput::VelocitiesOf(const BaseObject& object, const std::vector<Vec3D>& points) {
  auto& [before, now] = motions_[object.creationNumber()];
  const double seconds = document_.time().Seconds();
  if (now.points.empty() || now.seconds != seconds) before = std::exchange(now, {points, seconds});
  std::vector<Vec3D> velocities;
  if (before.points.size() != points.size() || before.seconds >= seconds) return velocities;
  velocities.resize(points.size());
  for (std::size_t n = 0; n < points.size(); ++n) {
    velocities[n] = (points[n] - before.points[n]) / (seconds - before.seconds);
  }
  return velocities;
}

std::vector<std::filesystem::path> FrameOutput::Folders() const {
  std::vector<std::filesystem::path> folders;
  for (const OutputSettings& output : outputs_) folders.push_back(results_ / output.folder);
  return folders;
}

Status FrameOutput::LoadLibraries() const {
  const bool vdb = std::any_of(outputs_.begin(), outputs_.end(), [](const OutputSettings& output) {
    return output.vdb || (output.particles && output.particleFormat == ParticleOutput::Vdb);
  });
  return vdb ? LoadVdbLibrary() : Status();
}

void FrameOutput::RememberMeshes() {
  const auto wants = [](const OutputSettings& output) { return output.HasMeshVelocities(); };
  if (std::none_of(outputs_.begin(), outputs_.end(), wants)) return;
  document_.ForEachObject([&](BaseObject& object) {
    const PolygonObject* polygons = object.Polygons();
    if (polygons && !polygons->points.empty() && KeepsItsPoints(object))
      VelocitiesOf(object, InHostSpace(object, *polygons).points);
  });
}

Status FrameOutput::WriteMeshes(const OutputSettings& output, int frame) {
  if (output.meshes == MeshOutput::None) return {};
  Status status;
  document_.ForEachObject([&](BaseObject& object) {
    // An empty one, too: a stage shows a mesh until its next frame, and of an earlier run a file may be there.
    if (const PolygonObject* mesh = MeshOf(object); status && mesh) status = WriteMesh(output, object, *mesh, frame);
  });
  return status;
}

Status FrameOutput::WriteMesh(const OutputSettings& output, BaseObject& object, const PolygonObject& mesh, int frame) {
  const std::string suffix = "_" + FileStem(object.Path());
  const FileUnits units = UnitsOf(output);
  PolygonObject placed = InHostSpace(object, mesh);
  if (output.HasMeshVelocities() && placed.velocities.empty() && KeepsItsPoints(object)) {
    placed.velocities = VelocitiesOf(object, placed.points);
  }
  for (std::vector<Vec3D>* vectors : {&placed.points, &placed.velocities, &placed.normals}) {
    for (Vec3D& v : *vectors) v = output.space(v);
  }
  for (Vec3D& n : placed.normals) n = Normalized(n);
  if (output.meshes != MeshOutput::Usda) {
    const auto path = PathOf(output, suffix, frame, output.MeshExtension());
    const bool cache = output.meshes == MeshOutput::Cache;
    if (Status status = cache ? WriteMeshCache(path, placed) : WriteMeshFile(path, placed, units); !status) {
      return status;
    }
    written_.push_back(path);
  }
  if (!output.UsdMeshes()) return {};
  StagePart& part = stages_[output.object][suffix];
  part.kind = StagePart::Mesh;
  return WriteFrameFile(PathOf(output, suffix, frame, ".usda"), [&](std::ostream& out) {
    part.contents.merge(WriteUsda(placed, units, frame, out));
    return Status();
  });
}

}  // namespace orlix
