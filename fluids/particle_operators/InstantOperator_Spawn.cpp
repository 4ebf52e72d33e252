#include "fluids/particle_operators/InstantOperator_Spawn.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <numbers>
#include <tuple>

#include "fluids/particle_operators/ParticleOperator.h"

namespace orlix {

namespace {

constexpr int kMostChildren = 10000;            // of one contact
constexpr std::int64_t kMostOfStep = 20000000;  // of all contacts

// v turned about a unit axis (Rodrigues 1840); a zero axis turns nothing.
Vec3D Turned(const Vec3D& v, const Vec3D& axis, double angle) {
  if (LengthSquared(axis) == 0) return v;
  const double c = std::cos(angle), s = std::sin(angle);
  return v * c + Cross(axis, v) * s + axis * (Dot(axis, v) * (1 - c));
}

}  // namespace

// Steele, Lea and Flood 2014: a counter, mixed.
class InstantOperator_Spawn::Stream {
 public:
  Stream(std::uint32_t seed, std::int32_t particle)
      : state_((std::uint64_t{seed} << 32) ^ static_cast<std::uint32_t>(particle)) {
    Next();
  }
  // No number is drawn where nothing varies.
  double Vary(const Varied& value) {
    if (value.variation == 0) return value.base;
    const double u = static_cast<double>(Next() >> 32) * 0x1p-32;
    return value.base - u * value.base * value.variation;
  }

