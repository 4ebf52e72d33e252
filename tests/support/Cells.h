#pragma once
// Loops over the cells of grids, and their values as a whole.

#include <vector>

#include "fluids/grids/Grid.h"

namespace orlix::test {

// Calls f(i, j, k) for all cells from low to below high and gives their number.
template <class F>
int ForBox(const VecInt3D& low, const VecInt3D& high, F&& f) {
  int count = 0;
  for (int k = low.z; k < high.z; ++k) {
    for (int j = low.y; j < high.y; ++j) {
      for (int i = low.x; i < high.x; ++i, ++count) f(i, j, k);
    }
  }
  return count;
}
template <class F>
int ForAll(const VecInt3D& dims, F&& f) {
  return ForBox({}, dims, f);
}
// All but the outermost.
template <class F>
int ForInner(const VecInt3D& dims, F&& f) {
  return ForBox({1, 1, 1}, dims - VecInt3D(1, 1, 1), f);
}

// f(i, j, k) for each cell.
template <class T, class F>
void FillCells(Grid<T>& grid, F&& f) {
  ForAll(grid.dims, [&](int i, int j, int k) { grid(i, j, k) = static_cast<T>(f(i, j, k)); });
}

template <class T>
std::vector<T> ValuesOf(const Grid<T>& grid) {
  return {grid.data, grid.data + grid.count};
}
template <class T>
double SumOf(const Grid<T>& grid) {
  double sum = 0;
  for (std::int64_t c = 0; c < grid.count; ++c) sum += static_cast<double>(grid[c]);
  return sum;
}

}  // namespace orlix::test
