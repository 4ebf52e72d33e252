#pragma once
// Small meshes and volumes for the tests of pictures.

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>

#include "globals/Random.h"
#include "host/render/Renderer.h"
#include "tests/support/SpherePolygons.h"

namespace orlix {

// In the unit cube about the origin.
inline Vec3D RandomVector(MersenneTwister& random) {
  const double x = random.Uniform() - 0.5, y = random.Uniform() - 0.5;
  return {x, y, random.Uniform() - 0.5};
}

// A square of side 2 x half in y = 0, facing up.
inline PolygonObject SquareMesh(double half) {
  PolygonObject mesh;
  mesh.points = {{-half, 0, half}, {half, 0, half}, {half, 0, -half}, {-half, 0, -half}};
  mesh.polygons = {{0, 1, 2, 3}};
  return mesh;
}

inline PolygonObject SphereMesh(double radius, int rings) { return test::SpherePolygons(radius, 2 * rings, rings); }

// A box full of even matter that swallows and glows.
class BoxVolume : public VolumeShader {
 public:
  Vec3D low{-1, -1, -1}, high{1, 1, 1};
  double absorption = 0;  // per host unit
  Vec3D glow;             // colour per host unit, unhindered by the absorption
  bool noisy = false;     // multiplies the glow by random numbers
  bool failing = false;
  int starts = 0, ends = 0;

  Status RenderStart(const RenderContext&) override {
    ++starts;
    return failing ? Status::Fail(ErrorKind::Memory, "no memory for the volume") : Status();
  }
  void RenderEnd() override { ++ends; }
  bool Bounds(Vec3D& boxLow, Vec3D& boxHigh) const override {
    boxLow = low, boxHigh = high;
    return true;
  }
  void Volume(const VolumeRay& ray, VolumeSample& sample) const override {
    double begin = 0, end = ray.hit ? ray.hitDistance : 1e6;
    if (!ClipToBox(ray.origin, ray.direction, low, high, 0, begin, end)) return;
    sample.colour = glow * ((end - begin) * ray.weight * (noisy ? ray.random->Uniform() : 1.0));
    sample.transmittance = Vec3D(std::exp(-absorption * (end - begin)));
    sample.distance = begin;
    sample.velocity = {1, 2, 3};
  }
  Vec3D Transparency(const VolumeRay& ray) const override {
    double begin = 0, end = ray.lightDistance;
    if (!ray.light || !ClipToBox(ray.origin, ray.direction, low, high, 0, begin, end)) return {1, 1, 1};
    return Vec3D(std::exp(-absorption * (end - begin)));
  }
};

inline Picture Rendered(const RenderWorld& world, int workers = 2, RenderReport* report = nullptr,
                        const RenderOptions& options = {}) {
  WorkerPool pool(workers);
  Result<Picture> picture = RenderPicture(world, pool, options, report);
  EXPECT_TRUE(picture) << (picture ? "" : picture.error().text);
  return picture ? *picture : Picture();
}

inline float At(const Picture& picture, const char* channel, int x, int y) {
  return picture.Find(channel)->values[static_cast<std::size_t>(y * picture.width() + x)];
}

inline Light Sun(const Vec3D& direction) {
  Light sun;
  sun.kind = LightKind::Distant, sun.direction = Normalized(direction);
  return sun;
}

// A world of the given size with no lights and a black sky that is seen.
inline void SetUpPicture(RenderWorld& world, int width, int height, int samples = 1) {
  world.settings.width = width, world.settings.height = height;
  world.settings.samples = samples;
  world.settings.skyColour = {}, world.settings.skyHorizon = {1, 1, 1};
  world.lights.clear();
}

}  // namespace orlix
