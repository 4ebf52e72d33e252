// The parameter tables of the two liquids.

#include <vector>

#include "fluids/dynamics/FluidObject.h"
#include "fluids/dynamics/Grid_Incompressibility.h"
#include "fluids/liquids/WaterSolver.h"
#include "fluids/particles/KindChoices.h"

namespace orlix {

namespace {

constexpr Choice kLevelSetModes[] = {
    {ParticleToLevelset::Cells, "cells", "Cells with more particles than the minimum, and distances from them"},
    {ParticleToLevelset::Mass, "mass", "By the densities in a cell against the iso value"},
};

// What differs from a gas, and what a gas doesn't have; the rest is the gas's.
constexpr Parameter kParameters[] = {
    GroupListParameter(WaterSolver::kGroupsId, "groups",
                       "Groups whose liquid particles carry the liquid; without any, every group of the scene"),
    FloatParameter(WaterSolver::kFlipRatioId, "flip_ratio", 0.96, "",
                   "How much of a particle's own velocity stays: 1 is lively and noisy, 0 smooth and sticky")
        .Between(0, 1),
    BoolParameter(WaterSolver::kGatherId, "gather", false,
                  "Faces gather velocities with a kernel: smoother, ten times the time"),
    FloatParameter(WaterSolver::kGatherRadiusId, "gather_radius", 1.4, "cells", "How far a face gathers")
        .Above(0)
        .ShownWhen(WaterSolver::kGatherId, Relation::Is, 1),
    LinkParameter(WaterSolver::kGatherKernelId, "gather_kernel", kLinkKernel,
                  "The weight of a particle by its distance")
        .ShownWhen(WaterSolver::kGatherId, Relation::Is, 1),
    ChoiceParameter(WaterSolver::kLevelSetModeId, "level_set", ParticleToLevelset::Cells, kLevelSetModes,
                    "How the surface is found"),
    FloatParameter(WaterSolver::kLevelSetIsoId, "level_set_iso", 0.2, "",
                   "Density, in eighths of a cell, above which it is liquid")
        .Above(0)
        .ShownWhen(WaterSolver::kLevelSetModeId, Relation::Is, ParticleToLevelset::Mass),
    IntParameter(WaterSolver::kLevelSetMinimumId, "level_set_minimum", 0, "",
                 "Particles that don't yet make a cell liquid")
        .Between(0, 1000)
        .ShownWhen(WaterSolver::kLevelSetModeId, Relation::Is, ParticleToLevelset::Cells),
    BoolParameter(WaterSolver::kFollowCacheId, "follow_cache", false,
                  "Particles move along with velocities that a cache plays"),
    FloatParameter(
        WaterSolver::kKeepVolumeId, "keep_volume", 0.0, "1/s",
        "How fast particles that crowd are driven apart, and thinned ones closed up, so that splashing loses "
        "no volume: 5 is a good value, 0 leaves it")
        .Between(0, 1000),
    BoolParameter(WaterSolver::kDrainId, "drain", false,
                  "Particles that leave through open faces of the container die; otherwise they stay about"),
    IntParameter(WaterSolver::kFullCellId, "full_cell", 8, "",
                 "Particles of a full cell: 8 of an emitter with subdivision 1, 64 with 2")
        .Between(1, 32768),
    FloatParameter(Grid_Incompressibility::kDensityId, "density", 1000.0, "kg/m^3",
                   "Density of the liquid; it scales the pressure")
        .Above(0),
    IntParameter(FluidSolver::kMarginId, "margin", 3, "cells",
                 "Band by which the computed box grows beyond what is asked for")
        .Min(0),
    ChoiceParameter(Grid_Incompressibility::kPressureSolverId, "pressure_solver", kPressureCG, kPressureSolverChoices,
                    "Which solver finds the pressure"),
    IntParameter(WaterSolver::kModeId, "reserved_1203", 0, "", "Kept with the object; changes nothing").Hidden(),
    FloatParameter(1205, "reserved_1205", 1.0, "", "Kept with the object; changes nothing").Hidden(),
    FloatParameter(1206, "reserved_1206", 1.0, "", "Kept with the object; changes nothing").Hidden(),
    IntParameter(1207, "reserved_1207", 5, "", "Kept with the object; changes nothing").Hidden(),
    IntParameter(1208, "reserved_1208", 5, "", "Kept with the object; changes nothing").Hidden(),
};

}  // namespace

const TypeInfo& WaterSolver::Type() {
  static const TypeInfo kType = {
      .id = 1300003,
      .resource = "zq_liquid",
      .className = "C4D_Fluid_Liquid_Object",
      .label = "Liquid Dynamics",
      .text =
          "Water and the like: particles carry the liquid, a grid keeps its volume. It needs a particle group, an "
          "emitter, a particle_advection that moves the particles, and a force.",
      .kinds = kLinkSolver,
      .parameters = kParameters,
      .common = FluidSolverParameters(),
      .createData = []() -> std::unique_ptr<ObjectData> { return std::make_unique<FluidObject>(); },
  };
  return kType;
}

const TypeInfo& WaterSolver::ViscousType() {
  static const TypeInfo kType = {
      .id = 1300004,
      .resource = "zq_liquid_viscous",
      .className = "C4D_Fluid_Viscous_Object",
      .label = "Viscous Liquid (Low to highly viscous)",
      .text = "Honey and the like: the same as a liquid, made for a viscosity.",
      .kinds = kLinkSolver,
      .parameters = kParameters,
      .common = FluidSolverParameters(),
      .createData = []() -> std::unique_ptr<ObjectData> { return std::make_unique<FluidObject>(); },
  };
  return kType;
}

}  // namespace orlix
