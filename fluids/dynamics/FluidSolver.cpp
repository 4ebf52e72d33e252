#include "fluids/dynamics/FluidSolver.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <limits>

#include "fluids/dynamics/Grid_Incompressibility.h"
#include "fluids/dynamics/Grid_Viscosity.h"
#include "fluids/dynamics/VelocityGridEmitter.h"
#include "fluids/grids/LargestMagnitude.h"
#include "fluids/scene/EarlierNodes.h"
#include "host/objects/HasTrack.h"

namespace orlix {

namespace {

constexpr std::int32_t kPriority = 30;
constexpr double kRasterSlack = 1e-6;  // m
constexpr double kLeastSquaredSpeed = 1e-8;
constexpr double kLeastTurn = 1e-6;  // of axes of length 1
constexpr double kMostMoved = 0.5;   // cells
constexpr double kLargest = std::numeric_limits<double>::max();

Vec3D FloorToRaster(const Vec3D& v, double h) {
  return {h * std::floor(v.x / h), h * std::floor(v.y / h), h * std::floor(v.z / h)};
}
Vec3D CeilToRaster(const Vec3D& v, double h) {
  return {h * std::ceil(v.x / h), h * std::ceil(v.y / h), h * std::ceil(v.z / h)};
}
// A corner that rounding moved off the raster by less than the slack stays on it.
Vec3D RaiseToRaster(const Vec3D& low, double h) { return CeilToRaster(low - Vec3D(kRasterSlack), h); }
Vec3D LowerToRaster(const Vec3D& high, double h) { return FloorToRaster(high + Vec3D(kRasterSlack), h); }

bool AllBelow(const Vec3D& a, const Vec3D& b) { return a.x < b.x && a.y < b.y && a.z < b.z; }

// How far whole cells have moved a wall from where the container asks for it.
double LargestMove(std::uint8_t closedFaces, const Vec3D& low, const Vec3D& size, const Vec3D& cellsLow,
                   const Vec3D& cellsSize) {
  const Vec3D atLow = cellsLow - low, atHigh = low + size - cellsLow - cellsSize;
  double most = 0;
  for (int axis = 0; axis < 3; ++axis) {
    if (closedFaces & ClosedLow(axis)) most = std::max(most, atLow[axis]);
    if (closedFaces & ClosedHigh(axis)) most = std::max(most, atHigh[axis]);
  }
  return most;
}

}  // namespace

FluidSolver::FluidSolver(BaseList2D* hostObject, OrlixScene& ownerScene)
    : iSolver(hostObject, ownerScene),
      velocity(hostObject, ownerScene),
      fractions(hostObject, ownerScene),
      viscousFractions(hostObject, ownerScene),
      boundary(hostObject, ownerScene),
      velocityEmitter(std::make_unique<VelocityGridEmitter>(hostObject, ownerScene)),
      constraint(hostObject, ownerScene),
      extrapolation(hostObject, ownerScene),
      divergenceSource(hostObject, ownerScene),
      projection(std::make_unique<Grid_Incompressibility>(hostObject, ownerScene)),
      viscosity(std::make_unique<Grid_Viscosity>(hostObject, ownerScene)) {
  stageMask = StageBit(kStageEmitters) | StageBit(kStageForces) | StageBit(kStagePressure) | StageBit(kStageFlip);
  priority = kPriority;
  divergenceSource.channelType = {kGridCustom};
  divergenceSource.valueMin = -kLargest;
  divergenceSource.valueMax = kLargest;
}

FluidSolver::~FluidSolver() = default;

// --- settings and links ----------------------------------------------------------------------------------------------

std::vector<iBase*> FluidSolver::Parts() {
  return {&velocity,        &boundary,   projection.get(),      viscosity.get(),
          &extrapolation,   &constraint, velocityEmitter.get(), &fractions,
          &viscousFractions};
}

bool FluidSolver::ReadParameters() {
  priority = kPriority;
  divergenceAsked_ = false;
  if (!iSolver::ReadParameters()) return false;
  for (iBase* part : Parts()) part->ReadParameters();
  fractions.method = 1;
  fractions.kinds |= 1u << 0 | 1u << 1;
  fractions.complement = true;
  viscousFractions.method = 0;
  viscousFractions.kinds |= 1u << 0 | 1u << 2 | 1u << 3;
  if (!IsActive()) boundary.MarkDirty(false);
  const double h = GetSimulationSpace().cellSize;
  margin = handler.GetInt(kMarginId) * h;
  containerSize = handler.GetVector(kContainerId);
  containerAnchor = handler.GetVector(kAnchorId);
  closedFaces = boundary.closedFaces;
  keepPrevious = handler.GetBool(VelocityGridChannel::kKeepPreviousId);
  PlaceContainer(h);
  return true;
}

void FluidSolver::PlaceContainer(double h) {
  const Vec3D scale = GetSimulationSpace().simPerHost;
  scaledSize = containerSize * scale;
  const Vec3D low = handler.GetMatrix().off * scale - scaledSize * containerAnchor;
  lowCorner = RaiseToRaster(low, h);
  scaledSize = LowerToRaster(low + scaledSize, h) - lowCorner;
}

void FluidSolver::AdviseContainer() const {
  const double h = GetSimulationSpace().cellSize;
  const Vec3D size = containerSize * GetSimulationSpace().simPerHost;
  if (std::min({scaledSize.x, scaledSize.y, scaledSize.z}) < h / 2) {
    Warn("no-cell",
         fmt::format("its container of {:.3g} x {:.3g} x {:.3g} m holds no whole cell of {:.3g} m, so nothing "
                     "flows; make it larger, or voxel_size smaller",
                     size.x, size.y, size.z, h));
  } else if (LargestMove(closedFaces,
                         handler.GetMatrix().off * GetSimulationSpace().simPerHost - size * containerAnchor, size,
                         lowCorner, scaledSize) > kMostMoved * h) {
    Warn("part-cells",
         fmt::format("its walls are {:.4g} x {:.4g} x {:.4g} m apart instead of {:.4g} x {:.4g} x {:.4g} m: they "
                     "stand at whole cells of {:.3g} m from the scene's origin; put them on multiples of voxel_size",
                     scaledSize.x, scaledSize.y, scaledSize.z, size.x, size.y, size.z, h));
  }
  ForEachEarlier<iSolver>(*this, [&](const iSolver& other) {
    Vec3D low, high;
    if (!other.WholeContainer(low, high)) return;
    if (Length(low - lowCorner) + Length(high - lowCorner - scaledSize) < h / 2) return;
    Warn("other-container",
         fmt::format("\"{}\" has another container, and all dynamics objects of a scene compute in one box, the part "
                     "that their containers share; give both the same container, or each a scene of its own",
                     other.DisplayName()));
  });
  const LMatrix matrix = handler.GetMatrix(), plain;
  const double turn = Length(matrix.v1 - plain.v1) + Length(matrix.v2 - plain.v2) + Length(matrix.v3 - plain.v3);
  if (turn > kLeastTurn) {
    Warn("turned-container",
         "it, or what it stands beneath, is turned or scaled, but a container lies along the scene's axes and is as "
         "large as \"container\" says; turn what is in it, and gravity, instead");
  }
}

void FluidSolver::Advise() {
  AdviseContainer();
  const auto isZero = [this](int row) { return handler.GetInt(row) == 0 && !HasTrack(*handler.hostObject(), row); };
  if (isZero(kMarginId)) {
    Warn("no-margin",
         "with a margin of 0 its box never grows beyond what is emitted, and nothing gets out of it; raise \"margin\"");
  }
  if (isZero(Grid_Incompressibility::kPressureIterationsId)) {
    Warn("no-pressure",
         "with 0 pressure_iterations no pressure is found, and the gas is compressed as it likes; raise it");
  }
  if (!scene->IsMoved(*this) && !scene->IsPlayed(*this)) {
    Warn("velocity-not-carried",
         "nothing carries its velocity, so swirls stay where they are made; add a grid_advection with this solver and "
         "without a channel");
  }
}

bool FluidSolver::IsViscous() const {
  return handler.GetDouble(Grid_Viscosity::kViscosityId) > 0 ||
         handler.GetLink(Grid_Viscosity::kViscosityChannelId) != nullptr;
}

bool FluidSolver::ResolveLinks() {
  const bool resolved = iSolver::ResolveLinks();
  projection->SetSolver(this);
  fractions.owner = &boundary;
  viscousFractions.owner = IsViscous() ? this : nullptr;
  velocityEmitter->solver = extrapolation.solver = constraint.solver = viscosity->solver = this;
  for (iBase* part : Parts()) part->ResolveLinks();
  return resolved;
}

void FluidSolver::ReleaseLinks() {
  for (iBase* part : Parts()) part->ReleaseLinks();
  SetFlag(NodeActive, false);
  iSolver::ReleaseLinks();
}

void FluidSolver::CheckDirty() {
  velocityEmitter->CheckDirty();
  iSolver::CheckDirty();
  // At the scene's first frame no time has passed yet, whatever its number is.
  if (!scene->HasFlag(TimeMoved) || scene->clock.frame <= scene->clock.startFrame) {
    SetFlag(NodeDirty | NodeHardDirty, false);
  } else if (!IsDirty()) {
    MarkDirty(false);
  }
}

// --- state -----------------------------------------------------------------------------------------------------------

void FluidSolver::ResetSimulation() {
  for (iBase* part : Parts()) part->ResetSimulation();
  divergenceSource.ResetSimulation();
  maxSquaredSpeed = kSpeedAfterReset;
  SetFlag(NodeActive, false);
}

void FluidSolver::ClearState(bool deactivate) {
  if (deactivate) iSolver::ClearState(true);
  for (iBase* part : Parts()) part->ClearState(deactivate);
  divergenceSource.ClearState(deactivate);
  maxSquaredSpeed = kSpeedAfterReset;
  outOfBounds = false;
  ReleaseLinks();
  SetFlag(NodeActive, false);
}

void FluidSolver::VisitState(StateVisitor& visitor) {
  VisitPart(visitor, "velocity", velocity);
  VisitPart(visitor, "divergenceSource", divergenceSource);
  visitor.Visit("maxSquaredSpeed", maxSquaredSpeed);
  visitor.Keep("outOfBounds", outOfBounds);
}

void FluidSolver::VisitOutputs(StateVisitor& visitor) {
  if (scene->stage < kStageFluidDynamics || scene->stage > kStagePressure) return;
  static constexpr const char* kNames[] = {"velocity x", "velocity y", "velocity z"};
  for (int c = 0; c < 3; ++c) visitor.VisitGrid(kNames[c], velocity.grids[c]);
}

MemoryNeed FluidSolver::MemoryFor(const VecInt3D& cells) const {
  // Open shares of faces and of the half cells around them, in single precision, with their masks; the distance to
  // obstacles.
  constexpr double kFractions = 6 * sizeof(float) + 1, kObstacles = sizeof(double);
  MemoryNeed need = velocity.MemoryFor(cells);
  need.kept += (kFractions + kObstacles) * double(CellCount(cells));
  if (WantsDivergenceSource()) need.kept += divergenceSource.MemoryFor(cells).kept;
  need.scratch = std::max(projection->ScratchBytes(cells), IsViscous() ? Grid_Viscosity::ScratchBytes(cells) : 0);
  return need;
}

VecInt3D FluidSolver::MostCells() const {
  constexpr double kMost = 1 << 20;  // of an axis; what has more isn't built
  const double h = GetSimulationSpace().cellSize;
  VecInt3D cells;
  for (int axis = 0; axis < 3; ++axis) {
    const double count = std::round(scaledSize[axis] / h) + 2;  // ghosts on both sides
    cells[axis] = count >= 1 ? int(std::min(count, kMost)) : 1;
  }
  return cells;
}

bool FluidSolver::WholeContainer(Vec3D& min, Vec3D& max) const {
  min = lowCorner, max = lowCorner + scaledSize;
  return true;
}

bool FluidSolver::RoomOfWalls(Vec3D& min, Vec3D& max) const {
  for (int axis = 0; axis < 3; ++axis) {
    constexpr double kNoEnd = std::numeric_limits<double>::infinity();
    min[axis] = (closedFaces & ClosedLow(axis)) != 0 ? lowCorner[axis] : -kNoEnd;
    max[axis] = (closedFaces & ClosedHigh(axis)) != 0 ? lowCorner[axis] + scaledSize[axis] : kNoEnd;
  }
  return true;
}

void FluidSolver::TakeCacheHeader(const GridCacheHeader& header) {
  cachedExtents.reset();
  if (header.present) cachedExtents = Extents{header.space.simMin, header.space.simMax};
}

// --- the container ---------------------------------------------------------------------------------------------------

void FluidSolver::ExtendBounds(Vec3D& min, Vec3D& max) {
  const double h = GetSimulationSpace().cellSize;
  const bool touched = min.x <= max.x && min.y <= max.y && min.z <= max.z;
  // The walls stand one cell inside the grid: the container gets a layer of ghost cells around it.
  const Vec3D low = RaiseToRaster(lowCorner, h) - Vec3D(h);
  const Vec3D high = LowerToRaster(lowCorner + scaledSize, h) + Vec3D(h);
  if (touched) min = FloorToRaster(min, h), max = CeilToRaster(max, h);
  const bool overlaps = touched && AllBelow(min, high) && AllBelow(low, max);
  if (overlaps && GetSimulationInfo().substepDuration != 0) {
    const auto& played = scene->playedBounds();
    if (played && played->only) min = RaiseToRaster(played->min, h), max = LowerToRaster(played->max, h);
    const Vec3D band(played && played->only ? 0 : margin);
    max = Max(Min(high, max + band), low + Vec3D(h));
    min = Min(Max(low, min - band), max - Vec3D(h));
    if (played && !played->only) {
      max = Max(max, Min(high, LowerToRaster(played->max, h)));
      min = Min(min, Max(low, RaiseToRaster(played->min, h)));
    }
    SetFlag(NodeActive, true);
  } else if (HasFlag(NodeFromCache) && cachedExtents) {
    SetFlag(NodeActive, true);
  } else {
    SetFlag(NodeActive, false);
    outOfBounds = true;
  }
  if (HasFlag(NodeFromCache) && cachedExtents) min = cachedExtents->min, max = cachedExtents->max;
}

bool FluidSolver::ApplyBounds(const Vec3D& min, const Vec3D& max) {
  if (!IsActive()) return true;  // no box to work in
  const bool fromCache = HasFlag(NodeFromCache);
  const bool hadVelocity = velocity.IsActive() && velocity.grids[0] != nullptr;
  const GridSpace before = hadVelocity ? velocity.grids[0]->space : GetSimulationSpace();
  bool applied = velocity.ApplyBounds(min, max);
  if (fromCache) projection->ClearState(true);
  // A velocity that was put back from a checkpoint has its lattice, but nothing was derived from it yet.
  const bool withoutBoundary = fromCache && !NeedsBoundaryInPlayback();
  const bool hasBoundary = boundary.IsActive() && (withoutBoundary || boundary.HasSolidGrid());
  const bool hasSource = fromCache || (divergenceSource.grid != nullptr) == WantsDivergenceSource();
  if (applied && hadVelocity && velocity.grids[0]->space.Equals(before) && hasBoundary && hasSource) return true;
  scene->scratch().Trim();  // of sizes that nothing will ask for again
  boundary.SetFlag(NodeFromCache, withoutBoundary);
  applied = applied && boundary.ApplyBounds(min, max) && ApplyDivergenceBounds(min, max);
  if (applied) return true;
  ClearState(true);
  return false;
}

bool FluidSolver::ApplyDivergenceBounds(const Vec3D& min, const Vec3D& max) {
  if (HasFlag(NodeFromCache) || !WantsDivergenceSource()) {
    divergenceSource.ClearState(true);
    return true;
  }
  const bool hadGrid = divergenceSource.grid != nullptr;
  const bool applied = divergenceSource.ApplyBounds(min, max);
  if (!hadGrid) divergenceSource.ResetSimulation();
  return applied;
}

bool FluidSolver::IsInterior(const Vec3D& position) const {
  if (!velocity.grids[0]) return false;
  const GridSpace& space = velocity.grids[0]->space;
  return AllBelow(space.simMin + space.simPerVoxel, position) && AllBelow(position, space.simMax - space.simPerVoxel);
}

void FluidSolver::AfterStep() {
  if (!velocity.grids[0] || velocity.grids[0]->count < 1) return;
  WorkerPool& pool = scene->pool();
  double sum = 0;
  for (auto& grid : velocity.grids) {
    if (!velocity.IsActive()) grid->FindActiveBox(0, 0, false, &pool);
    const double most = LargestMagnitude(*grid, pool);
    sum += most * most;
  }
  for (int c = 1; c < 3; ++c) {
    velocity.grids[c]->activeMin = velocity.grids[0]->activeMin;
    velocity.grids[c]->activeMax = velocity.grids[0]->activeMax;
  }
  maxSquaredSpeed = std::max(sum, kLeastSquaredSpeed);
  WarnOfSpeed();
}

void FluidSolver::WarnOfSpeed() const {
  const Vec3D& size = velocity.grids[0]->space.simSize;
  const double crossings =
      std::sqrt(maxSquaredSpeed) * simulationInfo->substepDuration / std::max({size.x, size.y, size.z});
  if (!(crossings > kMostCrossings)) return;
  Warn("too-fast",
       fmt::format("its fluid moves at {:.3g} m/s and would cross its container {:.3g} times in a sub-step, so "
                   "the result means nothing; take weaker forces and smaller rates, or more sub-steps",
                   std::sqrt(maxSquaredSpeed), crossings));
}

}  // namespace orlix
