// Five million particles in a picture of 1280 x 720, four samples a pixel, one light: from the group to the planes.

#include <benchmark/benchmark.h>

#include "benchmarks/Triad.h"
#include "fluids/particle_renderer/ParticlePicture.h"
#include "fluids/particles/ParticleGroup.h"
#include "globals/Random.h"
#include "host/render/Renderer.h"
#include "tests/support/TestScene.h"

namespace orlix {
namespace {

constexpr std::int32_t kCount = 5000000;

// A ball of particles of 0.5 m that turns, a little more than a pixel each.
void FillBall(ParticleList& list) {
  BaseParticleData data;
  data.SetReal(PP::Radius, 0.0008);
  list.Append(kCount, data);
  MersenneTwister random(1);
  list.ForEachChunk(0, kCount, [&](const ParticleRows& rows) {
    for (std::int32_t r = rows.begin; r < rows.end; ++r) {
      Vec3D& x = rows.EditPositions()[r];
      do {
        x = Vec3D(random.Uniform() - 0.5, random.Uniform() - 0.5, random.Uniform() - 0.5);
      } while (LengthSquared(x) > 0.25);
      rows.EditVelocities()[r] = {-x.z, 0, x.x};
    }
  });
}

void BM_ParticlePicture(benchmark::State& state) {
  test::TestScene scene(static_cast<int>(state.range(0)));
  const BaseObject& object = scene.Add("particlegroup", "Group");
  scene.Step(0);
  FillBall(*scene.NodeOf<ParticleGroup>(object)->list(PK_Passive));
  RenderWorld world;
  world.settings.width = 1280, world.settings.height = 720;
  Light sun;
  sun.kind = LightKind::Distant, sun.direction = Normalized(Vec3D{1, -1, -0.5});
  world.lights.push_back(sun);
  RenderReport report;
  for (auto _ : state) {
    Result<ParticlePicture> particles =
        MakeParticlePicture(scene.document, scene.hook, scene.pool, false, scene.observer.warnings, 0);
    if (!particles || particles->clouds.size() != 1) return state.SkipWithError("no particles");
    world.camera = FramingCamera(particles->low, particles->high, 1280, 720);
    world.points = std::move(particles->clouds);
    if (!RenderPicture(world, scene.pool, {}, &report) || report.shadowRays == 0) state.SkipWithError("no picture");
  }
  state.counters["triad_GB/s"] = bench::TriadBandwidth(bench::BenchThreads()) / 1e9;
  state.counters["before_rays_s"] = report.startSeconds;
  state.SetItemsProcessed(kCount * state.iterations());
}
BENCHMARK(BM_ParticlePicture)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
}  // namespace orlix
