#pragma once
// What a volume material does for the renderer. The renderer knows nothing of grids: it hands over rays, and gets light
// and transmittance back. The order of calls for a picture:
//
//   RenderStart    once, on the calling thread, with all workers at hand: builds what rays read
//   Volume, Transparency   from all workers at once, for each ray; they change nothing but their arguments
//   RenderEnd      once, frees what RenderStart built
//
// A ray's own random generator belongs to its tile of the picture, so that the picture is the same at any number of
// workers.

#include <cstdint>

#include "globals/Random.h"
#include "globals/Result.h"
#include "globals/Vec.h"
#include "host/threads/WorkerPool.h"
#include "host/ui/StatusLine.h"

namespace orlix {

struct Light;
class RenderWorld;

// The kinds of rays, as bits.
enum RayKind : std::uint32_t {
  kRayReflection = 0x10,    // mirrored by a surface
  kRayRefraction = 0x20,    // through a surface
  kRayCamera = 0x40,        // from the eye
  kRayShadow = 0x100,       // towards a light
  kRayGlobal = 0x400,       // gathers light around a surface
  kRayOcclusion = 1u << 13  // looks only whether the sky is free
};

// What a volume may keep from a sample of a pixel for the next one, which looks through the same pixel at the same
// time.
struct VolumeMemo {
  bool kept = false;
  double length = 0;  // of the ray's way in the volume, host units
  Vec3D light;
};

// A ray as the renderer gives it to a volume: host space, distances in host units.
struct VolumeRay {
  Vec3D origin, direction;  // direction is of unit length
  bool hit = false;         // whether a surface ends the ray; without one it goes on to the sky
  double hitDistance = 0;   // to that surface
  std::uint32_t kind = kRayCamera;
  double weight = 1;  // share of the picture's light that the ray carries; the volume's light is scaled by it
  const Light* light = nullptr;  // of a shadow ray
  double lightDistance = 0;      // to that light
  int worker = 0;                // 0 to 63
  MersenneTwister* random = nullptr;
  double jitter = -1;  // in [0, 1): where in its first step the ray starts; below 0 the generator decides
  double time = 0;     // seconds before (below 0) or after the time of the picture, within the shutter
  VolumeMemo* memo = nullptr;
};

// What a volume adds along a ray.
struct VolumeSample {
  Vec3D colour;                  // light that it sends along the ray
  Vec3D emission;                // the part of it that the volume shines by itself
  Vec3D transmittance{1, 1, 1};  // share of the light behind it that passes
  double distance = 0;           // from the ray's origin to where the volume is to be seen, for the depth channel
  Vec3D velocity;                // there, in host units a second
  std::uint32_t samples = 0;     // places at which the volume was looked at
};

// A point of a volume that glows, for surfaces to be lit by.
struct GlowPoint {
  Vec3D place;
  Vec3D colour;     // of a white surface a host unit away that faces it, as if all of the volume's light came from here
  double size = 0;  // host units across: nearer than that it isn't a point
};

// What a render start can reach.
struct RenderContext {
  const RenderWorld* world = nullptr;  // lights, camera, settings, surfaces
  WorkerPool* workers = nullptr;
  const BaseThread* thread = nullptr;  // asked to stop? May be null
  StatusLine* status = nullptr;        // may be null
  double time = 0;                     // seconds
  bool preview = false;                // a quick look: less detail is fine
};

class VolumeShader {
 public:
  virtual ~VolumeShader() = default;

  virtual Status RenderStart(const RenderContext& context) = 0;
  virtual void RenderEnd() = 0;

  // The box that holds all of the volume, in host space; false when there is nothing to be seen. Rays that miss the box
  // aren't handed over, and volumes along a ray are put in order by where it enters their boxes.
  virtual bool Bounds(Vec3D& low, Vec3D& high) const = 0;

  // Whether rays of a kind see it.
  virtual bool Sees(std::uint32_t /*kind*/) const { return true; }

  // The light of the volume along a ray. The sample arrives with its defaults, which mean that nothing is there.
  virtual void Volume(const VolumeRay& ray, VolumeSample& sample) const = 0;

  // The share of a light that comes through along a shadow ray.
  virtual Vec3D Transparency(const VolumeRay& ray) const = 0;

  // How many points of its glow a sample of a surface asks for, and one of them: taken in proportion to their power by
  // three numbers in [0, 1). What the volume itself takes away is in their power. With 0, rays that look around
  // surfaces meet the glow by chance.
  virtual int GlowPoints() const { return 0; }
  virtual GlowPoint GlowAt(const Vec3D& /*draws*/) const { return {}; }
};

// The part of a ray that lies in a box; begin and end are in units of the direction's length and given with the limits
// to start from. False when nothing is left. The box is wider by tolerance on all sides. Slabs: Kay and Kajiya 1986.
bool ClipToBox(const Vec3D& origin, const Vec3D& direction, const Vec3D& low, const Vec3D& high, double tolerance,
               double& begin, double& end);

}  // namespace orlix
