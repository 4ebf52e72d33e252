#pragma once
// Makes the marcher's maps of light: for each light what reaches each place through the gas, and the same for flames.

#include <memory>
#include <vector>

#include "fluids/volume_renderer/RayMarcher.h"

namespace orlix {

class LightMapBuilder {
 public:
  LightMapBuilder(RayMarcher& marcher, WorkerPool& pool, const BaseThread* thread, StatusLine* status)
      : marcher_(marcher), pool_(pool), thread_(thread), status_(status) {}

  // An error when memory doesn't suffice. A break leaves the rest of the maps dark.
  Status Build(const std::vector<Light>& lights);

 private:
  GridSpace LatticeOf(double scale) const;
  std::unique_ptr<Grid<std::uint8_t>> FindLitCells(const GridSpace& lattice) const;
  void BuildSkyMap();
  Vec3D SkyAt(const Vec3D& x, MersenneTwister& random, int worker) const;
  // Evens out what jitter left between lit cells.
  void DiffuseMap(VectorGrid& map);
  // The share of a light that gets to a place, from one of its points.
  Vec3D Passing(const Vec3D& x, const Illumination& illumination, MersenneTwister& random, int worker) const;
  Vec3D LightAt(const Light& light, const VecInt3D& cell, MersenneTwister& random, int worker) const;
  void BuildLightMaps(const std::vector<Light>& lights);
  void BuildFireMap();
  void BlurLightMap(VectorGrid& map);
  void LightRow(LightMap& map, int j, int k, int worker) const;
  std::unique_ptr<ScalarGrid> NewScalar(double fill) const;

  RayMarcher& marcher_;
  WorkerPool& pool_;
  const BaseThread* thread_;
  StatusLine* status_;
  GridSpace lattice_;
  std::unique_ptr<Grid<std::uint8_t>> lit_;
};

}  // namespace orlix
