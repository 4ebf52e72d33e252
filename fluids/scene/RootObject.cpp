#include "fluids/scene/RootObject.h"

#include <algorithm>

namespace orlix {

namespace {

constexpr Choice kModes[] = {
    {0, "adaptive", "From the top speed, the cell size and the CFL factor"},
    {1, "fixed_count", "The same number of sub-steps in each frame"},
    {2, "fixed_time", "Sub-steps that share a fixed time"},
};

constexpr Parameter kParameters[] = {
    FloatParameter(1000, "scale_units", 100.0, "host units", "So many host units are scale_metres").Above(0),
    FloatParameter(1001, "scale_metres", 1.0, "m", "What scale_units measure in the simulation").Above(0),
    FloatParameter(1002, "voxel_size", 0.2, "m", "Cell edge of the preview").Above(0),
    FloatParameter(1015, "render_voxel_size", 0.2, "m", "Cell edge of rendered frames").Above(0),
    ChoiceParameter(1003, "substep_mode", 0, kModes, "How a frame is divided into sub-steps"),
    FloatParameter(1004, "frame_time", 0.2, "s", "Simulated time of a frame").Min(0).ShownWhen(1003, Relation::Is, 2),
    IntParameter(1005, "max_substeps", 2, "", "One less than the sub-steps of a frame, or than the most of them")
        .Between(0, 254),
    IntParameter(1010, "min_substeps", 0, "", "One less than the fewest sub-steps of a frame")
        .Between(0, 254)
        .ShownWhen(1003, Relation::Is, 0),
    FloatParameter(1011, "cfl", 2.0, "cells", "How far the fluid may move in a sub-step")
        .Above(0)
        .ShownWhen(1003, Relation::Is, 0),
    VectorParameter(kGravityId, "gravity", {0, -9.81, 0}, "m/s^2", "Gravity, as forces and rigid bodies read it"),
    FloatParameter(1013, "time_scale", 1.0, "", "Factor on the simulated length of a frame").Min(0),
    BoolParameter(1006, "document_range", true, "Simulate the document's range of frames"),
    IntParameter(1007, "start_frame", 0, "frames", "First simulated frame").ShownWhen(1006, Relation::Is, 0),
    IntParameter(1008, "end_frame", 90, "frames", "Frame before which the simulation ends")
        .ShownWhen(1006, Relation::Is, 0),
    IntParameter(1009, "max_threads", 0, "", "Most workers of the node stages; 0 takes all that the host offers")
        .Min(0),
    IntParameter(1014, "seed", 2150, "", "Seed of all random numbers"),
    IntParameter(1300, "rigid_iterations", 10, "", "Solver iterations of the rigid world").Between(0, 1000),
    IntParameter(1301, "rigid_substeps", 10, "", "Sub-steps of the rigid world in one sub-step").Between(0, 1000),
    IntParameter(1302, "rigid_broadphase", 0, "", "Broad phase of the rigid world").Between(0, 2),
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

}  // namespace

const TypeInfo& RootType() {
  static const TypeInfo kType = [] {
    TypeInfo type;
    type.id = kRootTypeId;
    type.resource = "zq_server";
    type.className = "C4D_Server_Object";
    type.label = "Orlix Scene";
    type.text =
        "The root of a simulation: its scale, its cell size, its time and its threads. Everything beneath it takes "
        "part.";
    type.alias = "scene";
    type.role = TypeRole::Root;
    type.kinds = kLinkRoot;
    type.parameters = kParameters;
    type.common = TransformParameters();
    return type;
  }();
  return kType;
}

RootSettings RootSettings::Read(const C4D_InterfaceHandler& h) {
  RootSettings s;
  s.hostUnits = h.GetDouble(1000);
  s.metres = h.GetDouble(1001);
  s.cellSize = h.GetFloat(1002);
  s.renderCellSize = h.GetFloat(1015);
  const int mode = h.GetChoice(1003);
  s.mode = mode == 1 ? SubstepMode::FixedCount : mode == 2 ? SubstepMode::FixedTime : SubstepMode::Adaptive;
  s.fixedTime = h.GetFloat(1004);
  // The interface's numbers are one less; a frame's counters are bytes.
  s.substeps = std::clamp(h.GetInt(1005), 0, 254) + 1;
  s.minSubsteps = std::clamp(h.GetInt(1010), 0, 254) + 1;
  s.cfl = h.GetFloat(1011);
  s.timeScale = h.GetDouble(1013);
  s.documentRange = h.GetBool(1006);
  s.startFrame = h.GetInt(1007);
  s.endFrame = h.GetInt(1008);
  s.maxThreads = h.GetInt(1009);
  s.seed = h.GetInt(1014);
  return s;
}

}  // namespace orlix
