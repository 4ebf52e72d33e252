#include "fluids/operators/GridAdvection.h"

#include <algorithm>

#include "fluids/advection/ConservativeAdvection.h"
#include "fluids/dynamics/FluidSolver.h"

namespace orlix {

namespace {

constexpr std::int32_t kPriority = 5;

constexpr Choice kSchemes[] = {
    {GridAdvection::Scheme::SemiLagrangian, "semi_lagrangian", "One trace back; blurs"},
    {GridAdvection::Scheme::MacCormack, "maccormack", "There and back, the error corrected and limited; sharper"},
    {GridAdvection::Scheme::Conservative, "conservative",
     "Keeps the sum; for scalar channels, on others as semi_lagrangian"},
    {GridAdvection::Scheme::ConservativeMacCormack, "conservative_maccormack",
     "The corrected form of conservative; for scalar channels, on others as semi_lagrangian"},
};
constexpr Choice kIntegrators[] = {
    {Integrator::Euler, "euler", "One stage"},
    {Integrator::Heun, "heun", "Two stages, second order"},
    {Integrator::Ralston, "ralston", "Three stages, third order"},
    {Integrator::RungeKutta4, "runge_kutta", "Four stages, fourth order"},
};
constexpr Choice kInterpolations[] = {
    {AdvectionSampling::Trilinear, "trilinear", "8 cells"},
    {AdvectionSampling::QuadraticBSpline, "quadratic", "27 cells, a B-spline that smooths"},
    {AdvectionSampling::MonotoneCubic, "monotone_cubic", "64 cells, sharp, without overshoots"},
};

using Components = std::array<std::unique_ptr<ScalarGrid>, 3>;

bool HasStorage(const std::unique_ptr<ScalarGrid>& grid) { return grid && grid->data; }
bool HasStorage(const Components& grids) {
  return HasStorage(grids[0]) && HasStorage(grids[1]) && HasStorage(grids[2]);
}

// Fits gamma to a grid: the overlap keeps what it holds, new cells get 1. False when memory doesn't suffice.
bool FitGamma(std::unique_ptr<ScalarGrid>& gamma, const ScalarGrid& shape, WorkerPool& pool) {
  if (gamma && gamma->space.Equals(shape.space)) return true;
  if (gamma) return ResizeKeepingContent(gamma, 1.0, shape.dims, shape.space, &pool);
  try {
    gamma = ScalarGrid::CreateLike(shape, kGridScratch);
  } catch (const std::bad_alloc&) {
    return false;
  }
  gamma->Fill(1.0, &pool);
  return true;
}

}  // namespace

const TypeInfo& GridAdvection::Type() {
  static constexpr Parameter kParameters[] = {
      LinkParameter(kChannelId, "channel", kLinkChannel | kLinkSolver,
                    "What is carried; without one, the solver's velocity"),
      ButtonParameter(1001, "pick_channel", "Offers the channels of the scene"),
      ChoiceParameter(kSchemeId, "scheme", GridAdvection::Scheme::MacCormack, kSchemes, "How the channel is carried"),
      ChoiceParameter(kIntegratorId, "integrator", Integrator::Euler, kIntegrators,
                      "How a point is traced through the velocity"),
      ChoiceParameter(
          kInterpolationId, "interpolation", AdvectionSampling::Trilinear, kInterpolations,
          "How the channel is sampled; the conservative schemes of a scalar channel have weights of their own"),
      LinkParameter(kSolverId, "solver", kLinkSolver, "The dynamics object whose velocity carries; required"),
      ButtonParameter(1006, "pick_solver", "Offers the dynamics objects of the scene"),
      FloatParameter(kCorrectionStrengthId, "correction_strength", 1.0, "", "Weight of MacCormack's correction")
          .ShownWhen(kSchemeId, Relation::Is, GridAdvection::Scheme::MacCormack),
      BoolParameter(kSmoothCorrectionId, "smooth_correction", false,
                    "Leaves out what is a cell wide: no fringes along the flow, and nearly the same detail")
          .ShownWhen(kSchemeId, Relation::Is, GridAdvection::Scheme::MacCormack),
  };
  static const TypeInfo kType = {
      .id = 1300122,
      .resource = "zq_grid_advection",
      .className = "C4D_GridAdvection_Object",
      .label = "GOP::Advection",
      .text =
          "Carries a channel through the velocity of a dynamics object, or that velocity itself. A gas needs one for "
          "its velocity, in stage 6, and one for each channel, in stage 14.",
      .kinds = kLinkOperator,
      .parameters = kParameters,
      .common = TimedNodeParameters(),
  };
  return kType;
}

GridAdvection::GridAdvection(BaseList2D* object, OrlixScene& owner) : iObject(object, owner) {
  stageMask = StageBit(kStageAdvection);
  priority = kPriority;
}

void GridAdvection::ResetSimulation() {
  for (auto* grid : {&previousGamma, &gamma}) {
    if (!*grid) continue;
    (*grid)->ResetActiveBox();
    (*grid)->Fill(1.0, &scene->pool());
  }
}

void GridAdvection::ClearState(bool deactivate) {
  previousGamma.reset();
  gamma.reset();
  if (deactivate) iObject::ClearState(true);
}

bool GridAdvection::ApplyBounds(const Vec3D&, const Vec3D&) {
  if (!IsConservative() || !scalarChannel || !HasStorage(scalarChannel->grid)) {
    ClearState(false);
    return !IsConservative();
  }
  const ScalarGrid& shape = *scalarChannel->grid;
  if (FitGamma(previousGamma, shape, scene->pool()) && FitGamma(gamma, shape, scene->pool())) return true;
  scene->FailForMemory(*this, shape.dims);
  ClearState(false);
  return false;
}

MemoryNeed GridAdvection::MemoryFor(const VecInt3D& cells) const {
  // Beside what a projection borrows, which is more than the other schemes take: 12 bytes a cell for each component.
  // Gamma and its previous grid are kept; what cells give to others is listed by layers: measured.
  if (!IsConservative()) return {};
  const double listed = scheme == Scheme::Conservative ? 84 : 116;
  return {.kept = ChannelBytes(cells, 2), .scratch = listed * double(CellCount(cells))};
}

bool GridAdvection::ReadParameters() {
  stageMask = StageBit(kStageAdvection);
  priority = kPriority;
  if (!iObject::ReadParameters()) return false;
  scheme = handler.GetChoice<Scheme>(kSchemeId);
  integrator = handler.GetChoice<Integrator>(kIntegratorId);
  interpolation = handler.GetChoice<AdvectionSampling>(kInterpolationId);
  correctionStrength = handler.GetFloat(kCorrectionStrengthId);
  smoothCorrection = handler.GetBool(kSmoothCorrectionId);
  return true;
}

bool GridAdvection::ResolveLinks() {
  ForgetLinks();
  if (!iObject::ResolveLinks()) return false;
  const BaseList2D* target = handler.GetLink(kChannelId);
  scalarChannel = scene->RetrieveAs<ScalarGridChannel>(target, NODE_CHANNEL, RETRIEVE_SCALAR);
  if (!scalarChannel) vectorChannel = scene->RetrieveAs<VectorGridChannel>(target, NODE_CHANNEL, RETRIEVE_VECTOR);
  auto* carrier = scene->RetrieveAs<FluidSolver>(handler.GetLink(kSolverId), NODE_SOLVER);
  if (!carrier) return false;
  solver_ = carrier;
  if (!scalarChannel && !vectorChannel) {
    if (auto* own = scene->RetrieveAs<FluidSolver>(target, NODE_SOLVER)) solver_ = own;
  }
  velocityChannel = &solver_->velocity;
  return true;
}

void GridAdvection::ForgetLinks() {
  scalarChannel = nullptr, vectorChannel = nullptr, velocityChannel = nullptr, solver_ = nullptr;
}

void GridAdvection::ReleaseLinks() {
  ForgetLinks();
  SetFlag(NodeActive, false);
  iObject::ReleaseLinks();
}

void GridAdvection::Advise() {
  if (!solver_) return Warn("no-solver", "no dynamics object is linked, so it carries nothing; link one as \"solver\"");
  const std::string target = "\"" + Target()->DisplayName() + "\"";
  const bool keepsPrevious = scalarChannel   ? scalarChannel->keepPrevious
                             : vectorChannel ? vectorChannel->keepPrevious
                                             : velocityChannel->keepPrevious;
  if (!keepsPrevious && !scene->IsPlayed(*Target())) {
    Warn("no-previous", target + " keeps no previous grid, so it isn't carried; switch its keep_previous on");
  }
  const auto number = [](const iBase& node) { return node.handler.hostObject()->creationNumber(); };
  scene->ForEachNode(NODE_OPERATOR, NODE_OPERATOR, [&](const iBase& other) {
    if (number(other) >= number(*this) || !other.IsEnabled() || !other.Moves(*Target())) return;
    const bool itself = !scalarChannel && !vectorChannel;
    Warn("carried-twice", (itself ? "without a channel it carries the velocity of " : "it carries ") + target +
                              ", as \"" + other.DisplayName() +
                              "\" does; link the channel that it is to carry, or take it out");
  });
}

iBase* GridAdvection::Target() const {
  if (scalarChannel) return scalarChannel;
  if (vectorChannel) return vectorChannel;
  return solver_;
}

void GridAdvection::CheckDirty() {
  iObject::CheckDirty();
  if (IsEnabled() && scene->HasFlag(TimeMoved)) MarkDirty(false);
  if (IsDirty() && Target()) Target()->MarkDirty(false);
}

// Whether the target has the grids of the step before. What a cache plays back isn't computed.
bool GridAdvection::CanSwap() const {
  if (!Target() || Target()->HasFlag(NodeFromCache)) return false;
  if (scalarChannel) {
    return scalarChannel->keepPrevious && HasStorage(scalarChannel->grid) && HasStorage(scalarChannel->previous);
  }
  const VectorGridChannel* target = vectorChannel ? vectorChannel : velocityChannel;
  return target->keepPrevious && HasStorage(target->grids) && HasStorage(target->previousGrids);
}

void GridAdvection::Prepare(iBase*) {
  SetFlag(NodeActive, false);
  if (!velocityChannel || !HasStorage(velocityChannel->grids) || !CanSwap()) return;
  const ScalarGrid& target = scalarChannel   ? *scalarChannel->grid
                             : vectorChannel ? *vectorChannel->grids[0]
                                             : *velocityChannel->grids[0];
  if (target.space.dims != velocityChannel->grids[0]->space.dims) {
    Warn("other-cells", "the channel has another container than the solver: it isn't carried");
    return;
  }
  if (scalarChannel && IsConservative() && !(previousGamma && gamma && gamma->dims == target.dims)) return;
  if (scalarChannel) {
    scalarChannel->SwapGrids();
  } else {
    (vectorChannel ? vectorChannel : velocityChannel)->SwapGrids();
  }
  SetFlag(NodeActive, true);
}

// The velocity carries itself by what it was before.
AdvectionField GridAdvection::Field() {
  const bool itself = !scalarChannel && !vectorChannel;
  const Components& grids = itself ? velocityChannel->previousGrids : velocityChannel->grids;
  AdvectionField field;
  field.velocity = {*grids[0], *grids[1], *grids[2]};
  field.solid = solver_->boundary.View();
  field.bricks = &solver_->boundary.ObstacleBricks();
  field.cellSize = grids[0]->space.cellSize;
  field.dt = static_cast<float>(simulationInfo->substepDuration);
  field.integrator = integrator;
  return field;
}

AdvectionSource GridAdvection::Source(const ScalarGrid& grid) {
  AdvectionSource source;
  source.values = grid;
  source.offset = CellSampleOffset(grid.gridType);
  source.insideSolid = &solver_->boundary.InsideSolid(grid.gridType);
  source.sampling = interpolation;
  // A velocity fills its container.
  if (grid.gridType > kGridVelocityW) source.content = FindContent(grid, scene->pool());
  return source;
}

void GridAdvection::Carry(std::span<const Carried> grids) {
  std::vector<Advected> quantities;
  std::vector<ScratchPool::Lease<double>> forward;
  std::vector<ScratchPool::Lease<std::int32_t>> traced;
  for (const Carried& grid : grids) {
    if (!grid.source || !grid.source->data || !grid.result || !grid.result->data) continue;
    Advected& carried = quantities.emplace_back();
    carried.source = Source(*grid.source);
    carried.source.sampling = grid.node->interpolation;
    carried.result = {grid.result->data, grid.result->dims};
    carried.correction = {grid.node->correctionStrength, grid.node->smoothCorrection};
    if (scheme != Scheme::MacCormack) continue;
    // All staggered components share one size of scratch.
    const bool staggered = grid.result->gridType <= kGridVelocityW;
    const VecInt3D dims = staggered ? grid.result->space.dims + VecInt3D(1, 1, 1) : grid.result->dims;
    forward.push_back(scene->scratch().Take<double>(dims));
    carried.scratch.forward = {forward.back()->data, grid.result->dims};
    const auto shares = [&](const Advected& other) { return &other != &carried && other.SharesTraceWith(carried); };
    if (std::ranges::any_of(quantities, shares)) continue;
    traced.push_back(scene->scratch().Take<std::int32_t>(dims));
    carried.scratch.traced = {traced.back()->data, grid.result->dims};
  }
  if (quantities.empty()) return;
  AdvectionField field = Field();
  if (scheme == Scheme::MacCormack) return AdvectMacCormack(field, quantities, scene->pool());
  field.dt = -field.dt;
  AdvectSemiLagrangian(field, quantities, scene->pool());
}

void GridAdvection::CarryScalarConservatively() {
  if (scene->TestBreak()) return;
  const AdvectionSource source = Source(*scalarChannel->previous);
  if (scheme == Scheme::Conservative) {
    AdvectConservative(Field(), source, {*previousGamma, *gamma, {}, {}}, *scalarChannel->grid, scene->scratch(),
                       scene->pool());
  } else {
    AdvectConservativeMacCormack(Field(), source, *previousGamma, *gamma, *scalarChannel->grid, scene->scratch(),
                                 scene->pool());
  }
}

bool GridAdvection::CanTakeAlong(const iObject& next) const {
  const auto* other = dynamic_cast<const GridAdvection*>(&next);
  return other && scalarChannel && other->scalarChannel && !IsConservative() && other->scheme == scheme &&
         other->solver_ == solver_ && other->integrator == integrator && other->scalarChannel != scalarChannel;
}

bool GridAdvection::TakesAlong(iObject& next) {
  if (!CanTakeAlong(next)) return false;
  auto* other = static_cast<GridAdvection*>(&next);
  const auto same = [&](const GridAdvection* node) { return node->scalarChannel == other->scalarChannel; };
  if (std::ranges::any_of(along_, same)) return false;
  along_.push_back(other);
  return true;
}

void GridAdvection::Process(ProcessData&) {
  if (scalarChannel && IsConservative()) {
    if (IsActive()) CarryScalarConservatively();
    return;
  }
  if (scalarChannel) {
    std::vector<Carried> grids;
    const auto add = [&](const GridAdvection& node) {
      if (!node.IsActive()) return;
      grids.push_back({node.scalarChannel->previous.get(), node.scalarChannel->grid.get(), &node});
    };
    add(*this);
    for (const GridAdvection* node : along_) add(*node);
    return Carry(grids);
  }
  if (!IsActive()) return;
  VectorGridChannel& target = vectorChannel ? *vectorChannel : *velocityChannel;
  std::vector<Carried> grids;
  for (int c = 0; c < 3; ++c) grids.push_back({target.previousGrids[c].get(), target.grids[c].get(), this});
  Carry(grids);
}

void GridAdvection::VisitState(StateVisitor& visitor) {
  visitor.VisitGrid("previousGamma", previousGamma);
  visitor.VisitGrid("gamma", gamma);
}

void GridAdvection::VisitOutputs(StateVisitor& visitor) {
  if (scalarChannel) visitor.VisitGrid("grid", scalarChannel->grid);
  VectorGridChannel* target = scalarChannel ? nullptr : vectorChannel ? vectorChannel : velocityChannel;
  if (!target) return;
  for (auto& grid : target->grids) visitor.VisitGrid("grid", grid);
}

}  // namespace orlix
