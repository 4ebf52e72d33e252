#include "fluids/particle_operators/ParticleMotion.h"

#include <algorithm>

#include "fluids/advection/VelocityPoints.h"
#include "globals/Multiversion.h"

namespace orlix {

namespace {

constexpr int kMost = PointRun::kMost;
constexpr double kDrag = 0.3, kDragBuoyancy = 0.01;

enum Mode : std::uint8_t { kTrace, kDragged, kEuler, kVerlet, kVelocityVerlet };

constexpr Mode ModeOf(BallisticIntegrator ballistic) {
  return ballistic == BallisticIntegrator::Verlet           ? kVerlet
         : ballistic == BallisticIntegrator::VelocityVerlet ? kVelocityVerlet
                                                            : kEuler;
}

bool AnyFlag(const std::uint16_t* flags, int count, int bits) {
  unsigned any = 0;
  for (int n = 0; n < count; ++n) any |= flags[n];
  return (any & static_cast<unsigned>(bits)) != 0;
}

// How far points are from touching a boundary: from the container's walls, or where the distance is below the margin.
// False when none is below 0.
ORLIX_MULTIVERSION bool FindNearBoundary(const SolidView& solid, float margin, const PointRun& p,
                                         const double* distance, double* room) {
  const float low = solid.cellSize() + margin;
  const VecInt3D nodes = solid.nodes().dims;
  double high[3];
  for (int axis = 0; axis < 3; ++axis) high[axis] = static_cast<float>(nodes[axis] - 1) * solid.cellSize() - low;
  std::int64_t any = 0;
  for (int n = 0; n < p.count; ++n) {
    const auto least = [](double a, double b) { return a < b ? a : b; };
    const double x = least(p.x[n] - low, high[0] - p.x[n]), y = least(p.y[n] - low, high[1] - p.y[n]);
    const double z = least(p.z[n] - low, high[2] - p.z[n]);
    room[n] = least(least(x, y), least(z, distance[n] - static_cast<double>(margin)));
    any |= room[n] < 0 ? 1 : 0;
  }
  return any != 0;
}

// A few rows of a chunk on their way. Positions are relative to the field's origin until they are written back.
class MotionBlock {
 public:
  MotionBlock(const MotionSettings& settings, const MotionField& field, const ParticleRows& rows)
      : s_(settings), f_(field), rows_(rows) {}

  void Run(int begin, int count, std::span<iInstantOperator* const> operators, const InstantContext& context,
           std::int32_t thread) {
    begin_ = begin, count_ = count;
    Load();
    Tag();
    for (int iteration = 0; iteration < s_.iterations && moving_ > 0; ++iteration) {
      Move(iteration == 0);
      const bool collides = s_.collisions != CollisionMode::None && iteration >= s_.collideFrom;
      const bool kills = s_.killInside && f_.solid.HasData();
      if (kills || (collides && ByBoundary())) SampleNodes(f_.solid.nodes(), f_.solid.cellSize(), p_, distance_);
      if (kills) KillInside();
      if (collides) FindContacts();
    }
    if (contactCount_ > 0) Resolve(operators, context, thread);
    WriteBack();
    if (s_.lastSubstep) LoseAge();
  }
  std::int32_t killed() const { return killed_; }

 private:
  template <class F>
  void ForMoving(F&& f) const {
    for (int n = 0; n < count_; ++n) {
      if (!done_[n]) f(n);
    }
  }
  bool Any(Mode mode) const { return (modes_ >> mode & 1) != 0; }
  // Modes that carry the particle's velocity or its old position.
  bool NeedsVelocity() const { return modes_ != 1u << kTrace; }
  bool NeedsOld() const { return Any(kVerlet) || Any(kVelocityVerlet); }
  bool KeepsOld(int n) const { return mode_[n] == kVerlet || mode_[n] == kVelocityVerlet; }
  bool ByBoundary() const {
    return f_.solid.HasData() && (s_.collisions != CollisionMode::ObstaclesFirst || f_.obstacles.empty());
  }
  Vec3D Force(int n) const { return force_.Get(begin_ + n, {}); }

