#include "fluids/bodies/RigidBody.h"

#include <algorithm>
#include <cmath>

#include "fluids/bodies/MassProperties.h"
#include "fluids/bodies/ObstacleTag.h"

namespace orlix {

void RigidBody::ReadTag(const BaseObject& tag, bool started) {
  using T = ObstacleTag;
  driven = tag.GetBool(T::kDrivenId);
  mass = driven ? 0 : tag.GetDouble(T::kMassId);
  solid = tag.GetChoice<T::Inertia>(T::kInertiaId) == T::Inertia::Solid;
  noResponse = tag.GetBool(T::kNoResponseId);
  linearSleep = tag.GetDouble(T::kLinearSleepId);
  angularSleep = tag.GetDouble(T::kAngularSleepId);
  linearDamping = tag.GetDouble(T::kLinearDampingId);
  angularDamping = tag.GetDouble(T::kAngularDampingId);
  margin = tag.GetDouble(T::kMarginId);
  restitution = tag.GetDouble(T::kRestitutionId);
  friction = tag.GetDouble(T::kFrictionId);
  rollingFriction = tag.GetDouble(T::kRollingFrictionId);
  linearFactor = tag.GetVector(T::kLinearFactorId);
  angularFactor = tag.GetVector(T::kAngularFactorId);
  velocitySpeed = tag.GetDouble(T::kVelocitySpeedId);
  startAsleep = tag.GetBool(T::kStartAsleepId) || tag.GetBool(T::kStartAsleepTooId);
  const double now = GetMass();
  if (started && HasBody() && previousMass_ > 0 && now == 0) frozen_ = true;
  if (started && previousMass_ == 0 && now > 0 && frozen_) {
    frozen_ = false;
    state.asleep = 0, state.idleTime = 0;
  }
  previousMass_ = now;
  ApplySettings();
}

void RigidBody::ApplySettings() {
  double m = GetMass();
  if (m == 0 && frozen_) m = kFrozenMass;
  bodyType_ = m > 0 ? BodyType::Dynamic : driven ? BodyType::Driven : BodyType::Static;
  effectiveMass_ = std::clamp(m, kLeastMass, kMostMass);
  if (frozen_) state.asleep = 1, state.velocity = state.spin = {};
  if (shape_) shape_->SetMargin(margin);
  if (bodyType_ != BodyType::Dynamic || !HasBody()) return;
  // A mesh that isn't closed has nothing that could fill it.
  inertia_ = solid && volume_ > 0 ? solidInertia_ * (effectiveMass_ / volume_) : Shape().PointInertia(effectiveMass_);
  // A body whose points lie on a line turns about it as if they didn't quite: Bullet divides by what is there.
  const double least = 1e-6 * std::max({inertia_.x, inertia_.y, inertia_.z, 1e-12 * effectiveMass_});
  inertia_ = Max(inertia_, Vec3D(least));
}

bool RigidBody::Create(const TriMeshSTL& mesh, bool isChange) {
  if (mesh.Triangles().empty() || mesh.Points().empty()) {
    Free();
    return false;
  }
  shape_.reset();
  const MassProperties properties = MassPropertiesOf(mesh.Points(), mesh.Triangles());
  volume_ = properties.closed ? std::abs(properties.volume) : 0;
  solidInertia_ = properties.inertia;
  if (!isChange || !HasBody()) {
    state = {};
    state.pose = {mesh.matrix.off, Normalized(mesh.matrix.v1), Normalized(mesh.matrix.v2), Normalized(mesh.matrix.v3)};
    // A mirrored or flattened object has no axes that turn: the world's do.
    if (!(state.pose.Determinant() > 1e-6)) state.pose = {mesh.matrix.off, {1, 0, 0}, {0, 1, 0}, {0, 0, 1}};
    // Axes that aren't at right angles are sheared; a pose only turns.
    state.pose.v2 = Normalized(state.pose.v2 - state.pose.v1 * Dot(state.pose.v1, state.pose.v2));
    state.pose.v3 = Cross(state.pose.v1, state.pose.v2);
    if (solid && properties.closed) state.pose = properties.axes;
    state.asleep = startAsleep;
  }
  const LMatrix inverse = state.pose.Inverse();
  meshInBody_ = inverse * mesh.matrix;
  points_.resize(mesh.Points().size());
  std::transform(mesh.Points().begin(), mesh.Points().end(), points_.begin(),
                 [&](const Vec3D& p) { return inverse * p; });
  triangles_ = mesh.Triangles();
  VolumeChanged();
  previousMass_ = GetMass();
  ApplySettings();
  return true;
}

void RigidBody::Free() {
  points_.clear();
  triangles_.clear();
  shape_.reset();
  state = {};
  frozen_ = false;
  previousMass_ = -1;
  volume_ = 0;
}

RigidShape& RigidBody::Shape() {
  const bool still = bodyType_ == BodyType::Static;
  if (!shape_ || shapeIsStill_ != still) {
    shape_ = std::make_unique<RigidShape>(points_, triangles_, still, margin);
    shapeIsStill_ = still;
  }
  return *shape_;
}

void RigidBody::TakeMesh(TriMeshSTL& mesh) const {
  if (mesh.Points().size() != points_.size() || mesh.Triangles().size() != triangles_.size()) {
    mesh.Resize(std::int32_t(triangles_.size()), std::int32_t(points_.size()));
    mesh.Triangles() = triangles_;
  }
  std::transform(points_.begin(), points_.end(), mesh.Points().begin(),
                 [this](const Vec3D& p) { return state.pose * p; });
  mesh.matrix = MeshMatrix();
}

LMatrix RigidBody::PoseOf(const LMatrix& meshMatrix) const {
  // A mesh's matrix may be scaled, and the pose isn't: it is found from the axes alone.
  const LMatrix in{meshInBody_.off, Normalized(meshInBody_.v1), Normalized(meshInBody_.v2), Normalized(meshInBody_.v3)};
  const LMatrix to{meshMatrix.off, Normalized(meshMatrix.v1), Normalized(meshMatrix.v2), Normalized(meshMatrix.v3)};
  if (in.Determinant() == 0 || to.Determinant() == 0)
    return {meshMatrix.off, state.pose.v1, state.pose.v2, state.pose.v3};
  return to * in.Inverse();
}

// --- forces ----------------------------------------------------------------------------------------------------------

Vec3D RigidBody::InverseInertiaTimes(const Vec3D& torque) const {
  const Vec3D t = torque * angularFactor;
  const LMatrix& m = state.pose;
  const Vec3D local = Vec3D(Dot(m.v1, t), Dot(m.v2, t), Dot(m.v3, t)) / inertia_;
  return m.Rotate(local) * angularFactor;
}

void RigidBody::AddForce(const Vec3D& force) {
  if (bodyType_ == BodyType::Dynamic) state.force += force * linearFactor;
}

void RigidBody::AddTorque(const Vec3D& torque) {
  if (bodyType_ == BodyType::Dynamic) state.torque += torque * angularFactor;
}

void RigidBody::AddForceAt(const Vec3D& force, const Vec3D& place) {
  AddForce(force);
  AddTorque(Cross(place - state.pose.off, force * linearFactor));
}

void RigidBody::AddImpulse(const Vec3D& impulse) {
  if (bodyType_ == BodyType::Dynamic) state.velocity += linearFactor * impulse * InverseMass();
}

void RigidBody::AddAngularImpulse(const Vec3D& impulse) {
  if (bodyType_ == BodyType::Dynamic) state.spin += InverseInertiaTimes(impulse);
}

bool RigidBody::FeelsForce(const Vec3D& force, const Vec3D& torque) {
  constexpr double kSoon = 0.1;  // s, in which it would reach the speed of what may sleep
  if (bodyType_ != BodyType::Dynamic || frozen_) return false;
  const bool wakes = Length(force * linearFactor) * InverseMass() * kSoon > linearSleep ||
                     Length(InverseInertiaTimes(torque)) * kSoon > angularSleep;
  if (wakes) state.idleTime = state.idleTime < 0 ? -1 : 0;
  if (!state.asleep) return true;
  if (wakes) state.asleep = 0;
  return false;
}

RigidEntry RigidBody::Entry(const LMatrix& target, double hostPerSim) {
  RigidEntry entry;
  entry.kind = bodyType_ == BodyType::Dynamic  ? RigidEntry::Kind::Dynamic
               : bodyType_ == BodyType::Driven ? RigidEntry::Kind::Driven
                                               : RigidEntry::Kind::Still;
  entry.shape = &Shape();
  entry.state = &state;
  entry.target = target;
  entry.mass = effectiveMass_;
  entry.inertia = inertia_;
  entry.linearFactor = linearFactor, entry.angularFactor = angularFactor;
  entry.friction = friction, entry.rollingFriction = rollingFriction, entry.restitution = restitution;
  entry.linearDamping = std::clamp(linearDamping * linearDampingScale, 0.0, 1.0);
  entry.angularDamping = std::clamp(angularDamping * angularDampingScale, 0.0, 1.0);
  entry.linearSleep = linearSleep, entry.angularSleep = angularSleep;
  entry.sweptRadius = 0.7 * hostPerSim, entry.sweptThreshold = 0.3 * hostPerSim;
  entry.passesThrough = noResponse;
  entry.contact = contact;
  return entry;
}

void RigidBody::VisitState(StateVisitor& visitor) {
  visitor.Visit("rigidState", state);
  visitor.Visit("frozen", frozen_);
  visitor.Visit("previousMass", previousMass_);
  visitor.Visit("volume", volume_);
  visitor.Visit("solidInertia", solidInertia_);
  visitor.Visit("meshInBody", meshInBody_);
  visitor.VisitVector("restPoints", points_);
  visitor.VisitVector("restTriangles", triangles_);
  if (!visitor.Reading()) return;
  const auto count = static_cast<std::int32_t>(points_.size());
  const auto fits = [count](std::int32_t i) { return i >= 0 && i < count; };
  const bool whole = std::all_of(triangles_.begin(), triangles_.end(),
                                 [&](const VecInt3D& t) { return fits(t.x) && fits(t.y) && fits(t.z); });
  shape_.reset();
  if (whole && points_.empty() == triangles_.empty()) return VolumeChanged(), ApplySettings();
  points_.clear(), triangles_.clear();
  visitor.Refuse("a body whose triangles name points that it doesn't have");
}

}  // namespace orlix
