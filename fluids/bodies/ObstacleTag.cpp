#include "fluids/bodies/ObstacleTag.h"

#include "fluids/bodies/RigidBody_Variational.h"

namespace orlix {

const TypeInfo& ObstacleTag::Type() {
  static constexpr Choice kMassModes[] = {
      {MassMode::Mass, "mass", "The mass is given"},
      {MassMode::Density, "density", "The mass is density times volume"},
  };

  static constexpr Choice kInertias[] = {
      {Inertia::Points, "points",
       "The points of the mesh share it, and the body turns about its object's origin; a box of eight points is three "
       "times as hard to turn as a full one"},
      {Inertia::Solid, "solid", "It fills the closed mesh, and the body turns about its centre of mass"},
  };
  static constexpr Choice kRecordings[] = {
      {Recording::Off, "off", "No motion is kept"},
      {Recording::Frames, "frames", "Where the body is at the end of each frame"},
      {Recording::Substeps, "substeps", "Where it is after each sub-step"},
  };

  static constexpr Parameter kParameters[] = {
      BoolParameter(kDrivenId, "driven", true,
                    "The body follows its host object; otherwise it stands, or moves by forces")
          .Fallback(0),
      FloatParameter(kLinearMotionScaleId, "linear_motion_scale", 1, "",
                     "Factor on the displacement that the fluid feels"),
      FloatParameter(kAngularMotionScaleId, "angular_motion_scale", 1, "",
                     "Factor on the rotation that the fluid feels"),
      ChoiceParameter(kMassModeId, "mass_mode", MassMode::Mass, kMassModes, "Where the mass comes from")
          .ShownWhen(kDrivenId, Relation::Is, 0),
      FloatParameter(kMassId, "mass", 0, "kg", "Mass of a body that isn't driven; 0 stands still")
          .Min(0)
          .ShownWhen(kDrivenId, Relation::Is, 0)
          .ShownWhen(kMassModeId, Relation::Is, MassMode::Mass),
      FloatParameter(kDensityId, "density", 100, "kg/m^3", "Density, for a mass by density; 0 stands still")
          .Min(0)
          .ShownWhen(kDrivenId, Relation::Is, 0)
          .ShownWhen(kMassModeId, Relation::Is, MassMode::Density),
      FloatParameter(kForceScaleId, "force_scale", 1, "", "Factor on the force of the pressure on the body"),
      FloatParameter(kTorqueScaleId, "torque_scale", 1, "", "Factor on the torque of the pressure on the body"),
      BoolParameter(kNoResponseId, "no_response", false, "The body passes through others"),
      FloatParameter(kLinearSleepId, "linear_sleep", 0.1, "m/s", "Below this speed the body may fall asleep")
          .Fallback(0),
      FloatParameter(kAngularSleepId, "angular_sleep", 0.08726646259971647, "rad/s",
                     "Below this spin the body may fall asleep")
          .Fallback(0),
      FloatParameter(kLinearDampingId, "linear_damping", 0, "", "Share of the speed that is lost in a second"),
      FloatParameter(kAngularDampingId, "angular_damping", 0, "", "Share of the spin that is lost in a second"),
      FloatParameter(kMarginId, "margin", 0.04, "m", "Margin of the collision shape; below 0 the shape keeps its own")
          .Fallback(0),
      FloatParameter(kRestitutionId, "restitution", 0.4, "", "How much a contact gives back").Min(0).Fallback(0),
      FloatParameter(kFrictionId, "friction", 0.3, "", "Friction at contacts").Min(0).Fallback(0),
      FloatParameter(kRollingFrictionId, "rolling_friction", 0.3, "", "Rolling friction at contacts")
          .Min(0)
          .Fallback(0),
      VectorParameter(kLinearFactorId, "linear_factor", {1, 1, 1}, "", "Axes along which forces act").Fallback(Vec3D()),
      VectorParameter(kAngularFactorId, "angular_factor", {1, 1, 1}, "", "Axes about which torques act")
          .Fallback(Vec3D()),
      LinkParameter(kVelocityFieldId, "velocity_field", kLinkAlignment, "Direction of the first velocity"),
      FloatParameter(kVelocitySpeedId, "velocity_speed", kVelocitySpeed, "m/s", "Length of the first velocity")
          .Fallback(0),
      ListParameter(kLinearDampingListId, "linear_damping_constraints", kLinkConstraint, "Scale the linear damping"),
      ListParameter(kAngularDampingListId, "angular_damping_constraints", kLinkConstraint, "Scale the angular damping"),
      ListParameter(kRestitutionListId, "restitution_constraints", kLinkConstraint,
                    "Scale the restitution at a contact"),
      ListParameter(kFrictionListId, "friction_constraints", kLinkConstraint, "Scale the friction at a contact"),
      ListParameter(kRollingFrictionListId, "rolling_friction_constraints", kLinkConstraint,
                    "Scale the rolling friction at a contact"),
      BoolParameter(kStartAsleepId, "start_asleep", false, "A new body starts asleep"),
      BoolParameter(kStartAsleepTooId, "start_asleep_too", false, "A new body starts asleep, as with start_asleep"),
      ChoiceParameter(kInertiaId, "inertia", Inertia::Points, kInertias, "How the mass is spread: what turning takes"),
      ChoiceParameter(
          kRecordId, "record_motion", Recording::Off, kRecordings,
          "Keeps the motion, so that replay_motion can show it again; a run that starts anew keeps it, too"),
      BoolParameter(kReplayId, "replay_motion", false, "A driven body follows its recorded motion, not its object"),
      IntParameter(kReplayOffsetId, "replay_offset", 0, "frames", "Added to the frame whose motion is replayed"),
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
          "Makes the volume that carries it an obstacle and a body: fluids flow around it. A driven body follows its "
          "host object and pushes fluids and other bodies; without driven, a body with a mass falls, floats, sinks and "
          "collides, and one without a mass stands still. The list of constraints for a damping or a contact takes all "
          "constraints of the scene while it is empty.",
      .role = TypeRole::Tag,
      .kinds = kLinkTag,
      .parameters = kParameters,
  };
  return kType;
}

}  // namespace orlix
