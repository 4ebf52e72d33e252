#pragma once
// The part of a simulation that doesn't depend on its nodes: time, container and the main step.

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
  virtual ~Scene() = default;
  Scene(const Scene&) = delete;
  Scene& operator=(const Scene&) = delete;

  // The main step, once per host frame. True when the frame was handled, also when nothing had to be done; false when
  // a break or a failure ended it.
  virtual bool Step(const BaseThread* thread, bool renderingFrame);
  // Makes the container and the nodes with their settings, as the document has them now, without simulating: where a
  // kept state is put back, after which the next Step goes on from it.
  void BuildAt(bool renderingFrame);

  // The smaller of the frame's length and cellSize / speed x cfl.
  virtual double ComputeTimeStep(double minSquaredSpeed) const;
  virtual void CheckDirty() = 0;
  virtual void SyncNodes() = 0;
  virtual void EvaluateStage() = 0;
  virtual void LoadCaches() = 0;
  virtual bool Simulate(bool updateOnly) = 0;
  virtual void VisualStage() = 0;
  virtual void SaveCaches() = 0;
  virtual void ResetNodes(bool hard) = 0;
  virtual bool AnyDirty() = 0;
  virtual bool TestBreak(const BaseThread* extraThread = nullptr) const = 0;
  virtual void SetStage(std::int32_t newStage) = 0;
  virtual void ShowStatus(const std::string& text) = 0;
  virtual int HostWorkers() const = 0;

  // frameOffset, time of the frame (s), its simulated duration (s), the sub-step settings, and the motion-blur sample.
  virtual void SetFrameParameters(std::int32_t frameOffset, float frameDuration, SubstepMode mode, double cflFactor,
                                  double fixedTime, std::int32_t substeps, std::uint8_t minSubsteps, std::int32_t fps,
                                  double blurSample, double blurSamples);
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
  double halfCell = 0, quarterCell = 0;
  // Set by the program before a rendered frame whose motion blur takes samples of a frame's time.
  double blurSample = 0, blurSamples = 0;

 private:
  enum class FrameKind { Ignore, ResetOnly, Update, Simulate };
  RootSettings BeginStep(bool renderingFrame, bool& containerChanged);
  FrameKind DecideFrame(bool containerChanged, bool& resetDone);
  bool RunUpdate();
  bool RunFrame(bool resetDone);
  bool RunSubsteps();
  bool ChooseSubstep(bool first, float minDt, float maxDt);
  void EndFrame();
};

}  // namespace orlix
