#include "fluids/bodies/RigidDynamics.h"

// The only source that includes Bullet.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wall"
#pragma GCC diagnostic ignored "-Wextra"
#pragma GCC diagnostic ignored "-Woverloaded-virtual"
#include <BulletCollision/BroadphaseCollision/btAxisSweep3.h>
#include <BulletCollision/BroadphaseCollision/btDbvtBroadphase.h>
#include <BulletCollision/CollisionDispatch/btCollisionDispatcher.h>
#include <BulletCollision/CollisionDispatch/btDefaultCollisionConfiguration.h>
#include <BulletCollision/CollisionShapes/btBvhTriangleMeshShape.h>
#include <BulletCollision/CollisionShapes/btStaticPlaneShape.h>
#include <BulletCollision/CollisionShapes/btTriangleIndexVertexArray.h>
#include <BulletCollision/Gimpact/btGImpactCollisionAlgorithm.h>
#include <BulletCollision/Gimpact/btGImpactShape.h>
#include <BulletDynamics/ConstraintSolver/btSequentialImpulseConstraintSolver.h>
#include <BulletDynamics/Dynamics/btDiscreteDynamicsWorld.h>
#include <BulletDynamics/Dynamics/btRigidBody.h>
#pragma GCC diagnostic pop

#include <algorithm>
#include <array>
#include <mutex>
#include <optional>
#include <vector>

#include "fluids/bodies/MeshFeatures.h"

namespace orlix {

namespace {

btVector3 ToBullet(const Vec3D& v) { return btVector3(btScalar(v.x), btScalar(v.y), btScalar(-v.z)); }
Vec3D FromBullet(const btVector3& v) { return {v.x(), v.y(), -v.z()}; }
// In Bullet's own axes.
Vec3D AsIs(const btVector3& v) { return {v.x(), v.y(), v.z()}; }
btVector3 AxialToBullet(const Vec3D& v) { return btVector3(btScalar(-v.x), btScalar(-v.y), btScalar(v.z)); }
Vec3D AxialFromBullet(const btVector3& v) { return {-v.x(), -v.y(), v.z()}; }
// A factor has no direction.
btVector3 Plain(const Vec3D& v) { return btVector3(btScalar(v.x), btScalar(v.y), btScalar(v.z)); }

// With F the flip of z, a turn R is F R F there.
btTransform ToBullet(const LMatrix& m) {
  const btMatrix3x3 basis(btScalar(m.v1.x), btScalar(m.v2.x), btScalar(-m.v3.x), btScalar(m.v1.y), btScalar(m.v2.y),
                          btScalar(-m.v3.y), btScalar(-m.v1.z), btScalar(-m.v2.z), btScalar(m.v3.z));
  return btTransform(basis, ToBullet(m.off));
}
LMatrix FromBullet(const btTransform& t) {
  const btMatrix3x3& b = t.getBasis();
  return {FromBullet(t.getOrigin()),
          {b[0][0], b[1][0], -b[2][0]},
          {b[0][1], b[1][1], -b[2][1]},
          {-b[0][2], -b[1][2], b[2][2]}};
}

}  // namespace

struct RigidShape::Parts {
  std::vector<int> indices;
  std::vector<float> vertices;
  std::unique_ptr<btTriangleIndexVertexArray> mesh;
  std::unique_ptr<btCollisionShape> shape;
  btGImpactMeshShape* moving = nullptr;
  // In Bullet's axes; made for the first contact, which worlds of several workers may have with what stands still.
  mutable std::optional<MeshFeatures> features;
  mutable std::once_flag made;

