// The parameter table of the gas solver and its type.

#include <algorithm>
#include <array>
#include <vector>

#include "fluids/boundary/GridBoundary.h"
#include "fluids/dynamics/FluidObject.h"
#include "fluids/dynamics/FluidSolver.h"
#include "fluids/dynamics/GridExtrapolation.h"
#include "fluids/dynamics/Grid_Incompressibility.h"
#include "fluids/dynamics/Grid_Viscosity.h"
#include "fluids/dynamics/Substances.h"
#include "fluids/dynamics/VelocityConstrain.h"
#include "fluids/dynamics/VelocityGridEmitter.h"

namespace orlix {

namespace {

constexpr Choice kFace[] = {
    {GridBoundary::Face::Open, "open", "The fluid flows through"},
    {GridBoundary::Face::Closed, "closed", "A wall, one cell inside the grid"},
};

constexpr int kMostIterations = 100000;

constexpr Choice kDisplay[] = {
    {0, "off", "Not drawn"},
    {1, "on", "Drawn"},
};

constexpr Choice kAnchor[] = {
    {FluidSolver::AnchorMode::Corner, "corner", "The object's position is the container's low corner"},
    {FluidSolver::AnchorMode::Centre, "centre", "The object's position is the container's centre"},
    {FluidSolver::AnchorMode::Bottom, "bottom", "The object's position is the centre of the container's bottom"},
    {FluidSolver::AnchorMode::Custom, "custom", "As the anchor says"},
};

constexpr Parameter Face(int id, const char* key, const char* text) {
  return ChoiceParameter(id, key, GridBoundary::Face::Closed, kFace, text);
}

constexpr Parameter kParameters[] = {
    LinkParameter(Grid_Incompressibility::kDensityChannelId, "density_channel", kLinkChannel,
                  "Density of the fluid by cell, in place of the one value"),
    FloatParameter(Grid_Incompressibility::kDensityId, "density", 1.23, "kg/m^3",
                   "Density of the fluid; it scales the pressure")
        .Above(0),
    BoolParameter(VelocityGridChannel::kKeepPreviousId, "keep_previous", true,
                  "Keeps the velocity of the step before, which its advection needs"),
    ListParameter(VelocityGridEmitter::kForcesId, "forces", kLinkForce,
                  "Forces on the fluid; without any, every force of the scene"),
    IntParameter(FluidSolver::kMarginId, "margin", 5, "cells",
                 "Band by which the computed box grows beyond what is asked for")
        .Min(0),
    VectorParameter(FluidSolver::kContainerId, "container", {500, 500, 500}, "host units", "Size of the container")
        .Min(0),
    ChoiceParameter(FluidSolver::kAnchorModeId, "anchor_mode", FluidSolver::AnchorMode::Corner, kAnchor,
                    "Where in the container the object's position lies")
        .OnlyShows(),
    VectorParameter(FluidSolver::kAnchorId, "anchor", {0, 0, 0}, "", "The same as a fraction of the size")
        .ShownWhen(FluidSolver::kAnchorModeId, Relation::Is, FluidSolver::AnchorMode::Custom),
    Face(GridBoundary::kFaceXMinId, "face_x_min", "Container's face at the minimum of x"),
    Face(GridBoundary::kFaceXMaxId, "face_x_max", "Container's face at the maximum of x"),
    Face(GridBoundary::kFaceYMinId, "face_y_min", "Container's face at the minimum of y"),
    Face(GridBoundary::kFaceYMaxId, "face_y_max", "Container's face at the maximum of y"),
    Face(GridBoundary::kFaceZMinId, "face_z_min", "Container's face at the minimum of z"),
    Face(GridBoundary::kFaceZMaxId, "face_z_max", "Container's face at the maximum of z"),
    ListParameter(FluidSolver::kObstaclesId, "obstacles", kLinkVolume,
                  "Every volume with an obstacle tag is an obstacle")
        .Unread(),
    IntParameter(GridExtrapolation::kExtrapolationLayersId, "extrapolation_layers", 3, "cells",
                 "How deep velocity is carried into solids")
        .Between(0, 1000),
    ChoiceParameter(Grid_Incompressibility::kPressureSolverId, "pressure_solver", kPressureGauss,
                    kPressureSolverChoices, "Which solver finds the pressure"),
    IntParameter(Grid_Incompressibility::kPressureIterationsId, "pressure_iterations", 200, "",
                 "Most iterations, or the number of sweeps")
        .Between(0, kMostIterations),
    FloatParameter(Grid_Incompressibility::kPressureAccuracyId, "pressure_accuracy", 0.5, "",
                   "Tolerance of the pressure: 0.5 is 1e-8; each tenth is a digit")
        .Min(0),
    ChoiceParameter(
        Grid_Incompressibility::kBodyCouplingId, "body_coupling", BodyCouplingMode::Joint, kBodyCouplingChoices,
        "How bodies that move by forces and the pressure find their way together: joint is steady at any ratio of "
        "densities; split throws out a body of less than a fiftieth of the mass at which it floats"),
    FloatParameter(VelocityConstrain::kSlipId, "slip", 1.0, "",
                   "At solids: 0 takes the solid's velocity, 1 slides along it")
        .Min(0),
    BoolParameter(VelocityConstrain::kObstacleNormalsId, "obstacle_normals", true,
                  "Slides by the normal of the obstacle's own level set"),
    BoolParameter(VelocityConstrain::kMoveWithObstaclesId, "move_with_obstacles", false,
                  "Moving obstacles drag the fluid at their surface along"),
    FloatParameter(Grid_Incompressibility::kMinDiagonalRatioId, "min_diagonal_ratio", 0.25, "",
                   "Preconditioner: least pivot as a fraction of the diagonal")
        .Between(0, 1),
    FloatParameter(Grid_Incompressibility::kModificationId, "modification", 0.97, "",
                   "Preconditioner: share of the dropped fill that the diagonal gets")
        .Between(0, 1),
    ChoiceParameter(FluidSolver::kViscosityPresetId, "viscosity_preset", Substance::Custom, kViscosityPresets,
                    "Sets the viscosity to that of a substance"),
    FloatParameter(Grid_Viscosity::kViscosityId, "viscosity", 0, "Pa s",
                   "Viscosity of the fluid; a tenth of it acts as m^2/s")
        .Min(0),
    ChoiceParameter(FluidSolver::kDensityPresetId, "density_preset", kDensityPresetOffset, kDensityPresets,
                    "Sets the density to that of a substance"),
    LinkParameter(Grid_Viscosity::kViscosityChannelId, "viscosity_channel", kLinkChannel,
                  "Viscosity by cell, in place of the one value"),
    IntParameter(Grid_Viscosity::kViscosityIterationsId, "viscosity_iterations", 100, "",
                 "Most iterations of the viscous solve")
        .Between(0, kMostIterations),
    FloatParameter(Grid_Viscosity::kViscosityAccuracyId, "viscosity_accuracy", 0.2, "",
                   "Largest residual of the viscous solve, in thousandths of its largest velocity")
        .Min(0),
    BoolParameter(1029, "display_box", true, "Display in a view: the box of the grid"),
    ChoiceParameter(1030, "display_velocity", 0, kDisplay, "Display in a view: velocity"),
    ChoiceParameter(1031, "display_fractions", 0, kDisplay, "Display in a view: fractions of the viscous solve"),
    ChoiceParameter(1032, "display_boundary", 1, kDisplay, "Display in a view: the boundary's grid"),
    FloatParameter(1039, "display_velocity_scale", 0.5, "", "Display in a view: value of the velocity display"),
    BoolParameter(1040, "display_velocity_switch", false, "Display in a view: switch of the velocity display"),
    FloatParameter(1041, "display_velocity_min", 0.1, "", "Display in a view: value of the velocity display"),
    FloatParameter(1042, "display_velocity_max", 3.0, "", "Display in a view: value of the velocity display"),
    VectorParameter(1043, "display_velocity_colour", {1, 1, 1}, "", "Display in a view: colour of the velocity"),
    BoolParameter(1044, "display_velocity_tail", false, "Display in a view: switch of the velocity display"),
    ButtonParameter(1034, "choose_density_channel", "Offers the scene's scalar channels for the density channel"),
    ButtonParameter(1038, "choose_force", "Offers the kinds of forces for the list of forces"),
    ButtonParameter(1303, "choose_viscosity_channel", "Offers the kinds of channels for the viscosity channel"),
    ButtonParameter(2100, "make_variable_density", "Makes an operator and a channel of variable density"),
    ButtonParameter(2102, "make_vorticity_particles", "Makes an emitter and a force of vorticity particles"),
    IntParameter(1003, "reserved_1003", 2, "", "Kept with the object; changes nothing").Hidden().Unread(),
    FloatParameter(1004, "reserved_1004", 1.0, "", "Kept with the object; changes nothing").Hidden().Unread(),
    IntParameter(1005, "reserved_1005", 1, "", "Kept with the object; changes nothing").Hidden().Unread(),
    IntParameter(1006, "reserved_1006", 0, "", "Kept with the object; changes nothing").Hidden().Unread(),
    IntParameter(1023, "reserved_1023", 2, "", "Kept with the object; changes nothing").Hidden().Unread(),
    IntParameter(1024, "reserved_1024", 0, "", "Kept with the object; changes nothing").Hidden().Unread(),
};

}  // namespace

std::span<const Parameter> FluidSolverParameters() {
  static const std::vector<Parameter> kRows = [] {
    std::vector<Parameter> rows(std::begin(kParameters), std::end(kParameters));
    const auto common = PlainNodeParameters();
    rows.insert(rows.end(), common.begin(), common.end());
    return rows;
  }();
  return kRows;
}

const TypeInfo& FluidSolver::Type() {
  static const TypeInfo kType = {
      .id = 1300002,
      .resource = "zq_fluid",
      .className = "C4D_Fluid_Base_Object",
      .label = "Gaseous Dynamics",
      .text =
          "Smoke and fire: a container of air with its velocity. Channels hold what the air carries; forces move it, "
          "and the pressure keeps it from being compressed. A velocity that would cross the container more than ten "
          "times in a sub-step is told.",
      .kinds = kLinkSolver,
      .parameters = kParameters,
      .common = PlainNodeParameters(),
      .createData = []() -> std::unique_ptr<ObjectData> { return std::make_unique<FluidObject>(); },
  };
  return kType;
}

}  // namespace orlix
