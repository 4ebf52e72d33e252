#include "fluids/bodies/ObstacleTag.h"

#include "fluids/bodies/RigidBody_Variational.h"

namespace orlix {

const TypeInfo& ObstacleTag::Type() {
  static constexpr Choice kMassModes[] = {
      {MassMode::Mass, "mass", "The mass is given"},
      {MassMode::Density, "density", "The mass is density times volume"},
  };

  static constexpr Parameter kParameters[] = {
      BoolParameter(kDrivenId, "driven", true,
                    "The body follows its host object; otherwise it stands, or moves by forces")
          .Fallback(0),
      FloatParameter(kLinearMotionScaleId, "linear_motion_scale", 1, "",
                     "Factor on the displacement that the fluid feels"),
      FloatParameter(kAngularMotionScaleId, "angular_motion_scale", 1, "",
                     "Factor on the rotation that the fluid feels"),
      ChoiceParameter(kMassModeId, "mass_mode", MassMode::Mass, kMassModes, "Where the mass comes from"),
      FloatParameter(kMassId, "mass", 0, "kg", "Mass of a body that isn't driven; 0 stands still").Min(0),
      FloatParameter(kDensityId, "density", 100, "kg/m^3", "Density, for a mass by density; 0 has no mass").Min(0),
      FloatParameter(2030, "force_scale", 1, "", "Factor on the force of the pressure on the body"),
      FloatParameter(2031, "torque_scale", 1, "", "Factor on the torque of the pressure on the body"),
      BoolParameter(2006, "no_response", false, "The body passes through others"),
      FloatParameter(2007, "linear_sleep", 0.1, "m/s", "Below this speed the body may fall asleep").Fallback(0),
      FloatParameter(2020, "angular_sleep", 0.08726646259971647, "rad/s", "Below this spin the body may fall asleep")
          .Fallback(0),
      FloatParameter(2009, "linear_damping", 0, "", "Share of the speed that is lost in a second"),
      FloatParameter(2010, "angular_damping", 0, "", "Share of the spin that is lost in a second"),
      FloatParameter(2011, "margin", 0.04, "m", "Margin of the collision shape; below 0 the shape keeps its own")
          .Fallback(0),
      FloatParameter(2012, "restitution", 0.4, "", "How much a contact gives back").Fallback(0),
      FloatParameter(2013, "friction", 0.3, "", "Friction at contacts").Fallback(0),
      FloatParameter(2014, "rolling_friction", 0.3, "", "Rolling friction at contacts").Fallback(0),
      VectorParameter(2021, "linear_factor", {1, 1, 1}, "", "Axes along which forces act").Fallback(Vec3D()),
      VectorParameter(2022, "angular_factor", {1, 1, 1}, "", "Axes about which torques act").Fallback(Vec3D()),
      LinkParameter(2023, "velocity_field", kLinkAlignment, "Direction of the first velocity"),
      FloatParameter(2024, "velocity_speed", 1, "m/s", "Length of the first velocity").Fallback(0),
      ListParameter(2025, "linear_damping_constraints", kLinkConstraint, "Scale the linear damping"),
      ListParameter(2026, "angular_damping_constraints", kLinkConstraint, "Scale the angular damping"),
      ListParameter(2027, "restitution_constraints", kLinkConstraint, "Scale the restitution at a contact"),
      ListParameter(2028, "friction_constraints", kLinkConstraint, "Scale the friction at a contact"),
      ListParameter(2029, "rolling_friction_constraints", kLinkConstraint, "Scale the rolling friction at a contact"),
      BoolParameter(2032, "start_asleep", false, "A new body starts asleep"),
      BoolParameter(2034, "start_asleep_too", false, "A new body starts asleep, as with start_asleep"),
      // Kept with the object; nothing reads them.
      IntParameter(2000, "state_2000", 0, "", "Kept for other programs").Hidden().Unread(),
      IntParameter(2001, "state_2001", 1, "", "Kept for other programs").Hidden().Unread(),
      IntParameter(2015, "state_2015", 0, "", "Kept for other programs").Hidden().Unread(),
      VectorParameter(2016, "state_2016", {1, 0, 0}, "", "Kept for other programs").Hidden().Unread(),
      BoolParameter(2017, "state_2017", true, "Kept for other programs").Hidden().Unread(),
      IntParameter(2018, "state_2018", 0, "", "Kept for other programs").Hidden().Unread(),
      LinkParameter(2019, "state_2019", kLinkHostObject, "Kept for other programs").Hidden().Unread(),
      BoolParameter(2033, "state_2033", false, "Kept for other programs").Hidden().Unread(),
      FloatParameter(2035, "state_2035", 10, "", "Kept for other programs").Fallback(0).Hidden().Unread(),
      BoolParameter(2036, "state_2036", false, "Kept for other programs").Hidden().Unread(),
      BoolParameter(2038, "state_2038", false, "Kept for other programs").Hidden().Unread(),
      FloatParameter(2041, "state_2041", 0, "", "Kept for other programs").Hidden().Unread(),
  };
  static const TypeInfo kType = {
      .id = kObstacleTagId,
      .resource = "zq_c4d_obstacle",
      .className = "C4D_Obstacle_Tag",
      .label = "Obstacle",
      .text =
          "Makes the volume that carries it an obstacle: fluids flow around it, and one that is driven by its host "
          "object pushes them.",
      .role = TypeRole::Tag,
      .kinds = kLinkTag,
      .parameters = kParameters,
  };
  return kType;
}

}  // namespace orlix
