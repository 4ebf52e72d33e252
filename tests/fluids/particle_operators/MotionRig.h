#pragma once
// Particles in a box of cells with a velocity field, moved by hand.

#include "fluids/particle_operators/ParticleMotion.h"
#include "tests/fluids/advection/AdvectionFixture.h"

namespace orlix::test {

struct MotionRig {
  // Cells of a quarter metre from the origin; closed walls stand a cell inside. Velocities in m/s at places in metres.
  explicit MotionRig(
      const VecInt3D& cells = {20, 20, 20},
      const std::function<Vec3D(const Vec3D&)>& velocity = [](const Vec3D&) { return Vec3D(); })
      : bench(
            cells, [=](const Vec3D& p) { return velocity(p * kCell) * (1 / kCell); }, static_cast<float>(kCell)) {
    field.velocity = bench.field.velocity;
    field.solid = bench.field.solid;
    field.cellSize = kCell;
    settings.dt = 0.0625;
    settings.gravity = {0, -8, 0};
    settings.collisions = CollisionMode::None;
    settings.lastSubstep = false;
    context.list = &own;
  }
  OrlixParticle Add(const Vec3D& x, const Vec3D& v = {}, std::uint16_t flags = 0) {
    BaseParticleData data;
    data.position = x, data.velocity = v;
    data.flags = static_cast<std::uint16_t>(data.flags | flags);
    return {&list(), list().Append(1, data)};
  }
  ParticleList& list() { return *context.list; }
  void Step(int count = 1) {
    for (int step = 0; step < count; ++step) {
      for (int c = 0; c < list().chunkCount(); ++c) {
        MoveParticles(settings, field, operators, context, list().Rows(c), 0);
      }
    }
  }

  static constexpr double kCell = 0.25;
  AdvectionBench bench;
  ParticleList own;
  MotionSettings settings;
  MotionField field;
  std::vector<iInstantOperator*> operators;
  InstantContext context;
};

}  // namespace orlix::test
