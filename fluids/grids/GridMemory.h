#pragma once
// Memory of grids: aligned for vectors, counted, and held to the run's budget. The machine's memory is one, so the
// counters are the process's.

#include <cstddef>
#include <cstdint>

namespace orlix {

// An index of a cell is an i32.
inline constexpr std::int64_t kMaxGridCells = 2147483647;

// 64-byte aligned; throws std::bad_alloc when the budget or the machine has no more.
void* AllocateGridMemory(std::size_t bytes);
void FreeGridMemory(void* memory, std::size_t bytes) noexcept;

struct GridMemoryUse {
  std::int64_t current = 0, peak = 0;
};
GridMemoryUse CurrentGridMemory();
void ResetGridMemoryPeak();

// Bytes that all grids together may take; 0 is no limit but nine tenths of the machine's memory, since a system that
// lends more than it has kills the program when it is touched.
void SetGridMemoryBudget(std::int64_t bytes);
std::int64_t GridMemoryBudget();
std::int64_t MachineMemory();

}  // namespace orlix
