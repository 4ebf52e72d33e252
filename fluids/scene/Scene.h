#pragma once
// What a simulation has beside its nodes: time, settings of the root object, the container's scale.

#include <cstdint>
#include <string>

#include "fluids/grids/GridSpace.h"
#include "fluids/scene/C4D_InterfaceHandler.h"
#include "fluids/scene/FrameClock.h"
#include "fluids/scene/SimulationInfo.h"

namespace orlix {

enum SceneFlag : std::uint32_t { ContainerChanged = 2, TimeMoved = 4, NoBounds = 8 };

// The stages, in the order in which a frame walks them.
enum Stage : std::int32_t {
  kStageLoadCache = 0,
  kStageStart = 1,
  kStageInitSubstep = 2,
  kStageVolumes = 3,
  kStageBounds = 4,
  kStageEmitters = 5,
  kStageAdvection = 6,
  kStageOperators = 7,
  kStageFluidDynamics = 8,
  kStageForces = 9,
  kStagePressure = 10,
  kStageFlip = 11,
  kStageDynamicsPost = 12,
  kStageChannels = 13,
  kStageChannelsAdvection = 14,
  kStageChannelsOperators = 15,
  kStageFinish = 16,
  kStageSaveCache = 17,
  kStageFinishSubstep = 18,
  kStageStartVisual = 19,
  kStageReconstruction = 20,
  kStageMeshing = 21,
  kStageVisualPost = 22,
  kStageFinishVisual = 23,
  kStageUpdate = 24,
  kStageProcess = 25  // a label without a stage
};
// "Emitters", "Pressure", ...
const char* StageLabel(std::int32_t stage);

struct RootSettings;

enum class SubstepMode : std::int32_t { Adaptive = 0, FixedCount = 1, FixedTime = 2 };

class Scene {
 public:
  explicit Scene(BaseObject& root) : handler(&root) {}
  Scene(const Scene&) = delete;
  Scene& operator=(const Scene&) = delete;

  // True when the simulation space changed.
  bool UpdateSpace(double hostUnits, double metres, float cellSize);

  bool HasFlag(SceneFlag flag) const { return (flags & flag) != 0; }
  void SetFlag(SceneFlag flag, bool on) { flags = on ? flags | flag : flags & ~flag; }

  C4D_InterfaceHandler handler;
  bool rendering = false;  // the frame is being rendered, not previewed
  std::uint32_t flags = 0;
  std::int32_t threadCount = 1;
  std::int32_t seed = 902891;
  SubstepMode substepMode = SubstepMode::Adaptive;
  double cfl = 1.0;
  std::int32_t stage = 0;
  FrameClock clock;
  SimulationInfo info;
  GridSpace space;  // one cell, origin 0
  // Set by the program before a rendered frame whose motion blur takes samples of a frame's time.
  double blurSample = 0, blurSamples = 0;
};

}  // namespace orlix