  const MeshFeatures& Features() const {
    std::call_once(made, [this] { MakeFeatures(); });
    return *features;
  }
  void MakeFeatures() const {
    std::vector<Vec3D> points;
    std::vector<VecInt3D> triangles;
    for (std::size_t i = 0; i < vertices.size(); i += 3)
      points.emplace_back(vertices[i], vertices[i + 1], vertices[i + 2]);
    for (std::size_t i = 0; i < indices.size(); i += 3)
      triangles.emplace_back(indices[i], indices[i + 1], indices[i + 2]);
    features.emplace(points, triangles);
  }
};

RigidShape::RigidShape(std::span<const Vec3D> points, std::span<const VecInt3D> triangles, bool still, double margin)
    : parts_(std::make_unique<Parts>()) {
  Parts& p = *parts_;
  p.vertices.reserve(3 * points.size());
  for (const Vec3D& v : points) p.vertices.insert(p.vertices.end(), {float(v.x), float(v.y), float(-v.z)});
  p.indices.reserve(3 * triangles.size());
  for (const VecInt3D& t : triangles) p.indices.insert(p.indices.end(), {t.z, t.y, t.x});
  p.mesh = std::make_unique<btTriangleIndexVertexArray>(int(triangles.size()), p.indices.data(), 12, int(points.size()),
                                                        p.vertices.data(), 12);
  if (still) {
    p.shape = std::make_unique<btBvhTriangleMeshShape>(p.mesh.get(), true);
  } else {
    auto shape = std::make_unique<btGImpactMeshShape>(p.mesh.get());
    p.moving = shape.get();
    p.shape = std::move(shape);
  }
  p.shape->setLocalScaling(btVector3(1, 1, 1));
  SetMargin(margin);
  if (p.moving) p.moving->updateBound();
}

RigidShape::~RigidShape() = default;

void RigidShape::SetMargin(double margin) {
  Parts& p = *parts_;
  if (margin < 0 || p.shape->getMargin() == float(margin)) return;
  p.shape->setMargin(btScalar(margin));
  if (p.moving) p.moving->updateBound();
}

Vec3D RigidShape::PointInertia(double mass) const {
  const std::vector<float>& v = parts_->vertices;
  Vec3D squares;
  for (std::size_t i = 0; i < v.size(); i += 3)
    squares += {double(v[i]) * v[i], double(v[i + 1]) * v[i + 1], double(v[i + 2]) * v[i + 2]};
  if (v.empty()) return {};
  squares *= mass / (double(v.size()) / 3);
  return {squares.y + squares.z, squares.x + squares.z, squares.x + squares.y};
}

namespace {

// Where a driven body is to stand: Bullet asks for it when a step begins.
class Target final : public btMotionState {
 public:
  explicit Target(const btTransform& t) : transform_(t) {}
  void getWorldTransform(btTransform& t) const override { t = transform_; }
  void setWorldTransform(const btTransform&) override {}

 private:
  btTransform transform_;
};

const RigidEntry* EntryOf(const btCollisionObjectWrapper* wrap) {
  return static_cast<const RigidEntry*>(wrap->getCollisionObject()->getUserPointer());
}

// One side of a contact, a triangle of a body, in Bullet's world.
struct Side {
  const MeshFeatures& features;
  const btTransform& place;
  MeshFeatures::Touch touch;

  Side(const RigidShape& shape, const btTransform& where, const btTransform& other, int triangle, const btVector3& at,
       double reach)
      : features(shape.parts().Features()),
        place(where),
        touch(features.TouchAt(triangle, AsIs(where.invXform(at)), reach, AsIs(where.invXform(other.getOrigin())))) {}

