#include "fluids/grids/GridMemory.h"

#if defined(__linux__)
#include <sys/mman.h>
#endif
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <bit>
#include <mutex>
#include <new>
#include <vector>

#include "fluids/grids/PieceMemory.h"

namespace orlix {

namespace {

std::atomic<std::int64_t> current{0}, peak{0}, budget{0};
// Large grids stand on large pages where the system has them: kernels walk a dozen arrays in layers that lie far apart,
// and would miss the table of small pages at each row.
constexpr std::size_t kLargePage = std::size_t(2) << 20;

std::align_val_t AlignmentOf(std::size_t bytes) { return std::align_val_t(bytes >= kLargePage ? kLargePage : 64); }

// A container that grows with its smoke gives its grids back at each sub-step and takes ones that are a layer larger:
// fresh pages would cost more than what is done with them. Blocks have powers of two as sizes, and the last ones that
// were given back wait here for the next of their size. What lies beyond a large grid in its block isn't touched until
// a larger one has it, and so is no memory. Small ones are kept as the heap's holes don't take aligned blocks again.
constexpr std::size_t kLeastKept = std::size_t(1) << 12, kMostKept = std::size_t(32) << 20;

bool IsKept([[maybe_unused]] std::size_t bytes) {
#ifdef ORLIX_SANITIZED
  return false;  // the sanitizers are to see the ends
#else
  return bytes >= kLeastKept && bytes <= kMostKept;
#endif
}

std::size_t BlockBytes(std::size_t bytes) { return IsKept(bytes) ? std::bit_ceil(bytes) : bytes; }

class KeptBlocks {
 public:
  KeptBlocks() { blocks_.reserve(kMostKept / kLeastKept + 1); }  // Keep allocates nothing
  void* Take(std::size_t size) {
    const std::lock_guard lock(mutex_);
    // The last one is the nearest.
    const auto at = std::ranges::find(blocks_.rbegin(), blocks_.rend(), size, &Block::size);
    if (at == blocks_.rend()) return nullptr;
    void* memory = at->memory;
    bytes_ -= size;
    blocks_.erase(std::next(at).base());
    return memory;
  }
  // The oldest make room.
  void Keep(void* memory, std::size_t size) {
    const std::lock_guard lock(mutex_);
    blocks_.push_back({memory, size});
    bytes_ += size;
    while (bytes_ > kMostKept) Free(blocks_.begin());
  }
  bool Clear() {
    const std::lock_guard lock(mutex_);
    const bool any = !blocks_.empty();
    while (!blocks_.empty()) Free(blocks_.begin());
    return any;
  }
  std::int64_t bytes() const { return static_cast<std::int64_t>(bytes_); }

 private:
  struct Block {
    void* memory;
    std::size_t size;
  };
  void Free(std::vector<Block>::iterator at) {
    ::operator delete(at->memory, AlignmentOf(at->size));
    bytes_ -= at->size;
    blocks_.erase(at);
  }

  std::mutex mutex_;
  std::vector<Block> blocks_;
  std::atomic<std::size_t> bytes_{0};
};
KeptBlocks& Kept() {
  static KeptBlocks& kept = *new KeptBlocks;  // outlives every grid
  return kept;
}

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
  if (now > limit - Kept().bytes()) Kept().Clear();
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
  const std::size_t size = BlockBytes(bytes);
  if (void* memory = Kept().Take(size)) return memory;
  void* memory = ::operator new(size, AlignmentOf(size), std::nothrow);
  if (!memory && Kept().Clear()) memory = ::operator new(size, AlignmentOf(size), std::nothrow);
  if (!memory) {
    UncountGridMemory(bytes);
    throw std::bad_alloc();
  }
  AskForLargePages(memory, size);
  return memory;
}

void FreeGridMemory(void* memory, std::size_t bytes) noexcept {
  if (!memory) return;
  UncountGridMemory(bytes);
  if (!IsKept(bytes)) return ::operator delete(memory, AlignmentOf(bytes));
  Kept().Keep(memory, BlockBytes(bytes));
}

GridMemoryUse CurrentGridMemory() {
  return {current.load(std::memory_order_relaxed), peak.load(std::memory_order_relaxed)};
}
void ResetGridMemoryPeak() { peak.store(current.load(std::memory_order_relaxed), std::memory_order_relaxed); }
void SetGridMemoryBudget(std::int64_t bytes) { budget.store(bytes, std::memory_order_relaxed); }
std::int64_t MachineMemory() { return std::int64_t(sysconf(_SC_PHYS_PAGES)) * sysconf(_SC_PAGESIZE); }
std::int64_t GridMemoryBudget() { return budget.load(std::memory_order_relaxed); }

}  // namespace orlix
