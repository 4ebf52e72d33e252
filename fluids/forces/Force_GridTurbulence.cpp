#include "fluids/forces/Force_GridTurbulence.h"

#include "fluids/channels/VelocityGridChannel.h"

namespace orlix {

namespace {

constexpr double kVorticityScale = 0.001;
constexpr double kMostRadius = 16;  // cells

// f(first, end) for shares of count things, on all workers.
template <class F>
void InShares(WorkerPool& pool, std::size_t count, F&& f) {
  constexpr std::size_t kShare = 1024;
  ParallelRange(pool, 0, static_cast<int>((count + kShare - 1) / kShare), [&](int from, int to, int) {
    f(static_cast<std::size_t>(from) * kShare, std::min(static_cast<std::size_t>(to) * kShare, count));
  });
}

}  // namespace

const TypeInfo& Force_GridTurbulence::Type() {
  static constexpr SplineKnot kCurve[] = {{0.2, 1}, {0.7, 0}};
  static const Parameter kParameters[] = {
      LinkParameter(kGroupId, "group", kLinkParticles,
                    "Particle group whose vorticity particles swirl the gas; required"),
      FloatParameter(kStrengthId, "strength", 0.2, "", "How strongly they push, in each sub-step").Min(0),
      FloatParameter(kRadiusId, "radius", 4.0, "cells", "How far a particle pushes").Between(0, kMostRadius),
      FloatParameter(kMinVorticityId, "min_vorticity", 0.002, "1/(1000 s)",
                     "What a weak particle's vorticity is raised to")
          .Min(0),
      FloatParameter(kMaxVorticityId, "max_vorticity", 0.01, "1/(1000 s)",
                     "What a strong particle's vorticity is cut to")
          .Min(0),
      ChoiceParameter(kKernelModeId, "kernel_mode", KernelKind::Poly6, KernelKinds(),
                      "How the push falls off, where no kernel is linked"),
      FloatParameter(kKernelRadiusFactorId, "kernel_radius_factor", 1.0, "cells", "Length of the exponential")
          .Above(0)
          .ShownWhen(kKernelModeId, Relation::Is, KernelKind::Exponential),
      SplineParameter(kFalloffCurveId, "falloff_curve", kCurve, "The push over the squared relative distance")
          .ShownWhen(kKernelModeId, Relation::Is, KernelKind::Curve),
      LinkParameter(kKernelId, "kernel", kLinkKernel, "A kernel that replaces the force's own"),
      LinkParameter(kForceDurationId, "force_duration", kLinkDuration, "When the force acts"),
      BoolParameter(kAlongFlowId, "along_flow", false,
                    "Pushes by how far the flow runs along the particle's vorticity"),
  };
  static const TypeInfo kType = {
      .id = 1300017,
      .resource = "zq_force_particleturbulence",
      .className = "C4D_Force_ParticleTurbulence_Object",
      .label = "GF::Particle Turbulence",
      .text = "Small swirls from vorticity particles, finer than a coarse grid keeps by itself.",
      .kinds = kLinkForce,
      .parameters = kParameters,
      .common = CommonNodeParameters(),
  };
  return kType;
}

bool Force_GridTurbulence::ReadParameters() {
  priority = 0;
  if (!ConstrainedForce::ReadParameters()) return false;
  strength_ = handler.GetDouble(kStrengthId);
  radius_ = std::min(handler.GetDouble(kRadiusId), kMostRadius) * GetSimulationSpace().simPerVoxel.x;
  leastVorticity_ = handler.GetDouble(kMinVorticityId) * kVorticityScale;
  mostVorticity_ = handler.GetDouble(kMaxVorticityId) * kVorticityScale;
  kernel_.kind = handler.GetChoice<KernelKind>(kKernelModeId);
  kernelRadiusFactor_ = handler.GetDouble(kKernelRadiusFactorId);
  kernel_.curve = handler.GetSplineData(kFalloffCurveId);
  alongFlow_ = handler.GetBool(kAlongFlowId);
  return true;
}

bool Force_GridTurbulence::ResolveLinks() {
  if (!ConstrainedForce::ResolveLinks()) return false;
  group_ = scene->RetrieveAs<ParticleGroup>(handler.GetLink(kGroupId), NODE_PARTICLES);
  kernelNode_ = scene->RetrieveAs<Kernel>(handler.GetLink(kKernelId), NODE_HELPER);
  return group_ != nullptr;
}

void Force_GridTurbulence::ReleaseLinks() {
  group_ = nullptr, kernelNode_ = nullptr;
  ConstrainedForce::ReleaseLinks();
}

void Force_GridTurbulence::Advise() {
  if (!group_) Warn("no-group", "no particle group is linked: nothing swirls; link one under group");
  if (!(strength_ > 0)) Warn("no-strength", "the strength isn't above 0: nothing swirls; raise it");
}

void Force_GridTurbulence::Conclude() {
  if (!acted_ || hadSources_) return;
  Warn("no-vorticity-particles",
       "its group had no vorticity particles beside the gas in the whole run, so nothing swirled; emit some with the "
       "kind vorticity");
}

void Force_GridTurbulence::Prepare(iBase*) {
  if (!BeginPrepare() || !group_ || !group_->list(PK_Vorticity) || !(strength_ > 0)) return;
  acted_ = true;
  StretchField field;
  field.lattice = Lattice();
  for (int c = 0; c < 3; ++c) field.component[c] = *velocity_->grids[static_cast<std::size_t>(c)];
  StretchAll(field);
  input_.kernel = kernelNode_ ? kernelNode_->base : kernel_;
  if (!kernelNode_) input_.kernel.length = field.lattice.cellSize * kernelRadiusFactor_;
  input_.radius = radius_;
  input_.strength = strength_;
  input_.lattice = field.lattice;
  lines_.Build(*group_->list(PK_Vorticity), field.lattice, input_.Reach(), scene->pool());
  TakeSources(field);
  hadSources_ |= !sources_.empty();
  input_.lines = &lines_;
  input_.sources = sources_.data();
  EndPrepare(strengthFactor_);
}

void Force_GridTurbulence::StretchAll(const StretchField& field) {
  const double dt = simulationInfo->substepDuration;
  ParallelRows(scene->pool(), *group_->list(PK_Vorticity), [&](const ParticleRows& rows, int) {
    const auto vorticity = rows.Property<Vec3D>(PP::Vorticity);
    if (!vorticity) return;
    for (std::int32_t r = rows.begin; r < rows.end; ++r) {
      vorticity.Set(r,
                    Stretched(field, rows.positions()[r], vorticity.Get(r, {}), dt, leastVorticity_, mostVorticity_));
    }
  });
}

void Force_GridTurbulence::TakeSources(const StretchField& field) {
  const ParticleFactory& factory = group_->factory(PK_Vorticity);
  sources_.resize(lines_.entries().size());
  InShares(scene->pool(), sources_.size(), [&](std::size_t from, std::size_t to) {
    for (std::size_t n = from; n < to; ++n) {
      const ParticleLines::Entry& entry = lines_.entries()[n];
      const OrlixParticle particle = factory.At(entry.index);
      const Vec3D w = particle.GetVectorOr(PP::Vorticity, {});
      const double own = particle.GetRealOr(PP::Radius, 0), limit = own > 0 ? std::min(own, radius_) : radius_;
      SwirlSource& source = sources_[n];
      source.squaredLimit = limit * limit;
      source.axis = alongFlow_ ? Normalized(w) : w;
      source.gain = alongFlow_ ? Length(w) * Dot(field.VelocityAt(field.lattice.VoxelOfSim(entry.position)), w) : 1;
    }
  });
}

void Force_GridTurbulence::ProcessRow(const ForceRow& row) {
  if (!IsActive() || lines_.empty()) return;
  const SwirlRow cells{row.begin, row.end, row.j, row.k, {row.forceX, row.forceY, row.forceZ}};
  if (constraints_.empty()) {
    return AddSwirls(input_, cells, [&](const ParticleLines::Entry&, const Vec3D&) { return strengthFactor_; });
  }
  AddSwirls(input_, cells, [&](const ParticleLines::Entry& entry, const Vec3D& place) {
    double amount = strengthFactor_;
    EvaluateChain(constraints_, place, amount, this, row.threadIndex, group_->At(PK_Vorticity, entry.index));
    return amount;
  });
}

void Force_GridTurbulence::Finish() {
  lines_.Clear();
  sources_ = {};
  ConstrainedForce::Finish();
}

}  // namespace orlix
