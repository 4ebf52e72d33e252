#pragma once
// Dense 3D arrays, x fastest, then y, then z: the linear index of cell (i, j, k) is (ny k + j) nx + i.

#include <cstdint>
#include <cstring>
#include <new>
#include <type_traits>
#include <utility>

#include "fluids/grids/GridMemory.h"
#include "fluids/grids/GridTypes.h"
#include "globals/Vec.h"

namespace orlix {

class WorkerPool;

template <class T>
class iGrid {
 public:
  virtual ~iGrid() = default;
};

template <class T>
class Grid : public iGrid<T> {
 public:
  // Allocates; elements are not initialised. dims below 1 in any axis give an empty grid.
  Grid(const VecInt3D& gridDims, std::uint32_t type);
  Grid(const Grid& other);
  Grid& operator=(const Grid&) = delete;
  ~Grid() override { FreeGridMemory(data, Bytes(count)); }

  virtual std::int64_t MemorySize() const { return std::int64_t(count) * std::int64_t(sizeof(T)) + 24; }

  // Scans the grid, tidies it and records its box (grids of double only). On velocity components (types 0 to 2) a cell
  // is active when it isn't within 1e-6 of 0, others become 0. On all other types a cell is active from empty + 1e-6 on
  // and is limited to max; others become empty, as do all cells of the array's faces with clearBorder. Runs in z slabs.
  void FindActiveBox(double empty, double max, bool clearBorder, WorkerPool* pool = nullptr);

  T& operator[](std::int64_t index) { return data[index]; }
  const T& operator[](std::int64_t index) const { return data[index]; }
  T& operator()(int i, int j, int k) { return data[Index(i, j, k)]; }
  const T& operator()(int i, int j, int k) const { return data[Index(i, j, k)]; }
  std::int64_t Index(int i, int j, int k) const { return std::int64_t(slab) * k + std::int64_t(dims.x) * j + i; }

  void Fill(const T& value, WorkerPool* pool = nullptr);
  void ResetActiveBox() { activeMin = dims, activeMax = {}; }

  std::uint32_t gridType;
  VecInt3D dims;
  std::int32_t count = 0;
  std::int32_t slab = 0;
  T* data = nullptr;  // owned
  VecInt3D activeMin, activeMax;
  double valueOffset = 0, valueScale = 0;

 private:
  static std::size_t Bytes(std::int64_t elements) { return static_cast<std::size_t>(elements) * sizeof(T); }
};

// Reads of a grid without its ownership: what kernels take.
template <class T>
struct GridView {
  T* data = nullptr;
  VecInt3D dims;
  std::int64_t slab = 0;

  GridView() = default;
  GridView(T* values, const VecInt3D& d) : data(values), dims(d), slab(std::int64_t(d.x) * d.y) {}
  template <class S>
  requires std::is_same_v<std::remove_const_t<T>, S> GridView(
      const Grid<S>& grid)  // NOLINT: a grid is a view of itself
  requires std::is_const_v<T> : GridView(grid.data, grid.dims) {}
  GridView(Grid<std::remove_const_t<T>>& grid) : GridView(grid.data, grid.dims) {}  // NOLINT
  template <class S>
  requires(std::is_const_v<T>&& std::is_same_v<std::remove_const_t<T>, S>) GridView(const GridView<S>& view)
      : GridView(view.data, view.dims) {}  // NOLINT

  std::int64_t Index(int i, int j, int k) const { return slab * k + std::int64_t(dims.x) * j + i; }
  T& operator()(int i, int j, int k) const { return data[Index(i, j, k)]; }
  T& operator[](std::int64_t index) const { return data[index]; }
};

template <class T>
Grid<T>::Grid(const VecInt3D& gridDims, std::uint32_t type)
    : gridType(type), dims(gridDims), activeMin(gridDims), activeMax() {
  static_assert(std::is_trivially_destructible_v<T>);
  if (gridDims.x < 1 || gridDims.y < 1 || gridDims.z < 1) return;
  const std::int64_t cells = CellCount(gridDims);
  if (cells > kMaxGridCells) throw std::bad_alloc();
  count = static_cast<std::int32_t>(cells);
  slab = gridDims.x * gridDims.y;
  data = static_cast<T*>(AllocateGridMemory(Bytes(cells)));
}

template <class T>
Grid<T>::Grid(const Grid& other) : Grid(other.dims, other.gridType) {
  activeMin = other.activeMin, activeMax = other.activeMax;
  valueOffset = other.valueOffset, valueScale = other.valueScale;
  if (count > 0) std::memcpy(static_cast<void*>(data), other.data, Bytes(count));
}

void FillDoubles(double* data, std::int64_t count, double value, WorkerPool* pool);

template <class T>
void Grid<T>::Fill(const T& value, WorkerPool* pool) {
  if constexpr (std::is_same_v<T, double>) {
    FillDoubles(data, count, value, pool);
  } else {
    for (std::int64_t i = 0; i < count; ++i) data[i] = value;
  }
}

template <>
void Grid<double>::FindActiveBox(double empty, double max, bool clearBorder, WorkerPool* pool);

}  // namespace orlix
