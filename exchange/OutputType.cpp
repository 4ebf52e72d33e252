#include "exchange/OutputType.h"

#include <algorithm>

namespace orlix {

namespace {

constexpr Choice kNames[] = {{0, "blender", "The velocity is \"velocity\""}, {1, "houdini", "The velocity is \"vel\""}};
constexpr Choice kMeshes[] = {{0, "none", "No meshes"},
                              {1, "obj", "Text, for every program"},
                              {2, "ply", "Binary, with velocities where there are any"}};

constexpr Choice kVelocity[] = {
    {0, "near", "Within three cells of what the other grids hold; all of it without others"},
    {1, "everywhere", "In the whole container"}};
constexpr Choice kUp[] = {{0, "y", "As in the scene"}, {1, "z", "A quarter turn about x: the scene's y becomes z"}};

constexpr Parameter kParameters[] = {
    StringParameter(1, "folder", "", "Folder, relative to that of the results"),
    StringParameter(2, "file_name", "frame", "Name of the files, before the frame number"),
    IntParameter(3, "every", 1, "frames", "Write each so many frames").Min(1),
    BoolParameter(4, "vdb", false, "OpenVDB: channels, the velocity and level sets"),
    ListParameter(9, "grids", kLinkChannel | kLinkSolver | kLinkVolume,
                  "Which channels, solvers (for their velocity) and volumes OpenVDB files hold; an empty list is all")
        .ShownWhen(4, Relation::Is, 1),
    ChoiceParameter(5, "vdb_names", 0, kNames, "How grids are called in OpenVDB files").ShownWhen(4, Relation::Is, 1),
    ChoiceParameter(10, "vdb_velocity", 0, kVelocity, "Where OpenVDB files have the velocity")
        .ShownWhen(4, Relation::Is, 1),
    ChoiceParameter(6, "meshes", 0, kMeshes, "The polygons of every volume"),
    FloatParameter(11, "scale", 1, "", "Lengths of the other program a host unit, in OpenVDB files and meshes")
        .Above(0),
    ChoiceParameter(12, "up", 0, kUp, "What is upwards in OpenVDB files and meshes"),
    BoolParameter(7, "pictures", false, "A picture of each frame, by the render settings"),
    BoolParameter(8, "preview", false, "A quick look at each frame: slices with a colour bar, in PNG"),
};

}  // namespace

const TypeInfo& OutputType() {
  static const TypeInfo kType = [] {
    TypeInfo type;
    type.id = 930001;
    type.resource = "output";
    type.className = "Output";
    type.label = "Output";
    type.text = "What a run leaves for other programs. Caches are objects of the scene and write themselves.";
    type.role = TypeRole::Output;
    type.kinds = kLinkHostObject;
    type.parameters = kParameters;
    return type;
  }();
  return kType;
}

OutputSettings OutputSettings::Read(const BaseObject& object) {
  OutputSettings s;
  s.folder = object.GetString(1);
  s.name = object.GetString(2);
  s.every = std::max<int>(1, static_cast<int>(std::min<std::int64_t>(object.GetInt(3), 1000000)));
  s.vdb = object.GetBool(4);
  s.vdbNames = object.GetInt(5) == 1 ? VdbNames::Houdini : VdbNames::Blender;
  const std::int64_t meshes = object.GetInt(6);
  s.meshes = meshes == 1 ? MeshOutput::Obj : meshes == 2 ? MeshOutput::Ply : MeshOutput::None;
  s.pictures = object.GetBool(7);
  s.preview = object.GetBool(8);
  const InExcludeData* grids = object.GetInExclude(9);
  for (const auto& entry : grids ? grids->entries : std::vector<InExcludeData::Entry>()) s.grids.insert(entry.target);
  s.velocityEverywhere = object.GetInt(10) == 1;
  s.space = {.scale = object.GetDouble(11), .upZ = object.GetInt(12) == 1};
  return s;
}

}  // namespace orlix
