#pragma once
// The root object of a simulation, "Orlix Scene" (C4D_Server_Object): its settings and their reading.

#include "fluids/scene/Scene.h"

namespace orlix {

inline constexpr int kRootTypeId = 1300000;

const TypeInfo& RootType();

struct RootSettings {
  double hostUnits, metres;  // so many host units are so many metres
  float cellSize, renderCellSize;
  SubstepMode mode;
  double fixedTime;
  std::int32_t substeps, minSubsteps;
  double cfl, timeScale;
  bool documentRange;
  std::int32_t startFrame, endFrame;
  std::int32_t maxThreads, seed;

  static RootSettings Read(const C4D_InterfaceHandler& handler);
};

inline constexpr int kGravityId = 1012;

}  // namespace orlix
