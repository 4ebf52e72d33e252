#pragma once
// Behaviour of a host object that builds its polygons from its settings alone, and only when they changed.

#include <span>

#include "host/objects/BaseObject.h"

namespace orlix {

class GeneratedGeometry : public ObjectData {
 public:
  Status Update(BaseObject& object, const BaseTime& time) override;
  const PolygonObject* Polygons() const override { return &polygons_; }

 protected:
  // Fills the empty result, with outward winding (counter-clockwise seen from outside) where it is closed.
  virtual void Build(const BaseObject& object, PolygonObject& result) const = 0;

 private:
  PolygonObject polygons_;
  std::uint32_t builtAt_ = 0;     // the object's dirty count at the last look; 0 never
  std::vector<Value> builtFrom_;  // the type's own settings
};

// A length from the settings: NaN and what is below 0 count as 0, infinity as the largest float.
double LengthOf(const BaseObject& object, int id);
Vec3D LengthsOf(const BaseObject& object, int id);
// A count from the settings, held to [least, most] whatever a keyframe says.
int SegmentsOf(const BaseObject& object, int id, int least, int most = 2048);

// A point of a profile: distance from the y axis, height.
using ProfilePoint = Vec2D;

// Turns a profile about the y axis. Neighbouring profile points make bands; a point on the axis (x exactly 0) is one
// shared point. The profile runs upwards on the outside for outward winding. With closed the last point joins the
// first.
void Revolve(std::span<const ProfilePoint> profile, bool closed, int segments, PolygonObject& result);

}  // namespace orlix
