#pragma once
// Small meshes and volumes for the tests of pictures.

#include <cmath>
#include <numbers>

#include "host/render/RenderWorld.h"

namespace orlix {

// A square of side 2 x half in y = 0, facing up.
inline PolygonObject SquareMesh(double half) {
  PolygonObject mesh;
  mesh.points = {{-half, 0, half}, {half, 0, half}, {half, 0, -half}, {-half, 0, -half}};
  mesh.polygons = {{0, 1, 2, 3}};
  return mesh;
}

// A sphere about the origin: rings of quads, triangles at the poles.
inline PolygonObject SphereMesh(double radius, int rings) {
  PolygonObject mesh;
  const int columns = 2 * rings;
  mesh.points.push_back({0, radius, 0});
  for (int r = 1; r < rings; ++r) {
    const double a = std::numbers::pi * r / rings;
    for (int c = 0; c < columns; ++c) {
      const double b = 2 * std::numbers::pi * c / columns;
      mesh.points.push_back(Vec3D{std::sin(a) * std::sin(b), std::cos(a), std::sin(a) * std::cos(b)} * radius);
    }
  }
  mesh.points.push_back({0, -radius, 0});
  const auto last = static_cast<std::int32_t>(mesh.points.size() - 1);
  const auto at = [&](int ring, int column) { return 1 + (ring - 1) * columns + column % columns; };
  for (int c = 0; c < columns; ++c) {
    mesh.polygons.push_back({0, at(1, c), at(1, c + 1), at(1, c + 1)});
    for (int r = 1; r < rings - 1; ++r)
      mesh.polygons.push_back({at(r, c), at(r + 1, c), at(r + 1, c + 1), at(r, c + 1)});
    mesh.polygons.push_back({at(rings - 1, c), last, at(rings - 1, c + 1), at(rings - 1, c + 1)});
  }
  return mesh;
}

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

// A world of the given size with no lights and a black sky that is seen.
inline void SetUpPicture(RenderWorld& world, int width, int height, int samples = 1) {
  world.settings.width = width, world.settings.height = height;
  world.settings.samples = samples;
  world.settings.skyColour = {};
  world.lights.clear();
}

}  // namespace orlix
