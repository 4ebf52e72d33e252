#pragma once
// Scratch grids of a scene. A lease takes one of the wanted size and type and gives it back when it goes, so that a
// sub-step touches the same pages as the one before it. Elements are unfilled.
//
// Used on the thread that drives the scene; workers only write into grids that it leased for them.

#include <memory>
#include <utility>
#include <vector>

#include "fluids/grids/Grid.h"

namespace orlix {

class ScratchPool {
 public:
  template <class T>
  class Lease {
   public:
    Lease() = default;
    Lease(ScratchPool* pool, std::unique_ptr<Grid<T>> grid) : pool_(pool), grid_(std::move(grid)) {}
    Lease(Lease&&) = default;
    Lease& operator=(Lease&& other) {
      GiveBack();
      pool_ = other.pool_, grid_ = std::move(other.grid_);
      return *this;
    }
    ~Lease() { GiveBack(); }
    Grid<T>& operator*() const { return *grid_; }
    Grid<T>* operator->() const { return grid_.get(); }
    explicit operator bool() const { return grid_ != nullptr; }
    void GiveBack() {
      if (grid_) pool_->Shelf<T>().push_back(std::move(grid_));
    }

   private:
    ScratchPool* pool_ = nullptr;
    std::unique_ptr<Grid<T>> grid_;
  };

  // Throws std::bad_alloc when memory doesn't suffice.
  template <class T>
  Lease<T> Take(const VecInt3D& dims) {
    auto& shelf = Shelf<T>();
    for (auto& grid : shelf) {
      if (grid->count != CellCount(dims)) continue;
      std::unique_ptr<Grid<T>> taken = std::move(grid);
      grid = std::move(shelf.back());
      shelf.pop_back();
      taken->dims = dims, taken->slab = dims.x * dims.y;
      taken->ResetActiveBox();
      return Lease<T>(this, std::move(taken));
    }
    return Lease<T>(this, std::make_unique<Grid<T>>(dims, kGridScratch));
  }

  // Frees what isn't leased: sizes change with the container.
  void Trim() { doubles_.clear(), floats_.clear(), bytes_.clear(), ints_.clear(); }

 private:
  template <class T>
  std::vector<std::unique_ptr<Grid<T>>>& Shelf() {
    if constexpr (std::is_same_v<T, double>)
      return doubles_;
    else if constexpr (std::is_same_v<T, float>)
      return floats_;
    else if constexpr (std::is_same_v<T, std::int32_t>)
      return ints_;
    else
      return bytes_;
  }

  std::vector<std::unique_ptr<Grid<double>>> doubles_;
  std::vector<std::unique_ptr<Grid<float>>> floats_;
  std::vector<std::unique_ptr<Grid<std::uint8_t>>> bytes_;
  std::vector<std::unique_ptr<Grid<std::int32_t>>> ints_;
};

}  // namespace orlix
