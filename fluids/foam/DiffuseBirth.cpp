#include "fluids/foam/DiffuseBirth.h"

#include <algorithm>
#include <limits>

namespace orlix {

namespace {

struct Born {
  Vec3D position, velocity;
};

Born AtBirth(const FoamSettings& settings, const DiffuseBirth& birth) {
  Born born{settings.Inside(birth.position), birth.velocity};
  if (birth.kind != DiffuseClass::Spray) return born;
  const float dt = static_cast<float>(settings.dt), drag = static_cast<float>(settings.sprayDrag);
  born.velocity.y -= settings.gravity * static_cast<double>(dt);
  born.position = settings.Inside(born.position + born.velocity * static_cast<double>(dt * (1 - drag)));
  return born;
}

// Frames left to live.
double AgeOf(const FoamSettings& settings, const DiffuseBirth& birth) {
  return static_cast<double>(static_cast<float>(birth.life) * static_cast<float>(settings.fps));
}

void WriteBirths(const FoamSettings& settings, const ParticleRows& rows, const DiffuseBirth* births) {
  Vec3D *positions = rows.EditPositions(), *velocities = rows.EditVelocities();
  std::uint16_t* flags = rows.EditFlags();
  const auto ages = rows.NeedProperty<double>(PP::Age);
  const auto masses = rows.NeedProperty<double>(PP::Mass);
  const auto old = rows.NeedProperty<Vec3D>(PP::OldPosition);
  for (std::int32_t r = rows.begin; r < rows.end; ++r, ++births) {
    const Born born = AtBirth(settings, *births);
    positions[r] = born.position, velocities[r] = born.velocity;
    flags[r] = FlagsOfClass(births->kind);
    ages.Put(r, AgeOf(settings, *births));
    old.Put(r, born.position);
    if (births->kind == DiffuseClass::Spray) masses.Put(r, settings.sprayMass);
  }
}

}  // namespace

std::int64_t AppendBirths(const FoamSettings& settings, std::span<const DiffuseBirths> pieces, ParticleList& list,
                          WorkerPool& pool) {
  std::vector<std::int64_t> starts{0};
  for (const DiffuseBirths& piece : pieces) starts.push_back(starts.back() + static_cast<std::int64_t>(piece.size()));
  const std::int64_t n = starts.back();
  if (n == 0) return 0;
  if (n > std::numeric_limits<std::int32_t>::max()) throw std::bad_alloc();
  BaseParticleData data;
  data.flags = FlagsOfClass(DiffuseClass::Foam);
  data.SetReal(PP::Age, 0);
  data.SetVector(PP::OldPosition, {});
  data.SetVector(PP::ExternalForce, {});
  const std::int32_t base = list.Append(static_cast<std::int32_t>(n), data, &pool);
  // Pieces are many and small, rows of different pieces may share a chunk's words: a worker takes whole chunks.
  const std::int32_t end = base + static_cast<std::int32_t>(n);
  ParallelRange(pool, base >> kChunkShift, ((end - 1) >> kChunkShift) + 1, [&](int from, int to, int) {
    const std::int32_t last = static_cast<std::int32_t>(std::min<std::int64_t>(end, std::int64_t(to) << kChunkShift));
    std::int32_t row = std::max(base, from << kChunkShift);
    auto piece =
        static_cast<std::size_t>(std::upper_bound(starts.begin(), starts.end(), row - base) - starts.begin()) - 1;
    while (row < last) {
      const auto pieceEnd = static_cast<std::int32_t>(base + starts[piece + 1]);
      const std::int32_t stop = std::min(last, pieceEnd);
      const DiffuseBirth* births = pieces[piece].data() + (row - base - starts[piece]);
      list.ForEachChunk(row, stop, [&](const ParticleRows& rows) {
        WriteBirths(settings, rows, births);
        births += rows.end - rows.begin;
      });
      row = stop;
      ++piece;
    }
  });
  return n;
}

}  // namespace orlix
