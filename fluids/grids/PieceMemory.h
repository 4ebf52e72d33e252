#pragma once
// Memory of many pieces of a few sizes, such as the columns of particles. Pieces are cut from large regions that stand
// on large pages where the system has them: it hands out and clears one page for a dozen pieces, and a pass that looks
// up rows in any order finds them in the table of pages. Counted and held to the budget piece by piece, as grids are.

#include <cstddef>
#include <vector>

namespace orlix {

// bytes: a multiple of 64, at most a megabyte. 64-byte aligned; throws std::bad_alloc when the budget or the machine
// has no more. From any thread.
void* AllocatePiece(std::size_t bytes);
void FreePiece(void* memory, std::size_t bytes) noexcept;

// For memory that hasn't been touched.
void AskForLargePages(void* memory, std::size_t bytes);
// Room for n values in an empty vector, on large pages where they are worth it. Not counted: for what lives through one
// pass alone.
template <class T>
void ReserveOnLargePages(std::vector<T>& values, std::size_t n) {
  values.reserve(n);
  AskForLargePages(values.data(), n * sizeof(T));
}
// What both kinds of memory are counted by. Throws std::bad_alloc, and counts nothing, beyond the budget.
void CountGridMemory(std::size_t bytes);
void UncountGridMemory(std::size_t bytes) noexcept;

}  // namespace orlix
