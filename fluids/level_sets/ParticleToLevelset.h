#pragma once
// The level set of a liquid from its particles, at the cells' centres; metres, negative inside.
//
//   Cells   a cell with more particles than a minimum is liquid: LevelSetFromMask of those
//   Mass    8 iso less the densities of a cell's particles (1 without one), 8 being the inverse of half a cell cubed;
//           no distance, but its zero is a surface
//
// Then liquid reaches into solids: a cell in a solid whose value is at most half a cell (8 iso by mass) becomes minus
// that, so that the surface meets the wall.

#include "fluids/grids/ScratchPool.h"
#include "fluids/level_sets/FastSweeper.h"
#include "fluids/particles/ParticleSort.h"

namespace orlix {

struct ParticleToLevelset {
  enum Mode : std::int32_t { Cells = 0, Mass = 1 };
  static constexpr double kFar = 1e308;  // where no distance reaches

  std::int32_t mode = Cells;
  double iso = 0.2;
  std::int32_t minimumCount = 4;  // a liquid cell has more; particles that a sheet inserted don't count
  // Cells: a cell that only liquid and solid cells touch is liquid. Without air in it such a gap would be a hole in the
  // pressure, into which the liquid around falls.
  bool fillHoles = false;

  // By mass: the value of a cell without particles; 8 stand in a full one, half a cell apart.
  double Reach() const { return 8 * iso; }

  // Fills target, whose cells are those of the sort. solid: the signed distance on the nodes of the same cells; without
  // data nothing reaches into solids. Throws std::bad_alloc.
  void Build(WorkerPool& pool, ScratchPool& scratch, const ParticleSort& sort, const GridView<const double>& solid,
             ScalarGrid& target) const;

 private:
  void MarkCells(WorkerPool& pool, const ParticleSort& sort, const GridView<std::uint8_t>& mask) const;
  void FillHoles(WorkerPool& pool, const GridView<std::uint8_t>& mask, const GridView<const double>& solid) const;
  void SubtractDensities(WorkerPool& pool, const ParticleSort& sort, ScalarGrid& target) const;
};

// The pass into solids by itself: a value of at most reach becomes -reach where the mean of the cell's eight nodes is
// negative.
void ReachIntoSolids(WorkerPool& pool, const GridView<const double>& solid, double reach, ScalarGrid& target);

}  // namespace orlix