  void Load();
  void SelectModes();
  void Tag();
  void Move(bool first);
  void Trace();
  void Fly(int n, const Vec3D& force);
  void KillInside();
  void FindContacts();
  void Meet(int n, const SolidContact& found);
  bool MeetsObstacle(int n, SolidContact& contact) const;
  void Resolve(std::span<iInstantOperator* const> operators, const InstantContext& context, std::int32_t thread);
  void WriteBack();
  void LoseAge();
  Vec3D World(int n) const { return p_.Get(n) + f_.origin; }
  void Stop(int n) { done_[n] = 1, --moving_; }

  const MotionSettings& s_;
  const MotionField& f_;
  const ParticleRows& rows_;
  int begin_ = 0, count_ = 0;

  PointRun p_, u_;
  Vec3D v_[kMost], old_[kMost];  // where NeedsVelocity, NeedsOld
  Mode mode_[kMost];
  unsigned modes_ = 0;  // a bit a mode that occurs
  std::uint8_t done_[kMost];
  int moving_ = 0, killed_ = 0;
  double distance_[kMost];
  PropertyView<Vec3D> force_, oldPosition_;
  PropertyView<double> mass_;

  ParticleContact contacts_[kMost];  // a particle has one at most
  int contactCount_ = 0;
};

void MotionBlock::Load() {
  p_.Load(rows_.positions() + begin_, count_, -f_.origin);
  std::fill_n(done_, count_, std::uint8_t{0});
  moving_ = count_, contactCount_ = 0, modes_ = 0;
  force_ = rows_.Property<Vec3D>(PP::ExternalForce);
  oldPosition_ = rows_.Property<Vec3D>(PP::OldPosition);
  mass_ = rows_.Property<double>(PP::Mass);
  SelectModes();
  if (NeedsVelocity()) std::copy_n(rows_.velocities() + begin_, count_, v_);
  if (!NeedsOld()) return;
  for (int n = 0; n < count_; ++n) {
    old_[n] = oldPosition_.Get(begin_ + n, rows_.positions()[begin_ + n]) - f_.origin;
  }
}

void MotionBlock::SelectModes() {
  const Mode ballistic = ModeOf(s_.ballistic);
  const bool hasField = f_.velocity.HasData();
  const bool asksInside = s_.source == MotionSource::SolversBallisticInside && f_.solid.HasData();
  if (asksInside) SampleNodes(f_.solid.nodes(), f_.solid.cellSize(), p_, distance_);
  const std::uint16_t* flags = rows_.flags() + begin_;
  if (hasField && !asksInside && !AnyFlag(flags, count_, ParticleFlag::Ballistic | ParticleFlag::Drag)) {
    std::fill_n(mode_, count_, kTrace);
    modes_ = 1u << kTrace;
    return;
  }
  for (int n = 0; n < count_; ++n) {
    const bool inside = asksInside && !(static_cast<float>(distance_[n]) > 0.0f);
    const bool flies = (flags[n] & ParticleFlag::Ballistic) != 0 || inside || !hasField;
    mode_[n] = flies ? ballistic : (flags[n] & ParticleFlag::Drag) != 0 ? kDragged : kTrace;
    modes_ |= 1u << mode_[n];
  }
}

void MotionBlock::Tag() {
  if (s_.keepsStart && oldPosition_ && Any(kTrace)) {
    for (int n = 0; n < count_; ++n) {
      if (mode_[n] == kTrace) oldPosition_.Set(begin_ + n, rows_.positions()[begin_ + n]);
    }
  }
  if (!s_.firstSubstep) return;
  std::uint16_t* flags = rows_.TagFlags() + begin_;
  if (AnyFlag(flags, count_, ParticleFlag::Collided)) {
    for (int n = 0; n < count_; ++n) flags[n] = static_cast<std::uint16_t>(flags[n] & ~ParticleFlag::Collided);
  }
  const auto start = rows_.Property<Vec3D>(PP::FramePosition);
  if (!start) return;
  for (int n = 0; n < count_; ++n) start.Set(begin_ + n, rows_.positions()[begin_ + n]);
}

void MotionBlock::Trace() {
  if (modes_ == 1u << kTrace && moving_ == count_) {
    TracePoints(f_.velocity, 1.0 / f_.cellSize, s_.integrator, s_.dt, p_);
    return;
  }
  u_ = p_;
  TracePoints(f_.velocity, 1.0 / f_.cellSize, s_.integrator, s_.dt, u_);
  ForMoving([&](int n) {
    if (mode_[n] == kTrace) p_.Set(n, u_.Get(n));
  });
}

// first: the external force acts in the first iteration and is used up by it.
void MotionBlock::Move(bool first) {
  if (Any(kTrace)) Trace();
  if (Any(kDragged)) SampleVelocity(f_.velocity, 1.0 / f_.cellSize, p_, u_);
  if (NeedsVelocity()) {
    ForMoving([&](int n) {
      if (mode_[n] != kTrace) Fly(n, first ? Force(n) : Vec3D());
    });
    p_.Pad();
  }
  if (!first || !force_) return;
  for (int n = 0; n < count_; ++n) force_.Set(begin_ + n, {});
}

void MotionBlock::Fly(int n, const Vec3D& force) {
  const double dt = s_.dt;
  Vec3D p = p_.Get(n);
  Vec3D& v = v_[n];
  switch (mode_[n]) {
    case kTrace:
      return;
    case kDragged:
      v += dt * ((u_.Get(n) - v) * kDrag / dt - kDragBuoyancy * s_.gravity);
      p += dt * v;
      break;
    case kEuler:
      v += dt * (force / mass_.Get(begin_ + n, 1) + s_.gravity);
      p += dt * v;
      break;
    case kVerlet: {
      const Vec3D delta = (p - old_[n]) + (force + mass_.Get(begin_ + n, 1) * s_.gravity) * (dt * dt);
      old_[n] = p;
      p += delta;
      break;
    }
    case kVelocityVerlet:
      old_[n] = p;
      v += dt * (force + s_.gravity);
      p += dt * v;
      break;
  }
  p_.Set(n, p);
}

void MotionBlock::KillInside() {
  ForMoving([&](int n) {
    if (static_cast<float>(distance_[n]) > 0.0f) return;
    std::uint16_t* flags = rows_.EditFlags();
    killed_ += (flags[begin_ + n] & ParticleFlag::Alive) != 0;
    flags[begin_ + n] = static_cast<std::uint16_t>(flags[begin_ + n] & ~ParticleFlag::Alive);
    Stop(n);
  });
}

bool MotionBlock::MeetsObstacle(int n, SolidContact& contact) const {
  const Vec3D x = World(n);
  for (const ObstacleView& obstacle : f_.obstacles) {
    if (!obstacle.reachesBeyond && !obstacle.distance.InBox(x)) continue;
    const Vec3D index = obstacle.distance.IndexOfWorld(x);
    const double depth = obstacle.distance.Sample(index) - static_cast<double>(s_.collisionRadius);
    if (!(depth < 0)) continue;
    contact.hit = true;
    contact.depth = depth;
    contact.normal = obstacle.distance.Normal(index);
    contact.position = x - depth * contact.normal;
    return true;
  }
  return false;
}

void MotionBlock::FindContacts() {
  SolidContact found;
  if (!ByBoundary()) {
    ForMoving([&](int n) {
      if (MeetsObstacle(n, found)) Meet(n, found);
    });
    return;
  }
  const float margin = f_.solid.cellSize() * s_.collisionRadius;
  double room[kMost];
  if (!FindNearBoundary(f_.solid, margin, p_, distance_, room)) return;
  ForMoving([&](int n) {
    if (!(room[n] < 0) || !f_.solid.ResolveContact(p_.Get(n), found, static_cast<double>(margin))) return;
    found.position += f_.origin;
    Meet(n, found);
  });
}

void MotionBlock::Meet(int n, const SolidContact& found) {
  ParticleContact& contact = contacts_[contactCount_++];
  static_cast<SolidContact&>(contact) = found;
  contact.index = rows_.first + begin_ + n;
  Stop(n);
}

void MotionBlock::Resolve(std::span<iInstantOperator* const> operators, const InstantContext& context,
                          std::int32_t thread) {
  const auto rowOf = [&](const ParticleContact& contact) { return contact.index - rows_.first; };
  const std::span<ParticleContact> contacts(contacts_, static_cast<std::size_t>(contactCount_));
  Vec3D* velocities = rows_.EditVelocities();
  if (!operators.empty()) {
    // Contacts of later iterations follow.
    std::sort(contacts.begin(), contacts.end(),
              [](const ParticleContact& a, const ParticleContact& b) { return a.index < b.index; });
    for (ParticleContact& contact : contacts) {
      const std::int32_t row = rowOf(contact), n = row - begin_;
      contact.dt = s_.dt;
      contact.newPosition = World(n);
      contact.previousPosition = KeepsOld(n) ? old_[n] + f_.origin : oldPosition_.Get(row, rows_.positions()[row]);
      if (mode_[n] == kEuler) velocities[row] = v_[n];
      if (mode_[n] == kTrace) velocities[row] += contact.newPosition - contact.position;
    }
    for (iInstantOperator* each : operators) each->Apply(iInstantOperator::kContact, contacts, context, thread);
  }
  std::uint16_t* flags = rows_.TagFlags();
  for (const ParticleContact& contact : contacts) {
    const std::int32_t row = rowOf(contact), n = row - begin_;
    if (!operators.empty()) v_[n] = velocities[row];
    p_.Set(n, contact.position - f_.origin);
    flags[row] = static_cast<std::uint16_t>(flags[row] | ParticleFlag::Collided);
  }
}

void MotionBlock::WriteBack() {
  Vec3D* positions = rows_.EditPositions() + begin_;
  if (Any(kVelocityVerlet)) {
    const auto before = rows_.NeedProperty<Vec3D>(PP::CorrectedPosition);
    for (int n = 0; n < count_; ++n) {
      if (mode_[n] == kVelocityVerlet) before.Put(begin_ + n, positions[n]);
    }
  }
  p_.Unload(positions, f_.origin);
  if (!NeedsVelocity()) return;
  Vec3D* velocities = rows_.EditVelocities() + begin_;
  for (int n = 0; n < count_; ++n) {
    if (mode_[n] == kVerlet) {
      velocities[n] = p_.Get(n) - old_[n];
    } else if (mode_[n] != kTrace) {
      velocities[n] = v_[n];
    }
    if (KeepsOld(n)) oldPosition_.Set(begin_ + n, old_[n] + f_.origin);
  }
}

void MotionBlock::LoseAge() {
  const auto ages = rows_.Property<double>(PP::Age);
  if (!ages) return;
  for (std::int32_t row = begin_; row < begin_ + count_; ++row) {
    if (!ages.Has(row)) continue;
    const double age = ages.Get(row, 0) - 1;
    ages.Set(row, age);
    if (age > 0) continue;
    std::uint16_t* flags = rows_.EditFlags();
    flags[row] = static_cast<std::uint16_t>(flags[row] & ~ParticleFlag::Alive);
  }
}

}  // namespace

ObstacleView::ObstacleView(const ScalarGrid& levelSet, double radius) : distance(levelSet) {
  const VecInt3D n = levelSet.dims;
  for (int k = 0; k < n.z && !reachesBeyond; ++k) {
    for (int j = 0; j < n.y; ++j) {
      const bool whole = k == 0 || k == n.z - 1 || j == 0 || j == n.y - 1;
      const int step = whole || n.x < 2 ? 1 : n.x - 1;
      for (int i = 0; i < n.x; i += step) reachesBeyond |= !(levelSet(i, j, k) - radius >= 0);
    }
  }
}

void MoveParticles(const MotionSettings& settings, const MotionField& field,
                   std::span<iInstantOperator* const> operators, const InstantContext& context,
                   const ParticleRows& rows, std::int32_t thread) {
  MotionBlock block(settings, field, rows);
  for (int begin = rows.begin; begin < rows.end; begin += kMost) {
    block.Run(begin, std::min(kMost, rows.end - begin), operators, context, thread);
  }
  if (block.killed() > 0) context.list->CountLost(block.killed());
}

}  // namespace orlix
