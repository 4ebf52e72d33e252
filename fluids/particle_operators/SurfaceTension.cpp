#include "fluids/particle_operators/SurfaceTension.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <vector>

#include "fluids/particles/NeighbourWalk.h"
#include "fluids/particles/OrlixParticle.h"

namespace orlix {

namespace {

constexpr double kPi = std::numbers::pi;
// Where a particle has no mass of its own: that of the particle which acts, and of one that is acted with.
constexpr double kOwnMass = 0.0025, kOtherMass = 1.0;

// The cohesion kernel; 0 at distance 0.
class Cohesion {
 public:
  explicit Cohesion(double h) : h_(h), scale_(32 / (kPi * std::pow(h, 9))), shift_(h * h * h * h * h * h / 64) {}
  double At(double d) const {
    if (d == 0) return 0;
    const double left = (h_ - d) * (h_ - d) * (h_ - d) * d * d * d;
    return 2 * d > h_ ? scale_ * left : scale_ * (2 * left - shift_);
  }

 private:
  double h_, scale_, shift_;
};

// What a pair needs of one of its particles.
struct Side {
  Vec3D x, normal;
  double ownMass = kOwnMass, otherMass = kOtherMass, density = 1;
};

std::vector<Side> SidesOf(WorkerPool& pool, const ParticleList& list, double h) {
  std::vector<Side> sides(static_cast<std::size_t>(list.count()));
  ParallelRows(pool, list, [&](const ParticleRows& rows, int) {
    const auto normals = rows.Property<Vec3D>(PP::SurfaceNormal);
    const auto masses = rows.Property<double>(PP::Mass), densities = rows.Property<double>(PP::Density);
    for (std::int32_t r = rows.begin; r < rows.end; ++r) {
      sides[static_cast<std::size_t>(rows.first + r)] = {rows.positions()[r], normals.Get(r, {}) * h,
                                                         masses.Get(r, kOwnMass), masses.Get(r, kOtherMass),
                                                         densities.Get(r, 1)};
    }
  });
  return sides;
}

// F on i.
Vec3D ForceOn(const Side& i, const Side& j, double d, double cohesion, double strength) {
  const Vec3D pull = (i.x - j.x) * (i.ownMass * j.otherMass * cohesion / d) + (i.normal - j.normal) * i.ownMass;
  return pull * (-strength * 2 / (i.density + j.density));
}

// An increment that a particle gives to a neighbour.
struct Gift {
  Vec3D dv;
  std::int32_t to;
};
constexpr std::int32_t kGivers = 8192;  // whose gifts are kept at once

void AddToVelocity(ParticleList& list, std::int32_t index, const Vec3D& dv) {
  list.ChunkOf(index).velocities[index & (kChunkRows - 1)] += dv;
}

struct CohesionPass {
  // Adds to the particle's own velocity, and gives the number of gifts that it wrote.
  std::int32_t Give(std::int32_t index, std::int32_t thread, Gift* gifts) const;

