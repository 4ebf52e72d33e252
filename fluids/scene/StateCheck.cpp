#include "fluids/scene/StateCheck.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <atomic>
#include <bit>
#include <cmath>
#include <cstring>

#include "fluids/scene/Scene.h"
#include "globals/Multiversion.h"

namespace orlix {

void StateHasher::VisitGrid(const char* name, std::unique_ptr<ScalarGrid>& grid) {
  hash_.Add(name, std::strlen(name));
  hash_.AddValue(static_cast<std::uint8_t>(grid != nullptr));
  if (!grid) return;
  StateHash own;
  own.AddValue(grid->gridType);
  own.AddValue(grid->dims);
  own.AddValue(grid->space.hostMin);
  own.AddValue(grid->space.hostSize);
  own.AddValue(grid->space.cellSize);
  own.Add(grid->data, sizeof(double) * static_cast<std::size_t>(grid->count));
  hash_.AddValue(own.Value());
  grids_.emplace_back(fmt::format("{}{}{}", fmt::join(path_, "/"), path_.empty() ? "" : "/", name), own.Value());
}

void StateHasher::VisitBytes(const char* name, void* bytes, std::size_t size) {
  hash_.Add(name, std::strlen(name));
  hash_.Add(bytes, size);
}

namespace {

// An exponent of all ones is infinity or NaN. Integers, so that the loop vectorises.
ORLIX_MULTIVERSION bool BlockIsFinite(const double* data, std::int64_t count) {
  constexpr std::uint64_t kExponent = 0x7ff0000000000000u, kCarry = 0x0010000000000000u;
  std::uint64_t carries = 0;
  for (std::int64_t i = 0; i < count; ++i) {
    const std::uint64_t bits = std::bit_cast<std::uint64_t>(data[i]);
    carries |= (bits & kExponent) + kCarry;  // reaches bit 63 only from an exponent of all ones
  }
  return (carries >> 63) == 0;
}

constexpr std::int64_t kBlock = 1 << 12;

}  // namespace

bool AllFinite(const double* data, std::int64_t count) {
  for (std::int64_t from = 0; from < count; from += kBlock) {
    if (!BlockIsFinite(data + from, std::min(kBlock, count - from))) return false;
  }
  return true;
}

void NonFiniteFinder::VisitGrid(const char* name, std::unique_ptr<ScalarGrid>& grid) {
  if (found_ || !grid || grid->count < 1) return;
  const ScalarGrid& g = *grid;
  std::atomic<bool> finite{true};
  ParallelRange(pool_, 0, g.dims.z, [&](int k0, int k1, int) {
    if (!AllFinite(g.data + g.Index(0, 0, k0), std::int64_t(k1 - k0) * g.slab)) finite.store(false);
  });
  if (finite.load()) return;
  for (std::int64_t index = 0; index < g.count; ++index) {
    if (std::isfinite(g[index])) continue;
    Divergence divergence;
    divergence.grid = name;
    divergence.k = static_cast<std::int32_t>(index / g.slab);
    divergence.j = static_cast<std::int32_t>(index % g.slab / g.dims.x);
    divergence.i = static_cast<std::int32_t>(index % g.dims.x);
    divergence.value = g[index];
    found_ = divergence;
    return;
  }
}

void NonFiniteFinder::VisitNumbers(const char* name, std::span<const Numbers> pieces) {
  if (found_) return;
  std::atomic<bool> finite{true};
  ParallelRange(pool_, 0, static_cast<int>(pieces.size()), [&](int from, int to, int) {
    for (int p = from; p < to; ++p) {
      if (!AllFinite(pieces[p].numbers, static_cast<std::int64_t>(pieces[p].count))) finite.store(false);
    }
  });
  if (finite.load()) return;
  for (const Numbers& piece : pieces) {
    for (std::size_t n = 0; n < piece.count; ++n) {
      if (std::isfinite(piece.numbers[n])) continue;
      Divergence divergence;
      divergence.grid = name;
      divergence.particle = piece.owners[n / static_cast<std::size_t>(piece.perOwner)];
      divergence.value = piece.numbers[n];
      found_ = divergence;
      return;
    }
  }
}

std::string Divergence::Text() const {
  if (particle >= 0) {
    return fmt::format(
        "\"{}\" made a value that is no number: {} in the {} of particle {}, frame {}, sub-step {}, stage \"{}\"", node,
        value, grid, particle, frame, substep, StageLabel(stage));
  }
  return fmt::format(
      "\"{}\" made a value that is no number: {} in grid {} at cell ({}, {}, {}), frame {}, sub-step {}, stage \"{}\"",
      node, value, grid, i, j, k, frame, substep, StageLabel(stage));
}

}  // namespace orlix
