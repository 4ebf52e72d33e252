#include "fluids/liquids/WaterSolver.h"

#include <algorithm>
#include <atomic>
#include <limits>
#include <new>
#include <utility>

#include "fluids/liquids/Grid_Incompressibility_FreeSurface.h"
#include "fluids/particles/GroupList.h"

namespace orlix {

namespace {

constexpr std::int32_t kBoundsCapacity = 8, kStepCapacity = 16;  // entries of a full cell
constexpr double kMostVolumeGain = 0.25;  // of a deviation that a sub-step takes away, or it would swing
constexpr double kLargest = std::numeric_limits<double>::max();

// The box of the cells at or below 0, a cell wide at least.
void RecordLiquidBox(ScalarGrid& phi, WorkerPool& pool) {
  std::vector<VecInt3D> lows(std::size_t(phi.dims.z), phi.dims), highs(std::size_t(phi.dims.z), VecInt3D());
  ParallelRange(pool, 0, phi.dims.z, [&](int k0, int k1, int) {
    for (int k = k0; k < k1; ++k) {
      for (int j = 0; j < phi.dims.y; ++j) {
        const double* row = &phi(0, j, k);
        const double* end = row + phi.dims.x;
        const double* first = std::find_if(row, end, [](double v) { return v <= 0; });
        if (first == end) continue;
        const double* last = end - 1;
        while (!(*last <= 0)) --last;
        lows[std::size_t(k)] = Min(lows[std::size_t(k)], VecInt3D(int(first - row), j, k));
        highs[std::size_t(k)] = Max(highs[std::size_t(k)], VecInt3D(int(last - row), j, k));
      }
    }
  });
  VecInt3D low = phi.dims, high;
  for (const VecInt3D& v : lows) low = Min(low, v);
  for (const VecInt3D& v : highs) high = Max(high, v);
  if (low == high) low = Max(low - VecInt3D(1, 1, 1), VecInt3D()), high = Min(high + VecInt3D(1, 1, 1), phi.dims);
  phi.activeMin = low, phi.activeMax = high;
}

std::int64_t KillBeyond(const ParticleRows& rows, const Vec3D& low, const Vec3D& high) {
  const Vec3D* p = rows.positions();
  std::int64_t killed = 0;
  for (std::int32_t r = rows.begin; r < rows.end; ++r) {
    const bool inside = p[r].x >= low.x && p[r].y >= low.y && p[r].z >= low.z && p[r].x <= high.x && p[r].y <= high.y &&
                        p[r].z <= high.z;
    if (inside || !(rows.flags()[r] & ParticleFlag::Alive)) continue;
    std::uint16_t* flags = rows.EditFlags();
    flags[r] = static_cast<std::uint16_t>(flags[r] & ~ParticleFlag::Alive);
    ++killed;
  }
  return killed;
}

std::int64_t ParticlesInWalls(const ParticleSort& sort, const GridView<const float>& open) {
  const auto cells = sort.Cells(), begins = sort.CellBegins();
  std::int64_t count = 0;
  if (!open.data || open.dims != sort.space().dims) return 0;
  for (std::size_t n = 0; n < cells.size(); ++n) count += open[cells[n]] == 0 ? begins[n + 1] - begins[n] : 0;
  return count;
}

}  // namespace

WaterSolver::WaterSolver(BaseList2D* hostObject, OrlixScene& owner)
    : FluidSolver(hostObject, owner), levelset(hostObject, owner) {
  stageMask |= StageBit(kStageOperators) | StageBit(kStageFluidDynamics);
  projection = std::make_unique<Grid_Incompressibility_FreeSurface>(hostObject, owner);
  levelset.channelType = {kGridLevelset};
  levelset.valueMin = -kLargest;
  levelset.valueMax = levelset.backgroundValue = kLargest;
}

// --- settings and links ----------------------------------------------------------------------------------------------

bool WaterSolver::ReadParameters() {
  if (!FluidSolver::ReadParameters()) return false;
  extrapolation.liquidMode = true;
  particleLevelset.mode = handler.GetInt(kLevelSetModeId);
  particleLevelset.iso = handler.GetDouble(kLevelSetIsoId);
  particleLevelset.minimumCount = handler.GetInt(kLevelSetMinimumId);
  gather = handler.GetBool(kGatherId);
  flipRatio = handler.GetDouble(kFlipRatioId);
  gathering.radius = handler.GetDouble(kGatherRadiusId);
  followCache = handler.GetBool(kFollowCacheId);
  drain = handler.GetBool(kDrainId);
  keeping.rate = handler.GetDouble(kKeepVolumeId);
  particleLevelset.fillHoles = keeping.rate > 0;
  keeping.particles = handler.GetInt(kFullCellId);
  return true;
}

// Asked by emitters, which resolve their links before a solver does.
bool WaterSolver::HoldsParticles(const iBase* group) const {
  return std::ranges::any_of(RetrieveGroups(*scene, handler, kGroupsId, 1u << PK_Liquid), [&](const GroupEntry& entry) {
    return entry.kind == PK_Liquid && (!group || entry.group == group);
  });
}

bool WaterSolver::ResolveLinks() {
  const bool resolved = FluidSolver::ResolveLinks();
  groups.clear();
  for (const GroupEntry& entry : RetrieveGroups(*scene, handler, kGroupsId, 1u << PK_Liquid)) {
    const bool known = std::find(groups.begin(), groups.end(), entry.group) != groups.end();
    if (entry.kind == PK_Liquid && !known) groups.push_back(entry.group);
  }
  hadGroups_ |= !groups.empty();
  gathering.kernel = scene->RetrieveAs<Kernel>(handler.GetLink(kGatherKernelId), NODE_HELPER, RETRIEVE_ANY);
  return resolved && !groups.empty();
}

void WaterSolver::ReleaseLinks() {
  FluidSolver::ReleaseLinks();
  sort.Clear(true);
  groups.clear();
  gathering.kernel = nullptr;
}

// --- state -----------------------------------------------------------------------------------------------------------

void WaterSolver::ResetSimulation() {
  FluidSolver::ResetSimulation();
  levelset.ResetSimulation();
  sort.Clear(true);
  ++surfaceRevision_;
}

void WaterSolver::ClearState(bool deactivate) {
  FluidSolver::ClearState(deactivate);
  levelset.ClearState(deactivate);
  sort.Clear(false);
  ++surfaceRevision_;
}

bool WaterSolver::ApplyBounds(const Vec3D& min, const Vec3D& max) {
  if (groups.empty()) {
    ClearState(true);
    return false;
  }
  if (!IsActive()) return true;
  if (!FluidSolver::ApplyBounds(min, max)) return false;
  TellOfMovedWalls();
  SortParticles(kBoundsCapacity);
  const bool applied = levelset.ApplyBounds(min, max);
  ++surfaceRevision_;
  SetFlag(NodeActive, applied);
  return applied;
}

void WaterSolver::AfterStep() {
  FluidSolver::AfterStep();
  if (levelset.grid && levelset.grid->count > 0) RecordLiquidBox(*levelset.grid, scene->pool());
}

void WaterSolver::VisitOutputs(StateVisitor& visitor) {
  FluidSolver::VisitOutputs(visitor);
  if (scene->stage != kStageFlip) return;
  for (ParticleGroup* group : groups) group->VisitOutputs(visitor);
}

std::int64_t WaterSolver::DerivedBytes() const {
  return FluidSolver::DerivedBytes() + sort.Bytes() + (levelset.grid ? levelset.grid->MemorySize() : 0);
}

MemoryNeed WaterSolver::MemoryFor(const VecInt3D& cells) const {
  MemoryNeed need = FluidSolver::MemoryFor(cells);
  need.kept += levelset.MemoryFor(cells).kept;
  // Sums and weights of a splat.
  need.scratch = std::max(need.scratch, 6 * sizeof(double) * double(CellCount(cells)));
  return need;
}

void WaterSolver::AddToReport(SubstepReport& report) {
  if (scene->IsPass()) return;  // it computes nothing, and its particles come after it
  const std::int64_t inWalls = HasGrids() ? ParticlesInWalls(sort, fractions.View(0, 0)) : 0;
  TellOfParticles(inWalls);
  if (!HasGrids()) return;
  const double h = levelset.grid->space.cellSize;
  const bool byMass = particleLevelset.mode == ParticleToLevelset::Mass;
  LiquidReport liquid;
  liquid.node = DisplayName();
  liquid.surfaceVolume = LiquidVolume(*levelset.grid, byMass ? 2 * particleLevelset.Reach() : h, h * h * h,
                                      fractions.View(0, 0), scene->pool());
  for (const ParticleGroup* group : groups) liquid.particles += group->Count(PK_Liquid);
  // What was emitted since is computed from the next sub-step on.
  liquid.outside = sortedOf_ - static_cast<std::int64_t>(sort.AllEntries().size());
  liquid.particleVolume = double(liquid.particles) / keeping.particles * h * h * h;
  liquid.inWalls = inWalls;
  liquid.left = std::exchange(left_, 0);
  for (const ParticleGroup* group : groups) liquid.groups.push_back(group->DisplayName());
  TellOfSurface(liquid);
  TellOfOthers();
  report.liquids.push_back(std::move(liquid));
}

// --- a sub-step ------------------------------------------------------------------------------------------------------

bool WaterSolver::HasGrids() const {
  return levelset.grid && velocity.grids[0] && levelset.grid->dims == velocity.grids[0]->space.dims;
}

FlipLattice WaterSolver::Lattice() const {
  const GridSpace& space = velocity.grids[0]->space;
  return {space.simMin, 1.0 / double(space.cellSize), {*velocity.grids[0], *velocity.grids[1], *velocity.grids[2]}};
}

void WaterSolver::SortParticles(std::int32_t capacity) {
  sort.Configure(PK_Liquid, velocity.grids[0]->space, capacity);
  sort.Sort(groups, false, scene->pool());
  sortedOf_ = 0;
  for (const ParticleGroup* group : groups) sortedOf_ += group->Count(PK_Liquid);
}

void WaterSolver::ProcessStage() {
  switch (scene->stage) {
    case kStageOperators:
      return RebuildSurface();
    case kStageFluidDynamics:
      return ParticlesToGrid();
    case kStageFlip:
      return GridToParticles(flipRatio);
    default:
      return FluidSolver::ProcessStage();
  }
}

void WaterSolver::ProcessPlayedStage() {
  if (scene->stage == kStageEmitters) return BuildBoundary();
  if (scene->stage == kStageOperators) return RebuildSurface();
  if (scene->stage != kStageFluidDynamics) return;
  EmitVelocity();
  if (!followCache || !HasGrids()) return;
  SortParticles(kStepCapacity);
  GridToParticles(0);
}

void WaterSolver::DrainOpenFaces() {
  Vec3D low(-kLargest), high(kLargest);
  for (int axis = 0; axis < 3; ++axis) {
    if (!(closedFaces & ClosedLow(axis))) low[axis] = lowCorner[axis];
    if (!(closedFaces & ClosedHigh(axis))) high[axis] = lowCorner[axis] + scaledSize[axis];
  }
  std::atomic<std::int64_t> left{0};
  for (ParticleGroup* group : groups) {
    const ParticleList* list = group->list(PK_Liquid);
    if (!list || group->KindIsKept(PK_Liquid)) continue;
    ParallelRange(scene->pool(), 0, list->chunkCount(), [&](int from, int to, int) {
      for (int chunk = from; chunk < to; ++chunk) left += KillBeyond(list->Rows(chunk), low, high);
    });
  }
  left_ += left;
}

void WaterSolver::RebuildSurface() {
  if (!HasGrids()) return;
  if (drain) DrainOpenFaces();
  SortParticles(kStepCapacity);
  const ScalarGrid* solid = boundary.solidDistance.grid.get();
  particleLevelset.Build(scene->pool(), scene->scratch(), sort,
                         solid ? GridView<const double>(*solid) : GridView<const double>(), *levelset.grid);
  ++surfaceRevision_;
}

void WaterSolver::ParticlesToGrid() {
  if (!HasGrids()) return;
  for (const auto& grid : velocity.grids) grid->Fill(0, &scene->pool());
  if (gather) {
    GatherVelocities(sort, Lattice(), gathering, scene->pool());
  } else {
    SplatVelocities(sort, Lattice(), scene->scratch(), scene->pool());
  }
  for (int axis = 0; axis < 3; ++axis) {
    const ScalarGrid& now = *velocity.grids[axis];
    if (!before_[axis] || before_[axis]->dims != now.dims) before_[axis] = scene->scratch().Take<double>(now.dims);
    double* before = before_[axis]->data;
    ParallelRange(scene->pool(), 0, now.dims.z, [&](int k0, int k1, int) {
      std::copy(now.data + std::int64_t(now.slab) * k0, now.data + std::int64_t(now.slab) * k1,
                before + std::int64_t(now.slab) * k0);
    });
  }
}

void WaterSolver::GridToParticles(double ratio) {
  const bool hasBefore = before_[0] && before_[0]->dims == velocity.grids[0]->dims;
  if (HasGrids() && (hasBefore || !(ratio > 0))) {
    const GridView<double> change[3] = {hasBefore ? GridView<double>(*before_[0]) : GridView<double>(),
                                        hasBefore ? GridView<double>(*before_[1]) : GridView<double>(),
                                        hasBefore ? GridView<double>(*before_[2]) : GridView<double>()};
    BlendVelocities(sort, Lattice(), change, ratio, scene->pool());
  }
  for (auto& grid : before_) grid.GiveBack();
}

void WaterSolver::AddVolumeCorrection() {
  ScalarGrid* source = divergenceSource.grid.get();
  const GridView<const float> open = fractions.View(0, 0);
  if (!HasGrids() || !source || source->dims != levelset.grid->dims || open.dims != source->dims) return;
  VolumeKeeping steady = keeping;
  steady.rate = std::min(keeping.rate, kMostVolumeGain / simulationInfo->substepDuration);
  AddVolumeSource(steady, sort, *levelset.grid, open, scene->scratch(), *source, scene->pool());
}

// Viscosity takes a velocity that the pressure has been through, and the pressure what viscosity left (Batty and
// Bridson 2008): of the bare fall of a sub-step walls that hold the liquid would make a shear, which no pressure
// answers, and a pool would never rest.
void WaterSolver::SolveViscosity() {
  if (!IsViscous()) return;
  ProjectOnce(false);
  FluidSolver::SolveViscosity();
}

void WaterSolver::Project() {
  AddVolumeCorrection();
  ProjectOnce(IsViscous());
  divergenceSource.ResetSimulation();
}

// Faces beside a body that no particle gave a velocity would stand still. Where the pressure moves the body, it answers
// for all faces of the cells there, and such ones would hold it back: they move with the body that is nearest.
void WaterSolver::MoveEmptyFaces() {
  constexpr double kReach = 2;  // cells
  const std::vector<VolumeBase*> bodies = projection->DynamicBodies(BodyCouplingMode::Joint);
  if (bodies.empty() || !HasGrids()) return;
  const double reach = kReach * velocity.grids[0]->space.cellSize;
  const auto meet = [reach](const GridSpace& a, const GridSpace& b) {
    bool apart = false;
    for (int c = 0; c < 3; ++c) apart |= a.simMin[c] > b.simMax[c] + reach || b.simMin[c] > a.simMax[c] + reach;
    return !apart;
  };
  std::vector<std::size_t> near;
  for (std::size_t n = 0; n < bodies.size(); ++n) {
    const VolumeBase* body = bodies[n];
    const GridSpace& box = body->LevelSet()->space;
    near.clear();
    for (std::size_t other = 0; other < bodies.size(); ++other) {
      if (other != n && meet(box, bodies[other]->LevelSet()->space)) near.push_back(other);
    }
    const auto isNearest = [&](const Vec3D& p) {
      const double distance = body->SampleWorld(p);
      return distance < reach && std::none_of(near.begin(), near.end(), [&](std::size_t other) {
               const double its = bodies[other]->SampleWorld(p);
               return its < distance || (its == distance && other < n);
             });
    };
    for (int axis = 0; axis < 3; ++axis) {
      ScalarGrid& now = *velocity.grids[axis];
      if (!before_[axis] || before_[axis]->dims != now.dims) continue;
      const GridView<const float> open = fractions.View(axis, 1);
      const GridView<const double> before(*before_[axis]), surface(*levelset.grid);
      const VecInt3D beside(axis == 0, axis == 1, axis == 2);
      const Vec3D offset = CellSampleOffset(static_cast<std::uint32_t>(axis)), room(kReach);
      const VecInt3D low = Max(SnappedCell(now.space.VoxelOfSim(box.simMin) - room), VecInt3D(1, 1, 1));
      const VecInt3D high = Min(SnappedCell(now.space.VoxelOfSim(box.simMax) + room), now.dims - VecInt3D(1, 1, 1));
      ParallelRange(scene->pool(), low.z, std::max(low.z, high.z), [&](int from, int to, int) {
        for (int k = from; k < to; ++k) {
          for (int j = low.y; j < high.y; ++j) {
            for (int i = low.x; i < high.x; ++i) {
              if (WasReached(before(i, j, k)) || !(open(i, j, k) > 0)) continue;
              // The pressure asks for faces of wet cells alone.
              if (!(surface(i, j, k) < 0 || surface(i - beside.x, j - beside.y, k - beside.z) < 0)) continue;
              const Vec3D p = now.space.SimOfVoxel(Vec3D(i, j, k) + offset);
              if (isNearest(p)) now(i, j, k) += body->VelocityAt(p)[axis];
            }
          }
        }
      });
    }
  }
}

void WaterSolver::ProjectOnce(bool again) {
  constraint.Apply();
  ApplyContainerBoundary(1.0f);
  if (!again) MoveEmptyFaces();
  projection->Project(again);
  ExtrapolateVelocity();
  constraint.Apply();
  ApplyContainerBoundary(1.0f);
}

}  // namespace orlix
