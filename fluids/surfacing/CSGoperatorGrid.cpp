#include "fluids/surfacing/CSGoperatorGrid.h"

#include <algorithm>
#include <cmath>
#include <new>

#include "fluids/scene/OrlixScene.h"
#include "fluids/surfacing/SurfaceReconstructor.h"
#include "host/objects/HasTrack.h"

namespace orlix {

namespace {

constexpr double kSnapTolerance = 1e-4;  // cells

}  // namespace

const TypeInfo& CSGoperatorGrid::Type() {
  static constexpr Choice kOperations[] = {{Operation::Union, "union", "What lies in either"},
                                           {Operation::Intersection, "intersection", "What lies in both"},
                                           {Operation::Subtraction, "subtraction", "The first without the second"},
                                           {Operation::Blend, "blend", "Both, flowing into each other"}};
  static constexpr Choice kBlendModes[] = {
      {BlendMode::Smooth, "smooth",
       "A union that grows by blend_value, and at a seam by more: not at a blend of 1, most at 0"},
      {BlendMode::Soft, "soft", "Soft objects that reach blend metres and merge where they are near"},
      {BlendMode::Morph, "morph", "From the first, at 0, to the second, at 1"}};
  static constexpr Parameter kParameters[] = {
      LinkParameter(kFirstId, "first", kLinkVolume, "A volume, a CSG or a surface reconstructor"),
      LinkParameter(kSecondId, "second", kLinkVolume, "Another of these"),
      ChoiceParameter(kOperationId, "operation", Operation::Union, kOperations, "What is made of them"),
      FloatParameter(kOffsetId, "offset", 0, "m", "By so much the second grows"),
      BoolParameter(kSwapId, "swap", false, "First and second change places"),
      ChoiceParameter(kBlendModeId, "blend_mode", BlendMode::Smooth, kBlendModes, "How they flow into each other")
          .ShownWhen(kOperationId, Relation::Is, Operation::Blend),
      FloatParameter(kBlendId, "blend", 0.5, "",
                     "Weight of the blend, which the constraints scale; of soft, a reach in metres")
          .Between(0, 1000)
          .ShownWhen(kOperationId, Relation::Is, Operation::Blend),
      FloatParameter(kBlendValueId, "blend_value", 0.7, "",
                     "Smooth: metres by which the result grows; soft: where the surface lies, 0 to 1")
          .ShownWhen(kOperationId, Relation::Is, Operation::Blend)
          .ShownWhen(kBlendModeId, Relation::IsNot, BlendMode::Morph),
  };
  static const TypeInfo kType = {
      .id = 1300034,
      .resource = "zq_csg",
      .className = "C4D_CSG_Object",
      .label = "Constructive Solid Geometry (CSG)",
      .text =
          "A volume made of two others: their union, intersection or difference, or a blend. It serves wherever a "
          "volume does, also as another one's input.",
      .kinds = kLinkVolume,
      .parameters = kParameters,
      .common = CommonNodeParameters(),
  };
  return kType;
}

CSGoperatorGrid::CSGoperatorGrid(BaseList2D* hostObject, OrlixScene& owner) : VolumeBase(hostObject, owner) {
  stageMask = StageBit(kStageVolumes);
}

// The numbers of a volume's own rows mean other things here.
bool CSGoperatorGrid::ReadParameters() {
  priority = 5;
  if (!iVolume::ReadParameters()) return false;
  SetFlag(NodeHasBounds, false);
  ReadObstacleTag();
  settings_.operation = handler.GetChoice<Operation>(kOperationId);
  settings_.offset = handler.GetDouble(kOffsetId);
  settings_.blendMode = handler.GetChoice<BlendMode>(kBlendModeId);
  settings_.blendValue = handler.GetDouble(kBlendValueId);
  blend_ = std::max(handler.GetDouble(kBlendId), 0.0);
  swap_ = handler.GetBool(kSwapId);
  forecast_.reset();
  return true;
}

CSGoperatorGrid::Input CSGoperatorGrid::FindInput(int linkId) const {
  iBase* node = scene->Retrieve(handler.GetLink(linkId), NODE_VOLUME, RETRIEVE_ANY, RETRIEVE_ANY);
  return {node, dynamic_cast<iLevelSet*>(node)};
}

bool CSGoperatorGrid::ResolveLinks() {
  if (!iVolume::ResolveLinks()) return false;
  inputs_[0] = FindInput(swap_ ? kSecondId : kFirstId);
  inputs_[1] = FindInput(swap_ ? kFirstId : kSecondId);
  filters_ = RetrieveConstraints(*scene, handler);
  return HasBothInputs();
}

void CSGoperatorGrid::ReleaseLinks() {
  inputs_[0] = inputs_[1] = {};
  filters_.clear();
  iVolume::ReleaseLinks();
}

bool CSGoperatorGrid::HasBothInputs() const {
  for (const Input& input : inputs_) {
    if (!input.levelSet || input.node == this) return false;
    const auto* other = dynamic_cast<const CSGoperatorGrid*>(input.node);
    if (other && other->IsMadeOf(*this)) return false;
  }
  return true;
}

// Directly or through others.
// Each of the tree is looked at once: an input may be that of many, and a tree may end in itself.
bool CSGoperatorGrid::IsMadeOf(const iBase& other) const {
  std::vector<const CSGoperatorGrid*> tree{this};
  for (std::size_t n = 0; n < tree.size(); ++n) {
    for (const Input& input : tree[n]->inputs_) {
      if (input.node == &other) return true;
      const auto* csg = dynamic_cast<const CSGoperatorGrid*>(input.node);
      if (csg && std::find(tree.begin(), tree.end(), csg) == tree.end()) tree.push_back(csg);
    }
  }
  return false;
}

void CSGoperatorGrid::AdviseInput(int linkId, const char* key) const {
  const BaseList2D* link = handler.GetLink(linkId);
  const Input input = FindInput(linkId);
  const std::string name = linkId == kFirstId ? "first" : "second";
  if (!link) return Warn(key, "no volume is linked as " + name + ": there is no level set; link one");
  if (!input.levelSet) {
    return Warn(key,
                "what is linked as " + name + " has no level set; link a volume, a CSG or a surface reconstructor");
  }
  const auto* csg = dynamic_cast<const CSGoperatorGrid*>(input.node);
  if (input.node == this || (csg && csg->IsMadeOf(*this))) {
    return Warn(key,
                "what is linked as " + name + " is made of this volume itself: there is no level set; link another");
  }
  if ((input.node->stageMask & StageBit(kStageReconstruction)) != 0 &&
      (stageMask & StageBit(kStageReconstruction)) == 0) {
    Warn("late", "\"" + input.node->DisplayName() +
                     "\" is made later in a frame: this volume shows it a frame late; set stage to 20 and priority "
                     "to 7");
  }
}

void CSGoperatorGrid::Advise() {
  AdviseInput(kFirstId, "no-first");
  AdviseInput(kSecondId, "no-second");
  if (!filters_.empty() && settings_.operation != Operation::Blend) {
    Warn("constraints-unused", "its constraints weigh a blend alone; set operation to blend");
  }
  const bool soft = settings_.operation == Operation::Blend && settings_.blendMode == BlendMode::Soft;
  if (soft && settings_.offset != 0 && blend_ > 0 && !HasTrack(*handler.hostObject(), kOffsetId)) {
    Warn("offset-unused", "a soft blend takes the second without its offset; take that out, or set another blend_mode");
  }
}

void CSGoperatorGrid::Conclude() {
  if (everMet_ || !neverMet_) return;
  Warn("nothing-common",
       "what it is made of never lay near each other, so there is nothing in both and no level set; move one of them, "
       "or "
       "set another operation");
}

bool CSGoperatorGrid::ComesBefore(const iBase& other) const {
  const auto* csg = dynamic_cast<const CSGoperatorGrid*>(&other);
  return priority < other.priority || (csg && priority == csg->priority && csg->IsMadeOf(*this));
}

void CSGoperatorGrid::CheckDirty() {
  if (HasFlag(NodeDirtyChecked)) return;
  VolumeBase::CheckDirty();
  const bool weighs = !filters_.empty() && scene->HasFlag(TimeMoved);
  if (IsEnabled() && (weighs || scene->HasFlag(ContainerChanged))) MarkDirty(false);
}

bool CSGoperatorGrid::IsDirty() const {
  if (HasFlag(NodeDirty)) return true;
  if (!HasBothInputs()) return HasLevelSet() && !HasFlag(NodeFromCache);
  if (!made_ && !HasFlag(NodeFromCache)) return true;
  return inputs_[0].node->IsDirty() || (inputs_[1].node != inputs_[0].node && inputs_[1].node->IsDirty());
}

void CSGoperatorGrid::ResetSimulation() {
  VolumeBase::ResetSimulation();
  made_ = everMet_ = neverMet_ = false;
}

// By how much a blend reaches beyond both of its inputs, m.
double CSGoperatorGrid::Swelling() const {
  if (settings_.operation != Operation::Blend) return 0;
  if (settings_.blendMode == BlendMode::Smooth) return std::max(settings_.blendValue, 0.0);
  return settings_.blendMode == BlendMode::Soft ? blend_ : 0;
}

void CSGoperatorGrid::CombineBoxes(Vec3D& min, Vec3D& max, const Vec3D& secondMin, const Vec3D& secondMax) const {
  const Vec3D swollen(Swelling()), grown = swollen + Vec3D(std::max(settings_.offset, 0.0));
  min -= swollen, max += swollen;
  if (settings_.operation == Operation::Intersection) {
    min = Max(min, secondMin - grown), max = Min(max, secondMax + grown);
  } else if (settings_.operation != Operation::Subtraction) {
    min = Min(min, secondMin - grown), max = Max(max, secondMax + grown);
  }
}

bool CSGoperatorGrid::ForecastBox(Vec3D& min, Vec3D& max) const {
  if (forecast_) {
    min = forecast_->min, max = forecast_->max;
    return forecast_->known;
  }
  forecast_.emplace();  // unknown to one that is made of itself
  const Input first = FindInput(swap_ ? kSecondId : kFirstId), second = FindInput(swap_ ? kFirstId : kSecondId);
  Vec3D secondMin, secondMax;
  const bool known = first.levelSet && second.levelSet && first.levelSet->ForecastBox(min, max) &&
                     second.levelSet->ForecastBox(secondMin, secondMax);
  if (known) CombineBoxes(min, max, secondMin, secondMax);
  forecast_ = {known, min, max};
  return known;
}

MemoryNeed CSGoperatorGrid::MemoryFor(const VecInt3D&) const {
  Vec3D min, max;
  if (scene->IsPlayed(*this) || !ForecastBox(min, max)) return {};
  return {.kept = LevelSetBytes(min, max, GetSimulationSpace().cellSize)};
}

// On the scene's cells: where an input's lie on them too, its nodes are the result's.
void CSGoperatorGrid::ComputeBounds() {
  const GridSpace& a = inputs_[0].levelSet->LevelSet()->space;
  const GridSpace& b = inputs_[1].levelSet->LevelSet()->space;
  boundsMin = a.simMin, boundsMax = a.simMax;
  CombineBoxes(boundsMin, boundsMax, b.simMin, b.simMax);
  const double cell = GetSimulationSpace().cellSize;
  for (int axis = 0; axis < 3; ++axis) {
    boundsMin[axis] = std::floor(boundsMin[axis] / cell + kSnapTolerance) * cell;
    boundsMax[axis] = std::ceil(boundsMax[axis] / cell - kSnapTolerance) * cell;
  }
  centre = (boundsMin + boundsMax) * 0.5;
  TakeBounds();
}

bool CSGoperatorGrid::InputsChanged() {
  bool changed = false;
  for (int n = 0; n < 2; ++n) {
    const std::uint64_t version = inputs_[n].levelSet->LevelSetVersion();
    changed = changed || seen_[n] != version || seenNodes_[n] != inputs_[n].node;
    seen_[n] = version, seenNodes_[n] = inputs_[n].node;
  }
  return changed;
}

void CSGoperatorGrid::Prepare(iBase*) {
  SetFlag(NodeActive, false);
  if (HasFlag(NodeFromCache)) {
    made_ = false;
    return SetFlag(NodeActive, HasLevelSet());
  }
  if (!HasBothInputs() || !inputs_[0].levelSet->LevelSet() || !inputs_[1].levelSet->LevelSet()) {
    FreeLevelSet();
    made_ = false;
    return;
  }
  const bool changed = InputsChanged();
  if (made_ && !changed && !HasFlag(NodeDirty)) return SetFlag(NodeActive, HasLevelSet());
  made_ = false;
  ComputeBounds();
  if (std::min({resolution.x, resolution.y, resolution.z}) < 1) {
    // Boxes that don't meet have nothing in common: that is no fault.
    neverMet_ = true;
    FreeLevelSet();
    return;
  }
  everMet_ = true;
  SetFlag(NodeActive, PrepareGrid());
}

void CSGoperatorGrid::Process(ProcessData&) {
  if (!IsActive() || made_ || HasFlag(NodeFromCache)) return;
  ScalarGrid& target = *LevelSet();
  for (Constraint* filter : filters_) filter->Prepare(this);
  weights_.Prepare(filters_, target.dims.x, blend_);
  // A row's places are the middles of cells; these cells stand about the nodes.
  GridSpace around = target.space;
  around.SetOrigin(around.hostMin - around.halfHostVoxel);
  CombineLevelSets(scene->pool(), settings_, LevelSetRows(*inputs_[0].levelSet->LevelSet(), target),
                   LevelSetRows(*inputs_[1].levelSet->LevelSet(), target), target,
                   [&](std::int32_t j, std::int32_t k, std::int32_t worker) {
                     return weights_.Of({0, target.dims.x, j, k, worker, &around}, this);
                   });
  for (Constraint* filter : filters_) filter->Finish();
  deepest_ = -*std::min_element(target.data, target.data + target.count);
  made_ = true;
  SetFlag(NodeDirty | NodeHardDirty, false);
  LevelSetChanged();
}

}  // namespace orlix
