#include "fluids/position_based/PositionBasedStep.h"

#include <algorithm>
#include <cmath>

namespace orlix {

void PositionBasedStep::Load(const PositionBasedSettings& settings, std::span<const ParticleList* const> lists,
                             const Vec3D& origin, WorkerPool& pool) {
  settings_ = settings;
  origin_ = origin;
  perCell_ = 1 / settings.cellSize;
  const double reach = settings.radius * kReachFactor, volume = std::pow(settings.cellSize, 3);
  constants_ = PairConstants(settings.radius, reach, settings.restDensity * volume, settings.relaxation,
                             settings.tensileStrength, settings.tensileExponent, settings.delta * settings.radius);
  populations_.clear();
  std::int64_t total = 0;
  for (const ParticleList* list : lists) {
    populations_.push_back({list, static_cast<std::int32_t>(total)});
    total += list->count();
    if (total > 0x7FFFFFF0) throw std::bad_alloc();
  }
  flat_.resize(static_cast<std::size_t>(total));
  for (const Population& population : populations_) {
    ParallelRows(pool, *population.list, [&](const ParticleRows& rows, int) {
      Site* out = flat_.data() + population.base + rows.first;
      for (std::int32_t r = rows.begin; r < rows.end; ++r) out[r] = ToCells(rows.positions()[r]);
    });
  }
  table_.Build(flat_, reach, pool);
  const std::size_t size = table_.PaddedSize();
  multipliers_.resize(size), corrections_.resize(size), velocities_.resize(size), changes_.resize(size);
  densities_.resize(size), shares_.resize(size);
  if (Swirls()) vorticities_.resize(size), confinements_.resize(size);
  // Whatever fills up lists is far from all.
  std::fill(multipliers_.begin() + count(), multipliers_.end(), table_.sites().back());
  std::fill(velocities_.begin() + count(), velocities_.end(), Site());
  closed_.clear();
  for (const Population& population : populations_) {
    ParallelRows(pool, *population.list, [&](const ParticleRows& rows, int) {
      for (std::int32_t r = rows.begin; r < rows.end; ++r) {
        const Vec3F v(rows.velocities()[r]);
        velocities_[static_cast<std::size_t>(PlaceOf(population.base + rows.first + r))] = {v.x, v.y, v.z, 0};
      }
    });
  }
}

void PositionBasedStep::Clear() { *this = {}; }

std::span<std::uint8_t> PositionBasedStep::Closed() {
  closed_.resize(static_cast<std::size_t>(count()));
  return closed_;
}

void PositionBasedStep::Multiply(WorkerPool& pool) {
  ForBlocks(table_, pool, [&](std::int32_t block) {
    const PairBlock pairs = table_.Block(block);
    pair_kernels::Multipliers(constants_, pairs, table_.sites().data(), multipliers_.data());
    for (std::int32_t n = 0; n < pairs.count && !closed_.empty(); ++n) {
      if (IsClosed(pairs.first + n)) multipliers_[static_cast<std::size_t>(pairs.first + n)].w = 0;
    }
  });
}

void PositionBasedStep::Correct(WorkerPool& pool) {
  ForBlocks(table_, pool, [&](std::int32_t block) {
    pair_kernels::Corrections(constants_, table_.Block(block), multipliers_.data(), corrections_.data());
  });
}

void PositionBasedStep::Measure(WorkerPool& pool) {
  const auto perVolume = static_cast<float>(std::pow(perCell_, 3));
  ForBlocks(table_, pool, [&](std::int32_t block) {
    if (Swirls()) {
      pair_kernels::Vorticities(constants_, table_.Block(block), table_.sites().data(), velocities_.data(), perVolume,
                                vorticities_.data(), densities_.data());
    } else {
      pair_kernels::Densities(constants_, table_.Block(block), table_.sites().data(), densities_.data());
    }
  });
}

DensityError PositionBasedStep::Error(WorkerPool& pool) const {
  std::vector<DensityError> parts(static_cast<std::size_t>(table_.blockCount()));
  ForBlocks(table_, pool, [&](std::int32_t block) {
    const PairBlock pairs = table_.Block(block);
    DensityError part;
    for (std::int32_t n = 0; n < pairs.count; ++n) {
      const double excess = static_cast<double>(densities_[static_cast<std::size_t>(pairs.first + n)]) - 1;
      part.mean += std::abs(excess);
      part.largest = std::max(part.largest, std::abs(excess));
      part.compressed = std::max(part.compressed, excess);
    }
    parts[static_cast<std::size_t>(block)] = part;
  });
  DensityError all;
  for (const DensityError& part : parts) {
    all.mean += part.mean;
    all.largest = std::max(all.largest, part.largest), all.compressed = std::max(all.compressed, part.compressed);
  }
  if (count() > 0) all.mean /= count();
  return all;
}

void PositionBasedStep::SetVelocity(std::int32_t place, const Vec3D& velocity, double viscosity) {
  const auto at = static_cast<std::size_t>(place);
  const Vec3F v(velocity);
  velocities_[at] = {v.x, v.y, v.z, Swirls() ? vorticities_[at].w : 0};
  shares_[at] = static_cast<float>(viscosity * kViscosityScale);
}

void PositionBasedStep::Smooth(WorkerPool& pool) {
  ForBlocks(table_, pool, [&](std::int32_t block) {
    pair_kernels::Velocities(constants_, table_.Block(block), table_.sites().data(), velocities_.data(), shares_.data(),
                             changes_.data(), Swirls() ? confinements_.data() : nullptr);
  });
}

Vec3D PositionBasedStep::ConfinementAt(std::int32_t place) const {
  if (!Swirls()) return {};
  const auto at = static_cast<std::size_t>(place);
  return Cross(Plain(confinements_[at]), Plain(vorticities_[at])) * (settings_.vorticityStrength * settings_.dt);
}

std::int64_t PositionBasedStep::Bytes() const {
  const std::size_t sites = flat_.capacity() + velocities_.capacity() + multipliers_.capacity() +
                            corrections_.capacity() + vorticities_.capacity() + changes_.capacity() +
                            confinements_.capacity();
  return table_.Bytes() +
         static_cast<std::int64_t>(sites * sizeof(Site) + (densities_.capacity() + shares_.capacity()) * 4 +
                                   closed_.capacity());
}

}  // namespace orlix
