#pragma once
// Scratch grids of a scene. A lease takes memory for one of the wanted size and type and gives it back when it goes, so
// that a sub-step touches the same pages as the one before it. Elements are unfilled.
//
// Memory is given back as bytes: what one node borrowed for doubles serves the next one's floats, and a piece that is
// larger than asked is divided, so that the whole stays near what is lent at the worst moment.
//
// Used on the thread that drives the scene; workers only write into grids that it leased for them.

#include <cstddef>
#include <memory>
#include <utility>
#include <vector>

#include "fluids/grids/Grid.h"

namespace orlix {

class ScratchPool {
  template <class T>
  struct LentGrid final : Grid<T> {
    LentGrid(const VecInt3D& size, void* memory) : Grid<T>({}, kGridScratch) {
      this->dims = size, this->slab = size.x * size.y, this->count = static_cast<std::int32_t>(CellCount(size));
      this->data = static_cast<T*>(memory);
      this->ResetActiveBox();
    }
    LentGrid(const LentGrid&) = delete;
    ~LentGrid() override { this->data = nullptr; }  // the pool's
  };

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
      if (!grid_) return;
      pool_->Return(grid_->data);
      grid_.reset();
    }

   private:
    ScratchPool* pool_ = nullptr;
    std::unique_ptr<Grid<T>> grid_;
  };

  ScratchPool() = default;
  ScratchPool(const ScratchPool&) = delete;
  ScratchPool& operator=(const ScratchPool&) = delete;
  ~ScratchPool();

  // Throws std::bad_alloc when memory doesn't suffice. dims below 1 in any axis give an empty grid.
  template <class T>
  Lease<T> Take(const VecInt3D& dims) {
    if (dims.x < 1 || dims.y < 1 || dims.z < 1) return Lease<T>(this, std::make_unique<Grid<T>>(dims, kGridScratch));
    if (CellCount(dims) > kMaxGridCells) throw std::bad_alloc();
    void* memory = Borrow(static_cast<std::size_t>(CellCount(dims)) * sizeof(T));
    return Lease<T>(this, std::make_unique<LentGrid<T>>(dims, memory));
  }

  // Frees what isn't leased: sizes change with the container.
  void Trim();

 private:
  // A run of bytes of a block, lent or free.
  struct Piece {
    std::size_t begin = 0, size = 0;
    bool lent = false;
  };
  struct Block {
    char* memory = nullptr;
    std::size_t size = 0;
    std::vector<Piece> pieces;  // in the order of their bytes; no two neighbours are both free
    bool IsFree() const { return pieces.size() == 1 && !pieces.front().lent; }
  };

  void* Borrow(std::size_t bytes);
  void Return(void* memory);

  std::vector<Block> blocks_;
};

}  // namespace orlix
