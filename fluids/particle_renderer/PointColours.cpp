#include "fluids/particle_renderer/PointColours.h"

#include <algorithm>
#include <cmath>

namespace orlix {

namespace {

constexpr int kColours = 1024;

}  // namespace

ColourValues::ColourValues(const ParticleRows& rows, const ColourSource& source) {
  if (source.plain) return;
  if (source.key.id == PP::Velocity) {
    velocities_.emplace(rows, source.dt);
  } else if (source.key.id == PP::Position) {
    positions_ = rows.positions();
  } else if (source.type == PropertyType::Real) {
    reals_ = rows.Property<double>(source.key);
  } else if (source.type == PropertyType::Vector) {
    vectors_ = rows.Property<Vec3D>(source.key);
  } else {
    states_ = rows.Property<std::uint8_t>(source.key);
  }
}

bool ColourValues::Get(std::int32_t row, Vec3D& value) const {
  if (velocities_) {
    value = velocities_->Of(row);
  } else if (positions_) {
    value = positions_[row];
  } else if (reals_.Has(row)) {
    value = {reals_.values()[row], 0, 0};
  } else if (vectors_.Has(row)) {
    value = vectors_.values()[row];
  } else if (states_.Has(row)) {
    value = {static_cast<double>(states_.values()[row]), 0, 0};
  } else {
    return false;
  }
  return IsFinite(value);
}

double NumberOf(const ColourSource& source, const Vec3D& value) {
  return source.type == PropertyType::Vector ? Length(value) : value.x;
}

void ValueRange::Add(double value) { Add(ValueRange{value, value}); }

void ValueRange::Add(const ValueRange& other) {
  if (other.empty()) return;
  low = empty() ? other.low : std::min(low, other.low);
  high = empty() ? other.high : std::max(high, other.high);
}

ValueRange RangeOfValues(const ParticleList& list, const ColourSource& source, WorkerPool& workers) {
  std::vector<ValueRange> parts(static_cast<std::size_t>(list.chunkCount()));
  ParallelChunks(workers, list, [&](int chunk, const ParticleRows& rows) {
    const ColourValues values(rows, source);
    ValueRange& part = parts[static_cast<std::size_t>(chunk)];
    Vec3D value;
    for (std::int32_t r = rows.begin; r < rows.end; ++r) {
      if ((rows.flags()[r] & ParticleFlag::Alive) != 0 && values.Get(r, value)) part.Add(NumberOf(source, value));
    }
  });
  ValueRange range;
  for (const ValueRange& part : parts) range.Add(part);
  return range;
}

ColourTable::ColourTable(const ParticleLook& look, const ColourSource& source, double low, double high)
    : source_(source),
      direction_(source.direct && source.key.id != PP::Color),
      low_(low),
      scale_(high != low ? kColours / (high - low) : 0),
      brightness_(look.brightness),
      plain_(look.colour * look.brightness) {
  for (int n = 0; n <= kColours; ++n) {
    colours_.emplace_back(look.colours.ColourAt(static_cast<double>(n) / kColours) * look.brightness);
  }
}

Vec3F ColourTable::Of(const Vec3D& value) const {
  if (source_.direct) return Vec3F((direction_ ? Normalized(value) * 0.5 + Vec3D(0.5) : value) * brightness_);
  const double place = std::clamp((NumberOf(source_, value) - low_) * scale_, 0.0, double{kColours});
  return colours_[static_cast<std::size_t>(place)];
}

}  // namespace orlix
