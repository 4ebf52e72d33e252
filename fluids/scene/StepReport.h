#pragma once
// What a step tells: times, solver outcomes, messages. The program writes it as statistics; nodes only fill it.

#include <cstdint>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "fluids/scene/Warnings.h"

namespace orlix {

struct SolverReport {
  std::string node;
  std::int32_t iterations = 0;
  double residual = 0;                               // the largest, over the largest of the right side
  std::optional<bool> converged;                     // none: nothing was tested
  double divergenceBefore = 0, divergenceAfter = 0;  // the largest of all cells, 1/s
};

// The particles of a group at the end of a sub-step.
struct ParticleReport {
  std::string group;
  std::int32_t counts[4] = {};                // by kind
  std::int64_t born = 0, died = 0, lost = 0;  // in the sub-step; lost are those of the dead that solids swallowed
  std::int64_t lostLiquid = 0;                // of the lost
  std::int64_t bytes = 0;
  std::int64_t foam = 0, spray = 0, bubbles = 0;  // the diffuse ones by class
};

// How well a liquid of particles alone keeps its density: |density / rest density - 1| after a sub-step's corrections.
struct DensityReport {
  std::string node;
  std::int64_t particles = 0;
  double restDensity = 0;        // 1/m^3
  double mean = 0, largest = 0;  // of all particles
  double compressed = 0;         // the largest of those that are too dense
};

// A liquid at the end of a sub-step.
struct LiquidReport {
  std::string node;
  double surfaceVolume = 0;   // m^3 inside its level set
  double particleVolume = 0;  // m^3, an eighth of a cell a particle
  std::int64_t particles = 0;
  std::int64_t outside = 0;  // of them, those that stand in no cell
  std::int64_t inWalls = 0;  // and those in cells that solids fill
  std::int64_t left = 0;     // removed in the sub-step beyond open faces
  std::vector<std::string> groups;
};

// By "node path:type/part/grid", in the order of the state.
using GridHashes = std::vector<std::pair<std::string, std::uint64_t>>;

// By stages and by nodes, s of the clock on the wall.
struct SpentSeconds {
  std::vector<std::pair<std::int32_t, double>> stages;
  std::vector<std::pair<std::string, double>> nodes;
};

struct SubstepReport {
  std::string scene;
  std::int32_t frame = 0;
  std::int32_t substep = 0;
  double dt = 0;       // s of simulated time
  double seconds = 0;  // of the clock on the wall
  std::vector<std::pair<std::int32_t, double>> stageSeconds;
  std::vector<std::pair<std::string, double>> nodeSeconds;
  std::int64_t cells = 0;
  std::int64_t particles = 0;
  std::vector<ParticleReport> groups;
  std::vector<LiquidReport> liquids;
  std::vector<DensityReport> densities;
  std::vector<SolverReport> solvers;
  std::int64_t gridBytes = 0;  // kept by the scene at the end of the sub-step
  std::int64_t peakBytes = 0;  // the most that all grids took at once since the sub-step began
  std::uint64_t hash = 0;      // of all simulated state and the clock; 0 when not asked for
  GridHashes gridHashes;       // of each grid of it
};

// What a scene's grids will take.
struct MemoryForecast {
  double cells = 0, bytes = 0;
};

// A node made a value that is no number.
struct Divergence {
  std::string node;
  std::string grid;  // or what of a particle
  std::int32_t stage = 0, frame = 0, substep = 0;
  std::int32_t i = 0, j = 0, k = 0;
  std::int32_t particle = -1;  // its id; -1 when it is a cell
  double value = 0;
  std::string Text() const;
};

// Where a scene's messages and statistics go. Functions may be empty.
struct StepObserver {
  bool wantsHash = false;
  bool missingCachesFail = false;  // a played frame that is missing or broken ends the run; otherwise it is a warning
  // A cache's frame may be written while the next one is simulated; whoever sets this flushes the caches at the end.
  bool writeBehind = false;
  // Frames stand alone: nothing is simulated, and of the nodes only these (by their objects' creation numbers) work on
  // what caches play back. Null: a simulation.
  const std::set<std::uint64_t>* passNodes = nullptr;
  // Nodes, likewise, that rest in frames whose results nobody wants: what they make goes nowhere else.
  std::set<std::uint64_t> restingNodes;
  bool isWanted = true;  // the frame that is being made
  std::function<void(const SubstepReport&)> onSubstep;
  Warnings warnings;
};

}  // namespace orlix
