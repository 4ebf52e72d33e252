#pragma once
// Rigid bodies under gravity, forces and contacts: Bullet behind a plain interface. Nothing here knows of fluids.
//
// A step begins from the plain state of each body and ends in it; what Bullet keeps between steps of its own (pairs,
// contacts, impulses) lives within one call. So a state that was saved goes on with the same bits, and the order of the
// entries alone decides the order of all sums.
//
// Everything is in simulation space, metres and seconds. Bullet's axes are left handed seen from there: z is negated
// on the way in and out, and vectors of turning, which are axial, keep z and lose the sign of x and y. All of it is
// narrowed to single precision.

#include <cstdint>
#include <memory>
#include <span>

#include "globals/Vec.h"

namespace orlix {

// Where a body is and how it moves.
struct RigidState {
  LMatrix pose;          // turns and moves alone
  Vec3D velocity, spin;  // m/s, rad/s
  Vec3D force, torque;   // N, N m; act for one step
  float idleTime = 0;    // s below the sleeping thresholds; below 0: a fluid took its weight
  std::int32_t asleep = 0;
  // Of the weight of the liquid around it, the share that the liquid's pressure carried in its last solve: 1 at rest, 0
  // where both fall.
  double carried = 1;
};

// The triangles that a body collides with, in the axes of its pose.
class RigidShape {
 public:
  // A still one is a tree of triangles that meets moving ones; moving ones meet all. A margin below 0 leaves Bullet's.
  RigidShape(std::span<const Vec3D> points, std::span<const VecInt3D> triangles, bool still, double margin);
  ~RigidShape();
  void SetMargin(double margin);
  // The moments about the axes of a mass that is shared by the points, kg m^2.
  Vec3D PointInertia(double mass) const;

  struct Parts;
  const Parts& parts() const { return *parts_; }

 private:
  std::unique_ptr<Parts> parts_;
};

enum class RigidContact { Restitution, Friction, RollingFriction };

// Factors on what a body brings to a contact, by place.
class iContactScale {
 public:
  virtual ~iContactScale() = default;
  virtual double ContactScale(RigidContact what, const Vec3D& place) const = 0;
};

struct RigidEntry {
  enum class Kind { Still, Driven, Dynamic };
  Kind kind = Kind::Still;
  const RigidShape* shape = nullptr;
  RigidState* state = nullptr;
  LMatrix target;  // of a driven body: where it stands after the step
  double mass = 0;
  Vec3D inertia;  // about the axes of the pose, kg m^2
  Vec3D linearFactor{1.0}, angularFactor{1.0};
  double friction = 0, rollingFriction = 0, restitution = 0;
  double linearDamping = 0, angularDamping = 0;
  double linearSleep = 0, angularSleep = 0;
  double sweptRadius = 0, sweptThreshold = 0;  // m, of the test for what moves far in a step
  bool passesThrough = false;
  const iContactScale* contact = nullptr;
};

// All that is beyond it, against the normal, is solid.
struct RigidPlane {
  Vec3D normal;
  double offset = 0;  // of the plane from the origin along the normal, m
};

struct RigidStep {
  double dt = 0;  // s
  std::int32_t substeps = 1, iterations = 10;
  std::int32_t broadphase = 0;  // 0 a tree, 1 and 2 sorted along the axes
  double slop = 0.1;            // m, by which bodies may sink into each other
  Vec3D gravity;
  std::span<const RigidPlane> walls;
};

// The sorted broad phases take no more bodies than this, within 10 km of the origin.
inline constexpr std::size_t kMostSortedBodies = 1024;
inline constexpr double kSortedExtent = 10000;

// On one thread.
void StepRigidBodies(std::span<const RigidEntry> bodies, const RigidStep& step);

}  // namespace orlix