 private:
  std::uint64_t Next() {
    std::uint64_t z = state_ += 0x9E3779B97F4A7C15u;
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9u;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBu;
    return z ^ (z >> 31);
  }
  std::uint64_t state_;
};

const TypeInfo& InstantOperator_Spawn::Type() {
  static constexpr Parameter kParameters[] = {
      FloatParameter(1000, "unused_amount", 1000, "", "Kept, without effect").Hidden(),
      IntParameter(kCountId, "count", 6, "", "Children of a contact").Fallback(10).Between(0, kMostChildren),
      FloatParameter(1002, "unused_size", 15, "", "Kept, without effect").Hidden(),
      FloatParameter(kCountVariationId, "count_variation", 0.3, "", "Share of the count that chance takes away")
          .Fallback(0.25),
      IntParameter(kLifeId, "life", 25, "frames", "Age of a child that has one").Fallback(100),
      FloatParameter(kLifeVariationId, "life_variation", 0.5, "", "Share of the life that chance takes away"),
      FloatParameter(kAngleId, "angle", std::numbers::pi / 3, "rad", "Between a child's way and the surface's normal"),
      FloatParameter(kAngleVariationId, "angle_variation", 0.7, "", "Share of the angle that chance takes away")
          .Fallback(0.4),
      FloatParameter(kSpeedId, "speed", 1.0, "m/s", "Speed that a child gets away from the surface"),
      FloatParameter(kSpeedVariationId, "speed_variation", 0.5, "", "Share of the speed that chance takes away")
          .Fallback(0.8),
      LinkParameter(kTargetId, "target", kLinkParticles,
                    "The group that children join; without one they stay among their parents"),
      LinkParameter(kActInId, "act_in", kLinkDuration, "When the operator acts"),
      ChoiceParameter(kTargetKindId, "target_kind", PK_Passive, kParticleKindChoices, "The kind in the target group")
          .Fallback(PK_Liquid),
      BoolParameter(kVerletId, "verlet", false, "For children that move by Verlet's method"),
  };
  static const TypeInfo kType = {
      .id = 1300109,
      .resource = "zq_iop_spawn",
      .className = "C4D_InstantOperator_Spawn",
      .label = "PIOP::Spawn Particles",
      .text = "Lets a particle burst into others at its first contact.",
      .kinds = kLinkHelper | kLinkInstantOperator,
      .parameters = kParameters,
      .common = CommonNodeParameters(),
  };
  return kType;
}

bool InstantOperator_Spawn::ReadParameters() {
  priority = 0;
  if (!ConstrainedInstantOperator::ReadParameters()) return false;
  count_ = {static_cast<double>(handler.GetInt(kCountId)), handler.GetDouble(kCountVariationId)};
  life_ = {static_cast<double>(handler.GetInt(kLifeId)), handler.GetDouble(kLifeVariationId)};
  angle_ = {handler.GetDouble(kAngleId), handler.GetDouble(kAngleVariationId)};
  speed_ = {handler.GetDouble(kSpeedId), handler.GetDouble(kSpeedVariationId)};
  targetKind_ = handler.GetChoice(kTargetKindId);
  verlet_ = handler.GetBool(kVerletId);
  return true;
}

bool InstantOperator_Spawn::ResolveLinks() {
  target_ = scene->RetrieveAs<ParticleGroup>(handler.GetLink(kTargetId), NODE_PARTICLES);
  return ConstrainedInstantOperator::ResolveLinks();
}

void InstantOperator_Spawn::ReleaseLinks() {
  target_ = nullptr;
  ConstrainedInstantOperator::ReleaseLinks();
}

void InstantOperator_Spawn::Advise() {
  if (count_.base < 1) Warn("no-count", "no contact makes particles; set \"count\" to 1 or more");
}

void InstantOperator_Spawn::Apply(std::int32_t event, std::span<ParticleContact> contacts,
                                  const InstantContext& context, std::int32_t thread) {
  if (event != kContact || !Acts()) return;
  for (ParticleContact& contact : contacts) {
    const OrlixParticle parent(context.list, contact.index);
    if (parent.HasFlag(ParticleFlag::Spawned)) continue;
    parent.SetFlag(ParticleFlag::Spawned, true);
    Stream random(static_cast<std::uint32_t>(scene->seed + GetNodeSubType()), parent.id());
    const double weight = WeightAt(contact, context, thread);
    if (weight == 0) continue;
    const double wanted = random.Vary(count_) * weight;
    if (!(wanted >= 1)) continue;
    const auto count = static_cast<std::int32_t>(std::min(wanted, double(kMostChildren)));
    if (wanted_.fetch_add(count, std::memory_order_relaxed) + count > kMostOfStep) continue;
    Burst(contact, context, count, random, broods_[thread]);
  }
}

void InstantOperator_Spawn::Burst(ParticleContact& contact, const InstantContext& context, std::int32_t count,
                                  Stream& random, std::vector<Child>& children) const {
  const OrlixParticle parent(context.list, contact.index);
  const Vec3D n = Normalized(contact.normal), t = Normalized(Cross({n.y, n.z, n.x}, n)), b = Normalized(Cross(n, t));
  const double mass = parent.GetRealOr(PP::Mass, 1), dt = contact.dt;
  const Vec3D gravity = scene->GetGravity(), p = contact.position;
  const Vec3D force = parent.GetVectorOr(PP::ExternalForce, {});
  for (std::int32_t i = 0; i < count; ++i) {
    Child child;
    child.group = context.group, child.parents = context.list, child.parent = contact.index;
    child.flags = static_cast<std::uint16_t>(parent.GetFlags() | ParticleFlag::Spawned);
    child.age = std::trunc(random.Vary(life_));
    const double speed = random.Vary(speed_), angle = random.Vary(angle_);
    const double around = 2 * std::numbers::pi / count * i;
    const Vec3D a = Normalized(Turned(Turned(n, b, angle), n, around)) * (speed / dt);
    if (verlet_) {
      const Vec3D delta = (p - contact.previousPosition) + (a + mass * gravity) * (dt * dt);
      child.position = p + delta, child.velocity = delta, child.force = force + a / dt;
      contact.previousPosition = p;  // the next ones start from rest
    } else {
      child.velocity = parent.GetVelocity() + dt * (a / mass + gravity);
      child.position = p + dt * child.velocity, child.force = force + a;
    }
    child.oldPosition = p;
    child.ballistic = (child.flags & ParticleFlag::Liquid) == 0;
    if (!child.ballistic) child.velocity = dt * a;
    children.push_back(child);
  }
}

void InstantOperator_Spawn::End() {
  ConstrainedInstantOperator::End();
  if (const std::int64_t wanted = wanted_.exchange(0); wanted > kMostOfStep) {
    scene->Fail(
        ErrorKind::Scene,
        fmt::format("\"{}\": contacts of one sub-step would make {} particles, at most {} are made; lower \"count\"",
                    DisplayName(), wanted, kMostOfStep));
    for (auto& brood : broods_) brood = {};
    return;
  }
  std::vector<Child> children;
  for (auto& brood : broods_) {
    children.insert(children.end(), brood.begin(), brood.end());
    brood = {};
  }
  // A particle bursts once, so the order is that of the parents, not that in which contacts were found. A pass may go
  // over several groups, and kinds of them.
  const auto order = [](const Child& c) {
    std::int32_t kind = 0;
    while (kind < kParticleKinds && c.group->list(kind) != c.parents) ++kind;
    return std::tuple(c.group->handler.hostObject()->creationNumber(), kind, c.parent);
  };
  std::stable_sort(children.begin(), children.end(),
                   [&](const Child& a, const Child& b) { return order(a) < order(b); });
  for (const Child& child : children) {
    (target_ ? target_ : child.group)->SetKindDirty(targetKind_);
    if (ParticleList* list = target_ ? target_->list(targetKind_) : child.parents) Add(child, *list);
  }
}

void InstantOperator_Spawn::Add(const Child& child, ParticleList& list) {
  const OrlixParticle particle(&list, list.AppendCopy(*child.parents, child.parent));
  particle.SetFlags(child.flags);
  particle.SetPosition(child.position);
  particle.SetVelocity(child.velocity);
  particle.SetReal(PP::Age, child.age);
  particle.SetVector(PP::OldPosition, child.oldPosition);
  if (child.ballistic) particle.SetVector(PP::ExternalForce, child.force);
}

}  // namespace orlix