  btVector3 ToWorld(const Vec3D& v) const {
    return place.getBasis() * btVector3(btScalar(v.x), btScalar(v.y), btScalar(v.z));
  }
  // `direction` leads away from this side.
  double Misfit(const btVector3& direction) const {
    return features.Misfit(touch, AsIs(place.getBasis().transpose() * direction));
  }
  // How far its triangle reaches along a direction in the world.
  double Furthest(const btVector3& direction) const {
    return features.Furthest(touch.triangle, AsIs(place.getBasis().transpose() * direction)) +
           double(place.getOrigin().dot(direction));
  }
  btVector3 Nearest() const { return place.getOrigin() + ToWorld(features.Nearest(touch.triangle, touch.place)); }
};

// A contact gets the direction in which both sides can push and that parts their triangles soonest: its own, or that of
// a face on either side.
void MendNormal(btManifoldPoint& point, const Side& a, const Side& b, double margin) {
  constexpr double kFits = 0.02, kTie = 1e-4;  // m
  struct Choice {
    btVector3 normal;
    double misfit, gap;
    bool IsBetter(const Choice& other) const {
      const bool fits = misfit < kFits;
      if (fits != (other.misfit < kFits)) return fits;
      return fits ? gap > other.gap + kTie : misfit < other.misfit;
    }
  };
  const auto gap = [&](const btVector3& normal) { return -a.Furthest(-normal) - b.Furthest(normal); };
  const btVector3 given = point.m_normalWorldOnB;
  Choice best{given, a.Misfit(-given) + b.Misfit(given), gap(given)};
  std::array<Vec3D, MeshFeatures::kMostNormals> normals;
  for (const Side* side : {&a, &b}) {
    const int count = side->features.NormalsAt(side->touch, normals);
    for (int n = 0; n < count; ++n) {
      const Vec3D& own = normals[std::size_t(n)];
      const btVector3 normal = side->ToWorld(own) * btScalar(side == &a ? -1 : 1);
      // From the far side of something thin.
      if (Dot(own, side->touch.towards - side->touch.place) < 0 && normal.dot(given) < 0) continue;
      // Most directions don't suit one of the two: of these no more is asked.
      Choice other{normal, a.Misfit(-normal), 0};
      if (!(other.misfit < std::max(kFits, best.misfit))) continue;
      other.misfit += b.Misfit(normal);
      if (!(other.misfit < std::max(kFits, best.misfit))) continue;
      other.gap = gap(normal);
      if (other.IsBetter(best)) best = other;
    }
  }
  if (best.normal == given) return;
  point.m_normalWorldOnB = best.normal;
  point.m_positionWorldOnB = b.Nearest();
  point.m_distance1 = best.normal.dot(a.Nearest() - point.m_positionWorldOnB) - btScalar(margin);
  point.m_positionWorldOnA = point.m_positionWorldOnB + best.normal * point.m_distance1;
  point.m_localPointA = a.place.invXform(point.m_positionWorldOnA);
  point.m_localPointB = b.place.invXform(point.m_positionWorldOnB);
}

// What two bodies bring to a contact is multiplied, each with its factor at its own point.
bool ScaleContact(btManifoldPoint& point, const btCollisionObjectWrapper* a, int, int triangleA,
                  const btCollisionObjectWrapper* b, int, int triangleB) {
  const RigidEntry *first = EntryOf(a), *second = EntryOf(b);
  if (!first || !second) return false;
  const btTransform &placeA = a->getWorldTransform(), &placeB = b->getWorldTransform();
  const double margin = double(a->getCollisionShape()->getMargin()) + double(b->getCollisionShape()->getMargin());
  const double reach = 2 * margin + 1e-4;  // no further where bodies are deep in each other: those are what is mended
  MendNormal(point, {*first->shape, placeA, placeB, triangleA, point.m_positionWorldOnB, reach},
             {*second->shape, placeB, placeA, triangleB, point.m_positionWorldOnB, reach}, margin);
  const Vec3D places[2] = {FromBullet(point.getPositionWorldOnA()), FromBullet(point.getPositionWorldOnB())};
  const auto share = [&](const RigidEntry& e, int side, RigidContact what, double value) {
    return e.contact ? value * e.contact->ContactScale(what, places[side]) : value;
  };
  const auto combined = [&](RigidContact what, double RigidEntry::*value) {
    return btScalar(share(*first, 0, what, first->*value) * share(*second, 1, what, second->*value));
  };
  point.m_combinedFriction = combined(RigidContact::Friction, &RigidEntry::friction);
  point.m_combinedRollingFriction = combined(RigidContact::RollingFriction, &RigidEntry::rollingFriction);
  point.m_combinedRestitution = combined(RigidContact::Restitution, &RigidEntry::restitution);
  return true;
}

// Steps of an exact number: Bullet's own count comes from a quotient of floats.
class World final : public btDiscreteDynamicsWorld {
 public:
  using btDiscreteDynamicsWorld::btDiscreteDynamicsWorld;
  void Run(double dt, int substeps) {
    const btScalar each = btScalar(dt / substeps);
    saveKinematicState(btScalar(dt));
    applyGravity();
    std::vector<Held> held;
    for (int i = 0; i < substeps; ++i) {
      FindHeld(held);
      internalSingleStepSimulation(each);
      for (const Held& one : held) Hold(one);
    }
    clearForces();
  }

 protected:
  // What contacts give back is added to what the solver made of them. The solver's own share of it is lost in the slop:
  // a contact is pushed only once it is that deep, and then by no more than what keeps it from going deeper, so that a
  // body is stopped in parts. What it pushes to part bodies that are too deep isn't given back, either. See Catto,
  // Solver2D (2024), for a pass of its own.
  void solveConstraints(btContactSolverInfo& info) override {
    FindImpacts();
    btDiscreteDynamicsWorld::solveConstraints(info);
    GiveBack();
  }

