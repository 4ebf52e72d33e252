#include "fluids/grids/PieceMemory.h"

#include <cstdint>
#include <mutex>
#include <new>
#include <vector>

#include "fluids/grids/GridMemory.h"

namespace orlix {

namespace {

// A region's own memory is taken a page at a time as its pieces are touched, and given back when all are free.
constexpr std::size_t kRegion = std::size_t(16) << 20;
constexpr std::size_t kHeader = 64;

// Stands at the start of its region; the region of a piece is found by its address.
struct Region {
  std::size_t pieceBytes;
  std::size_t used = 0, fresh = 0;  // pieces taken, and pieces that were ever taken
  void* freed = nullptr;            // a chain through the pieces' first bytes

  std::size_t room() const { return (kRegion - kHeader) / pieceBytes; }
  bool IsFull() const { return used == room(); }

  void* Take() {
    ++used;
    if (!freed) return reinterpret_cast<std::byte*>(this) + kHeader + pieceBytes * fresh++;
    void* piece = freed;
    freed = *static_cast<void**>(piece);
    return piece;
  }
  void PutBack(void* piece) {
    *static_cast<void**>(piece) = freed;
    freed = piece;
    --used;
  }
};
static_assert(sizeof(Region) <= kHeader);

struct Regions {
  std::mutex mutex;
  std::vector<Region*> open;  // that have room
};
Regions& TheRegions() {
  static Regions& regions = *new Regions;  // outlives every list
  return regions;
}

Region* MakeRegion(std::size_t pieceBytes) {
  void* memory = ::operator new(kRegion, std::align_val_t(kRegion), std::nothrow);
  if (!memory) return nullptr;
  AskForLargePages(memory, kRegion);
  return new (memory) Region{pieceBytes};
}

[[maybe_unused]] void* TakePiece(std::size_t bytes) {
  Regions& regions = TheRegions();
  const std::lock_guard lock(regions.mutex);
  auto at = regions.open.begin();
  while (at != regions.open.end() && (*at)->pieceBytes != bytes) ++at;
  if (at == regions.open.end()) {
    Region* made = MakeRegion(bytes);
    if (!made) return nullptr;
    at = regions.open.insert(at, made);
  }
  void* piece = (*at)->Take();
  if ((*at)->IsFull()) regions.open.erase(at);
  return piece;
}

[[maybe_unused]] void PutBackPiece(void* piece) {
  auto* region = reinterpret_cast<Region*>(reinterpret_cast<std::uintptr_t>(piece) & ~(kRegion - 1));
  Regions& regions = TheRegions();
  const std::lock_guard lock(regions.mutex);
  if (region->IsFull()) regions.open.push_back(region);
  region->PutBack(piece);
  if (region->used > 0) return;
  std::erase(regions.open, region);
  ::operator delete(region, std::align_val_t(kRegion));
}

}  // namespace

// Under the sanitizers each piece stands by itself, so that they see its ends.
void* AllocatePiece(std::size_t bytes) {
#ifdef ORLIX_SANITIZED
  return AllocateGridMemory(bytes);
#else
  CountGridMemory(bytes);
  if (void* piece = TakePiece(bytes)) return piece;
  UncountGridMemory(bytes);
  throw std::bad_alloc();
#endif
}

void FreePiece(void* memory, std::size_t bytes) noexcept {
#ifdef ORLIX_SANITIZED
  FreeGridMemory(memory, bytes);
#else
  if (!memory) return;
  PutBackPiece(memory);
  UncountGridMemory(bytes);
#endif
}

}  // namespace orlix
