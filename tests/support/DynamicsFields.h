#pragma once
// Grids on small lattices for tests of the solvers' kernels.

#include <cstdint>
#include <memory>
#include <random>

#include "fluids/grids/EGrid.h"
#include "tests/support/Cells.h"

namespace orlix::test {

// A grid of a type on a lattice of cells; host units are metres.
inline std::unique_ptr<ScalarGrid> MakeGrid(const VecInt3D& cells, float h, std::uint32_t type,
                                            const Vec3D& origin = {}) {
  const VecInt3D dims = cells + ExtraCells(type);
  auto grid = std::make_unique<ScalarGrid>(dims, Vec3D(cells) * double(h), h, type, origin);
  grid->Fill(0);
  return grid;
}

// f(position of the sample relative to the grid's corner).
template <class F>
void FillBy(ScalarGrid& grid, F&& f) {
  const Vec3D offset = CellSampleOffset(grid.gridType);
  FillCells(grid, [&](int i, int j, int k) { return f((Vec3D(i, j, k) + offset) * double(grid.space.cellSize)); });
}

template <class T>
void FillRandom(Grid<T>& grid, unsigned seed, double low, double high) {
  std::mt19937 random(seed);
  std::uniform_real_distribution<double> value(low, high);
  for (std::int64_t n = 0; n < grid.count; ++n) grid[n] = static_cast<T>(value(random));
}

}  // namespace orlix::test