 private:
  // A contact whose bodies come nearer.
  struct Impact {
    btRigidBody *a, *b;
    const btManifoldPoint* point;
    btScalar wanted = 0;   // speed by which they are to part, m/s
    btScalar yields = 0;   // speed that an impulse of 1 gives, 1/kg
    btScalar impulse = 0;  // given so far

    btVector3 ArmOfA() const { return point->getPositionWorldOnA() - a->getCenterOfMassPosition(); }
    btVector3 ArmOfB() const { return point->getPositionWorldOnB() - b->getCenterOfMassPosition(); }
    btScalar PartingSpeed() const {
      return point->m_normalWorldOnB.dot(a->getVelocityInLocalPoint(ArmOfA()) - b->getVelocityInLocalPoint(ArmOfB()));
    }
  };
  void FindImpacts() {
    constexpr btScalar kSlowest = btScalar(0.2);  // m/s: below it bodies come to rest
    impacts_.clear();
    for (int m = 0; m < getDispatcher()->getNumManifolds(); ++m) {
      btPersistentManifold& manifold = *getDispatcher()->getManifoldByIndexInternal(m);
      auto* a = btRigidBody::upcast(const_cast<btCollisionObject*>(manifold.getBody0()));
      auto* b = btRigidBody::upcast(const_cast<btCollisionObject*>(manifold.getBody1()));
      if (!a || !b || !a->hasContactResponse() || !b->hasContactResponse()) continue;
      for (int n = 0; n < manifold.getNumContacts(); ++n) {
        const btManifoldPoint& point = manifold.getContactPoint(n);
        Impact impact{a, b, &point};
        const btScalar speed = impact.PartingSpeed();
        if (speed > -kSlowest) continue;
        impact.wanted = -speed * std::max(btScalar(0), point.m_combinedRestitution);
        impacts_.push_back(impact);
      }
    }
  }
  // Impulses in turn, so that those of several contacts of a body together give what is wanted.
  void GiveBack() {
    std::erase_if(impacts_, [](const Impact& impact) { return !(impact.point->m_appliedImpulse > 0); });
    for (Impact& impact : impacts_) {
      const btManifoldPoint& point = *impact.point;
      impact.yields = impact.a->computeImpulseDenominator(point.getPositionWorldOnA(), point.m_normalWorldOnB) +
                      impact.b->computeImpulseDenominator(point.getPositionWorldOnB(), point.m_normalWorldOnB);
    }
    std::erase_if(impacts_, [](const Impact& impact) { return !(impact.yields > 0); });
    constexpr int kRounds = 16;
    for (int round = 0; round < kRounds; ++round) {
      for (Impact& impact : impacts_) {
        const btVector3& normal = impact.point->m_normalWorldOnB;
        const btScalar before = impact.impulse;
        const btScalar all = before + (impact.wanted - impact.PartingSpeed()) / impact.yields;
        impact.impulse = std::max(all, -impact.point->m_appliedImpulse);  // a contact doesn't pull
        const btVector3 change = normal * (impact.impulse - before);
        impact.a->applyImpulse(change, impact.ArmOfA());
        impact.b->applyImpulse(-change, impact.ArmOfB());
      }
    }
  }
  std::vector<Impact> impacts_;

  // A body that moves, and a wall beyond which it isn't.
  struct Held {
    btRigidBody* body;
    btVector3 normal;
    btScalar offset;

