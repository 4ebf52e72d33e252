#pragma once
// A body of the rigid world: what its tag says, its shape, and where it is.
//
//   static   stands where its mesh is
//   driven   follows its host object; moves others, and isn't moved
//   dynamic  moves by gravity, forces and contacts
//
// The points of its mesh are kept in the axes of its pose: what it encloses turns and moves with them, and is never
// deformed by rounding.

#include <cstdint>
#include <memory>
#include <vector>

#include "fluids/bodies/RigidDynamics.h"
#include "fluids/meshes/TriMeshSTL.h"
#include "fluids/scene/StateVisitor.h"
#include "host/objects/BaseObject.h"

namespace orlix {

// The tag that makes a volume an obstacle.
inline constexpr int kObstacleTagId = 1300111;

enum class BodyType : std::int32_t { Static = 0, Driven = 1, Dynamic = 2 };

class RigidBody {
 public:
  virtual ~RigidBody() = default;

  // The tag's settings, with their rows' fallbacks. started: bodies exist, and a mass that becomes 0 freezes one.
  virtual void ReadTag(const BaseObject& tag, bool started);
  virtual double GetMass() const { return mass; }

  // From a mesh in simulation space. isChange: the same body with another mesh, which keeps its motion. False without
  // triangles; there is no body then.
  bool Create(const TriMeshSTL& mesh, bool isChange);
  void Free();
  bool HasBody() const { return !points_.empty(); }
  // Puts a mesh, whose points were those of Create, where the body is.
  void TakeMesh(TriMeshSTL& mesh) const;
  // Mass, inertia and kind by the settings as they are.
  void ApplySettings();

  BodyType bodyType() const { return bodyType_; }
  bool IsFrozen() const { return frozen_; }
  // Neither forces nor fluids move it now.
  bool IsHeld() const { return bodyType_ != BodyType::Dynamic || state.asleep != 0 || frozen_; }
  double InverseMass() const { return bodyType_ == BodyType::Dynamic ? 1 / effectiveMass_ : 0; }
  // In simulation axes, with the angular factor on both sides.
  Vec3D InverseInertiaTimes(const Vec3D& torque) const;
  // m^3 that its mesh encloses; 0 for one that isn't closed.
  double Volume() const { return volume_; }
  const std::vector<Vec3D>& RestPoints() const { return points_; }
  // The mesh's own matrix where the body is.
  LMatrix MeshMatrix() const { return state.pose * meshInBody_; }
  // The pose that belongs to a matrix of the mesh.
  LMatrix PoseOf(const LMatrix& meshMatrix) const;

  // No effect on a body that isn't dynamic. Forces act in the rigid world's next step, impulses at once.
  void AddForce(const Vec3D& force);
  void AddTorque(const Vec3D& torque);
  void AddForceAt(const Vec3D& force, const Vec3D& place);
  void AddImpulse(const Vec3D& impulse);
  void AddAngularImpulse(const Vec3D& impulse);
  // A fluid's force and torque. False while it sleeps on; one that would soon wake it does so now.
  bool FeelsForce(const Vec3D& force, const Vec3D& torque);

  // What the rigid world's step takes. target: of a driven body, where it goes.
  RigidEntry Entry(const LMatrix& target, double hostPerSim);
  virtual void VisitState(StateVisitor& visitor);

  RigidState state;

  // --- of the tag
  double mass = 0;  // kg
  bool driven = false, noResponse = false, startAsleep = false;
  bool solid = false;  // the mass fills the mesh, instead of lying on its points
  double linearSleep = 0, angularSleep = 0, linearDamping = 0, angularDamping = 0, margin = 0;
  double restitution = 0, friction = 0, rollingFriction = 0, velocitySpeed = 0;
  Vec3D linearFactor, angularFactor;
  // What constraints leave of the damping, at its centre.
  double linearDampingScale = 1, angularDampingScale = 1;
  const iContactScale* contact = nullptr;  // of one step

  static constexpr double kFrozenMass = 0.0001, kLeastMass = 1e-6, kMostMass = 1e12;  // kg

 protected:
  // Without triangles of a closed mesh: what else is known of the volume, m^3.
  virtual void VolumeChanged() {}
  double volume_ = 0;

 private:
  RigidShape& Shape();

  BodyType bodyType_ = BodyType::Static;
  bool frozen_ = false;
  double previousMass_ = -1;  // before the last ReadTag; below 0 at first
  double effectiveMass_ = 1;
  Vec3D inertia_, solidInertia_;  // kg m^2; of a density of 1, m^5
  LMatrix meshInBody_;
  std::vector<Vec3D> points_;
  std::vector<VecInt3D> triangles_;
  std::unique_ptr<RigidShape> shape_;
  bool shapeIsStill_ = false;
};

}  // namespace orlix
