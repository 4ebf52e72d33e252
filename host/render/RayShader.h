#pragma once
// The light along a ray of the camera: surfaces, the lights on them, the sky, and volumes in front of it all. One
// belongs to each worker.

#include <array>
#include <cstdint>
#include <vector>

#include "globals/Random.h"
#include "host/render/PointRaster.h"
#include "host/render/RenderWorld.h"
#include "host/render/SampleSequence.h"

namespace orlix {

// A volume that has something to show, with its box.
struct VolumeInBox {
  const VolumeShader* volume = nullptr;
  Vec3D low, high;
  bool gathered = true;  // rays that look around a surface see it
};

struct RayCounts {
  std::uint64_t camera = 0, shadow = 0, gather = 0, volume = 0, volumeSamples = 0, notFinite = 0;
};

struct ShadedRay {
  Vec3D colour;
  Vec3D gas, surfaces, emission;  // parts of it: of volumes, of surfaces and points, and the volumes' own light
  double gasAlpha = 0;
  double alpha = 0;     // 0 where the ray goes on unhindered to a hidden sky
  bool found = false;   // whether there is anything at distance
  double distance = 0;  // from the ray's origin
  Vec3D velocity;       // host units a second
};

// What a sample draws its numbers from.
struct SampleDraws {
  Vec2D offset;              // of the pixel
  std::uint64_t sample = 0;  // of the pixel
  bool opensPair = true;     // volumes may share work between it and the next
  double jitter = 0.5;       // where rays into volumes start in their first step
  double time = 0.5;         // of the shutter

  // Point n of count that each sample takes: one sequence goes on through all samples of the pixel. stream: what it is
  // for.
  Vec2D Point(int stream, int n, int count) const {
    constexpr double kAcross = 0.6180339887498949, kAlong = 0.7548776662466927;  // from one stream to the next
    return SobolPoint(Index(n, count), {offset.x + kAcross * stream, offset.y + kAlong * stream});
  }
  std::uint32_t Index(int n, int count) const {
    return static_cast<std::uint32_t>(sample) * static_cast<std::uint32_t>(count) + static_cast<std::uint32_t>(n);
  }
};

class RayShader {
 public:
  RayShader(const RenderWorld& world, const std::vector<VolumeInBox>& volumes, int worker);

  // The generator of the tile in hand: volumes draw from it.
  void SetRandom(MersenneTwister& random) { random_ = &random; }

  // point: of the clouds, where the ray meets one.
  ShadedRay Shade(const CameraRay& ray, const PointHit* point, const SampleDraws& draws);

  const RayCounts& counts() const { return counts_; }

 private:
  struct Span {
    double begin;
    const VolumeInBox* volume;
  };
  VolumeSample VolumesAlong(VolumeRay& ray, double end);
  Vec3D LightPassing(const Light& light, const Illumination& illumination, const Vec3D& x,
                     const VolumeShader* except = nullptr);
  // The light of one light that a surface sends to the eye; of one with a width, the mean over it.
  Vec3D LightOnSurface(const Light& light, const SurfaceHit& hit, const SurfaceMaterial& material, const Vec3D& origin,
                       const Vec3D& toEye);
  // The same of what glows in volumes, by points of its power.
  Vec3D GlowOnSurface(const SurfaceHit& hit, const SurfaceMaterial& material, const Vec3D& origin, const Vec3D& toEye);
  // The clear shapes that a point lies in. Where some overlap, as water that reaches into its glass, there is only the
  // one of the largest refraction (Schmidt and Budge 2002).
  class Media {
   public:
    void Enter(const SurfaceMaterial* shape);
    void Leave(const SurfaceMaterial* shape);
    const SurfaceMaterial* There() const;  // null in the air

   private:
    std::array<const SurfaceMaterial*, 6> shapes_{};  // null: none; what is entered beyond six is left out
  };
  // A ray after its first surface.
  struct Path {
    Vec3D origin, direction;
    std::uint32_t kind = 0;
    Media media;        // that it runs through
    double weight = 1;  // what its light counts for the picture
    int bounce = 1;
    const PointHit* point = nullptr;  // that the ray of the camera would meet, and where: what is bent isn't followed
    Vec3D pointPlace;                 // to that point
    double toPoint = 0;
    double way = 0;  // from the camera to the origin
  };
  // The light that comes along a path.
  Vec3D Follow(const Path& path);
  // What a clear surface shows: what it mirrors and what is to be seen through it.
  Vec3D ShadeClear(const SurfaceHit& hit, const Path& path);
  // The highlights of the lights on a surface.
  Vec3D Highlights(const SurfaceHit& hit, const Vec3D& toEye);
  Vec3D ShadePoint(const PointHit& point, const Vec3D& x);
  // What is left of a surface's colour after a way through the air that scatters the sky's light into it (Koschmieder
  // 1924). What is clear fades as what it shows.
  Vec3D Hazed(const Vec3D& colour, const Vec3D& direction, double way) const;
  // rays: that look around the surface for the light of sky, gas and glowing surfaces.
  Vec3D ShadeSurface(const SurfaceHit& hit, const Vec3D& toEye, int rays);
  Vec3D GatherAround(const SurfaceHit& hit, const SurfaceMaterial& material, const Vec3D& origin, int rays);
  // The light along one ray of these. met, distance: the first surface; null for none.
  Vec3D GatherAlong(const Vec3D& origin, const Vec3D& direction, const SurfaceMaterial* met, double distance);
  const std::vector<Light>& Lights() const { return world_.lightsMove ? lights_ : world_.lights; }
  bool FindSpans(const Vec3D& origin, const Vec3D& direction, double end, std::uint32_t kind);

  const RenderWorld& world_;
  const std::vector<VolumeInBox>& volumes_;
  const int worker_;
  MersenneTwister* random_ = nullptr;
  std::vector<Span> spans_;        // along the ray in hand
  std::vector<VolumeMemo> memos_;  // of each volume: the first of each two samples of a pixel fills it
  std::vector<Light> lights_;      // at the sample's time, where they move
  SampleDraws draws_;
  RayCounts counts_;
};

}  // namespace orlix