  const TensionSettings& settings;
  ParticleList& list;
  const ParticleKdTree& tree;
  std::span<const double> weights;
  std::span<const Side> sides;
};

std::int32_t CohesionPass::Give(std::int32_t index, std::int32_t thread, Gift* gifts) const {
  const double h = settings.radius, weight = settings.dt * weights[static_cast<std::size_t>(index)];
  if (weight == 0 || (list.Flags(index) & ParticleFlag::Inserted) != 0) return 0;
  const auto neighbours = tree.Search(list.Position(index), h * h, thread);
  if (neighbours.size() < 2) return 0;
  const Cohesion cohesion(h);
  const Side& i = sides[static_cast<std::size_t>(index)];
  Vec3D sum;
  std::int32_t count = 0;
  for (const Neighbour& j : neighbours) {
    if (j.index == index || j.distance == 0 || (list.Flags(j.index) & ParticleFlag::Inserted) != 0) continue;
    const Vec3D dv =
        ForceOn(i, sides[static_cast<std::size_t>(j.index)], j.distance, cohesion.At(j.distance), settings.strength) *
        weight;
    sum += dv;
    gifts[count++] = {dv, j.index};
  }
  AddToVelocity(list, index, sum);
  return count;
}

}  // namespace

void AddMeanTension(WorkerPool& pool, const TensionSettings& settings, ParticleList& list, const ParticleKdTree& tree,
                    std::span<const double> weights) {
  const double h = settings.radius, scale = 1 / (4 * kPi * h * h * h);
  const auto pulled = [&](std::int32_t index) {
    const double density = OrlixParticle(&list, index).GetRealOr(PP::Density, 1);
    const bool is = density >= settings.minimumDensity && density <= settings.maximumDensity &&
                    weights[static_cast<std::size_t>(index)] != 0;
    return is ? &list.Position(index) : nullptr;
  };
  ForEachNeighbourhoodAt(
      tree, pool, h, pulled, [&](std::int32_t index, std::span<const Neighbour> neighbours, std::int32_t) {
        if (neighbours.size() < 2) return;
        const Vec3D x = list.Position(index);
        const double mass = OrlixParticle(&list, index).GetRealOr(PP::Mass, 1);
        Vec3D pull;
        double total = 0;
        for (const Neighbour& j : neighbours) {
          if (j.index == index) continue;
          const double left = 2 - j.distance, w = j.distance < settings.halfCell ? 0 : left * left * left * scale;
          pull += (x - list.Position(j.index)) * (mass * w);
          total += w;
        }
        const double weight = weights[static_cast<std::size_t>(index)];
        if (total > 0) AddToVelocity(list, index, pull * (-settings.strength / mass * settings.dt * weight / total));
      });
}

void FindTensionNormals(WorkerPool& pool, const TensionSettings& settings, ParticleList& list,
                        const ParticleKdTree& tree) {
  const double h = settings.radius;
  const double scale = static_cast<float>(945 / (32 * kPi * h * h * h));
  list.ForEachChunk(0, list.count(), [](const ParticleRows& rows) { rows.NeedProperty<Vec3D>(PP::SurfaceNormal); });
  const auto everywhere = [&](std::int32_t index) { return &list.Position(index); };
  ForEachNeighbourhoodAt(tree, pool, h, everywhere,
                         [&](std::int32_t index, std::span<const Neighbour> neighbours, std::int32_t) {
                           const Vec3D x = list.Position(index);
                           Vec3D normal;
                           for (const Neighbour& j : neighbours) {
                             if (j.index == index || j.distance == 0) continue;
                             const double q = j.distance / h, left = 1 - q * q;
                             if (q > 1) continue;
                             const OrlixParticle other(&list, j.index);
                             const double volume = other.GetRealOr(PP::Mass, 1) / other.GetRealOr(PP::Density, 1);
                             normal += (x - list.Position(j.index)) * (volume * -scale * q * left * left);
                           }
                           list.ChunkOf(index).column(PP::SurfaceNormal)->Put(index & (kChunkRows - 1), normal);
                         });
}

void AddCohesion(WorkerPool& pool, const TensionSettings& settings, ParticleList& list, const ParticleKdTree& tree,
                 std::span<const double> weights) {
  const std::int32_t most = tree.capacity(), count = list.count();
  const std::vector<Side> sides = SidesOf(pool, list, settings.radius);
  std::vector<Gift> gifts(static_cast<std::size_t>(std::min(kGivers, count)) * static_cast<std::size_t>(most));
  std::vector<std::int32_t> given(kGivers);
  for (std::int32_t first = 0; first < count; first += kGivers) {
    const std::int32_t givers = std::min(kGivers, count - first);
    ParallelRange(pool, 0, givers, [&](int begin, int end, int worker) {
      const CohesionPass pass{settings, list, tree, weights, sides};
      for (int n = begin; n < end; ++n) given[n] = pass.Give(first + n, worker, gifts.data() + std::size_t(n) * most);
    });
    ParallelRange(pool, 0, count, [&](int begin, int end, int) {
      for (std::int32_t n = 0; n < givers; ++n) {
        const Gift* gift = gifts.data() + std::size_t(n) * most;
        for (std::int32_t g = 0; g < given[n]; ++g) {
          if (gift[g].to >= begin && gift[g].to < end) AddToVelocity(list, gift[g].to, gift[g].dv);
        }
      }
    });
  }
}

}  // namespace orlix
