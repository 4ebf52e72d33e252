#pragma once
// What a scene's "output" asks for: files for other programs, written frame by frame while the simulation goes on.

#include <set>
#include <string>

#include "exchange/SceneFields.h"
#include "host/description/TypeRegistry.h"
#include "host/objects/BaseDocument.h"

namespace orlix {

enum class MeshOutput { None = 0, Obj = 1, Ply = 2 };
enum class VdbVelocity { Near, Everywhere };
enum class UpAxis { Y, Z };

struct OutputSettings {
  static constexpr int kFolderId = 1, kFileNameId = 2, kEveryId = 3, kVdbId = 4, kVdbNamesId = 5, kMeshesId = 6,
                       kPicturesId = 7, kPreviewId = 8, kGridsId = 9, kVdbVelocityId = 10, kScaleId = 11, kUpId = 12,
                       kParticlesId = 13;
  static const TypeInfo& Type();

  const BaseObject* object = nullptr;
  std::string folder;  // relative to the folder of results
  std::string name = "frame";
  int every = 1;  // frames
  bool vdb = false;
  VdbNames vdbNames = VdbNames::Blender;
  MeshOutput meshes = MeshOutput::None;
  bool particles = false;
  bool pictures = false;
  bool preview = false;
  std::set<std::uint64_t> grids{};  // creation numbers of the objects that VDB files hold; empty for all
  bool velocityEverywhere = false;
  ExportSpace space{};

  static OutputSettings Read(const BaseObject& object);
};

}  // namespace orlix
