#pragma once
// The values of a channel or of volumes at runs of points, such as particles.
//
//   sampler.SetScalar(grid, mode);                        // or SetVector, SetVolumes
//   points.count = n;  sampler.Sample(positions, points)  // points.inside, and real or vector

#include <array>
#include <vector>

#include "fluids/advection/VelocityPoints.h"
#include "fluids/channels/iChannel.h"
#include "fluids/volumes/VolumeBase.h"

namespace orlix {

struct SampledPoints {
  static constexpr std::int32_t kMost = PointRun::kMost;
  std::int32_t count = 0;
  bool inside[kMost];   // where not, the values mean nothing
  double real[kMost];   // of a scalar source
  Vec3D vector[kMost];  // of a vector source
};

// Rows that the next run will write, on their way to the caches.
inline void PrefetchForWriting(const Vec3D* rows, std::int32_t count) {
  const char* at = reinterpret_cast<const char*>(rows);
  for (std::size_t b = 0; b < sizeof(Vec3D) * static_cast<std::size_t>(count); b += 64) __builtin_prefetch(at + b, 1);
}

class PointSampler {
 public:
  void SetScalar(const ScalarGrid& grid, Interpolation mode);
  void SetVector(const std::array<const ScalarGrid*, 3>& grids, Interpolation mode);
  // The distance to the first of them whose box holds a point; always trilinear.
  void SetVolumes(std::vector<const VolumeBase*> volumes);
  bool GivesVectors() const { return grids_[1] != nullptr; }

  // At most kMost positions, in simulation space.
  void Sample(const Vec3D* positions, std::int32_t count, SampledPoints& out) const;

 private:
  void SampleGrids(const Vec3D* positions, SampledPoints& out) const;
  void SampleTrilinearRun(const Vec3D* positions, SampledPoints& out) const;

  std::array<const ScalarGrid*, 3> grids_{};  // one, or three
  Interpolation mode_ = Interpolation::Trilinear;
  std::vector<const VolumeBase*> volumes_;
  VelocityView velocity_;  // of staggered grids
};

}  // namespace orlix
