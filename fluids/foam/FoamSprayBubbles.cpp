#include "fluids/foam/FoamSprayBubbles.h"

#include <fmt/format.h>

#include <algorithm>
#include <atomic>
#include <new>

#include "fluids/foam/DiffuseUpdate.h"
#include "fluids/particle_operators/ParticleAdvection.h"
#include "globals/Hash.h"
#include "host/objects/HasTrack.h"

namespace orlix {

namespace {

constexpr std::int32_t kPriority = 40;
constexpr std::int32_t kLiquidSubType = 38, kPositionBasedSubType = 40, kAdvectionSubType = 98;
constexpr int kTrianglesOfPiece = 1024;

FoamRandom RandomOf(std::int32_t seed, int piece) {
  const std::uint64_t words[2] = {static_cast<std::uint32_t>(seed + FoamSprayBubbles::kSubType),
                                  static_cast<std::uint64_t>(piece)};
  return FoamRandom(MersenneTwister(static_cast<std::uint32_t>(HashBytes(words, sizeof words))));
}

double Square(double x) { return x * x; }

// f(piece, worker) for all pieces, to a break. Workers take pieces as they come: some make much, most nothing.
template <class F>
void ForPieces(const OrlixScene& scene, int pieces, F&& f) {
  std::atomic<int> next{0};
  std::atomic<bool> outOfMemory{false};
  scene.pool().Run(scene.pool().count(), [&](int worker) {
    for (int piece = next.fetch_add(1); piece < pieces && !scene.TestBreak(); piece = next.fetch_add(1)) {
      try {
        f(piece, worker);
      } catch (const std::bad_alloc&) {
        outOfMemory.store(true, std::memory_order_relaxed);
      }
    }
  });
  if (outOfMemory.load()) throw std::bad_alloc();
}

}  // namespace

bool FoamSprayBubbles::ReadParameters() {
  priority = kPriority;
  stageMask = StageBit(kStageVisualPost);
  if (!iObject::ReadParameters()) return false;
  settings_.source = handler.GetChoice<FoamSource>(kSourceId);
  settings_.sampleSpacing = handler.GetDouble(kSampleSpacingId);
  settings_.curvatureSmoothing = handler.GetInt(kCurvatureSmoothingId);
  surfaceResolution_ = handler.GetDouble(kSurfaceResolutionId);
  ReadClasses();
  const double cell = static_cast<double>(GetSimulationSpace().cellSize);
  settings_.cellSize = cell;
  settings_.surfaceOffset = handler.GetDouble(kSurfaceOffsetId);
  settings_.sprayMass = handler.GetDouble(kSprayMassId);
  settings_.sprayDrag = handler.GetDouble(kSprayDragId);
  settings_.sprayBoost = {handler.GetDouble(kSprayBoostId), handler.GetDouble(kSprayBoostVariationId)};
  settings_.sprayKick = handler.GetDouble(kSprayKickId) * cell;
  settings_.sprayKickVariation = handler.GetDouble(kSprayKickVariationId);
  settings_.sprayAngle = {handler.GetDouble(kSprayAngleId), handler.GetDouble(kSprayAngleVariationId)};
  settings_.sprayKeepSpeed = handler.GetBool(kSprayKeepSpeedId);
  settings_.crestRate = handler.GetInt(kCrestRateId);
  settings_.trappedAirRate = handler.GetInt(kTrappedAirRateId);
  settings_.crest = {handler.GetDouble(kCrestMinId), handler.GetDouble(kCrestMaxId)};
  settings_.trappedAir = {handler.GetDouble(kTrappedAirMinId), handler.GetDouble(kTrappedAirMaxId)};
  settings_.energy = {handler.GetDouble(kEnergyMinId), handler.GetDouble(kEnergyMaxId)};
  return true;
}

void FoamSprayBubbles::ReadClasses() {
  settings_.foam = {.enabled = handler.GetBool(kFoamEnabledId),
                    .curvature = 0,
                    .speed = Square(handler.GetDouble(kFoamSpeedId)),
                    .speedVariation = handler.GetDouble(kFoamSpeedVariationId),
                    .second = Square(handler.GetDouble(kFoamVorticityId)),
                    .secondVariation = handler.GetDouble(kFoamVorticityVariationId),
                    .life = {handler.GetDouble(kFoamLifeId), handler.GetDouble(kFoamLifeVariationId)}};
  settings_.spray = {.enabled = handler.GetBool(kSprayEnabledId),
                     .curvature = 0,
                     .speed = Square(handler.GetDouble(kSpraySpeedId)),
                     .speedVariation = handler.GetDouble(kSpraySpeedVariationId),
                     .second = Square(handler.GetDouble(kSpraySpeed2Id)),
                     .secondVariation = handler.GetDouble(kSpraySpeed2VariationId),
                     .life = {handler.GetDouble(kSprayLifeId), handler.GetDouble(kSprayLifeVariationId)}};
  settings_.bubbles = handler.GetBool(kBubblesEnabledId);
  settings_.foamToSpray = handler.GetBool(kFoamToSprayId);
  settings_.sprayToFoam = handler.GetBool(kSprayToFoamId);
  foamCurvature_ = handler.GetDouble(kFoamCurvatureId);
  sprayCurvature_ = handler.GetDouble(kSprayCurvatureId);
}

void FoamSprayBubbles::ScaleCurvatures(double surfaceCell) {
  settings_.surfaceCell = surfaceCell;
  settings_.foam.curvature = foamCurvature_ / surfaceCell;
  settings_.spray.curvature = sprayCurvature_ / surfaceCell;
}

bool FoamSprayBubbles::ResolveLinks() {
  if (!iObject::ResolveLinks()) return false;
  const auto group = [&](int id) { return scene->RetrieveAs<ParticleGroup>(handler.GetLink(id), NODE_PARTICLES); };
  group_ = group(kGroupId);
  output_ = group(kSprayOutputId) ? group(kSprayOutputId) : group(kFoamOutputId);
  solver_ = scene->RetrieveAs<iSolver>(handler.GetLink(kSolverId), NODE_SOLVER);
  mesher_ = scene->RetrieveAs<ImplicitMesher>(handler.GetLink(kSurfaceMeshId), NODE_VOLUME);
  volumeNode_ = scene->Retrieve(handler.GetLink(kSurfaceVolumeId), NODE_VOLUME, RETRIEVE_ANY, RETRIEVE_ANY);
  constraints_ = RetrieveConstraints(*scene, handler);
  const std::int32_t type = solver_ ? solver_->GetNodeSubType() : 0;
  // A mesh needs the velocities of a grid.
  if (type != kLiquidSubType && !(type == kPositionBasedSubType && settings_.source == FoamSource::Particles)) {
    solver_ = nullptr;
  }
  linked_ = group_ && solver_;
  return linked_;
}

void FoamSprayBubbles::ReleaseLinks() {
  constraints_.clear();
  group_ = output_ = nullptr;
  solver_ = nullptr, mesher_ = nullptr, volumeNode_ = nullptr;
  SetFlag(NodeActive, false);
  iObject::ReleaseLinks();
}

void FoamSprayBubbles::Advise() {
  if (!group_) Warn("no-group", "nothing is made; link the liquid's particle group under \"group\"");
  if (!solver_) {
    Warn("no-solver", settings_.source == FoamSource::Mesh
                          ? "nothing is made; link a liquid that has a grid under \"solver\", or set \"source\" to "
                            "\"particles\""
                          : "nothing is made; link a liquid under \"solver\"");
  }
  if (settings_.source == FoamSource::Mesh && !mesher_) {
    Warn("no-mesh",
         "nothing is made; link the liquid's mesher under \"surface_mesh\", or set \"source\" to \"particles\"");
  }
  if (settings_.source == FoamSource::Mesh && !(settings_.sampleSpacing > 0) &&
      !HasTrack(*handler.hostObject(), kSampleSpacingId)) {
    Warn("no-samples", "nothing is made, as the mesh gets no samples; set \"sample_spacing\"");
  }
  const BaseList2D *foam = handler.GetLink(kFoamOutputId), *spray = handler.GetLink(kSprayOutputId);
  if (foam && spray && foam != spray) {
    Warn("one-output",
         "a liquid's foam and spray live in one group: all goes to \"spray_output\"; files and pictures tell the "
         "classes apart");
  }
  if (volumeNode_ && !dynamic_cast<iLevelSet*>(volumeNode_)) {
    Warn("no-level-set", "\"" + volumeNode_->DisplayName() + "\" has no level set; link a surface reconstructor");
  }
}

void FoamSprayBubbles::Conclude() {
  if (!linked_ || played_) return;
  if (!everBorn_) {
    return Warn("nothing-born",
                "no particle was made in the whole run; lower \"foam_curvature\", \"spray_curvature\" and the speeds, "
                "or with particles as the source \"energy_min\", or raise the rates");
  }
  const auto group = [&](const iBase& node, int id) {
    return scene->RetrieveAs<ParticleGroup>(node.handler.GetLink(id), NODE_PARTICLES);
  };
  const ParticleGroup* output = group(*this, kSprayOutputId);
  if (!output) output = group(*this, kFoamOutputId);
  if (!output) output = group(*this, kGroupId);
  bool moved = false;
  scene->ForEachNode(NODE_OPERATOR, NODE_OPERATOR, [&](const iBase& node) {
    moved |= node.IsEnabled() && node.GetNodeSubType() == kAdvectionSubType &&
             node.handler.GetInt(ParticleAdvection::kKindId, PK_Passive) == PK_Diffuse &&
             group(node, ParticleAdvection::kGroupId) == output;
  });
  if (!moved && output) {
    Warn(
        "not-moved",
        fmt::format("what it makes stands still and doesn't age; add a particle_advection of the kind \"diffuse\" with "
                    "the group \"{}\"",
                    output->DisplayName()));
  }
}

void FoamSprayBubbles::CheckDirty() {
  iObject::CheckDirty();
  if (IsEnabled() && scene->HasFlag(TimeMoved)) MarkDirty(false);
}

// The surface is made before.
bool FoamSprayBubbles::ComesBefore(const iBase& other) const {
  return &other != volumeNode_ && iObject::ComesBefore(other);
}

void FoamSprayBubbles::ResetSimulation() {
  surface_.Clear();
  countAtRebuild_ = 0;
}

const ScalarGrid* FoamSprayBubbles::LinkedLevelSet() const {
  const auto* holder = dynamic_cast<const iLevelSet*>(volumeNode_);
  return holder && volumeNode_->IsEnabled() ? holder->LevelSet() : nullptr;
}

bool FoamSprayBubbles::HasSource() {
  if (!group_ || !solver_ || !solver_->IsEnabled() || simulationInfo->time == 0) return false;
  const ParticleList* diffuse = Diffuse();
  played_ = Output()->KindIsKept(PK_Diffuse);
  if (!diffuse || played_) return false;
  if (settings_.source == FoamSource::Mesh) return mesher_ && mesher_->Mesh().TriangleCount() > 0;
  return settings_.source == FoamSource::Particles && group_->Count(PK_Liquid) > 0;
}

void FoamSprayBubbles::Prepare(iBase*) {
  SetFlag(NodeActive, false);
  if (!HasSource()) return;
  settings_.dt = simulationInfo->substepDuration;
  settings_.frameTime = simulationInfo->frameElapsed;
  settings_.fps = simulationInfo->fps;
  solver_->RoomOfWalls(settings_.roomLow, settings_.roomHigh);
  settings_.carried = solver_->GetNodeSubType() == kPositionBasedSubType;
  if (iteration == 0 && !BuildSurface()) return;
  if ((settings_.carried || !surface_.HasLevelSet()) && !group_->EnsureTree(PK_Liquid, false, 0)) return;
  for (Constraint* constraint : constraints_) constraint->Prepare(this);
  SetFlag(NodeActive, true);
}

bool FoamSprayBubbles::BuildSurface() {
  if (!scene->HasFlag(ContainerChanged) && !scene->HasFlag(TimeMoved)) TakeBack();
  countAtRebuild_ = Diffuse()->count();
  surface_.Clear();
  const double ownCell = settings_.cellSize / (surfaceResolution_ > 0 ? surfaceResolution_ : 1);
  ScaleCurvatures(ownCell);
  const ScalarGrid* linked = LinkedLevelSet();
  const TriMeshSTL* mesh = mesher_ && mesher_->Mesh().TriangleCount() > 0 ? &mesher_->Mesh() : nullptr;
  if (linked) {
    ScaleCurvatures(static_cast<double>(linked->space.cellSize));
    surface_.UseLevelSet(*linked, scene->pool());
  } else if (mesh) {
    GridSpace lattice;
    if (!MakeLattice(lattice)) return false;
    if (!surface_.UseMeshLevelSet(*mesh, lattice, scene->pool(), scene->hostThread)) return false;
  }
  if (settings_.source == FoamSource::Mesh) surface_.UseMesh(*mesh, settings_.curvatureSmoothing, scene->pool());
  return true;
}

// About the liquid's particles.
bool FoamSprayBubbles::MakeLattice(GridSpace& lattice) const {
  const ParticleBounds& bounds = group_->factory(PK_Liquid).bounds;
  const GridSpace& space = GetSimulationSpace();
  const auto cell = static_cast<float>(settings_.surfaceCell);
  Vec3D low = bounds.min - Vec3D(2 * settings_.cellSize), high = bounds.max + Vec3D(2 * settings_.cellSize);
  GridSpace::SnapDown(low, cell), GridSpace::SnapUp(high, cell);
  const VecInt3D cells = SnappedCell((high - low) / double(cell));
  const double nodes = (cells.x + 1.0) * (cells.y + 1.0) * (cells.z + 1.0);
  if (std::min({cells.x, cells.y, cells.z}) < 1 || !(nodes <= double(kMaxGridCells))) {
    Warn("level-set-size",
         "the level set of the mesh would be too large: nothing is made; lower \"surface_resolution\"");
    return false;
  }
  lattice.Build(cells, Vec3D(cells) * double(cell) * space.hostPerSim, cell, low * space.hostPerSim);
  return true;
}

FoamField FoamSprayBubbles::Field() const {
  FoamField field;
  const auto* liquid = dynamic_cast<const FluidSolver*>(solver_);
  if (!liquid) return field;
  const auto& grids = liquid->velocity.grids;
  if (!grids[0] || !grids[1] || !grids[2]) return field;
  field.velocity = {*grids[0], *grids[1], *grids[2]};
  field.origin = grids[0]->space.simMin;
  field.cellSize = static_cast<double>(grids[0]->space.cellSize);
  return field;
}

// The frame is made again although no time passed: what it made before goes.
void FoamSprayBubbles::TakeBack() {
  if (Diffuse()->count() <= countAtRebuild_) return;
  Diffuse()->Resize(countAtRebuild_);
  Output()->SetKindDirty(PK_Diffuse);
}

void FoamSprayBubbles::Process(ProcessData&) {
  if (iteration == 0) {
    Births();
  } else {
    UpdateClasses();
  }
}

void FoamSprayBubbles::Births() {
  std::vector<DiffuseBirths> pieces;
  if (settings_.source == FoamSource::Particles) {
    SeedByParticles(pieces);
  } else {
    SeedByMesh(pieces);
  }
  if (scene->TestBreak()) return;
  const std::int64_t born = AppendBirths(settings_, pieces, *Diffuse(), scene->pool());
  everBorn_ |= born > 0;
  if (born > 0) Output()->SetKindDirty(PK_Diffuse);
}

void FoamSprayBubbles::SeedByParticles(std::vector<DiffuseBirths>& pieces) {
  const bool sortedOnly = solver_->GetNodeSubType() == kLiquidSubType;
  ParticleList& list = *group_->list(PK_Liquid);
  const ParticleBounds& bounds = group_->factory(PK_Liquid).bounds;
  cells_.Build(list, settings_.cellSize, (bounds.min + bounds.max) * 0.5, scene->pool());
  const ParticleSeeding seeding(settings_, surface_, list, cells_, sortedOnly);
  pieces.resize(static_cast<std::size_t>(list.chunkCount()));
  ForPieces(*scene, list.chunkCount(), [&](int piece, int worker) {
    const ParticleRows rows = list.Rows(piece);
    double weights[kChunkRows];
    std::fill_n(weights, rows.end, 1.0);
    if (!constraints_.empty()) {
      std::uint8_t open[kChunkRows];
      std::fill_n(open, rows.end, std::uint8_t{1});
      EvaluateChain(constraints_, ParticleRun{&list, rows.first, rows.end, worker, rows.positions(), weights, open},
                    this);
    }
    FoamRandom random = RandomOf(scene->seed, piece);
    seeding.Seed(rows, weights, random, pieces[static_cast<std::size_t>(piece)]);
  });
  if (seeding.Candidates() > ParticleSeeding::kMostCandidates) {
    scene->Fail(ErrorKind::Scene,
                fmt::format("\"{}\": its rates ask for {} particles in one frame, at most {} are tried; lower "
                            "\"crest_rate\" and \"trapped_air_rate\"",
                            DisplayName(), seeding.Candidates(), ParticleSeeding::kMostCandidates));
    pieces.clear();
  }
  cells_.Clear();
}

void FoamSprayBubbles::SeedByMesh(std::vector<DiffuseBirths>& pieces) {
  const FoamField field = Field();
  if (!field.velocity.HasData() || !surface_.mesh()) return;
  const int triangles = surface_.mesh()->TriangleCount();
  const int count = (triangles + kTrianglesOfPiece - 1) / kTrianglesOfPiece;
  const MeshSeeding seeding(settings_, surface_, field, constraints_, this);
  pieces.resize(static_cast<std::size_t>(count));
  ForPieces(*scene, count, [&](int piece, int worker) {
    FoamRandom random = RandomOf(scene->seed, piece);
    const int end = std::min(triangles, (piece + 1) * kTrianglesOfPiece);
    for (int t = piece * kTrianglesOfPiece; t < end && !scene->TestBreak(); ++t) {
      seeding.Seed(t, random, pieces[static_cast<std::size_t>(piece)], worker);
    }
  });
}

void FoamSprayBubbles::UpdateClasses() {
  ParallelRows(scene->pool(), *Diffuse(), [&](const ParticleRows& rows, int worker) {
    if (!scene->TestBreak()) UpdateDiffuse(settings_, surface_, *group_, rows, worker);
  });
  Output()->SetKindDirty(PK_Diffuse);
}

void FoamSprayBubbles::Finish() {
  if (IsActive()) {
    for (Constraint* constraint : constraints_) constraint->Finish();
    if (iteration == kRounds - 1) Output()->UpdateBounds();
  }
  if (iteration == kRounds - 1) surface_.Clear();
  SetFlag(NodeActive, false);
}

void FoamSprayBubbles::VisitState(StateVisitor& visitor) { visitor.Visit("countAtRebuild", countAtRebuild_); }

void FoamSprayBubbles::VisitOutputs(StateVisitor& visitor) {
  if (Output()) Output()->VisitOutputs(visitor);
}

}  // namespace orlix
