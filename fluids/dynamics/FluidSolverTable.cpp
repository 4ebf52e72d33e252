// The parameter table of the gas solver and its type.

#include <algorithm>
#include <array>
#include <vector>

#include "fluids/dynamics/FluidObject.h"
#include "fluids/dynamics/FluidSolver.h"
#include "fluids/dynamics/Grid_Incompressibility.h"

namespace orlix {

namespace {

constexpr Choice kFace[] = {
    {0, "open", "The fluid flows through"},
    {1, "closed", "A wall, one cell inside the grid"},
};

constexpr Choice kAnchor[] = {
    {0, "corner", "The object's position is the container's low corner"},
    {1, "centre", "The object's position is the container's centre"},
    {2, "bottom", "The object's position is the centre of the container's bottom"},
    {3, "custom", "As the anchor says"},
};

constexpr Choice kViscosityPresets[] = {
    {0, "custom", "The value as typed"},
    {1, "1", "0.00092 Pa s"},
    {2, "2", "0.00089 Pa s"},
    {3, "3", "0.00117 Pa s"},
    {4, "4", "0.001375 Pa s"},
    {5, "5", "0.16376 Pa s"},
    {6, "6", "0.05692 Pa s"},
    {7, "7", "0.00117 Pa s"},
    {8, "8", "The value stays"},
    {9, "9", "0.00161 Pa s"},
    {10, "10", "0.00194 Pa s"},
    {11, "11", "0.066 Pa s"},
    {12, "12", "2 Pa s"},
    {13, "13", "0.00066 Pa s"},
    {14, "14", "0.5148 Pa s"},
    {15, "15", "2.715 Pa s"},
    {16, "16", "0.0032 Pa s"},
    {17, "17", "0.00179 Pa s"},
    {18, "18", "0.3021 Pa s"},
    {19, "19", "0.3021 Pa s"},
    {20, "20", "250 Pa s"},
    {21, "21", "50 Pa s"},
    {22, "22", "45 Pa s"},
};

constexpr Choice kDensityPresets[] = {
    {1027, "custom", "The value as typed"}, {1028, "1028", "998.21 kg/m^3"}, {1029, "1029", "1004 kg/m^3"},
    {1030, "1030", "1025 kg/m^3"},          {1031, "1031", "868 kg/m^3"},    {1032, "1032", "920 kg/m^3"},
    {1033, "1033", "910 kg/m^3"},           {1034, "1034", "1035 kg/m^3"},   {1036, "1036", "13570 kg/m^3"},
    {1037, "1037", "804 kg/m^3"},           {1038, "1038", "120 kg/m^3"},    {1039, "1039", "1420 kg/m^3"},
    {1040, "1040", "803 kg/m^3"},           {1041, "1041", "990 kg/m^3"},    {1042, "1042", "905 kg/m^3"},
    {1043, "1043", "800 kg/m^3"},           {1044, "1044", "1008 kg/m^3"},   {1045, "1045", "1900 kg/m^3"},
    {1046, "1046", "1035 kg/m^3"},          {1047, "1047", "1300 kg/m^3"},   {1048, "1048", "1400 kg/m^3"},
    {1049, "1049", "1352 kg/m^3"},
};

constexpr Parameter Face(int id, const char* key, const char* text) { return ChoiceParameter(id, key, 1, kFace, text); }

constexpr Parameter kParameters[] = {
    LinkParameter(1000, "density_channel", kLinkChannel, "Density of the fluid by cell, in place of the one value"),
    FloatParameter(1001, "density", 1.23, "kg/m^3", "Density of the fluid; it scales the pressure").Above(0),
    BoolParameter(1002, "keep_previous", true, "Keeps the velocity of the step before, which its advection needs"),
    ListParameter(1008, "forces", kLinkForce, "Forces on the fluid; without any, every force of the scene"),
    IntParameter(1009, "margin", 5, "cells", "Band by which the computed box grows beyond what is asked for").Min(0),
    VectorParameter(1010, "container", {500, 500, 500}, "host units", "Size of the container").Min(0),
    ChoiceParameter(1027, "anchor_mode", 0, kAnchor, "Where in the container the object's position lies"),
    VectorParameter(1028, "anchor", {0, 0, 0}, "", "The same as a fraction of the size")
        .ShownWhen(1027, Relation::Is, 3),
    Face(1011, "face_x_min", "Container's face at the minimum of x"),
    Face(1012, "face_x_max", "Container's face at the maximum of x"),
    Face(1013, "face_y_min", "Container's face at the minimum of y"),
    Face(1014, "face_y_max", "Container's face at the maximum of y"),
    Face(1015, "face_z_min", "Container's face at the minimum of z"),
    Face(1016, "face_z_max", "Container's face at the maximum of z"),
    ListParameter(1017, "obstacles", kLinkVolume, "Not read: every volume with an obstacle tag is an obstacle"),
    IntParameter(1018, "extrapolation_layers", 3, "cells", "How deep velocity is carried into solids").Between(0, 1000),
    ChoiceParameter(1020, "pressure_solver", kPressureGauss, kPressureSolverChoices, "Which solver finds the pressure"),
    IntParameter(1021, "pressure_iterations", 200, "", "Most iterations, or the number of sweeps").Min(0),
    FloatParameter(1022, "pressure_accuracy", 0.5, "", "Tolerance of the pressure: 0.5 is 1e-8; each tenth is a digit")
        .Min(0),
    FloatParameter(1035, "slip", 1.0, "", "At solids: 0 takes the solid's velocity, 1 slides along it").Min(0),
    BoolParameter(1036, "obstacle_normals", true, "Slides by the normal of the obstacle's own level set"),
    BoolParameter(1047, "move_with_obstacles", false, "Moving obstacles drag the fluid at their surface along"),
    FloatParameter(1045, "min_diagonal_ratio", 0.25, "", "Preconditioner: least pivot as a fraction of the diagonal")
        .Between(0, 1),
    FloatParameter(1046, "modification", 0.97, "", "Preconditioner: share of the dropped fill that the diagonal gets")
        .Between(0, 1),
    ChoiceParameter(1025, "viscosity_preset", 0, kViscosityPresets, "Sets the viscosity to that of a substance"),
    FloatParameter(1019, "viscosity", 0, "Pa s", "Viscosity of the fluid; a tenth of it acts as m^2/s").Min(0),
    ChoiceParameter(1026, "density_preset", 1027, kDensityPresets, "Sets the density to that of a substance"),
    LinkParameter(1300, "viscosity_channel", kLinkChannel, "Viscosity by cell, in place of the one value"),
    IntParameter(1301, "viscosity_iterations", 100, "", "Most iterations of the viscous solve").Min(0),
    FloatParameter(1302, "viscosity_accuracy", 0.2, "",
                   "Largest residual of the viscous solve, in thousandths of its largest velocity")
        .Min(0),
    BoolParameter(1029, "display_box", true, "Display in a view: the box of the grid"),
    IntParameter(1030, "display_velocity", 0, "", "Display in a view: velocity"),
    IntParameter(1031, "display_fractions", 0, "", "Display in a view: fractions of the viscous solve"),
    IntParameter(1032, "display_boundary", 1, "", "Display in a view: the boundary's grid"),
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
    IntParameter(1003, "reserved_1003", 2, "", "Kept with the object; changes nothing").Hidden(),
    FloatParameter(1004, "reserved_1004", 1.0, "", "Kept with the object; changes nothing").Hidden(),
    IntParameter(1005, "reserved_1005", 1, "", "Kept with the object; changes nothing").Hidden(),
    IntParameter(1006, "reserved_1006", 0, "", "Kept with the object; changes nothing").Hidden(),
    IntParameter(1023, "reserved_1023", 2, "", "Kept with the object; changes nothing").Hidden(),
    IntParameter(1024, "reserved_1024", 0, "", "Kept with the object; changes nothing").Hidden(),
};

}  // namespace

std::span<const Parameter> FluidSolverParameters() {
  static const std::vector<Parameter> kRows = [] {
    std::vector<Parameter> rows(std::begin(kParameters), std::end(kParameters));
    const auto common = CommonNodeParameters();
    rows.insert(rows.end(), common.begin(), common.end());
    return rows;
  }();
  return kRows;
}

const TypeInfo& FluidSolver::Type() {
  static const TypeInfo kType = [] {
    TypeInfo type;
    type.id = 1300002;
    type.resource = "zq_fluid";
    type.className = "C4D_Fluid_Base_Object";
    type.label = "Gaseous Dynamics";
    type.text =
        "Smoke and fire: a container of air with its velocity. What the air carries lives in channels; forces move it, "
        "and the pressure keeps it from being compressed.";
    type.kinds = kLinkSolver;
    type.parameters = kParameters;
    type.common = CommonNodeParameters();
    type.createData = []() -> std::unique_ptr<ObjectData> { return std::make_unique<FluidObject>(); };
    return type;
  }();
  return kType;
}

}  // namespace orlix
