#include "fluids/surfacing/LevelSetSmoother.h"

#include <fmt/format.h>

#include <algorithm>

#include "fluids/surfacing/CSGoperatorGrid.h"

namespace orlix {

namespace {

constexpr std::int32_t kPriority = 30;

}  // namespace

const TypeInfo& LevelSetSmoother::Type() {
  static constexpr Parameter kParameters[] = {
      LinkParameter(kSourceId, "source", kLinkVolume, "A volume, a CSG or a surface reconstructor"),
      BoolParameter(kRenderOnlyId, "render_only", false, "Nothing is smoothed unless the frame is rendered"),
      BoolParameter(kOnPlayedId, "on_played", false,
                    "Works on a level set that a cache plays, too; such a one was recorded as the smoother left it"),
      IntParameter(kLaplacianRoundsId, "laplacian_rounds", 15, "", "Rounds that even out bumps, and shrink")
          .Between(0, 10000),
      IntParameter(kBiharmonicRoundsId, "biharmonic_rounds", 250, "",
                   "Rounds that even out how much it bends, and keep size")
          .Between(0, 10000),
      IntParameter(kPeriodId, "period", 50, "rounds", "Every so often distances are made anew; 0 for never")
          .Between(0, 10000),
      FloatParameter(kSpeedId, "speed", 1, "", "Of the biharmonic rounds; beyond 1 they may not be stable")
          .Between(0, 2),
      FloatParameter(kInnerId, "inner", 0.86, "cells", "Nearer border of the band in which the surface may move")
          .Between(0, 16),
      FloatParameter(kOuterId, "outer", 2, "", "Its farther border, as a factor of the nearer").Between(1, 16),
      FloatParameter(kCentreId, "centre", 0.5, "",
                     "Where the band stands: 0.5 is around the surface, less is outside of it, more is inside")
          .Between(0, 1),
  };
  static const TypeInfo kType = {
      .id = 1300035,
      .resource = "zq_levelset_smoother",
      .className = "C4D_Levelset_Smoother_Object",
      .label = "VOP::Smoother",
      .text =
          "Smooths a volume, a CSG or a reconstructed surface by two curvature flows. The surface stays inside a band "
          "around where it was, so that shapes don't shrink away.",
      .kinds = kLinkOperator,
      .parameters = kParameters,
      .common = CommonNodeParameters(),
  };
  return kType;
}

LevelSetSmoother::LevelSetSmoother(BaseList2D* hostObject, OrlixScene& owner) : iObject(hostObject, owner) {
  stageMask = StageBit(kStageVolumes);
}

bool LevelSetSmoother::ReadParameters() {
  priority = kPriority;
  if (!iObject::ReadParameters()) return false;
  const double cell = GetSimulationSpace().cellSize;
  const double inner = handler.GetDouble(kInnerId) * cell, outer = handler.GetDouble(kOuterId) * inner;
  const double centre = handler.GetDouble(kCentreId) * (inner + outer);
  renderOnly_ = handler.GetBool(kRenderOnlyId);
  onPlayed_ = handler.GetBool(kOnPlayedId);
  settings_.laplacianRounds = handler.GetInt(kLaplacianRoundsId);
  settings_.biharmonicRounds = handler.GetInt(kBiharmonicRoundsId);
  settings_.period = handler.GetInt(kPeriodId);
  settings_.speed = handler.GetDouble(kSpeedId);
  settings_.above = centre - inner;
  settings_.below = centre - outer;
  return true;
}

bool LevelSetSmoother::WorksOnPlayed(const BaseObject& object) {
  return object.typeId() == Type().id && object.GetBool(kOnPlayedId);
}

bool LevelSetSmoother::ResolveLinks() {
  if (!iObject::ResolveLinks()) return false;
  sourceNode_ = scene->Retrieve(handler.GetLink(kSourceId), NODE_VOLUME, RETRIEVE_ANY, RETRIEVE_ANY);
  source_ = dynamic_cast<iLevelSet*>(sourceNode_);
  return source_ != nullptr;
}

void LevelSetSmoother::ReleaseLinks() {
  sourceNode_ = nullptr, source_ = nullptr;
  iObject::ReleaseLinks();
}

void LevelSetSmoother::Advise() {
  if (!source_) {
    return Warn("no-source", sourceNode_ ? "what is linked has no level set: nothing is smoothed; link a volume, a CSG "
                                           "or a surface reconstructor under source"
                                         : "no volume is linked: nothing is smoothed; link one under source");
  }
  scene->ForEachNode(NODE_OPERATOR, NODE_OPERATOR, [&](iBase& node) {
    const auto* other = dynamic_cast<LevelSetSmoother*>(&node);
    if (!other || other == this || !other->IsEnabled() || other->source_ != source_) return;
    Warn("two-smoothers",
         "\"" + other->DisplayName() +
             "\" smooths the same source: each undoes nothing of the other's, and a source that stands "
             "still grows smoother in each frame; take one of them away");
  });
  scene->ForEachNode(NODE_VOLUME, NODE_VOLUME, [&](const iBase& node) {
    const auto* csg = dynamic_cast<const CSGoperatorGrid*>(&node);
    if (!csg || !csg->TakesIn(*sourceNode_) || csg->stageMask != stageMask || csg->priority > priority ||
        scene->IsPlayed(*csg)) {
      return;
    }
    Warn("after-csg", fmt::format("\"{}\" is made of \"{}\" before that is smoothed; set its priority to {}, or this "
                                  "one's so that it runs between them",
                                  csg->DisplayName(), sourceNode_->DisplayName(),
                                  csg->handler.GetInt(kPriorityId) + priority - csg->priority + 1));
  });
  const std::uint32_t visual = StageBit(kStageReconstruction);
  const bool late = (sourceNode_->stageMask & visual) != 0;
  if (late && ((stageMask & visual) == 0 || priority <= sourceNode_->priority)) {
    Warn("too-early", "\"" + sourceNode_->DisplayName() +
                          "\" is made anew after it was smoothed: nothing of that stays; set the smoother's stage to "
                          "20 and its priority to 7");
  }
}

// A copy of what it smooths, and the tables of the rounds.
MemoryNeed LevelSetSmoother::MemoryFor(const VecInt3D& cells) const {
  const iBase* node = scene->Retrieve(handler.GetLink(kSourceId), NODE_VOLUME, RETRIEVE_ANY, RETRIEVE_ANY);
  if (!node || !dynamic_cast<const iLevelSet*>(node) || (renderOnly_ && !scene->rendering)) return {};
  constexpr int kGridsOfBiharmonic = 5, kGridsOfLaplacian = 2;  // measured
  const double bytes = node->MemoryFor(cells).kept;
  const int tables = settings_.biharmonicRounds > 0  ? kGridsOfBiharmonic
                     : settings_.laplacianRounds > 0 ? kGridsOfLaplacian
                                                     : 0;
  return {.kept = bytes, .scratch = tables * bytes};
}

void LevelSetSmoother::CheckDirty() {
  if (HasFlag(NodeDirtyChecked)) return;
  iObject::CheckDirty();
  if (IsEnabled() && source_) MarkDirty(false);  // whether there is work, the source's version says
}

void LevelSetSmoother::ResetSimulation() {
  original_.reset();
  smoothed_ = nullptr;
}

void LevelSetSmoother::ClearState(bool deactivate) {
  iObject::ClearState(deactivate);
  ResetSimulation();
}

// False when there is no memory for it.
bool LevelSetSmoother::Keep(const ScalarGrid& grid) {
  if (!original_ || !original_->space.Equals(grid.space) || original_->dims != grid.dims) {
    original_.reset();
    try {
      original_ = ScalarGrid::CreateLike(grid, kGridScratch);
    } catch (const std::bad_alloc&) {
      scene->FailForMemory(*this, grid.dims);
      return false;
    }
  }
  std::copy_n(grid.data, grid.count, original_->data);
  return true;
}

void LevelSetSmoother::Prepare(iBase*) {
  SetFlag(NodeActive, false);
  ScalarGrid* grid = source_ ? source_->LevelSet() : nullptr;
  if (!grid || grid->count < 1 || (renderOnly_ && !scene->rendering)) return;
  if (sourceNode_->HasFlag(NodeFromCache) && !onPlayed_) return;
  settings_.reinitialiseFirst = scene->stage == kStageReconstruction;
  const bool untouched = smoothed_ == source_ && smoothedVersion_ == source_->LevelSetVersion() && original_;
  if (untouched && smoothedWith_ == settings_) return;
  if (untouched) {
    std::copy_n(original_->data, original_->count, grid->data);
  } else if (!Keep(*grid)) {
    return;
  }
  SetFlag(NodeActive, true);
}

void LevelSetSmoother::Process(ProcessData& data) {
  if (!IsActive()) return;
  const bool whole = SmoothLevelSet(scene->pool(), scene->scratch(), settings_, *source_->LevelSet(), data.hostThread);
  source_->LevelSetChanged();
  smoothed_ = source_, smoothedVersion_ = source_->LevelSetVersion();
  smoothedWith_ = settings_;
  if (!whole) smoothedWith_.period = -1;  // unlike any other: it is begun anew
}

}  // namespace orlix
