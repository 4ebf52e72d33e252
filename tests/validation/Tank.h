#pragma once
// A tank of liquid whose shape a test gives: a scene of a page, filled with eight particles a cell.

#include <fstream>
#include <functional>
#include <string>

#include "fluids/liquids/WaterSolver.h"
#include "globals/Random.h"
#include "tests/support/SceneFileRun.h"
#include "tests/support/TemporaryFolder.h"

namespace orlix::test {

struct TankSettings {
  Vec3D size{1, 1, 1};  // m, of the container
  double cell = 0.05;   // m
  int fps = 24;
  std::string top = "open";  // the container's upper face
  std::string liquid;        // rows of the liquid's object, each with a comma behind it
  std::string scene;         // rows of the scene's
  std::string motion;        // rows of the particles' motion
  Vec3D corner;              // m, of the container; what Fill takes is relative to it
  bool mirrored = false;     // Fill turns x about the container's middle
  std::string objects;       // objects beside the scene, and nodes beneath it, the same
  std::string nodes;
  int workers = 2;
};

class Tank {
 public:
  explicit Tank(const TankSettings& settings) : settings_(settings), run(Write(settings), {}, settings.workers) {}

  // Fills what inside says (m), with the velocity there, and steps to the first frame that moves.
  template <class F>
  void Fill(F&& inside, const Vec3D& velocity = {}) {
    run.StepThrough(0, 0);
    ParticleGroup& group = run.Get<ParticleGroup>("Water");
    group.factory(PK_Liquid).SetListCount(1);
    ParticleList& list = *group.list(PK_Liquid);
    MersenneTwister random(7);
    const double step = settings_.cell / 2;
    const auto count = [&](double length) { return int(std::lround(length / step)); };
    for (int k = 0; k < count(settings_.size.z); ++k) {
      for (int j = 0; j < count(settings_.size.y); ++j) {
        for (int i = 0; i < count(settings_.size.x); ++i) {
          if (!inside((Vec3D(i, j, k) + Vec3D(0.5)) * step)) continue;
          BaseParticleData data;
          data.flags = ParticleFlag::Alive | ParticleFlag::Liquid;
          const auto jitter = [&] { return 0.5 + 0.5 * (random.Uniform() - 0.5); };
          data.position = (Vec3D(i, j, k) + Vec3D(jitter(), jitter(), jitter())) * step;
          if (settings_.mirrored) data.position.x = settings_.size.x - data.position.x;
          data.position += settings_.corner;
          data.velocity = velocity;
          list.Append(1, data);
        }
      }
    }
  }
  // f(position, velocity) for each particle.
  template <class F>
  void ForEach(F&& f) {
    const ParticleList& list = *run.Get<ParticleGroup>("Water").list(PK_Liquid);
    for (int n = 0; n < list.count(); ++n) f(list.Position(n), list.Velocity(n));
  }
  double ParticleVolume() const { return settings_.cell * settings_.cell * settings_.cell / 8; }
  double Fps() const { return settings_.fps; }
  WaterSolver& Solver() { return run.Get<WaterSolver>("Tank"); }
  const LiquidReport& Report() const { return run.reports.back().liquids.at(0); }

 private:
  static std::string Write(const TankSettings& s) {
    static const TemporaryFolder folder;
    const std::string path = (folder.path() / "tank.json").string();
    const auto vector = [](const Vec3D& v) {
      return "[" + std::to_string(v.x) + "," + std::to_string(v.y) + "," + std::to_string(v.z) + "]";
    };
    std::ofstream(path) << R"({"orlix": 1, "fps": )" << s.fps << R"(, "frames": [0, 100000], "up": "y", "objects": [)"
                        << s.objects << R"({"type": "scene", "name": "Room", "voxel_size": )" << s.cell << ", "
                        << R"("max_substeps": 15, )" << s.scene << R"("children": [)" << s.nodes
                        << R"({"type": "particlegroup", "name": "Water"},
      {"type": "liquid", "name": "Tank", "container": )"
                        << vector(s.size * 100) << R"(, "position": )" << vector(s.corner * 100)
                        << R"(, "face_y_max": ")" << s.top << R"(", )" << s.liquid
                        << R"("pressure_solver": "multigrid", "pressure_accuracy": 0.3},
      {"type": "force_gravity", "name": "Fall", "strength": 0},
      {"type": "particle_advection", "name": "Flow", "group": "Water", "kind": "liquid", "motion_source": "solvers",)"
                        << s.motion << R"( "collisions": "boundary", "kill_inside": false}]}]})";
    return path;
  }

  TankSettings settings_;

 public:
  SceneFileRun run;
};

}  // namespace orlix::test
