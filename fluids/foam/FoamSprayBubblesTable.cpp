#include "fluids/foam/FoamSprayBubbles.h"

namespace orlix {

namespace {

constexpr Choice kSources[] = {
    {FoamSource::Mesh, "mesh", "Samples on the liquid's mesh, with the solver's velocity: spray and foam"},
    {FoamSource::Particles, "particles",
     "The liquid's particles: crests of waves and trapped air, by energy: spray, foam and bubbles"},
};
using Foam = FoamSprayBubbles;

constexpr Parameter OnMesh(const Parameter& row) {
  return row.ShownWhen(Foam::kSourceId, Relation::Is, FoamSource::Mesh);
}
constexpr Parameter OnParticles(const Parameter& row) {
  return row.ShownWhen(Foam::kSourceId, Relation::Is, FoamSource::Particles);
}
constexpr Parameter Share(int id, const char* key, double value, const char* text) {
  return FloatParameter(id, key, value, "", text).Between(0, 1);
}

constexpr Parameter kParameters[] = {
    LinkParameter(Foam::kGroupId, "group", kLinkParticles, "The liquid's particles; required"),
    LinkParameter(Foam::kSolverId, "solver", kLinkSolver, "The liquid; required"),
    LinkParameter(Foam::kFoamOutputId, "foam_output", kLinkParticles,
                  "The group that takes what is made; without one, \"group\". The three classes stay together in it"),
    LinkParameter(Foam::kSprayOutputId, "spray_output", kLinkParticles, "The same, and goes before \"foam_output\""),
    LinkParameter(Foam::kSurfaceMeshId, "surface_mesh", kLinkGeometry,
                  "The liquid's mesher; required where meshes are the source"),
    LinkParameter(Foam::kSurfaceVolumeId, "surface_volume", kLinkVolume,
                  "Where the surface is: the liquid's surface reconstructor. Without one the mesh tells, or the "
                  "liquid's particles"),
    ChoiceParameter(Foam::kSourceId, "source", FoamSource::Mesh, kSources, "Where births happen"),
    FloatParameter(Foam::kSurfaceResolutionId, "surface_resolution", 1.5, "",
                   "Cells, a cell of the scene, of the level set that is made of the mesh; a linked one keeps its own")
        .Fallback(0)
        .Between(0, 16),
    OnMesh(FloatParameter(Foam::kSampleSpacingId, "sample_spacing", 0.5, "m", "Distance of the samples on the mesh")
               .Fallback(1)
               .Min(0)),
    OnMesh(IntParameter(Foam::kCurvatureSmoothingId, "curvature_smoothing", 0, "",
                        "How often the mesh's curvature is smoothed")
               .Between(0, 1000)),

    GroupParameter(1049, "foam", "Foam rides on the surface"),
    BoolParameter(Foam::kFoamEnabledId, "foam_enabled", true, "Foam is born"),
    BoolParameter(Foam::kFoamToSprayId, "foam_to_spray", true,
                  "Foam that leaves the surface upward becomes spray; otherwise it dies"),
    BoolParameter(1052, "foam_to_bubbles", true, "Kept with the object; foam that sinks becomes bubbles").Unread(),
    FloatParameter(Foam::kFoamCurvatureId, "foam_curvature", 0.3, "1/cells",
                   "Least mean curvature, times the surface's cell size: 2 is a drop of one cell's radius"),
    FloatParameter(Foam::kSurfaceOffsetId, "surface_offset", 0.01, "cells", "Height of the foam above the surface"),
    FloatParameter(Foam::kFoamSpeedId, "foam_speed", 1, "m/s",
                   "Least speed; with particles as the source, m/s over the sub-step's seconds")
        .Min(0),
    Share(Foam::kFoamSpeedVariationId, "foam_speed_variation", 0.2, "Share of the squared speed that chance takes"),
    OnMesh(FloatParameter(Foam::kFoamVorticityId, "foam_vorticity", 0.5, "1/s", "Least vorticity").Min(0)),
    OnMesh(Share(Foam::kFoamVorticityVariationId, "foam_vorticity_variation", 0.2,
                 "Share of the squared vorticity that chance takes")),
    FloatParameter(Foam::kFoamLifeId, "foam_life", 4, "s", "Longest life").Min(0),
    Share(Foam::kFoamLifeVariationId, "foam_life_variation", 0.35, "Share of the life that chance takes"),

    GroupParameter(1099, "spray", "Spray flies"),
    BoolParameter(Foam::kSprayEnabledId, "spray_enabled", true, "Spray is born"),
    BoolParameter(Foam::kSprayToFoamId, "spray_to_foam", true,
                  "Spray that lands on the liquid becomes foam; otherwise it dies"),
    BoolParameter(1102, "spray_to_bubbles", true, "Kept with the object; spray that lands becomes foam first").Unread(),
    FloatParameter(Foam::kSprayMassId, "spray_mass", 0.3, "kg", "Mass; forces act on spray the more the smaller it is")
        .Above(0),
    FloatParameter(Foam::kSprayDragId, "spray_drag", 0.3, "", "Share of the first step that spray doesn't fly")
        .Between(0, 1),
    FloatParameter(Foam::kSprayCurvatureId, "spray_curvature", 0.3, "1/cells", "As of foam; that of bubbles, too"),
    FloatParameter(Foam::kSpraySpeedId, "spray_speed", 1, "m/s", "As of foam; that of bubbles, too").Min(0),
    Share(Foam::kSpraySpeedVariationId, "spray_speed_variation", 0.2, "As of foam; that of bubbles, too"),
    OnMesh(FloatParameter(Foam::kSpraySpeed2Id, "spray_second_speed", 0.5, "m/s", "A second least speed").Min(0)),
    OnMesh(Share(Foam::kSpraySpeed2VariationId, "spray_second_speed_variation", 0.2, "Its chance share")),
    FloatParameter(Foam::kSprayLifeId, "spray_life", 20, "s", "Longest life").Min(0),
    Share(Foam::kSprayLifeVariationId, "spray_life_variation", 0.35, "Share of the life that chance takes"),
    FloatParameter(Foam::kSprayBoostId, "spray_boost", 1, "", "Spray starts with the liquid's velocity times 1 + this"),
    Share(Foam::kSprayBoostVariationId, "spray_boost_variation", 0.8, "Share of the boost that chance takes"),
    FloatParameter(Foam::kSprayKickId, "spray_kick", 0.1, "cells/s", "Speed away from the surface that spray gets"),
    Share(Foam::kSprayKickVariationId, "spray_kick_variation", 0, "Share of the kick that chance takes"),
    OnMesh(FloatParameter(Foam::kSprayAngleId, "spray_angle", 0, "radians",
                          "Where about its flight spray stands, a cell of the surface aside")),
    OnMesh(Share(Foam::kSprayAngleVariationId, "spray_angle_variation", 0, "Share of the angle that chance takes")),
    OnParticles(BoolParameter(Foam::kBubblesEnabledId, "bubbles_enabled", true, "Bubbles are born").Fallback(0)),
    OnMesh(BoolParameter(Foam::kSprayKeepSpeedId, "spray_keep_speed", false,
                         "The kick turns the velocity without changing the speed")),

    GroupParameter(1149, "potentials", "How much is born of particles"),
    OnParticles(IntParameter(Foam::kCrestRateId, "crest_rate", 100000, "1/s",
                             "Births of one liquid particle on a crest with full energy")
                    .Between(0, 1e9)),
    OnParticles(FloatParameter(Foam::kCrestMinId, "crest_min", 2, "1/m", "Mean curvature where crests begin")),
    OnParticles(FloatParameter(Foam::kCrestMaxId, "crest_max", 8, "1/m", "Mean curvature of a full crest")),
    OnParticles(IntParameter(Foam::kTrappedAirRateId, "trapped_air_rate", 10000, "1/s",
                             "Births of one liquid particle that traps air with full energy")
                    .Between(0, 1e9)),
    OnParticles(FloatParameter(Foam::kTrappedAirMinId, "trapped_air_min", 5, "m/s^2",
                               "Difference of velocities about a particle, over the sub-step's time, where air begins "
                               "to be trapped")),
    OnParticles(FloatParameter(Foam::kTrappedAirMaxId, "trapped_air_max", 20, "m/s^2", "And where it is all")),
    OnParticles(FloatParameter(Foam::kEnergyMinId, "energy_min", 1.5, "m^2/s^2",
                               "Half the squared speed, times a mass, where births begin")),
    OnParticles(FloatParameter(Foam::kEnergyMaxId, "energy_max", 50, "m^2/s^2", "And where they are as the rates say")),
};

}  // namespace

const TypeInfo& FoamSprayBubbles::Type() {
  static const TypeInfo kType = {
      .id = 1300077,
      .resource = "zq_foamspraybubbles",
      .className = "C4D_FoamSpray_Object",
      .label = "Foam, Spray & Bubbles",
      .text =
          "Makes diffuse particles where a liquid breaks: foam that rides on it, spray that flies, bubbles below. They "
          "change class as they move; a particle advection of the diffuse kind moves them and lets them age.",
      .kinds = kLinkOperator,
      .parameters = kParameters,
      .common = CommonNodeParameters(),
  };
  return kType;
}

}  // namespace orlix
