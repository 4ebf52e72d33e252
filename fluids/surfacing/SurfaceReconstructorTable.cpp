// The settings of a reconstruction's host object.

#include "fluids/particles/KindChoices.h"
#include "fluids/surfacing/SurfaceReconstructor.h"

namespace orlix {

std::span<const Parameter> SurfaceReconstructor::Parameters() {
  using Method = ReconstructionMethod;
  using Mode = AnisotropySettings::Mode;
  static constexpr Choice kMethods[] = {
      {Method::Spherical, "spherical", "Distance from the weighted mean of the particles near a node"},
      {Method::Density, "anisotropic_density",
       "Sum of stretched balls, subtracted from the radius, times the radius: no distance, and a mesher wants an iso "
       "below 0"},
      {Method::Average, "anisotropic_average",
       "Distance from the mean of stretched balls, never above 0: a mesher wants an iso between minus the radius and "
       "0"}};
  static constexpr Choice kStretches[] = {
      {Stretch::Stored, "stored", "What the particles carry (POP::Surface Properties); others are round"},
      {Stretch::Computed, "computed", "By the node itself, of all particles"}};
  static constexpr Choice kModes[] = {{Mode::ByNeighbourhood, "neighbourhood", "Along the particles around"},
                                      {Mode::ByVelocity, "velocity", "Along the particle's velocity"}};

  static constexpr Parameter kParameters[] = {
      LinkParameter(kSourceId, "source", kLinkParticles | kLinkGeometry,
                    "A particle group, or an object whose points are taken"),
      ChoiceParameter(kKindId, "kind", PK_Liquid, kParticleKindChoices, "Kind of the group's particles"),
      BoolParameter(kRenderOnlyId, "render_only", false, "Nothing is made unless the frame is rendered"),
      ChoiceParameter(kMethodId, "method", Method::Spherical, kMethods, "How particles make a surface"),
      FloatParameter(kSubdivisionId, "subdivision", 1, "", "Nodes of the level set along a cell of the scene")
          .Between(0.05, 16),
      FloatParameter(kRadiusScaleId, "radius_scale", 1, "half cells", "Radius of a particle").Above(0).Max(100),
      FloatParameter(kRadiusFactorId, "radius_factor", 3, "", "How far a node looks, in radii").Between(0, 16),
      IntParameter(kMinNeighboursId, "min_neighbours", 1, "",
                   "With fewer particles in reach a node takes only the nearest")
          .Between(1, 1000),
      IntParameter(kMaxNeighboursId, "max_neighbours", 100, "", "So many of the nearest count").Between(1, 1000),
      LinkParameter(kKernelId, "kernel", kLinkKernel, "A weight by distance that replaces the method's own"),
      BoolParameter(kUseMassRatioId, "use_mass_ratio", true,
                    "Particles weigh by mass over kernel sum, where they have them")
          .ShownWhen(kMethodId, Relation::Is, Method::Spherical),
      BoolParameter(kDensityCorrectionId, "density_correction", true,
                    "The radius shrinks where particles are few, so that sheets stay thin; needs particles with a "
                    "kernel sum (POP::Volume Properties)")
          .ShownWhen(kMethodId, Relation::Is, Method::Spherical),
      FloatParameter(kLowerDensityId, "lower_density", 0, "", "At this density and below, the radius is 0")
          .Min(0)
          .ShownWhen(kMethodId, Relation::Is, Method::Spherical)
          .ShownWhen(kDensityCorrectionId, Relation::Is, 1),
      FloatParameter(kUpperDensityId, "upper_density", 1.05, "", "At this density and above, the radius is whole")
          .Min(0)
          .ShownWhen(kMethodId, Relation::Is, Method::Spherical)
          .ShownWhen(kDensityCorrectionId, Relation::Is, 1),
      FloatParameter(kBallReachId, "ball_reach", 1, "m",
                     "How far a stretched ball reaches; 0 for as far as a node looks")
          .Min(0)
          .ShownWhen(kMethodId, Relation::Is, Method::Density),
      ChoiceParameter(kStretchId, "stretch", Stretch::Stored, kStretches, "Where the stretch of the balls comes from")
          .ShownWhen(kMethodId, Relation::IsNot, Method::Spherical),
      ChoiceParameter(kStretchModeId, "stretch_mode", Mode::ByNeighbourhood, kModes, "Along what balls are stretched")
          .ShownWhen(kMethodId, Relation::IsNot, Method::Spherical)
          .ShownWhen(kStretchId, Relation::Is, Stretch::Computed),
      FloatParameter(kMaxRatioId, "max_ratio", 4, "", "Most that a ball's longest axis is of its shortest")
          .Between(1, 100)
          .ShownWhen(kMethodId, Relation::IsNot, Method::Spherical)
          .ShownWhen(kStretchId, Relation::Is, Stretch::Computed),
      FloatParameter(kVelocityStretchId, "velocity_stretch", 1, "s/m", "Stretch by speed")
          .Min(0)
          .ShownWhen(kMethodId, Relation::IsNot, Method::Spherical)
          .ShownWhen(kStretchId, Relation::Is, Stretch::Computed)
          .ShownWhen(kStretchModeId, Relation::Is, Mode::ByVelocity),
      BoolParameter(kUseCentresId, "use_centres", false,
                    "Particles are looked for at their smoothed centres (POP::Volume Properties)")
          .ShownWhen(kMethodId, Relation::IsNot, Method::Spherical),
      BoolParameter(kFilterId, "filter", false, "Leaves out particles by constraints, density and solids"),
      FloatParameter(kDensityThresholdId, "density_threshold", 0, "",
                     "Particles of a higher density are left out; 1 leaves out none")
          .Between(0, 1)
          .ShownWhen(kFilterId, Relation::Is, 1),
      LinkParameter(kSolverId, "solver", kLinkSolver, "Liquid whose solids the filter asks")
          .ShownWhen(kFilterId, Relation::Is, 1),
      FloatParameter(kSolidOffsetId, "solid_offset", 0, "cells",
                     "Particles deeper than this in a solid are left out; 0 leaves out none")
          .ShownWhen(kFilterId, Relation::Is, 1),
      FloatParameter(1018, "band", 4, "", "Kept for old scenes; nothing reads it").Hidden(),
      ButtonParameter(1019, "make_group", "Makes a particle group and links it"),
      ButtonParameter(1020, "make_solver", "Makes a liquid and links it"),
      ButtonParameter(1025, "make_kernel", "Makes a kernel and links it"),
  };
  return kParameters;
}

}  // namespace orlix
