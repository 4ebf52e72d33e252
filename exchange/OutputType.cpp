#include "exchange/OutputType.h"

#include <algorithm>

namespace orlix {

const TypeInfo& OutputSettings::Type() {
  static constexpr Choice kNames[] = {{VdbNames::Blender, "blender", "The velocity is \"velocity\""},
                                      {VdbNames::Houdini, "houdini", "The velocity is \"vel\""}};
  static constexpr Choice kMeshes[] = {
      {MeshOutput::None, "none", "No meshes"},
      {MeshOutput::Obj, "obj", "Text, for every program"},
      {MeshOutput::Ply, "ply", "Binary, with velocities where there are any"},
      {MeshOutput::Stl, "stl", "Binary triangles, for printing"},
      {MeshOutput::Glb, "glb", "glTF 2.0, binary, with velocities and values"},
      {MeshOutput::Usda, "usda", "USD text, with velocities and values"},
      {MeshOutput::Cache, "mcache", "Compact and exact, with velocities and values; a cache_mesh plays it"}};
  static constexpr Choice kParticles[] = {{ParticleOutput::Ply, "ply", "PLY, binary"},
                                          {ParticleOutput::Bgeo, "bgeo", "Houdini, classic binary"},
                                          {ParticleOutput::Geo, "geo", "Houdini, classic text"},
                                          {ParticleOutput::Prt, "prt", "Krakatoa and others"},
                                          {ParticleOutput::Pdb, "pdb", "PDB of 32 bits"},
                                          {ParticleOutput::Pda, "pda", "Maya, text"},
                                          {ParticleOutput::Pdc, "pdc", "Maya, binary"},
                                          {ParticleOutput::Mc, "mc", "Maya, cache of a frame"},
                                          {ParticleOutput::Ptc, "ptc", "RenderMan point cloud"},
                                          {ParticleOutput::Bin, "bin", "RealFlow; no properties beyond its own"},
                                          {ParticleOutput::Xyz, "xyz", "Places only, a line each"},
                                          {ParticleOutput::Pcd, "pcd", "Point Cloud Library, text"},
                                          {ParticleOutput::Icecache, "icecache", "Softimage ICE"},
                                          {ParticleOutput::Rib, "rib", "RenderMan scene, text"},
                                          {ParticleOutput::Text, "txt", "A line of names, then a line a particle"},
                                          {ParticleOutput::Vdb, "vdb", "OpenVDB, a grid of points"},
                                          {ParticleOutput::Usda, "usda", "USD text"}};

  static constexpr Choice kVelocity[] = {
      {VdbVelocity::Near, "near", "Within three cells of what the other grids hold; all of it without others"},
      {VdbVelocity::Everywhere, "everywhere", "In the whole container"}};
  static constexpr Choice kUp[] = {{UpAxis::Y, "y", "As in the scene"},
                                   {UpAxis::Z, "z", "A quarter turn about x: the scene's y becomes z"}};

  static constexpr Parameter kParameters[] = {
      StringParameter(kFolderId, "folder", "", "Folder, relative to that of the results"),
      StringParameter(kFileNameId, "file_name", "frame", "Name of the files, before the frame number"),
      IntParameter(kEveryId, "every", 1, "frames", "Write each so many frames").Min(1),
      BoolParameter(kVdbId, "vdb", false, "OpenVDB: channels, the velocity and level sets"),
      ListParameter(
          kGridsId, "grids", kLinkChannel | kLinkSolver | kLinkVolume,
          "Which channels, solvers (for their velocity), volumes and reconstructed surfaces OpenVDB files hold; an "
          "empty list is all")
          .ShownWhen(kVdbId, Relation::Is, 1),
      ChoiceParameter(kVdbNamesId, "vdb_names", VdbNames::Blender, kNames, "How grids are called in OpenVDB files")
          .ShownWhen(kVdbId, Relation::Is, 1),
      ChoiceParameter(kVdbVelocityId, "vdb_velocity", VdbVelocity::Near, kVelocity,
                      "Where OpenVDB files have the velocity")
          .ShownWhen(kVdbId, Relation::Is, 1),
      ChoiceParameter(kMeshesId, "meshes", MeshOutput::None, kMeshes, "The polygons of every volume"),
      BoolParameter(kParticlesId, "particles", false,
                    "Each particle group, a file for each of its kinds, with velocities and all properties"),
      ChoiceParameter(kParticleFormatId, "particle_format", ParticleOutput::Ply, kParticles,
                      "The format of particle files")
          .ShownWhen(kParticlesId, Relation::Is, 1),
      BoolParameter(kPackedId, "packed", false, "Pack particle files by gzip: .gz behind their names")
          .ShownWhen(kParticlesId, Relation::Is, 1),
      BoolParameter(kClassesId, "classes", false,
                    "Diffuse particles go to three files, of their foam, spray and bubbles")
          .ShownWhen(kParticlesId, Relation::Is, 1),
      BoolParameter(
          kUsdId, "usd", false,
          "A USD stage NAME.usda that shows the whole sequence: VDB volumes, meshes and particles; the latter "
          "two get .usda files beside their own"),
      BoolParameter(kBodiesId, "bodies", false,
                    "Where each body is, as lines of JSON: matrix, velocity, spin, for programs that move the meshes"),
      FloatParameter(kScaleId, "scale", 1, "", "Lengths of the other program a host unit, in all files but pictures")
          .Above(0),
      ChoiceParameter(kUpId, "up", UpAxis::Y, kUp, "What is upwards in all files but pictures"),
      BoolParameter(kPicturesId, "pictures", false, "A picture of each frame, by the render settings"),
      BoolParameter(kPreviewId, "preview", false, "A quick look at each frame: slices with a colour bar, in PNG"),
  };
  static const TypeInfo kType = {
      .id = 930001,
      .resource = "output",
      .className = "Output",
      .label = "Output",
      .text = "What a run leaves for other programs. Caches are objects of the scene and write themselves.",
      .role = TypeRole::Output,
      .kinds = kLinkHostObject,
      .parameters = kParameters,
  };
  return kType;
}

OutputSettings OutputSettings::Read(const BaseObject& object) {
  OutputSettings s;
  s.object = &object;
  s.folder = object.GetString(kFolderId);
  s.name = object.GetString(kFileNameId);
  s.every = std::max<int>(1, static_cast<int>(std::min<std::int64_t>(object.GetInt(kEveryId), 1000000)));
  s.vdb = object.GetBool(kVdbId);
  s.vdbNames = object.GetChoice<VdbNames>(kVdbNamesId);
  s.meshes = object.GetChoice<MeshOutput>(kMeshesId);
  s.particles = object.GetBool(kParticlesId);
  s.particleFormat = object.GetChoice<ParticleOutput>(kParticleFormatId);
  s.packed = object.GetBool(kPackedId);
  s.usd = object.GetBool(kUsdId);
  s.classes = object.GetBool(kClassesId);
  s.bodies = object.GetBool(kBodiesId);
  s.pictures = object.GetBool(kPicturesId);
  s.preview = object.GetBool(kPreviewId);
  const InExcludeData* grids = object.GetInExclude(kGridsId);
  for (const auto& entry : grids ? grids->entries : std::vector<InExcludeData::Entry>()) s.grids.insert(entry.target);
  s.velocityEverywhere = object.GetChoice<VdbVelocity>(kVdbVelocityId) == VdbVelocity::Everywhere;
  s.space = {.scale = object.GetDouble(kScaleId), .upZ = object.GetChoice<UpAxis>(kUpId) == UpAxis::Z};
  return s;
}

const char* OutputSettings::MeshExtension() const {
  static constexpr const char* kExtensions[] = {"", ".obj", ".ply", ".stl", ".glb", ".usda", ".mcache"};
  return kExtensions[static_cast<int>(meshes)];
}

std::string OutputSettings::ParticleExtension() const {
  static constexpr const char* kExtensions[] = {".ply",      ".bgeo", ".geo", ".prt", ".pdb", ".pda",
                                                ".pdc",      ".mc",   ".ptc", ".bin", ".xyz", ".pcd",
                                                ".icecache", ".rib",  ".txt", ".vdb", ".usda"};
  const bool plain = particleFormat == ParticleOutput::Vdb || particleFormat == ParticleOutput::Usda;
  return std::string(kExtensions[static_cast<int>(particleFormat)]) + (packed && !plain ? ".gz" : "");
}

}  // namespace orlix
