#include "fluids/particles/ParticleFactory.h"

#include <algorithm>

namespace orlix {

namespace {

constexpr double kCellLimit = 1e9;  // cell numbers of particles that flew off stay numbers

std::int32_t Truncated(double v) { return static_cast<std::int32_t>(std::clamp(v, -kCellLimit, kCellLimit)); }
VecInt3D Truncated(const Vec3D& v) { return {Truncated(v.x), Truncated(v.y), Truncated(v.z)}; }

// Of the rows of a chunk. voxel: the frame's, m.
ParticleBounds BoundsOf(const ParticleRows& rows, const Vec3D& voxel, const Vec3D& invVoxel) {
  ParticleBounds b;
  const Vec3D* x = rows.positions();
  const auto radii = rows.Property<double>(PP::Radius);
  for (std::int32_t i = rows.begin; i < rows.end; ++i) {
    const double r = radii.Get(i, voxel.x), cells = r * invVoxel.x;
    if (cells > b.largestRadiusCells) b.largestRadiusCells = cells, b.largestRadius = r;
    const std::int32_t n = Truncated(cells);
    const VecInt3D k = Truncated(x[i] * invVoxel - Vec3D(0.5));
    b.cellMin = Min(b.cellMin, k - VecInt3D(n + 1, n + 1, n + 1));
    b.cellMax = Max(b.cellMax, k + VecInt3D(n + 1, n + 1, n + 1));
    b.min = Min(b.min, x[i] - Vec3D(r) - voxel);
    b.max = Max(b.max, x[i] + Vec3D(r) + voxel);
  }
  return b;
}

void Widen(ParticleBounds& a, const ParticleBounds& b) {
  a.cellMin = Min(a.cellMin, b.cellMin), a.cellMax = Max(a.cellMax, b.cellMax);
  a.min = Min(a.min, b.min), a.max = Max(a.max, b.max);
  if (b.largestRadiusCells > a.largestRadiusCells) {
    a.largestRadiusCells = b.largestRadiusCells, a.largestRadius = b.largestRadius;
  }
}

}  // namespace

void ParticleFactory::SetListCount(std::int32_t n) {
  const auto wanted = static_cast<std::size_t>(std::max(n, 0));
  if (wanted < lists_.size()) lists_.resize(wanted);
  while (lists_.size() < wanted) lists_.push_back(std::make_unique<ParticleList>());
}

void ParticleFactory::Reset(const GridSpace& space) {
  for (const auto& each : lists_) each->Clear();
  frame = space;
  bounds = {};
  referenceSum = 1;
}

void ParticleFactory::UpdateBounds(WorkerPool& pool) {
  bounds = {};
  for (const auto& each : lists_) {
    std::vector<ParticleBounds> parts(static_cast<std::size_t>(each->chunkCount()));
    ParallelChunks(pool, *each, [&](int chunk, const ParticleRows& rows) {
      parts[static_cast<std::size_t>(chunk)] = BoundsOf(rows, frame.simPerVoxel, frame.voxelsPerSim);
    });
    for (const ParticleBounds& part : parts) Widen(bounds, part);
  }
}

std::int32_t ParticleFactory::RemoveDead(bool keepOrder) {
  std::int32_t left = 0;
  for (const auto& each : lists_) left += each->RemoveDead(keepOrder);
  return left;
}

std::int64_t ParticleFactory::Bytes() const {
  std::int64_t bytes = 0;
  for (const auto& each : lists_) bytes += each->Bytes();
  return bytes;
}

ParticleTally ParticleFactory::TakeTally() {
  ParticleTally sum;
  for (const auto& each : lists_) {
    const ParticleTally tally = each->TakeTally();
    sum.born += tally.born, sum.died += tally.died, sum.lost += tally.lost;
  }
  return sum;
}

void ParticleFactory::VisitState(StateVisitor& visitor) {
  std::int32_t lists = listCount();
  visitor.Visit("lists", lists);
  if (visitor.Reading()) {
    constexpr std::int32_t kMostLists = 1024;
    if (lists < 0 || lists > kMostLists) return visitor.Refuse("more lists of particles than there can be");
    if (visitor.Good()) SetListCount(lists);
  }
  visitor.Visit("bounds", bounds);
  visitor.Visit("referenceSum", referenceSum);
  for (const auto& each : lists_) {
    if (!visitor.Good()) return;
    each->VisitState(visitor);
  }
}

void ParticleFactory::VisitNumbers(StateVisitor& visitor) {
  for (const auto& each : lists_) each->VisitNumbers(visitor);
}

}  // namespace orlix
