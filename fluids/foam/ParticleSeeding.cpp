#include "fluids/foam/ParticleSeeding.h"

#include <algorithm>
#include <cmath>

namespace orlix {

namespace {

constexpr double kStill = 1e-7;
constexpr double kBubbleLife = 10000;  // s: until it surfaces

}  // namespace

void LiquidCells::Build(const ParticleList& list, double cellSize, const Vec3D& origin, WorkerPool& pool) {
  origin_ = origin;
  perCell_ = 1 / cellSize;
  flat_.resize(static_cast<std::size_t>(list.count()));
  ParallelRows(pool, list, [&](const ParticleRows& rows, int) {
    for (std::int32_t r = rows.begin; r < rows.end; ++r) {
      flat_[static_cast<std::size_t>(rows.first + r)] = At(rows.positions()[r]);
    }
  });
  table_.BuildCells(flat_, 1, pool);
}

double ParticleSeeding::TrappedAir(const Vec3D& position, const Vec3D& velocity) const {
  const double invDt = 1 / s_.dt, perSquare = 1 / (s_.cellSize * s_.cellSize);
  // The particle itself weighs 1 and traps nothing.
  double sum = 0, weights = 1;
  cells_.ForNear(position, [&](std::int32_t index) {
    const Vec3D x = position - list_.Position(index);
    const double w = 1 - LengthSquared(x) * perSquare;
    if (w <= 0) return;
    const Vec3D u = (velocity - list_.Velocity(index)) * invDt;
    const double s = Length(u);
    const double t = s > kStill ? 1 - Dot(u, Normalized(x)) / s : 1.0;
    sum += t * s * w;
    weights += w;
  });
  return sum / weights;
}

void ParticleSeeding::Seed(const ParticleRows& rows, const double* weights, FoamRandom& random,
                           DiffuseBirths& births) const {
  const auto masses = rows.Property<double>(PP::Mass), curvatures = rows.Property<double>(PP::Curvature);
  const auto normals = rows.Property<Vec3D>(PP::Normal);
  const int needed = ParticleFlag::Alive | (sortedOnly_ ? ParticleFlag::Sorted : 0);
  for (std::int32_t r = rows.begin; r < rows.end; ++r) {
    if ((rows.flags()[r] & needed) != needed || weights[r - rows.begin] == 0) continue;
    Source source{rows.positions()[r], rows.velocities()[r], {}, 0};
    const double energy = s_.energy.Of(0.5 * masses.Get(r, 1.0) * LengthSquared(source.velocity));
    // What air alone could make: most particles end here, before their neighbours are looked up.
    const double most = energy * s_.frameTime;
    if (!((s_.crestRate + s_.trappedAirRate) * most >= 1)) continue;
    const bool grid = surface_.HasLevelSet();
    source.normal = grid ? surface_.Normal(source.position) : normals.Get(r, {});
    source.curvature = grid ? surface_.Curvature(source.position) : curvatures.Get(r, 0.0);
    const double crest = s_.crest.Of(Crest(source.curvature, source.velocity, source.normal));
    if (!((s_.crestRate * crest + s_.trappedAirRate) * most >= 1)) continue;
    const double air = s_.trappedAirRate > 0 ? s_.trappedAir.Of(TrappedAir(source.position, source.velocity)) : 0;
    const double count = (s_.crestRate * crest + s_.trappedAirRate * air) * energy * s_.frameTime;
    if (!(count >= 1)) continue;
    const auto candidates = static_cast<std::int64_t>(std::min(count, 1e12));
    if (candidates_.fetch_add(candidates, std::memory_order_relaxed) + candidates > kMostCandidates) continue;
    Draw(source, candidates, random, births);
  }
}

void ParticleSeeding::Draw(const Source& source, std::int64_t count, FoamRandom& random, DiffuseBirths& births) const {
  const Vec3D v = source.velocity / s_.dt;
  const double speed2 = LengthSquared(v);
  if (speed2 < kStill) return;
  const double speed = std::sqrt(speed2);
  const Vec3D d = v / speed;
  const CrossFrame frame(d);
  for (std::int64_t n = 0; n < count; ++n) {
    const double radius = std::sqrt(random.Rand()) * 0.5 * s_.cellSize;
    const double angle = random.Rand();  // of one radian only
    const double along = random.Rand() * speed * s_.dt;
    const Vec3D offset = radius * std::cos(angle) * frame.a + radius * std::sin(angle) * frame.b;
    const Vec3D place = source.position + offset + s_.cellSize * along * d;
    const std::int32_t about = cells_.Count(place, kFoamBelow);
    if (about < kSprayBelow) {
      if (!Passes(s_.spray, source.curvature, speed2, random)) continue;
      const double life = random.Vary(s_.spray.life), factor = random.Vary(s_.sprayBoost) + 1;
      const Vec3D kick =
          source.normal == Vec3D() ? Vec3D() : source.normal * (s_.sprayKick * random.Scale(s_.sprayKickVariation));
      births.push_back({place, v * (factor * s_.dt) + kick + offset, life, DiffuseClass::Spray});
    } else if (about < kFoamBelow) {
      if (!Passes(s_.foam, source.curvature, speed2, random)) continue;
      births.push_back({place, {}, random.Vary(s_.foam.life), DiffuseClass::Foam});
    } else {
      // Bubbles go by the thresholds of spray.
      ClassRules rules = s_.spray;
      rules.enabled = s_.bubbles;
      if (!Passes(rules, source.curvature, speed2, random)) continue;
      births.push_back({place, (v + offset) * s_.dt, kBubbleLife, DiffuseClass::Bubble});
    }
  }
}

}  // namespace orlix
