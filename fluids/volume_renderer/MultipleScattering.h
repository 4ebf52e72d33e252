#pragma once
// Light that has scattered many times inside the gas, as an estimate instead of paths: light that goes a long way
// through gas spreads by a width that follows from its way's length and optical depth (Premoze, Ashikhmin, Tessendorf,
// Ramamoorthi, Nayar 2004). Before the first ray each cell gets its depth along the way to each light, and a pyramid of
// blurred light; a sample of the view ray reads the pyramid at the width that the light has got until there.

#include <array>
#include <cstdint>
#include <memory>
#include <vector>

#include "fluids/volume_renderer/RayMarcher.h"

namespace orlix {

// A level's cells are twice as wide as those of the one before.
class LightPyramid {
 public:
  static constexpr std::size_t kMostLevels = 5;
  // From the light at each cell, which becomes level 0. factor: width of level 0 in cells. False on a break. Throws
  // std::bad_alloc.
  bool Build(std::unique_ptr<ScalarGrid> light, double factor, WorkerPool& pool, const BaseThread* thread);
  // A place in all levels. Pyramids of one lattice can share it.
  class Place {
   public:
    explicit Place(const Vec3D& x) : x_(x) {}
    const LatticeCell& In(const LightPyramid& pyramid, std::size_t level);

   private:
    Vec3D x_;
    std::uint32_t known_ = 0;  // levels, as bits
    std::array<LatticeCell, kMostLevels> cells_;
  };
  // Light at a place, spread over a width, both in host units.
  double Sample(const Vec3D& x, double width) const {
    Place place(x);
    return Sample(place, width);
  }
  double Sample(Place& place, double width) const;
  std::size_t levels() const { return levels_.size(); }
  double widthOf(std::size_t level) const { return levels_[level].width; }

 private:
  struct Level {
    std::unique_ptr<ScalarGrid> grid;
    double width = 0;
    HostSampler<double> sampler;
  };
  std::vector<Level> levels_;
};

// Of one light.
struct ScatteringMap {
  Light light;
  Vec3D hue;  // the light's colour without its strength, which the pyramid holds
  std::unique_ptr<FloatGrid> depthGrid, lengthGrid;
  HostSampler<float> depth, length;
  LightPyramid pyramid;
};

class MultipleScattering {
 public:
  // The marcher is built but for this, and outlives it.
  explicit MultipleScattering(const RayMarcher& marcher);

  // Throws std::bad_alloc. A break leaves what was reached.
  void Build(const std::vector<Light>& lights, WorkerPool& pool, const BaseThread* thread);
  // The light along a view ray, of all lights together.
  Vec3D Along(const MarchRay& ray, MersenneTwister* random, int worker) const;

  // Mode 0 sets all three, mode 1 leaves length and absorption.
  struct Measure {
    double length = 0, absorption = 0, scattering = 0;
  };
  void MeasureRay(const MarchRay& ray, int mode, Measure& out, MersenneTwister* random, int worker) const;
  const std::vector<ScatteringMap>& maps() const { return maps_; }

 private:
  double FindMeanDensity() const;
  void FillRow(ScatteringMap& map, ScalarGrid& light, int j, int k, int worker) const;
  // The light of each map at a place of the view ray: t from its start, at an optical depth of tau.
  Vec3D LightAt(const MarchRay& ray, const Vec3D& x, double t, double tau, double g, double p) const;

  const RayMarcher& marcher_;
  const ScatteringSettings& settings_;
  double spread_, step_;  // those of the marcher or this effect's own
  double meanDensity_ = 0;
  std::optional<PhaseFunction> phase_;
  std::vector<ScatteringMap> maps_;
};

}  // namespace orlix
