#include "fluids/scene/RootObject.h"

#include <algorithm>

namespace orlix {

namespace {

// Of scales and cells. What lies beyond leaves single precision where lengths are squared, cubed and divided.
constexpr double kLeastLength = 1e-9, kMostLength = 1e9;

}  // namespace

const TypeInfo& RootSettings::Type() {
  static constexpr Choice kModes[] = {
      {SubstepMode::Adaptive, "adaptive", "From the top speed, the cell size and the CFL factor"},
      {SubstepMode::FixedCount, "fixed_count", "The same number of sub-steps in each frame"},
      {SubstepMode::FixedTime, "fixed_time", "Sub-steps that share a fixed time"},
  };

  static constexpr Choice kBroadphases[] = {
      {RigidBroadphase::Tree, "tree", "A tree of boxes; any number of bodies, anywhere"},
      {RigidBroadphase::Sweep, "sweep", "Sorted along the axes in 16 bits; up to 1024 bodies, within 10 km"},
      {RigidBroadphase::FineSweep, "fine_sweep", "Sorted along the axes in 32 bits; up to 1024 bodies, within 10 km"},
  };

  static constexpr Parameter kParameters[] = {
      FloatParameter(kScaleUnitsId, "scale_units", 100.0, "host units", "So many host units are scale_metres")
          .Between(kLeastLength, kMostLength),
      FloatParameter(kScaleMetresId, "scale_metres", 1.0, "m", "What scale_units measure in the simulation")
          .Between(kLeastLength, kMostLength),
      FloatParameter(kVoxelSizeId, "voxel_size", 0.2, "m", "Cell edge of the preview")
          .Between(kLeastLength, kMostLength),
      FloatParameter(kRenderVoxelSizeId, "render_voxel_size", 0.2, "m", "Cell edge of rendered frames")
          .Between(kLeastLength, kMostLength),
      ChoiceParameter(kSubstepModeId, "substep_mode", SubstepMode::Adaptive, kModes,
                      "How a frame is divided into sub-steps"),
      FloatParameter(kFrameTimeId, "frame_time", 0.2, "s", "Simulated time of a frame")
          .Min(0)
          .ShownWhen(kSubstepModeId, Relation::Is, SubstepMode::FixedTime),
      IntParameter(kMaxSubstepsId, "max_substeps", 2, "",
                   "One less than the sub-steps of a frame, or than the most of them")
          .Between(0, 254),
      IntParameter(kMinSubstepsId, "min_substeps", 0, "", "One less than the fewest sub-steps of a frame")
          .Between(0, 254)
          .ShownWhen(kSubstepModeId, Relation::Is, SubstepMode::Adaptive),
      FloatParameter(kCflId, "cfl", 2.0, "cells", "How far the fluid may move in a sub-step")
          .Above(0)
          .ShownWhen(kSubstepModeId, Relation::Is, SubstepMode::Adaptive),
      VectorParameter(kGravityId, "gravity", {0, -9.81, 0}, "m/s^2", "Gravity, as forces and rigid bodies read it"),
      FloatParameter(kTimeScaleId, "time_scale", 1.0, "", "Factor on the simulated length of a frame").Min(0),
      BoolParameter(kDocumentRangeId, "document_range", true, "Simulate the document's range of frames"),
      IntParameter(kStartFrameId, "start_frame", 0, "frames", "First simulated frame")
          .ShownWhen(kDocumentRangeId, Relation::Is, 0),
      IntParameter(kEndFrameId, "end_frame", 90, "frames", "Frame before which the simulation ends")
          .ShownWhen(kDocumentRangeId, Relation::Is, 0),
      IntParameter(kMaxThreadsId, "max_threads", 0, "",
                   "Most workers of the node stages; 0 takes all that the host offers")
          .Min(0),
      IntParameter(kSeedId, "seed", 2150, "", "Seed of all random numbers"),
      IntParameter(kRigidIterationsId, "rigid_iterations", 10, "", "Solver iterations of the rigid world")
          .Between(0, 1000),
      IntParameter(kRigidSubstepsId, "rigid_substeps", 10, "", "Sub-steps of the rigid world in one sub-step")
          .Between(0, 1000),
      ChoiceParameter(kRigidBroadphaseId, "rigid_broadphase", RigidBroadphase::Tree, kBroadphases,
                      "How the rigid world finds bodies that may touch"),
      FloatParameter(
          kRigidSlopId, "rigid_slop", 0.1, "m",
          "How far bodies may sink into each other before they are pushed apart; a few hundredths of their size")
          .Min(0),
      BoolParameter(kRigidWallsId, "rigid_walls", false,
                    "The closed faces of the solvers' containers hold bodies back, too"),
      BoolParameter(1500, "cache_offset_mode", false, "Handed to new cache objects"),
      IntParameter(1513, "cache_offset", 0, "frames", "Handed to new cache objects"),
      IntParameter(1501, "cache_mode", 1, "", "Handed to new cache objects: their mode"),
      ButtonParameter(1502, "choose_cache_folder", "Asks for the cache folder"),
      StringParameter(1503, "cache_folder", "", "Folder of new cache objects"),
      StringParameter(1504, "cache_name", "", "File name of new cache objects"),
      BoolParameter(1505, "cache_duration", false, "New cache objects get a duration"),
      IntParameter(1506, "cache_last_frame", -1, "frames", "Handed to new cache objects"),
      IntParameter(1507, "cache_first_frame", 0, "frames", "Handed to new cache objects"),
      BoolParameter(1508, "cache_compress", false, "Handed to new cache objects"),
      IntParameter(1509, "cache_particles", 0, "", "Handed to new particle cache objects"),
      IntParameter(1510, "cache_interpolation", 0, "", "Handed to new grid cache objects"),
      IntParameter(1511, "cache_numbers", 0, "", "Handed to new cache objects: number scheme"),
      ListParameter(1512, "cache_list", kLinkAny, "A second list of objects of the cache settings"),
      BoolParameter(1514, "cache_render_only", false, "Handed to new cache objects"),
      ListParameter(1515, "cache_objects", kLinkAny, "Objects for which caches are to be made"),
      ButtonParameter(1516, "collect_objects", "Fills the list with all objects that can be cached"),
      ButtonParameter(1517, "create_cachers", "Makes cache objects for the list"),
      BoolParameter(1518, "cache_load_scene", true, "Makes a second root object that plays the caches back"),
  };
  static const TypeInfo kType = {
      .id = kRootTypeId,
      .resource = "zq_server",
      .alias = "scene",
      .className = "C4D_Server_Object",
      .label = "Orlix Scene",
      .text =
          "The root of a simulation: its scale, its cell size, its time and its threads. Everything beneath it takes "
          "part.",
      .role = TypeRole::Root,
      .kinds = kLinkRoot,
      .parameters = kParameters,
      .common = TransformParameters(),
  };
  return kType;
}

RootSettings RootSettings::Read(const C4D_InterfaceHandler& h) {
  RootSettings s;
  s.hostUnits = h.GetDouble(kScaleUnitsId);
  s.metres = h.GetDouble(kScaleMetresId);
  s.cellSize = h.GetFloat(kVoxelSizeId);
  s.renderCellSize = h.GetFloat(kRenderVoxelSizeId);
  s.mode = h.GetChoice<SubstepMode>(kSubstepModeId);
  if (s.mode != SubstepMode::FixedCount && s.mode != SubstepMode::FixedTime) s.mode = SubstepMode::Adaptive;
  s.fixedTime = h.GetFloat(kFrameTimeId);
  // The interface's numbers are one less; a frame's counters are bytes.
  s.substeps = std::clamp(h.GetInt(kMaxSubstepsId), 0, 254) + 1;
  s.minSubsteps = std::clamp(h.GetInt(kMinSubstepsId), 0, 254) + 1;
  s.cfl = h.GetFloat(kCflId);
  s.timeScale = h.GetDouble(kTimeScaleId);
  s.documentRange = h.GetBool(kDocumentRangeId);
  s.startFrame = h.GetInt(kStartFrameId);
  s.endFrame = h.GetInt(kEndFrameId);
  s.maxThreads = h.GetInt(kMaxThreadsId);
  s.seed = h.GetInt(kSeedId);
  return s;
}

}  // namespace orlix
