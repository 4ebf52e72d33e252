#include "fluids/surfacing/SurfaceReconstructor.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <new>

#include "fluids/meshes/HostGeometry.h"
#include "fluids/particles/KindChoices.h"

namespace orlix {

namespace {

constexpr double kOutmost = 1.7976931348623157e308;
constexpr float kPaddingCells = 5;

Vec3D Row(const ParticleRows& rows, PP::Id id, std::int32_t r, const Vec3D& fallback) {
  return rows.Property<Vec3D>(id).Get(r, fallback);
}

}  // namespace

const TypeInfo& SurfaceReconstructor::Type() {
  static const TypeInfo kType = {
      .id = 1300032,
      .resource = "zq_surface_reconstruction",
      .className = "C4D_SurfaceReconstructor_Object",
      .label = "Surface Reconstructor",
      .text =
          "A level set from particles, on a lattice as fine as asked for: balls around particles that flow into each "
          "other. A mesher makes a surface of it.",
      .kinds = kLinkVolume,
      .parameters = Parameters(),
      .common = CommonNodeParameters(),
  };
  return kType;
}

SurfaceReconstructor::SurfaceReconstructor(BaseList2D* hostObject, OrlixScene& owner) : iObject(hostObject, owner) {
  stageMask = StageBit(kStageReconstruction);
  SetFlag(NodeHasBounds, false);
}

bool SurfaceReconstructor::ReadParameters() {
  priority = 6;
  if (!iObject::ReadParameters()) return false;
  renderOnly_ = handler.GetBool(kRenderOnlyId);
  kind_ = KindOrLiquid(handler.GetChoice(kKindId));
  subdivision_ = std::max(handler.GetDouble(kSubdivisionId), 1e-3);
  filter_ = handler.GetBool(kFilterId);
  densityThreshold_ = handler.GetDouble(kDensityThresholdId);
  solidOffset_ = handler.GetDouble(kSolidOffsetId);
  settings_.method = handler.GetChoice<ReconstructionMethod>(kMethodId);
  settings_.particleRadius = GetSimulationSpace().halfCell;
  settings_.radiusScale = handler.GetDouble(kRadiusScaleId);
  settings_.radiusFactor = handler.GetDouble(kRadiusFactorId);
  settings_.minNeighbours = handler.GetInt(kMinNeighboursId);
  settings_.maxNeighbours = handler.GetInt(kMaxNeighboursId);
  settings_.useMassRatio = handler.GetBool(kUseMassRatioId);
  settings_.densityCorrection = handler.GetBool(kDensityCorrectionId);
  settings_.lowerDensity = handler.GetDouble(kLowerDensityId);
  settings_.upperDensity = handler.GetDouble(kUpperDensityId);
  settings_.ballReach = handler.GetDouble(kBallReachId);
  useCentres_ = settings_.method != ReconstructionMethod::Spherical && handler.GetBool(kUseCentresId);
  stretch_ = handler.GetChoice<Stretch>(kStretchId);
  anisotropy_.mode = handler.GetChoice<AnisotropySettings::Mode>(kStretchModeId);
  anisotropy_.maxRatio = std::max(handler.GetDouble(kMaxRatioId), 1.0);
  anisotropy_.velocityStretch = handler.GetDouble(kVelocityStretchId);
  anisotropy_.minNeighbours = 10;
  anisotropy_.radius = GetSimulationSpace().halfCell;
  return true;
}

bool SurfaceReconstructor::ResolveLinks() {
  if (!iObject::ResolveLinks()) return false;
  kernel_ = scene->RetrieveAs<Kernel>(handler.GetLink(kKernelId), NODE_HELPER);
  settings_.kernel = kernel_ ? &kernel_->base : nullptr;
  solver_ = scene->RetrieveAs<WaterSolver>(handler.GetLink(kSolverId), NODE_SOLVER);
  constraints_ = RetrieveConstraints(*scene, handler);
  if (renderOnly_ && !scene->rendering) return true;
  group_ = scene->RetrieveAs<ParticleGroup>(handler.GetLink(kSourceId), NODE_PARTICLES);
  hostPoints_ = group_ ? nullptr : handler.GetObjectLink(kSourceId);
  return true;
}

void SurfaceReconstructor::ReleaseLinks() {
  group_ = nullptr, hostPoints_ = nullptr, solver_ = nullptr, kernel_ = nullptr;
  settings_.kernel = nullptr;
  constraints_.clear();
  iObject::ReleaseLinks();
}

void SurfaceReconstructor::Advise() {
  if ((renderOnly_ && !scene->rendering) || scene->IsPlayed(*this)) return;
  if (!group_ && !(hostPoints_ && hostPoints_->Polygons())) {
    Warn("no-source", "no particles are linked: there is no level set; link a particle group or a mesh under source");
  }
  if (!filter_ && !constraints_.empty()) {
    Warn("filter-off", "its constraints leave nothing out while filter is off; turn it on");
  }
  if (filter_ && handler.GetLink(kSolverId) && !solver_) {
    Warn("no-liquid", "the linked solver isn't a liquid: no solid leaves particles out; link a liquid under solver");
  }
}

void SurfaceReconstructor::Conclude() {
  if (everMade_ || (renderOnly_ && !scene->rendering) || scene->IsPlayed(*this)) return;
  const char* when = scene->MayRest(*this) ? "in the asked frames" : "ever";
  Warn("no-surface",
       fmt::format("no particle of the kind was there {}: no level set was made; look at source and kind", when));
}

void SurfaceReconstructor::CheckDirty() {
  if (HasFlag(NodeDirtyChecked)) return;
  iObject::CheckDirty();
  if (!IsEnabled() || HasFlag(NodeDirty)) return;
  const bool dirty = scene->HasFlag(TimeMoved) || (kernel_ && kernel_->IsDirty()) ||
                     std::any_of(constraints_.begin(), constraints_.end(),
                                 [](const Constraint* constraint) { return constraint->IsDirty(); });
  if (dirty) MarkDirty(false);
}

void SurfaceReconstructor::ResetSimulation() {
  FreeLevelSet();
  everMade_ = false;
}

void SurfaceReconstructor::ClearState(bool deactivate) {
  iObject::ClearState(deactivate);
  FreeLevelSet();
}

void SurfaceReconstructor::FreeLevelSet() {
  if (levelSet_) LevelSetChanged();
  levelSet_.reset();
}

double SurfaceReconstructor::SampleGrid(const Vec3D& index) const {
  return levelSet_ ? SampleTrilinear(GridView<const double>(*levelSet_), index.x, index.y, index.z) : 0;
}

// --- particles -------------------------------------------------------------------------------------------------------

bool SurfaceReconstructor::ReadHostPoints() {
  const PolygonObject* polygons = hostPoints_ ? hostPoints_->Polygons() : nullptr;
  if (!polygons || polygons->points.empty() || polygons->points.size() > std::size_t(kMaxGridCells)) return false;
  ownPoints_.Append(static_cast<std::int32_t>(polygons->points.size()), {}, &scene->pool());
  const LMatrix matrix = hostPoints_->GlobalMatrix();
  ParallelRows(scene->pool(), ownPoints_, [&](const ParticleRows& rows, int) {
    for (std::int32_t r = rows.begin; r < rows.end; ++r) {
      rows.EditPositions()[r] =
          matrix * polygons->points[std::size_t(rows.first + r)] * GetSimulationSpace().simPerHost;
    }
  });
  return true;
}

// Sets ParticleFlag::Excluded of those that take part: this node's use of the bit is the reverse of others'.
void SurfaceReconstructor::TagParticles() {
  for (Constraint* constraint : constraints_) constraint->Prepare(this);
  for (std::int32_t c = 0; c < list_->chunkCount(); ++c) TagChunk(list_->Rows(c));
  for (Constraint* constraint : constraints_) constraint->Finish();
}

void SurfaceReconstructor::TagChunk(const ParticleRows& rows) {
  double weights[kChunkRows];
  std::uint8_t open[kChunkRows];
  std::fill_n(weights, rows.end, 1.0), std::fill_n(open, rows.end, std::uint8_t{1});
  EvaluateChain(constraints_, ParticleRun{list_, rows.first, rows.end, 0, rows.positions(), weights, open}, this);
  const SolidView solid = solver_ ? solver_->boundary.View() : SolidView();
  const double limit = -solidOffset_ * (solid.HasData() ? double(solid.cellSize()) : 1.0);
  const auto density = rows.Property<double>(PP::Density);
  const Vec3D size = solid.HasData() ? Vec3D(solid.nodes().dims - VecInt3D(1, 1, 1)) : Vec3D();
  for (std::int32_t r = rows.begin; r < rows.end; ++r) {
    bool kept = weights[r] > 0;
    if (densityThreshold_ < 1 && std::min(density.Get(r, 0), 1.0) > densityThreshold_) kept = false;
    if (kept && limit != 0 && solid.HasData()) {
      const Vec3D index = (rows.positions()[r] - solid.origin()) / double(solid.cellSize());
      const bool inBox =
          index.x >= 0 && index.y >= 0 && index.z >= 0 && index.x < size.x && index.y < size.y && index.z < size.z;
      kept = !inBox || solid.DistanceIndex(index) >= limit;
    }
    std::uint16_t& bits = rows.TagFlags()[r];
    bits = static_cast<std::uint16_t>(kept ? bits | ParticleFlag::Excluded : bits & ~ParticleFlag::Excluded);
  }
}

void SurfaceReconstructor::CollectPlaces() {
  places_.resize(std::size_t(list_->count()));
  ParallelRows(scene->pool(), *list_, [&](const ParticleRows& rows, int) {
    const auto centres = rows.Property<Vec3D>(PP::SmoothedCentre);
    for (std::int32_t r = rows.begin; r < rows.end; ++r) {
      const std::uint16_t bits = rows.flags()[r];
      const bool left = !(bits & ParticleFlag::Alive) || (filter_ && !(bits & ParticleFlag::Excluded));
      const Vec3D& x = rows.positions()[r];
      places_[std::size_t(rows.first + r)] = left ? Vec3D(kNowhere) : useCentres_ ? centres.Get(r, x) : x;
    }
  });
}

void SurfaceReconstructor::CollectRatios() {
  ratios_.resize(places_.size());
  ParallelRows(scene->pool(), *list_, [&](const ParticleRows& rows, int) {
    const auto mass = rows.Property<double>(PP::Mass), sum = rows.Property<double>(PP::KernelSum);
    for (std::int32_t r = rows.begin; r < rows.end; ++r) {
      const double divisor = sum.Get(r, 1);
      ratios_[std::size_t(rows.first + r)] = mass.Get(r, 1) / (divisor != 0 ? divisor : 1);
    }
  });
}

void SurfaceReconstructor::CollectBalls() {
  CountedVector<Vec3D> points(places_.size());
  const bool byVelocity = anisotropy_.mode == AnisotropySettings::Mode::ByVelocity;
  balls_.resize(places_.size());
  std::atomic<bool> stretched{false};
  ParallelRows(scene->pool(), *list_, [&](const ParticleRows& rows, int) {
    for (std::int32_t r = rows.begin; r < rows.end; ++r) {
      const auto n = std::size_t(rows.first + r);
      const Vec3D& x = rows.positions()[r];
      points[n] = !IsFinite(places_[n]) ? Vec3D(kNowhere) : byVelocity ? rows.velocities()[r] : x;
      balls_[n] = {Row(rows, PP::SmoothedCentre, r, x), {}};
      if (stretch_ == Stretch::Computed || !rows.Property<Vec3D>(PP::StretchRow0).Has(r)) continue;
      stretched.store(true, std::memory_order_relaxed);
      for (int row = 0; row < 3; ++row) {
        const Vec3D of = Row(rows, PP::Id(PP::StretchRow0 + row), r, Vec3D(row == 0, row == 1, row == 2));
        for (int c = 0; c < 3; ++c) balls_[n].stretch.m[row][c] = of[c];
      }
    }
  });
  if (stretch_ == Stretch::Computed) {
    CountedVector<Anisotropy> results(points.size());
    RunAnisotropyPass(anisotropy_, points, scene->pool(), results);
    for (std::size_t n = 0; n < results.size(); ++n) balls_[n].stretch = results[n].matrix;
  } else if (!stretched.load()) {
    Warn("no-stretch",
         "no particle carries a stretch: all balls are round; add POP::Surface Properties with write_anisotropy, or "
         "set stretch to computed");
  }
}

// --- the grid --------------------------------------------------------------------------------------------------------

Vec3D SurfaceReconstructor::Padding() const {
  const float cell = GetSimulationSpace().cellSize;
  return Vec3D(cell * settings_.radiusScale + double(kPaddingCells * cell));
}

// Of an object's points: where particles will be isn't known.
bool SurfaceReconstructor::ForecastBox(Vec3D& min, Vec3D& max) const {
  const BaseObject* object = handler.GetObjectLink(kSourceId);
  if (!object || !FindBox(*object, GetSimulationSpace().simPerHost, min, max)) return false;
  min -= Padding(), max += Padding();
  return true;
}

// Of particles nothing: the whole container would refuse scenes whose liquid fills little of it.
MemoryNeed SurfaceReconstructor::MemoryFor(const VecInt3D&) const {
  Vec3D min, max;
  if (scene->IsPlayed(*this) || (renderOnly_ && !scene->rendering) || !ForecastBox(min, max)) return {};
  return {.kept = LevelSetBytes(min, max, GetSimulationSpace().cellSize / subdivision_)};
}

// A lattice of the scene's, finer by the subdivision, around all particles: it doesn't shift as they move.
bool SurfaceReconstructor::MakeGrid() {
  Vec3D low(kOutmost), high(-kOutmost);
  list_->ForEachChunk(0, list_->count(), [&](const ParticleRows& rows) {
    for (std::int32_t r = rows.begin; r < rows.end; ++r) {
      const Vec3D& x = rows.positions()[r];
      if (IsFinite(x)) low = Min(low, x), high = Max(high, x);
    }
  });
  if (low.x > high.x) return false;
  const GridSpace& space = GetSimulationSpace();
  const auto cell = static_cast<float>(space.cellSize / subdivision_);
  low -= Padding(), high += Padding();
  GridSpace::SnapDown(low, cell), GridSpace::SnapUp(high, cell);
  const VecInt3D cells = SnappedCell((high - low) / double(cell));
  const double nodes = (cells.x + 1.0) * (cells.y + 1.0) * (cells.z + 1.0);
  if (std::min({cells.x, cells.y, cells.z}) < 1 || !(nodes <= double(kMaxGridCells))) {
    Warn("level-set-size", fmt::format("a level set of {} x {} x {} cells can't be made: it may have {} nodes; lower "
                                       "subdivision, or remove particles that flew far away",
                                       cells.x, cells.y, cells.z, kMaxGridCells));
    return false;
  }
  const Vec3D perCell = space.hostPerSim * double(cell);
  GridSpace wanted;
  wanted.Build(cells, Vec3D(cells) * perCell, cell, low * (1 / double(cell)) * perCell);
  return TakeLattice(wanted);
}

bool SurfaceReconstructor::TakeLattice(const GridSpace& wanted) {
  if (levelSet_ && levelSet_->space.Equals(wanted)) return true;
  FreeLevelSet();
  const VecInt3D nodes = wanted.dims + VecInt3D(1, 1, 1);
  try {
    levelSet_ =
        std::make_unique<ScalarGrid>(nodes, wanted.hostSize, wanted.cellSize, kGridNodalLevelset, wanted.hostMin);
  } catch (const std::bad_alloc&) {
    scene->FailForMemory(*this, nodes);
    return false;
  }
  levelSet_->activeMin = {};
  levelSet_->activeMax = levelSet_->dims - VecInt3D(1, 1, 1);
  return true;
}

void SurfaceReconstructor::TakeCacheHeader(const GridCacheHeader& header) {
  if (header.present) TakeLattice(header.space);
}

void SurfaceReconstructor::Prepare(iBase*) {
  SetFlag(NodeActive, false);
  if (!IsDirty() || HasFlag(NodeFromCache)) return;
  list_ = group_ ? group_->list(kind_) : ReadHostPoints() ? &ownPoints_ : nullptr;
  if (!list_ || list_->empty()) {
    // What was there is gone, also when it was the last particle.
    if (group_ || hostPoints_) FreeLevelSet();
    return;
  }
  if (filter_) TagParticles();
  const bool made = MakeGrid();
  if (!made) FreeLevelSet();
  SetFlag(NodeActive, made);
}

void SurfaceReconstructor::Process(ProcessData& data) {
  if (!IsActive()) return;
  CollectPlaces();
  CollectRatios();
  if (settings_.method != ReconstructionMethod::Spherical) CollectBalls();
  const Vec3D size = levelSet_->space.simSize;
  const double farValue = std::max({size.x, size.y, size.z});
  everMade_ = true;
  LevelSetChanged();
  PointsToImplicitGrid(scene->pool(), settings_, {places_, ratios_, balls_}, farValue, *levelSet_, data.hostThread);
}

void SurfaceReconstructor::Finish() {
  SetFlag(NodeActive, false);
  ownPoints_.Clear();
  list_ = nullptr;
  places_ = {}, ratios_ = {}, balls_ = {};
}

}  // namespace orlix
