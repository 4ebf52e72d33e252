#pragma once
// The root object of a simulation, "Orlix Scene" (C4D_Server_Object): its settings and their reading.

#include "fluids/scene/Scene.h"

namespace orlix {

inline constexpr int kRootTypeId = 1300000;

enum class RigidBroadphase : std::int32_t { Tree = 0, Sweep = 1, FineSweep = 2 };

struct RootSettings {
  static constexpr int kScaleUnitsId = 1000, kScaleMetresId = 1001, kVoxelSizeId = 1002, kRenderVoxelSizeId = 1015,
                       kSubstepModeId = 1003, kFrameTimeId = 1004, kMaxSubstepsId = 1005, kMinSubstepsId = 1010,
                       kCflId = 1011, kTimeScaleId = 1013, kDocumentRangeId = 1006, kStartFrameId = 1007,
                       kEndFrameId = 1008, kMaxThreadsId = 1009, kSeedId = 1014, kRigidIterationsId = 1300,
                       kRigidSubstepsId = 1301, kRigidBroadphaseId = 1302, kRigidWallsId = 1303, kRigidSlopId = 1304,
                       kGravityId = 1012;
  static const TypeInfo& Type();

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

}  // namespace orlix
