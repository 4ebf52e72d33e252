#pragma once
// The arrays of a sub-step of a position-based liquid, and its rounds over all particles: those of several lists are
// one liquid. Rounds run on the pool; each reads what the one before it wrote, so that the number of workers changes
// nothing.
//
//   step.Load(settings, populations, pool);                   // sorts, finds neighbours
//   for each iteration: step.Multiply(pool); step.Correct(pool); the caller moves its particles and tells by Move
//   step.Measure(pool);                                       // densities, vorticity of the velocities before
//   step.SetVelocity(...) for all, step.Smooth(pool);         // XSPH and confinement

#include <span>
#include <vector>

#include "fluids/particles/ParticleList.h"
#include "fluids/position_based/NeighbourTable.h"

namespace orlix {

struct PositionBasedSettings {
  double cellSize = 1;       // m
  double radius = 1;         // cells, of the kernel
  double restDensity = 1e5;  // 1/m^3, as the kernel sums it without the particle itself
  double viscosity = 0;      // XSPH: see kViscosityScale
  double relaxation = 0.05;
  double tensileStrength = 0.1;
  std::int32_t tensileExponent = 4;
  double delta = 0.1;  // shares of the radius
  std::int32_t iterations = 3;
  double vorticityStrength = 0;
  double dt = 0;  // s
};

// A viscosity of 0.001 takes all of the difference to the neighbours' mean velocity, whatever the resolution.
inline constexpr double kViscosityScale = 1000;
// Lists reach farther than the kernel, so that they hold while corrections move the particles.
inline constexpr double kReachFactor = 1.1;

struct DensityError {
  double mean = 0, largest = 0, compressed = 0;
};

class PositionBasedStep {
 public:
  struct Population {
    const ParticleList* list = nullptr;
    std::int32_t base = 0;  // of its first particle, counted over all
  };

  // Throws std::bad_alloc.
  void Load(const PositionBasedSettings& settings, std::span<const ParticleList* const> lists, const Vec3D& origin,
            WorkerPool& pool);
  void Clear();
  std::span<const Population> populations() const { return populations_; }
  std::int32_t count() const { return table_.count(); }
  const NeighbourTable& table() const { return table_; }

  // Particles that take part; all without a call. By places.
  std::span<std::uint8_t> Closed();
  bool IsClosed(std::int32_t place) const { return !closed_.empty() && closed_[static_cast<std::size_t>(place)] != 0; }

  void Multiply(WorkerPool& pool);
  void Correct(WorkerPool& pool);
  // Of the particle that stands at a place, m.
  Vec3D CorrectionAt(std::int32_t place) const { return FromCells(corrections_[static_cast<std::size_t>(place)]); }
  void Move(std::int32_t place, const Vec3D& position) {
    table_.sites()[static_cast<std::size_t>(place)] = ToCells(position);
  }
  std::int32_t PlaceOf(std::int32_t flatIndex) const { return table_.places()[static_cast<std::size_t>(flatIndex)]; }

  // Densities, and the vorticity of the velocities that were loaded.
  void Measure(WorkerPool& pool);
  // Shares of the rest density, by places.
  std::span<const float> densities() const { return densities_; }
  DensityError Error(WorkerPool& pool) const;
  // viscosity: of this particle.
  void SetVelocity(std::int32_t place, const Vec3D& velocity, double viscosity);
  void Smooth(WorkerPool& pool);
  // What viscosity changes.
  Vec3D VelocityChangeAt(std::int32_t place) const { return Plain(changes_[static_cast<std::size_t>(place)]); }
  // What the vorticity adds to the external force, m/s^2.
  Vec3D ConfinementAt(std::int32_t place) const;
  std::int64_t Bytes() const;

 private:
  static Vec3D Plain(const Site& s) {
    return {static_cast<double>(s.x), static_cast<double>(s.y), static_cast<double>(s.z)};
  }
  Vec3D FromCells(const Site& s) const { return Plain(s) * settings_.cellSize; }
  Site ToCells(const Vec3D& p) const {
    const Vec3D c = (p - origin_) * perCell_;
    return {static_cast<float>(c.x), static_cast<float>(c.y), static_cast<float>(c.z), 0};
  }
  bool Swirls() const { return settings_.vorticityStrength != 0; }

  PositionBasedSettings settings_;
  PairConstants constants_;
  Vec3D origin_;
  double perCell_ = 1;
  std::vector<Population> populations_;
  NeighbourTable table_;
  // By places, each with one more for what fills up lists.
  CountedVector<Site> flat_, velocities_, multipliers_, corrections_, vorticities_, changes_, confinements_;
  CountedVector<float> densities_, shares_;
  CountedVector<std::uint8_t> closed_;
};

}  // namespace orlix
