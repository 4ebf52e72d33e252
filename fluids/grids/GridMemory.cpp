#include "fluids/grids/GridMemory.h"

#if defined(__linux__)
#include <sys/mman.h>
#endif
#include <unistd.h>

#include <atomic>
#include <new>

#include "fluids/grids/PieceMemory.h"

namespace orlix {

namespace {

std::atomic<std::int64_t> current{0}, peak{0}, budget{0};
// Large grids stand on large pages where the system has them: kernels walk a dozen arrays in layers that lie far apart,
// and would miss the table of small pages at each row.
constexpr std::size_t kLargePage = std::size_t(2) << 20;

std::align_val_t AlignmentOf(std::size_t bytes) { return std::align_val_t(bytes >= kLargePage ? kLargePage : 64); }

}  // namespace

// The system takes whole pages alone.
void AskForLargePages([[maybe_unused]] void* memory, [[maybe_unused]] std::size_t bytes) {
#if defined(__linux__)
  constexpr std::uintptr_t kPage = 4096;
  const auto from = (reinterpret_cast<std::uintptr_t>(memory) + kPage - 1) / kPage * kPage;
  const auto to = (reinterpret_cast<std::uintptr_t>(memory) + bytes) / kPage * kPage;
  if (bytes >= kLargePage && from < to) madvise(reinterpret_cast<void*>(from), to - from, MADV_HUGEPAGE);
#endif
}

void CountGridMemory(std::size_t bytes) {
  const std::int64_t size = static_cast<std::int64_t>(bytes);
  const std::int64_t now = current.fetch_add(size, std::memory_order_relaxed) + size;
  static const std::int64_t machineLimit = MachineMemory() / 10 * 9;
  const std::int64_t asked = budget.load(std::memory_order_relaxed), limit = asked > 0 ? asked : machineLimit;
  if (now > limit) {
    UncountGridMemory(bytes);
    throw std::bad_alloc();
  }
  std::int64_t seen = peak.load(std::memory_order_relaxed);
  while (now > seen && !peak.compare_exchange_weak(seen, now, std::memory_order_relaxed)) {
  }
}

void UncountGridMemory(std::size_t bytes) noexcept {
  current.fetch_sub(static_cast<std::int64_t>(bytes), std::memory_order_relaxed);
}

void* AllocateGridMemory(std::size_t bytes) {
  if (bytes == 0) return nullptr;
  CountGridMemory(bytes);
  void* memory = ::operator new(bytes, AlignmentOf(bytes), std::nothrow);
  if (!memory) {
    UncountGridMemory(bytes);
    throw std::bad_alloc();
  }
  AskForLargePages(memory, bytes);
  return memory;
}

void FreeGridMemory(void* memory, std::size_t bytes) noexcept {
  if (!memory) return;
  ::operator delete(memory, AlignmentOf(bytes));
  UncountGridMemory(bytes);
}

GridMemoryUse CurrentGridMemory() {
  return {current.load(std::memory_order_relaxed), peak.load(std::memory_order_relaxed)};
}
void ResetGridMemoryPeak() { peak.store(current.load(std::memory_order_relaxed), std::memory_order_relaxed); }
void SetGridMemoryBudget(std::int64_t bytes) { budget.store(bytes, std::memory_order_relaxed); }
std::int64_t MachineMemory() { return std::int64_t(sysconf(_SC_PHYS_PAGES)) * sysconf(_SC_PAGESIZE); }
std::int64_t GridMemoryBudget() { return budget.load(std::memory_order_relaxed); }

}  // namespace orlix