    // How far its box reaches out of the wall.
    btScalar Reach() const {
      btVector3 low, high;
      body->getCollisionShape()->getAabb(body->getWorldTransform(), low, high);
      const btVector3 half = (high - low) * btScalar(0.5);
      return normal.dot(low + half) + normal.absolute().dot(half) - offset;
    }
  };
  void FindHeld(std::vector<Held>& held) {
    held.clear();
    for (int w = 0; w < getNumCollisionObjects(); ++w) {
      const auto* wall = dynamic_cast<const btStaticPlaneShape*>(getCollisionObjectArray()[w]->getCollisionShape());
      if (!wall) return;  // they come first
      for (int n = 0; n < m_nonStaticRigidBodies.size(); ++n) {
        const Held one{m_nonStaticRigidBodies[n], wall->getPlaneNormal(), wall->getPlaneConstant()};
        if (!one.body->isStaticOrKinematicObject() && one.Reach() > 0) held.push_back(one);
      }
    }
  }
  // Bullet looks only at what reaches through a plane: a plate, or anything thin, that a step took wholly beyond it
  // would fall on. It is put back onto the wall.
  static void Hold(const Held& one) {
    const btScalar reach = one.Reach();
    if (reach > 0) return;
    btRigidBody& body = *one.body;
    btTransform place = body.getWorldTransform();
    place.setOrigin(place.getOrigin() + one.normal * (2 * body.getCollisionShape()->getMargin() - reach));
    body.setWorldTransform(place);
    body.setInterpolationWorldTransform(place);
    const btVector3 velocity = body.getLinearVelocity();
    const btScalar into = velocity.dot(one.normal);
    if (into < 0) body.setLinearVelocity(velocity - one.normal * (into * (1 + body.getRestitution())));
  }
};

std::unique_ptr<btBroadphaseInterface> MakeBroadphase(int which) {
  const btScalar end = btScalar(kSortedExtent);
  const btVector3 low(-end, -end, -end), high(end, end, end);
  const auto most = static_cast<unsigned>(kMostSortedBodies);
  if (which == 0) return std::make_unique<btDbvtBroadphase>();
  if (which == 1) return std::make_unique<btAxisSweep3>(low, high, static_cast<unsigned short>(most));
  return std::make_unique<bt32BitAxisSweep3>(low, high, most);
}

void Configure(World& world, const RigidStep& step) {
  btContactSolverInfo& solver = world.getSolverInfo();
  solver.m_solverMode |= SOLVER_SIMD | SOLVER_RANDMIZE_ORDER;
  solver.m_numIterations = step.iterations;
  solver.m_splitImpulse = true;
  // What parts bodies that are too deep moves them alone: as a speed it threw them up, the higher the shorter the step.
  solver.m_splitImpulsePenetrationThreshold = BT_LARGE_FLOAT;
  solver.m_linearSlop = btScalar(step.slop);
  solver.m_restitutionVelocityThreshold = BT_LARGE_FLOAT;  // no contact gives back here: see World
  world.getDispatchInfo().m_useContinuous = true;
  world.getDispatchInfo().m_allowedCcdPenetration = 0.04f;
  world.setGravity(ToBullet(step.gravity));
}

std::unique_ptr<btRigidBody> MakeBody(const RigidEntry& entry, btMotionState* target) {
  // Bullet takes a body of more than some 1.4e7 kg for one that stands, and nothing that stands would stop it.
  constexpr double kMostMass = 1e7;
  const RigidState& state = *entry.state;
  const bool dynamic = entry.kind == RigidEntry::Kind::Dynamic;
  const double share = entry.mass > kMostMass ? kMostMass / entry.mass : 1;  // of mass, inertia and forces alike
  btRigidBody::btRigidBodyConstructionInfo info(dynamic ? btScalar(entry.mass * share) : 0, nullptr,
                                                entry.shape->parts().shape.get(),
                                                dynamic ? Plain(entry.inertia * share) : btVector3(0, 0, 0));
  info.m_startWorldTransform = ToBullet(state.pose);
  auto body = std::make_unique<btRigidBody>(info);
  int flags = body->getCollisionFlags() | btCollisionObject::CF_CUSTOM_MATERIAL_CALLBACK;
  if (entry.passesThrough) flags |= btCollisionObject::CF_NO_CONTACT_RESPONSE;
  if (entry.kind == RigidEntry::Kind::Driven) {
    flags = (flags & ~btCollisionObject::CF_STATIC_OBJECT) | btCollisionObject::CF_KINEMATIC_OBJECT;
    body->setMotionState(target);
    body->setWorldTransform(ToBullet(state.pose));
    body->setInterpolationWorldTransform(ToBullet(state.pose));
  }
  body->setCollisionFlags(flags);
  body->setContactProcessingThreshold(btScalar(1e18));
  body->setUserPointer(const_cast<RigidEntry*>(&entry));
  body->setFriction(btScalar(entry.friction));
  body->setRestitution(btScalar(entry.restitution));
  body->setRollingFriction(btScalar(entry.rollingFriction));
  if (!dynamic) return body;
  body->setLinearFactor(Plain(entry.linearFactor));
  body->setAngularFactor(Plain(entry.angularFactor));
  body->setDamping(btScalar(entry.linearDamping), btScalar(entry.angularDamping));
  body->setSleepingThresholds(btScalar(entry.linearSleep), btScalar(entry.angularSleep));
  body->setCcdSweptSphereRadius(btScalar(entry.sweptRadius));
  body->setCcdMotionThreshold(btScalar(entry.sweptThreshold));
  body->setLinearVelocity(ToBullet(state.velocity));
  body->setAngularVelocity(AxialToBullet(state.spin));
  body->updateInertiaTensor();
  body->applyCentralForce(ToBullet(state.force * share));
  body->applyTorque(AxialToBullet(state.torque * share));
  if (state.idleTime < 0) body->setFlags(body->getFlags() | BT_DISABLE_WORLD_GRAVITY);  // a fluid took its weight
  // Where a fluid took its weight, -1 and the time below that.
  body->setDeactivationTime(state.idleTime < 0 ? -1 - state.idleTime : state.idleTime);
  body->forceActivationState(state.asleep ? ISLAND_SLEEPING : ACTIVE_TAG);
  return body;
}

void ReadBack(const RigidEntry& entry, const btRigidBody& body) {
  RigidState& state = *entry.state;
  state.force = state.torque = {};
  if (entry.kind == RigidEntry::Kind::Still) return;
  // A driven body is where it was sent, whatever the narrowing made of it.
  state.pose = entry.kind == RigidEntry::Kind::Driven ? entry.target : FromBullet(body.getWorldTransform());
  state.velocity = FromBullet(body.getLinearVelocity());
  state.spin = AxialFromBullet(body.getAngularVelocity());
  state.idleTime = body.getDeactivationTime();
  state.asleep = body.getActivationState() == ISLAND_SLEEPING;
}

}  // namespace

void StepRigidBodies(std::span<const RigidEntry> bodies, const RigidStep& step) {
  if (bodies.empty() || step.substeps < 1 || !(step.dt > 0)) return;
  [[maybe_unused]] static const ContactAddedCallback kScales = gContactAddedCallback = ScaleContact;
  btDefaultCollisionConstructionInfo pools;
  // Beyond them Bullet allocates one by one; what is never touched would still be cleared by the system in each step.
  const int pooled = static_cast<int>(std::min<std::size_t>(4096, 64 + 16 * bodies.size()));
  pools.m_defaultMaxPersistentManifoldPoolSize = pooled;
  pools.m_defaultMaxCollisionAlgorithmPoolSize = pooled;
  btDefaultCollisionConfiguration configuration(pools);
  btCollisionDispatcher dispatcher(&configuration);
  const auto broadphase = MakeBroadphase(step.broadphase);
  btSequentialImpulseConstraintSolver solver;
  World world(&dispatcher, broadphase.get(), &solver, &configuration);
  Configure(world, step);
  btGImpactCollisionAlgorithm::registerAlgorithm(&dispatcher);

  std::vector<std::unique_ptr<btStaticPlaneShape>> planes;
  std::vector<std::unique_ptr<btRigidBody>> made;
  std::vector<std::unique_ptr<Target>> targets;
  for (const RigidPlane& wall : step.walls) {
    planes.push_back(std::make_unique<btStaticPlaneShape>(ToBullet(wall.normal), btScalar(wall.offset)));
    made.push_back(std::make_unique<btRigidBody>(0, nullptr, planes.back().get()));
    // A contact multiplies what both bring: walls leave what the body has.
    made.back()->setFriction(1);
    made.back()->setRollingFriction(1);
    made.back()->setRestitution(1);
    world.addRigidBody(made.back().get());
  }
  const std::size_t first = made.size();
  for (const RigidEntry& entry : bodies) {
    targets.push_back(std::make_unique<Target>(ToBullet(entry.target)));
    made.push_back(MakeBody(entry, targets.back().get()));
    world.addRigidBody(made.back().get());
  }
  world.Run(step.dt, step.substeps);
  for (std::size_t n = 0; n < bodies.size(); ++n) ReadBack(bodies[n], *made[first + n]);
  for (auto body = made.rbegin(); body != made.rend(); ++body) world.removeRigidBody(body->get());
}

}  // namespace orlix
