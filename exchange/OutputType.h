#pragma once
// What a scene's "output" asks for: files for other programs, written frame by frame while the simulation goes on.

#include <set>
#include <string>

#include "exchange/SceneFields.h"
#include "host/description/TypeRegistry.h"
#include "host/objects/BaseDocument.h"

namespace orlix {

enum class MeshOutput { None = 0, Obj = 1, Ply = 2, Stl = 3, Glb = 4, Usda = 5, Cache = 6 };
enum class ParticleOutput {
  Ply,
  Bgeo,
  Geo,
  Prt,
  Pdb,
  Pda,
  Pdc,
  Mc,
  Ptc,
  Bin,
  Xyz,
  Pcd,
  Icecache,
  Rib,
  Text,
  Vdb,
  Usda
};
enum class VdbVelocity { Near, Everywhere };
enum class UpAxis { Y, Z };

struct OutputSettings {
  static constexpr int kFolderId = 1, kFileNameId = 2, kEveryId = 3, kVdbId = 4, kVdbNamesId = 5, kMeshesId = 6,
                       kPicturesId = 7, kPreviewId = 8, kGridsId = 9, kVdbVelocityId = 10, kScaleId = 11, kUpId = 12,
                       kParticlesId = 13, kParticleFormatId = 14, kPackedId = 15, kUsdId = 16, kBodiesId = 20,
                       kClassesId = 40;
  static const TypeInfo& Type();

  const BaseObject* object = nullptr;
  std::string folder;  // relative to the folder of results
  std::string name = "frame";
  int every = 1;  // frames
  bool vdb = false;
  VdbNames vdbNames = VdbNames::Blender;
  MeshOutput meshes = MeshOutput::None;
  bool particles = false;
  ParticleOutput particleFormat = ParticleOutput::Ply;
  bool packed = false;
  bool usd = false;
  bool classes = false;  // of diffuse particles in files of their own
  bool bodies = false;
  bool pictures = false;
  bool preview = false;
  std::set<std::uint64_t> grids{};  // creation numbers of the objects that VDB files hold; empty for all
  bool velocityEverywhere = false;
  ExportSpace space{};

  // With the dot; empty for no meshes.
  const char* MeshExtension() const;
  std::string ParticleExtension() const;
  // Frames of a stage of USD, which no other format of theirs can be part of.
  bool UsdMeshes() const { return meshes == MeshOutput::Usda || (usd && meshes != MeshOutput::None); }
  bool UsdParticles() const { return particles && (usd || particleFormat == ParticleOutput::Usda); }

  bool HasMeshVelocities() const {
    return UsdMeshes() || meshes == MeshOutput::Ply || meshes == MeshOutput::Glb || meshes == MeshOutput::Cache;
  }

  static OutputSettings Read(const BaseObject& object);
};

}  // namespace orlix
