#pragma once
// All polygon surfaces of a picture, in an acceleration structure (Embree). Coordinates are held in single precision
// around the centre of everything, so that a scene far from the origin keeps its detail.

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "globals/Result.h"
#include "globals/Vec.h"
#include "host/objects/BaseObject.h"
#include "host/render/DirectionPacket.h"
#include "host/render/SurfaceMaterial.h"

namespace orlix {

// One object. The polygons must stay where they are while the scene lives.
struct Surface {
  const PolygonObject* polygons = nullptr;
  LMatrix matrix{};  // local to host space
  SurfaceMaterial material{};
  const std::vector<Vec3D>* velocities = nullptr;  // of each point, host units a second; null for one at rest
  std::string name{};                              // for messages
};

struct SurfaceHit {
  double distance = 0;
  Vec3D point;       // host space
  Vec3D normal;      // smoothed, unit, on the side that the ray comes from
  Vec3D faceNormal;  // of the flat polygon, likewise
  Vec3D lift;        // from the point to the round surface that smoothed normals pretend, where that bulges out
  Vec3D velocity;    // host units a second
  Vec2D texture;     // where hasTexture
  bool hasTexture = false;
  bool outside = true;  // the ray comes from the side that the polygon's own normal points to
  const SurfaceMaterial* material = nullptr;
};

// What the rays of a packet meet first.
struct PacketHits {
  const SurfaceMaterial* material[DirectionPacket::kSize];  // null: nothing
  double distance[DirectionPacket::kSize];
};

class SurfaceScene {
 public:
  SurfaceScene();
  ~SurfaceScene();
  SurfaceScene(const SurfaceScene&) = delete;
  SurfaceScene& operator=(const SurfaceScene&) = delete;

  // Polygons with an index that isn't there or a point that is no number are left out. Replaces what was there.
  // shutter: seconds; points with velocities move by them. Rays ask at a time of the shutter, 0 to 1; surfaces are
  // given for its middle.
  Status Build(const std::vector<Surface>& surfaces, double shutter = 0);
  bool empty() const;
  std::int64_t triangleCount() const;
  // The box of all triangles; false when there are none.
  bool Bounds(Vec3D& low, Vec3D& high) const;

  // The nearest surface within (0, length) along a unit direction.
  bool Intersect(const Vec3D& origin, const Vec3D& direction, double length, SurfaceHit& hit, double time = 0.5) const;
  // The same for the rays of a packet whose bits are set in asked, from one origin; the others meet nothing.
  void IntersectPacket(const Vec3D& origin, const DirectionPacket& directions, std::uint32_t asked, PacketHits& hits,
                       double time = 0.5) const;
  // Whether any surface lies within (0, length).
  bool Occluded(const Vec3D& origin, const Vec3D& direction, double length, double time = 0.5) const;
  // The nearest surface that isn't clear; passing is multiplied by what the clear ones before it let through, along the
  // straight way.
  bool IntersectOpaque(const Vec3D& origin, const Vec3D& direction, double length, SurfaceHit& hit, Vec3D& passing,
                       double time = 0.5) const;
  // The share of light that comes along (0, length) from a light to origin.
  Vec3D Passing(const Vec3D& origin, const Vec3D& direction, double length, double time = 0.5) const;
  // A point off the surface on the side that faceNormal points to, far enough that a ray from it doesn't meet the
  // surface that it left.
  Vec3D OffSurface(const SurfaceHit& hit) const;
  // The same on the other side.
  Vec3D BeyondSurface(const SurfaceHit& hit) const;
  // Where rays to lights start: lifted, so that a smooth surface isn't in the shadow of its own flat polygons.
  Vec3D ShadowOrigin(const SurfaceHit& hit) const { return OffSurface(hit) + hit.lift; }

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace orlix
