#pragma once
// The light along a ray of the camera: surfaces, the lights on them, the sky, and volumes in front of it all. One
// belongs to each worker.

#include <cstdint>
#include <vector>

#include "globals/Random.h"
#include "host/render/PointRaster.h"
#include "host/render/RenderWorld.h"

namespace orlix {

// A volume that has something to show, with its box.
struct VolumeInBox {
  const VolumeShader* volume = nullptr;
  Vec3D low, high;
};

struct RayCounts {
  std::uint64_t camera = 0, shadow = 0, gather = 0, volume = 0, volumeSamples = 0, notFinite = 0;
};

struct ShadedRay {
  Vec3D colour;
  double alpha = 0;     // 0 where the ray goes on unhindered to a hidden sky
  bool found = false;   // whether there is anything at distance
  double distance = 0;  // from the ray's origin
  Vec3D velocity;       // host units a second
};

class RayShader {
 public:
  RayShader(const RenderWorld& world, const std::vector<VolumeInBox>& volumes, int worker);

  // The generator of the tile in hand: volumes draw from it.
  void SetRandom(MersenneTwister& random) { random_ = &random; }

  // point: of the clouds, where the ray meets one. Gather rays take their directions from points firstIndex, firstIndex
  // + 1, ... of the pixel's sequence.
  ShadedRay Shade(const CameraRay& ray, const PointHit* point, const Vec2D& pixelOffset, std::uint64_t firstIndex);

  const RayCounts& counts() const { return counts_; }

 private:
  struct Span {
    double begin;
    const VolumeInBox* volume;
  };
  VolumeSample VolumesAlong(VolumeRay& ray, double end);
  Vec3D LightPassing(const Light& light, const Illumination& illumination, const Vec3D& x);
  // The same, of a light with a width: the mean over its disc. firstIndex: of the pixel's sequence.
  Vec3D LightPassing(const Light& light, const Illumination& illumination, const Vec3D& x, const Vec2D& pixelOffset,
                     std::uint64_t firstIndex);
  // A ray after its first surface.
  struct Path {
    Vec3D origin, direction;
    std::uint32_t kind = 0;
    const SurfaceMaterial* medium = nullptr;  // the clear shape that it runs through; null outside of all
    double weight = 1;                        // what its light counts for the picture
    int bounce = 1;
    const PointHit* point = nullptr;  // that the ray of the camera would meet, and where: what is bent isn't followed
    Vec3D pointPlace;                 // to that point
    double toPoint = 0;
  };
  // The light that comes along a path. pixelOffset, firstIndex: of the pixel's sequence.
  Vec3D Follow(const Path& path, const Vec2D& pixelOffset, std::uint64_t firstIndex);
  // What a clear surface shows: what it mirrors and what is to be seen through it.
  Vec3D ShadeClear(const SurfaceHit& hit, const Path& path, const Vec2D& pixelOffset, std::uint64_t firstIndex);
  // The highlights of the lights on a surface.
  Vec3D Highlights(const SurfaceHit& hit, const Vec3D& toEye, const Vec2D& pixelOffset, std::uint64_t firstIndex);
  Vec3D ShadePoint(const PointHit& point, const Vec3D& x);
  // rays: that look around the surface for the light of sky, gas and glowing surfaces.
  Vec3D ShadeSurface(const SurfaceHit& hit, const Vec3D& toEye, int rays, const Vec2D& pixelOffset,
                     std::uint64_t firstIndex);
  Vec3D GatherAround(const SurfaceHit& hit, const Vec3D& origin, int rays, const Vec2D& pixelOffset,
                     std::uint64_t firstIndex);
  bool FindSpans(const Vec3D& origin, const Vec3D& direction, double end);

  const RenderWorld& world_;
  const std::vector<VolumeInBox>& volumes_;
  const int worker_;
  MersenneTwister* random_ = nullptr;
  std::vector<Span> spans_;  // along the ray in hand
  RayCounts counts_;
};

}  // namespace orlix
