#pragma once
// From a property of particles to colours.

#include <optional>
#include <vector>

#include "fluids/particle_renderer/ParticleLook.h"
#include "fluids/particles/SeenVelocity.h"

namespace orlix {

// Where the colour of a look comes from, in one scene.
struct ColourSource {
  bool plain = true;
  PropertyKey key{PP::Velocity};
  PropertyType type = PropertyType::Vector;
  double dt = 0;        // of the last sub-step, s
  bool direct = false;  // a vector that is itself the colour or becomes one by its direction
};

// The values of a chunk, as vectors; a real is the first number.
class ColourValues {
 public:
  ColourValues(const ParticleRows& rows, const ColourSource& source);
  // False for a particle that has no value, or one that is no number.
  bool Get(std::int32_t row, Vec3D& value) const;

 private:
  const Vec3D* positions_ = nullptr;
  std::optional<SeenVelocity> velocities_;
  PropertyView<double> reals_;
  PropertyView<Vec3D> vectors_;
  PropertyView<std::uint8_t> states_;
};

struct ValueRange {
  double low = 0, high = -1;  // low above high: there is no value
  bool empty() const { return low > high; }
  void Add(double value);
  void Add(const ValueRange& other);
};
double NumberOf(const ColourSource& source, const Vec3D& value);
// Of all living particles.
ValueRange RangeOfValues(const ParticleList& list, const ColourSource& source, WorkerPool& workers);

// The gradient as a table, since a picture looks colours up by the million.
class ColourTable {
 public:
  ColourTable(const ParticleLook& look, const ColourSource& source, double low, double high);
  Vec3F plain() const { return plain_; }
  Vec3F Of(const Vec3D& value) const;

 private:
  ColourSource source_;
  bool direction_;
  double low_, scale_, brightness_;
  Vec3F plain_;
  std::vector<Vec3F> colours_;
};

}  // namespace orlix
