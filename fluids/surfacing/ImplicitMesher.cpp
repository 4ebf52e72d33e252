#include "fluids/surfacing/ImplicitMesher.h"

#include <fmt/format.h>

#include <algorithm>
#include <new>

#include "fluids/helpers/PropertyIds.h"
#include "fluids/particles/KindChoices.h"
#include "fluids/surfacing/SurfaceObject.h"
#include "host/objects/PlaceObject.h"

namespace orlix {

namespace {

constexpr std::int32_t kPriority = 10;
constexpr double kWeldTolerance = 0.01;  // host units
constexpr double kVertexVoxels = 2;
constexpr const char* kCurvatureName = "curvature";

constexpr Choice kMethods[] = {
    {ExtractionMethod::Cubes, "cubes", "Marching cubes: few triangles"},
    {ExtractionMethod::Tetrahedra, "tetrahedra", "Five tetrahedra a cell: more than twice as many triangles"},
    {ExtractionMethod::Tiles, "tiles", "A tile of acute tetrahedra: ten times as many triangles, all well shaped"},
};
constexpr Choice kSamplings[] = {
    {Interpolation::Trilinear, "trilinear", "8 nodes"},
    {Interpolation::Cosine, "cosine", "8 nodes, flat at nodes"},
    {Interpolation::Cubic, "cubic", "64 nodes"},
    {Interpolation::MonotoneCubic, "monotone_cubic", "64 nodes, without overshoots"},
    {Interpolation::QuadraticBSpline, "quadratic", "27 nodes, a B-spline that smooths"},
};

// Whether the place where the level set has this value lies beyond the nodes that meshes are taken from.
bool IsCutOff(const ScalarGrid& grid, double iso) {
  const VecInt3D last = grid.dims - VecInt3D(1, 1, 1);
  for (int k = 1; k <= last.z; ++k) {
    for (int j = 1; j <= last.y; ++j) {
      const bool inFace = k == 1 || k == last.z || j == 1 || j == last.y;
      for (int i = 1; i <= last.x; i += inFace ? 1 : std::max(1, last.x - 1)) {
        if (grid(i, j, k) < iso) return true;
      }
    }
  }
  return false;
}

}  // namespace

const TypeInfo& ImplicitMesher::Type() {
  static constexpr Parameter kParameters[] = {
      BoolParameter(kRenderOnlyId, "render_only", false, "No mesh in previews"),
      LinkParameter(kInputId, "input", kLinkVolume, "A volume, a combination of volumes, or a surface reconstructor"),
      ChoiceParameter(kMethodId, "method", ExtractionMethod::Cubes, kMethods, "How the surface is made"),
      FloatParameter(kDivisorId, "spacing_divisor", 1, "",
                     "Divides the distances between points: 2 makes a mesh of half the size, seen from the level set's "
                     "low corner")
          .Between(1e-3, 1e3),
      BoolParameter(kNormalsId, "gradient_normals", true, "Points get the level set's gradient as normals"),
      FloatParameter(kAdvectionTimeId, "advection_time", 0.033, "s",
                     "How far along the velocity the finished mesh is moved; 0 leaves it"),
      FloatParameter(kIsoId, "iso", 0, "m", "The distance that is the surface; above 0 the shape is thicker"),
      LinkParameter(kVelocityId, "velocity", kLinkSolver,
                    "The solver whose velocity the points are moved by and carry in files; without one they stay"),
      ChoiceParameter(kSamplingId, "sampling", Interpolation::Trilinear, kSamplings,
                      "How tiles sample the level set between its nodes")
          .ShownWhen(kMethodId, Relation::Is, ExtractionMethod::Tiles),
      BoolParameter(kClosedId, "closed", true, "The surface is closed where the level set ends; otherwise it is open"),
      ListParameter(kVertexDataId, "vertex_data", kLinkChannel | kLinkVolume | kLinkProperty,
                    "What the points carry in files, by its name: values of channels, distances from volumes and "
                    "reconstructed surfaces, properties of the particles about them"),
      GroupListParameter(kVertexGroupsId, "vertex_groups",
                         "Whose properties the points take; all groups and kinds without an entry"),
      FloatParameter(kVertexRadiusId, "vertex_radius", 0, "m",
                     "How far away particles count; 0 is two voxels of the scene")
          .Min(0),
      ButtonParameter(1010, "pick_input", "Offers the level sets of the scene"),
      ButtonParameter(1011, "pick_velocity", "Offers the solvers of the scene"),
      LinkParameter(kMaterialId, "material", kLinkMaterial,
                    "What the surface looks like in pictures; grey without one"),
      BoolParameter(kShownInPicturesId, "shown_in_pictures", true, "Whether pictures show the mesh and its shadow"),
  };
  static const TypeInfo kType = {
      .id = 1300033,
      .resource = "zq_mesher",
      .className = "C4D_ImplicitMesher_Object",
      .label = "Implicit Mesher",
      .text = "Makes polygons of a level set, once a frame. Pictures show them, and an output's meshes hold them.",
      .kinds = kLinkGeometry,
      .parameters = kParameters,
      .common = CommonNodeParameters(),
      .createData = []() -> std::unique_ptr<ObjectData> { return std::make_unique<SurfaceObject>(); },
  };
  return kType;
}

void ImplicitMesher::ResetSimulation() {
  mesh_.Clear();
  builtVersion_ = builtFrom_ = 0;
  ShowMesh();
}

void ImplicitMesher::RestsInStage() {
  if (!HasFlag(NodeFromCache) && mesh_.PointCount() > 0) ResetSimulation();
}

bool ImplicitMesher::ReadParameters() {
  priority = kPriority;
  stageMask = StageBit(kStageMeshing);
  if (!iObject::ReadParameters()) return false;
  renderOnly_ = handler.GetBool(kRenderOnlyId);
  settings_.method = handler.GetChoice<ExtractionMethod>(kMethodId);
  settings_.sampling = handler.GetChoice<Interpolation>(kSamplingId);
  settings_.divisor = handler.GetDouble(kDivisorId);
  settings_.iso = handler.GetDouble(kIsoId);
  settings_.closed = handler.GetBool(kClosedId);
  gradientNormals_ = handler.GetBool(kNormalsId);
  advectionTime_ = handler.GetDouble(kAdvectionTimeId);
  return true;
}

bool ImplicitMesher::ResolveLinks() {
  if (!iObject::ResolveLinks() || (renderOnly_ && !scene->rendering)) return false;
  inputNode_ = scene->Retrieve(handler.GetLink(kInputId), NODE_VOLUME, RETRIEVE_ANY, RETRIEVE_ANY);
  input_ = dynamic_cast<iLevelSet*>(inputNode_);
  velocity_ = scene->RetrieveAs<iSolver>(handler.GetLink(kVelocityId), NODE_SOLVER);
  const double radius = handler.GetDouble(kVertexRadiusId);
  vertexData_.Resolve(*scene, handler, kVertexDataId, kVertexGroupsId,
                      radius > 0 ? radius : kVertexVoxels * GetSimulationSpace().cellSize);
  return true;
}

void ImplicitMesher::ReleaseLinks() {
  inputNode_ = nullptr;
  input_ = nullptr;
  velocity_ = nullptr;
  vertexData_.Release();
  iObject::ReleaseLinks();
}

void ImplicitMesher::Advise() {
  if ((renderOnly_ && !scene->rendering) || scene->IsPlayed(*this)) return;
  if (!inputNode_) Warn("no-input", "no level set is linked: there is no mesh; link a volume under \"input\"");
  if (inputNode_ && !input_) {
    Warn("input-without-level-set", "\"" + inputNode_->DisplayName() +
                                        "\" has no level set of its own: there is no mesh; link one volume, or "
                                        "combine several");
  }
}

void ImplicitMesher::CheckDirty() {
  if (HasFlag(NodeDirtyChecked)) return;
  iObject::CheckDirty();
  if (!IsEnabled()) return;
  if (scene->HasFlag(ContainerChanged) || (inputNode_ && inputNode_->IsDirty())) MarkDirty(false);
}

// Anything that the mesh is made of changed.
bool ImplicitMesher::IsDirty() const {
  if (HasFlag(NodeDirty) || !input_) return HasFlag(NodeDirty);
  const bool same = inputNode_->handler.hostObject()->creationNumber() == builtFrom_ &&
                    input_->LevelSetVersion() == builtVersion_ && !velocity_ && vertexData_.empty();
  return !same;
}

const ScalarGrid* ImplicitMesher::InputGrid() const {
  return input_ && inputNode_->IsEnabled() ? input_->LevelSet() : nullptr;
}

void ImplicitMesher::Prepare(iBase*) {
  const ScalarGrid* grid = InputGrid();
  SetFlag(NodeActive, grid != nullptr || HasFlag(NodeFromCache));
  if (HasFlag(NodeFromCache)) return;
  if (!grid) ResetSimulation();
}

void ImplicitMesher::Process(ProcessData&) {
  const ScalarGrid* grid = InputGrid();
  if (!grid || HasFlag(NodeFromCache)) return;
  const double hostPerSim = grid->space.hostPerSim.x;
  settings_.tolerance = kWeldTolerance / hostPerSim;
  if (settings_.tolerance > 0.25 * grid->space.cellSize) {
    Warn("coarse-weld",
         fmt::format("points nearer than {} host units become one, and a cell has {:.3g}: the mesh loses "
                     "detail; make a host unit a shorter length (\"metres\" of the scene)",
                     kWeldTolerance, grid->space.cellSize * hostPerSim));
  }
  settings_.normals = gradientNormals_;
  WorkerPool& pool = scene->pool();
  const SurfaceExtractor extractor(*grid, settings_);
  try {
    if (!extractor.Build(pool, mesh_)) {
      Warn("mesh-size",
           "the surface has more points or triangles than a mesh can have: there is no mesh; use larger "
           "cells or another method");
      mesh_.Clear();
    }
    if (velocity_ && advectionTime_ != 0) MoveThrough(*velocity_, advectionTime_, pool, mesh_.Points());
    ShowMesh();
  } catch (const std::bad_alloc&) {
    scene->FailForMemory(*this, grid->dims);
  }
  builtFrom_ = inputNode_->handler.hostObject()->creationNumber();
  builtVersion_ = input_->LevelSetVersion();
  ++builds_;
  SetFlag(NodeDirty | NodeHardDirty, false);
  if (settings_.iso > 0 && IsCutOff(*grid, settings_.iso)) {
    Warn("iso-beyond",
         "the surface at the distance \"iso\" reaches the end of its level set, where it is cut off flat; give what "
         "makes the level set more room (\"padding\" of a volume) or take a smaller \"iso\"");
  }
  if (mesh_.TriangleCount() == 0) {
    Warn("no-surface",
         "the level set has no place at the distance \"iso\": the mesh is empty; look at the level set's "
         "source and at \"iso\"");
  }
}

const PolygonObject* ImplicitMesher::Shown() const {
  return handler.HasObject() ? handler.hostObject()->Polygons() : nullptr;
}

void ImplicitMesher::TakePlayed(PolygonObject* played) {
  SetFlag(NodeFromCache, played != nullptr);
  auto* object = dynamic_cast<SurfaceObject*>(handler.hostObject() ? handler.hostObject()->data() : nullptr);
  if (!played || !object) return;
  const std::uint64_t version = object->mesh.version;
  std::swap(object->mesh, *played);  // what was shown has room for the next one
  object->mesh.version = version + 1;
  const PolygonObject& shown = object->mesh;
  const Vec3D simPerHost = GetSimulationSpace().simPerHost;
  const LMatrix global = handler.GetMatrix();
  mesh_.Clear();
  for (const Vec3D& p : shown.points) mesh_.Points().push_back(global * p * simPerHost);
  const bool mirrored = global.Determinant() < 0;
  for (const PolygonObject::Polygon& p : shown.polygons) {
    mesh_.Triangles().push_back(mirrored ? VecInt3D(p.a, p.c, p.b) : VecInt3D(p.a, p.b, p.c));
  }
  mesh_.pointAttributes.Resize(shown.points.size());
  if (shown.normals.size() == shown.points.size()) {
    std::vector<Vec3D>& normals = mesh_.pointAttributes.Column(kPointNormalId);
    const LMatrix turn = NormalMatrix(global);
    for (std::size_t p = 0; p < normals.size(); ++p) normals[p] = Normalized(turn.Rotate(shown.normals[p]));
  }
  Rebuild();
  ++builds_;
}

void ImplicitMesher::MeshEdited(const MeshAdjacency& adjacency, bool pointsMoved) {
  if (pointsMoved && mesh_.pointAttributes.Find(kPointNormalId)) {
    PointNormals(mesh_, adjacency, scene->pool(), mesh_.pointAttributes.Column(kPointNormalId));
  }
  ShowMesh();
}

void ImplicitMesher::Finish() { SetFlag(NodeActive, false); }

// The mesh lies where its level set does, wherever the object stands. A played one keeps what its points carry.
void ImplicitMesher::ShowMesh() {
  auto* object = dynamic_cast<SurfaceObject*>(handler.hostObject() ? handler.hostObject()->data() : nullptr);
  if (!object) return;
  PolygonObject& shown = object->mesh;
  ++shown.version;
  const LMatrix local = handler.GetMatrix().Inverse();
  const Vec3D hostPerSim = GetSimulationSpace().hostPerSim;
  shown.points.clear();
  shown.points.reserve(mesh_.Points().size());
  for (const Vec3D& p : mesh_.Points()) shown.points.push_back(local * (p * hostPerSim));
  shown.normals.clear();
  if (const auto* normals = mesh_.pointAttributes.Find(kPointNormalId)) {
    const LMatrix turn = NormalMatrix(local);
    for (const Vec3D& n : *normals) shown.normals.push_back(Normalized(turn.Rotate(n)));
  }
  if (!HasFlag(NodeFromCache)) {
    shown.polygons.clear();
    shown.polygons.reserve(mesh_.Triangles().size());
    for (const VecInt3D& t : mesh_.Triangles()) shown.polygons.push_back({t.x, t.y, t.z, t.z});
    if (local.Determinant() < 0) ReverseCorners(shown);
    shown.velocities.clear();
    if (velocity_) {
      for (const Vec3D& v : VelocitiesAt(*velocity_, scene->pool(), mesh_.Points())) {
        shown.velocities.push_back(local.Rotate(v * hostPerSim));
      }
    }
    shown.attributes = vertexData_.Sample(mesh_, scene->pool());
  }
  if (const auto* curvatures = mesh_.pointAttributes.Find<double>(PP::Curvature)) {
    std::erase_if(shown.attributes, [](const auto& attribute) { return attribute.name == kCurvatureName; });
    shown.attributes.push_back({kCurvatureName, 1, *curvatures});
  }
}

std::int64_t ImplicitMesher::DerivedBytes() const {
  const auto points = static_cast<std::int64_t>(mesh_.PointCount()), triangles = std::int64_t(mesh_.TriangleCount());
  // The mesh and what the host object shows: places, normals, velocities; corners.
  return points * 5 * static_cast<std::int64_t>(sizeof(Vec3D)) + triangles * (12 + 16);
}

}  // namespace orlix
