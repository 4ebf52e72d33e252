#include "fluids/surfacing/SurfaceField.h"

#include <algorithm>

#include "fluids/level_sets/BitLists.h"
#include "globals/Multiversion.h"

namespace orlix {

namespace {

// A bit for each of up to 64 nodes whose value less iso is above a least one: what is near counts as outside.
ORLIX_MULTIVERSION std::uint64_t OutsideWord(const double* row, int count, double iso, double least) {
  std::uint8_t outside[64] = {};
  for (int i = 0; i < count; ++i) outside[i] = row[i] - iso > least;
  return PackBytes(outside);
}

}  // namespace

void TouchPages(WorkerPool& pool, void* memory, std::size_t bytes) {
  constexpr std::size_t kPage = 4096, kShare = std::size_t(2) << 20;
  auto* const begin = static_cast<volatile char*>(memory);
  ForLayers(pool, 0, static_cast<int>((bytes + kShare - 1) / kShare), [&](int share) {
    const std::size_t from = std::size_t(share) * kShare;
    for (std::size_t at = from; at < std::min(from + kShare, bytes); at += kPage) begin[at] = 0;
  });
}

BitRows OutsideNodes(const SurfaceField& field, WorkerPool& pool) {
  BitRows outside(field.grid.dims);
  const VecInt3D low = field.low, high = field.high;
  ForLayers(pool, low.z, high.z + 1, [&](int k) {
    for (int j = low.y; j <= high.y; ++j) {
      const double* row = &field.grid(0, j, k);
      std::uint64_t* bits = outside.Row(j, k);
      for (int w = low.x / 64; w <= high.x / 64; ++w) {
        const int end = std::min(64, high.x + 1 - 64 * w);
        bits[w] = OutsideWord(row + 64 * w, end, field.iso, -field.nearest) & WordOfRange(w, low.x, high.x + 1);
      }
      if (!field.closed) continue;
      const bool face = j == low.y || j == high.y || k == low.z || k == high.z;
      for (int w = low.x / 64; w <= high.x / 64; ++w) {
        bits[w] |= face ? WordOfRange(w, low.x, high.x + 1)
                        : WordOfRange(w, low.x, low.x + 1) | WordOfRange(w, high.x, high.x + 1);
      }
    }
  });
  return outside;
}

}  // namespace orlix
