#pragma once
// A std::vector whose memory is counted with that of grids and held to the budget.

#include <vector>

#include "fluids/grids/GridMemory.h"

namespace orlix {

template <class T>
struct CountedAllocator {
  using value_type = T;
  CountedAllocator() = default;
  template <class S>
  CountedAllocator(const CountedAllocator<S>&) {}  // NOLINT: allocators convert
  T* allocate(std::size_t n) { return static_cast<T*>(AllocateGridMemory(n * sizeof(T))); }
  void deallocate(T* memory, std::size_t n) noexcept { FreeGridMemory(memory, n * sizeof(T)); }
  bool operator==(const CountedAllocator&) const { return true; }
};

template <class T>
using CountedVector = std::vector<T, CountedAllocator<T>>;

}  // namespace orlix
