#include "fluids/volumes/MultiVolume.h"

#include <algorithm>
#include <limits>

#include "fluids/scene/OrlixScene.h"

namespace orlix {

namespace {

// A volume's own, with a list of objects instead of one.
std::span<const Parameter> MultiVolumeParameters() {
  static const std::vector<Parameter> kRows = [] {
    std::vector<Parameter> rows{
        ListParameter(MultiVolume::kObjectsId, "objects", kLinkGeometry, "The objects whose polygons are the volume")};
    for (const Parameter& row : VolumeBase::Parameters()) {
      if (row.id != VolumeBase::kObjectId && row.HoldsValue()) rows.push_back(row);
    }
    return rows;
  }();
  return kRows;
}

}  // namespace

const TypeInfo& MultiVolume::Type() {
  static const TypeInfo kType = {
      .id = 1300133,
      .resource = "zq_volume_multi",
      .className = "C4D_MultiVolume_Object",
      .label = "MultiVolume",
      .text =
          "Many objects as one volume: a level set for each, filled, emitted from and flowed around together. What "
          "takes "
          "a single level set, such as a mesher, doesn't take it.",
      .kinds = kLinkVolume,
      .parameters = MultiVolumeParameters(),
      .common = CommonNodeParameters(),
  };
  return kType;
}

MultiVolume::MultiVolume(BaseList2D* hostObject, OrlixScene& owner) : iVolume(hostObject, owner) {
  stageMask = StageBit(kStageVolumes);
}

void MultiVolume::GetRetrieveTypes(std::uint32_t& mask) const {
  iVolume::GetRetrieveTypes(mask);
  if (!members_.empty() && members_.front().node->HasRetrieveType(RETRIEVE_LEVELSET)) {
    mask |= RetrieveBit(RETRIEVE_LEVELSET);
  }
}

bool MultiVolume::ReadParameters() {
  priority = 0;
  if (!iVolume::ReadParameters()) return false;
  SetFlag(NodeHasBounds, handler.GetBool(VolumeBase::kExtendsContainerId));
  for (const Member& each : members_) each.node->ReadParameters();
  return true;
}

bool MultiVolume::ResolveLinks() {
  if (!iVolume::ResolveLinks()) return false;
  FindMembers();
  return true;
}

// Members whose object stays in the list stay, with all that they know.
void MultiVolume::FindMembers() {
  std::vector<Member> before = std::move(members_);
  members_.clear();
  const InExcludeData* list = handler.GetInExclude(kObjectsId);
  for (const InExcludeData::Entry& entry : list ? list->entries : std::vector<InExcludeData::Entry>()) {
    auto* object = dynamic_cast<BaseObject*>(scene->GetHostDocument()->FindObject(entry.target));
    const auto isObject = [&](const Member& each) { return each.node && each.object == entry.target; };
    if (!object || std::any_of(members_.begin(), members_.end(), isObject)) continue;
    const auto known = std::find_if(before.begin(), before.end(), isObject);
    if (known != before.end()) {
      members_.push_back(std::move(*known));
    } else {
      members_.push_back({entry.target, std::make_unique<VolumeMesh>(handler.hostObject(), *scene)});
      members_.back().node->ReadParameters();
    }
    members_.back().node->BeMember(object);
    members_.back().node->ResolveLinks();
  }
}

void MultiVolume::ReleaseLinks() {
  for (const Member& each : members_) each.node->ReleaseLinks();
  iVolume::ReleaseLinks();
}

void MultiVolume::Advise() {
  if (members_.empty()) Warn("no-objects", "no object is listed: the volume is empty; enter some under objects");
}

void MultiVolume::CheckDirty() {
  if (HasFlag(NodeDirtyChecked)) return;
  iVolume::CheckDirty();
  for (const Member& each : members_) each.node->CheckDirty();
}

bool MultiVolume::IsDirty() const {
  return HasFlag(NodeDirty) ||
         std::any_of(members_.begin(), members_.end(), [](const Member& each) { return each.node->IsDirty(); });
}

void MultiVolume::ResetSimulation() {
  for (const Member& each : members_) each.node->ResetSimulation();
}

void MultiVolume::ClearState(bool deactivate) {
  iVolume::ClearState(deactivate);
  for (const Member& each : members_) each.node->ClearState(deactivate);
}

void MultiVolume::Prepare(iBase*) {
  for (const Member& each : members_) each.node->Prepare(this);
  ComputeBounds();
  SetFlag(NodeActive, !members_.empty());
}

void MultiVolume::Process(ProcessData& data) {
  std::vector<VolumeMesh*> small;
  for (const Member& each : members_) {
    if (scene->TestBreak(data.hostThread)) return;
    each.node->FillsSmallGrid() ? small.push_back(each.node.get()) : each.node->Process(data);
  }
  ParallelRange(scene->pool(), 0, static_cast<int>(small.size()), [&](int first, int last, int) {
    for (int n = first; n < last; ++n) small[std::size_t(n)]->Process(data);
  });
}

void MultiVolume::Finish() {
  for (const Member& each : members_) each.node->Finish();
}

void MultiVolume::VisitState(StateVisitor& visitor) {
  auto count = static_cast<std::uint64_t>(members_.size());
  visitor.Visit("members", count);
  if (count != members_.size()) return visitor.Refuse("another number of objects");
  for (const Member& each : members_) VisitPart(visitor, "member", *each.node);
}

std::int64_t MultiVolume::DerivedBytes() const {
  std::int64_t bytes = 0;
  for (const Member& each : members_) bytes += each.node->DerivedBytes();
  return bytes;
}

MemoryNeed MultiVolume::MemoryFor(const VecInt3D& cells) const {
  MemoryNeed need;
  for (const Member& each : members_) {
    const MemoryNeed one = each.node->MemoryFor(cells);
    need = {.kept = need.kept + one.kept, .scratch = std::max(need.scratch, one.scratch)};
  }
  return need;
}

void MultiVolume::ComputeBounds() {
  ResetBounds();
  for (const Member& each : members_) {
    if (each.node->HasLevelSet()) each.node->ExtendBounds(boundsMin, boundsMax);
  }
  const GridSpace& space = GetSimulationSpace();
  cellSize = space.cellSize;
  cellVector = space.hostPerVoxel;
  if (boundsMin.x > boundsMax.x) return;
  resolution = SnappedCell((boundsMax - boundsMin) / cellSize);
  extent = Vec3D(resolution) * cellVector;
  origin = boundsMin * (1.0 / cellSize) * cellVector;
  position = boundsMin;
  centre = (boundsMin + boundsMax) * 0.5;
}

void MultiVolume::AppendVolumes(std::vector<VolumeBase*>& out) {
  for (const Member& each : members_) out.push_back(each.node.get());
}

// --- queries ---------------------------------------------------------------------------------------------------------

double MultiVolume::SampleWorld(const Vec3D& p) const {
  double least = std::numeric_limits<double>::max();
  for (const Member& each : members_) {
    if (each.node->HasLevelSet()) least = std::min(least, each.node->SampleWorld(p));
  }
  return least;
}

bool MultiVolume::InsideWorld(const Vec3D& p, double iso) const {
  return std::any_of(members_.begin(), members_.end(),
                     [&](const Member& each) { return each.node->InsideWorld(p, iso); });
}

bool MultiVolume::PushOut(Vec3D& p, bool world, double offset) const {
  return std::any_of(members_.begin(), members_.end(),
                     [&](const Member& each) { return each.node->PushOut(p, world, offset); });
}

bool MultiVolume::Collide(const Vec3D& p, VolumeHit& hit, double iso) const {
  hit = {false, p, {0, 1, 0}, 0};
  return std::any_of(members_.begin(), members_.end(),
                     [&](const Member& each) { return each.node->Collide(p, hit, iso); });
}

}  // namespace orlix
