#include "fluids/boundary/Grid_VolumeFractions.h"

#include <algorithm>
#include <limits>
#include <new>
#include <utility>

#include "fluids/boundary/FractionKernels.h"
#include "fluids/channels/iChannel.h"

namespace orlix {

namespace {

constexpr std::uint32_t kEdgeCode = 103;
constexpr int kMaxOversampling = 8, kMaxHalvings = 4;  // points an axis, and halvings of a cell

std::uint32_t TypeOf(int axis, int kind) {
  if (kind == 0) return kGridCustom;
  return kind == 2 ? kEdgeCode + static_cast<std::uint32_t>(axis) : static_cast<std::uint32_t>(axis);
}

// Edge grid 0 holds the edges along z, where the x and y faces meet, 1 those along y, 2 those along x.
Vec3D OffsetOf(int axis, int kind) {
  if (kind != 2) return CellSampleOffset(TypeOf(axis, kind));
  Vec3D offset;
  offset[2 - axis] = 0.5;
  return offset;
}

VecInt3D DimsOf(int axis, int kind, const VecInt3D& cells) {
  if (kind != 2) return cells + ExtraCells(TypeOf(axis, kind));
  VecInt3D dims = cells + VecInt3D(1, 1, 1);
  dims[2 - axis] = cells[2 - axis];
  return dims;
}

bool Exists(int axis, int kind) { return kind != 0 || axis == 0; }

}  // namespace

void Grid_VolumeFractions::ResetSimulation() {
  for (auto& axes : grids_) {
    for (auto& grid : axes) {
      if (grid) grid->Fill(0);
    }
  }
  MarkChanged(0);
}

void Grid_VolumeFractions::ClearState(bool deactivate) {
  iObject::ClearState(deactivate);
  for (auto& axes : grids_) {
    for (auto& grid : axes) grid.reset();
  }
  previous_ = {};
  MarkChanged(0);
}

bool Grid_VolumeFractions::ReadParameters() {
  oversampling = 2;
  complement = false;
  return handler.HasObject();
}

void Grid_VolumeFractions::MarkChanged(std::uint64_t computedFor) {
  ++revision_;
  computedFor_ = computedFor;
  for (CellMask& mask : closed_) mask.Clear();
}

bool Grid_VolumeFractions::PrepareGrid(int axis, int kind, const GridSpace& space) {
  std::unique_ptr<FloatGrid>& grid = grids_[kind][axis];
  if ((kinds & 1u << kind) == 0) {
    grid.reset();
    return true;
  }
  if (grid && grid->space.Equals(space)) return true;
  grid.reset();
  MarkChanged(0);
  const VecInt3D dims = DimsOf(axis, kind, space.dims);
  try {
    grid = std::make_unique<FloatGrid>(dims, space.hostSize, space.cellSize, TypeOf(axis, kind), space.hostMin);
  } catch (const std::bad_alloc&) {
    scene->FailForMemory(*this, dims);
    return false;
  }
  grid->space = space;  // an edge grid's array says nothing about its lattice
  grid->valueOffset = 0, grid->valueScale = 1;
  ParallelRange(scene->pool(), 0, dims.z, [&](int k0, int k1, int) {
    std::fill_n(&(*grid)(0, 0, k0), std::int64_t(k1 - k0) * grid->slab, 0.0f);
  });
  return true;
}

void Grid_VolumeFractions::Prepare(iBase*) {
  const ScalarGrid* distance = owner && owner->IsOwnerActive() ? owner->SignedDistance() : nullptr;
  bool active = distance != nullptr && distance->space.count > 0;
  for (int kind = 0; kind < kKinds && active; ++kind) {
    for (int axis = 0; axis < 3; ++axis)
      active = active && (!Exists(axis, kind) || PrepareGrid(axis, kind, distance->space));
  }
  SetFlag(NodeActive, active);
}

// All of a grid is about to be written anew: what it holds moves over. There is nothing before the first computation.
void Grid_VolumeFractions::KeepPrevious(int axis, int kind) {
  std::unique_ptr<FloatGrid>&grid = grids_[kind][axis], &previous = previous_[kind][axis];
  if (!keepPrevious) {
    previous.reset();
    return;
  }
  std::unique_ptr<FloatGrid> fresh = std::move(previous);
  if (!fresh || !fresh->space.Equals(grid->space)) {
    fresh = std::make_unique<FloatGrid>(grid->dims, grid->space.hostSize, grid->space.cellSize, grid->gridType,
                                        grid->space.hostMin);
    fresh->space = grid->space;
    fresh->valueOffset = grid->valueOffset, fresh->valueScale = grid->valueScale;
  }
  fresh->Fill(0);
  previous = std::exchange(grid, std::move(fresh));
}

void Grid_VolumeFractions::Compute() {
  const ScalarGrid* distance = IsActive() && owner && !IsCurrent() ? owner->SignedDistance() : nullptr;
  if (!distance) return;
  const GridView<const double> nodes(*distance);
  const FractionRule rule{complement};
  const bool onePass = (kinds & 4u) != 0 && (kinds & 8u) != 0;
  const int perAxis = std::clamp(oversampling, 1, kMaxOversampling);
  for (int kind = 0; kind < kKinds; ++kind) {
    for (int axis = 0; axis < 3; ++axis) {
      if (!grids_[kind][axis]) continue;
      KeepPrevious(axis, kind);
      FloatGrid* grid = grids_[kind][axis].get();
      const Vec3D offset = OffsetOf(axis, kind);
      if (onePass) {
        // Points that are shared by all grids: the middles of 2^oversampling parts of a cell.
        const int parts = 1 << std::min(perAxis, kMaxHalvings);
        const Vec3D first = Vec3D(0.5 / parts - 0.5) - CellSampleOffset(distance->gridType);
        FillCountedFractions(nodes, offset, parts, first, rule, *grid, scene->pool());
      } else if (method == 0) {
        const Vec3D first = CellSampleOffset(distance->gridType) * (1.0 / perAxis);
        FillCountedFractions(nodes, offset, perAxis, first, rule, *grid, scene->pool());
      } else if (method == 1 && kind == 1) {
        FillFaceFractions(nodes, axis, rule, *grid, scene->pool());
      } else {
        FillCubeFractions(nodes, offset, rule, *grid, scene->pool());
      }
    }
  }
  MarkChanged(owner->DistanceRevision());
}

void Grid_VolumeFractions::ZeroWallFaces(int axis, std::uint8_t mask) {
  FloatGrid* grid = grids_[1][axis].get();
  if (!grid) return;
  ZeroWallLayers(*grid, axis, mask);
  MarkChanged(0);
}

std::int64_t Grid_VolumeFractions::DerivedBytes() const {
  std::int64_t bytes = 0;
  for (const Grids* all : {&grids_, &previous_}) {
    for (const auto& axes : *all) {
      for (const auto& grid : axes) bytes += grid ? grid->MemorySize() : 0;
    }
  }
  for (const CellMask& mask : closed_) bytes += mask.Bytes();
  return bytes;
}

const CellMask& Grid_VolumeFractions::ClosedFaces(int axis) {
  CellMask& mask = closed_[axis];
  if (mask.IsEmpty() && grids_[1][axis]) FindZeros(View(axis, 1), mask, scene->pool());
  return mask;
}

}  // namespace orlix
