#include "fluids/scene/iBase.h"

#include <algorithm>

#include "fluids/scene/OrlixScene.h"

namespace orlix {

namespace {

constexpr int kLastStage = 22;  // of those that run nodes

constexpr Parameter kPositionRow =
    VectorParameter(kPositionId, "position", {0, 0, 0}, "host units", "Place in the parent's space");
constexpr Parameter kScaleRow =
    VectorParameter(kScaleId, "scale", {1, 1, 1}, "", "Factors along the object's own axes");
constexpr Parameter kRotationRow =
    VectorParameter(kRotationId, "rotation", {0, 0, 0}, "degrees", "Turns about x, then y, then z");
constexpr Parameter kConstraintsRow =
    ListParameter(kConstraintsId, "constraints", kLinkConstraint, "Constraints that confine where the node acts");
constexpr Parameter kUnreadConstraintsRow =
    ListParameter(kConstraintsId, "constraints", kLinkConstraint, "Confines nothing on this node").Unread();
constexpr Parameter kAddConstraintRow =
    ButtonParameter(2504, "add_constraint", "Adds a constraint beneath the object and enters it in the list");
constexpr Parameter kIterationsRow =
    IntParameter(kIterationsId, "iterations", 0, "", "Kept with the object; emitters on meshes alone have extra rounds")
        .Min(0)
        .Hidden()
        .Unread();
constexpr Parameter kDurationRow =
    LinkParameter(kDurationId, "duration", kLinkDuration, "When the node acts; without one, always");
constexpr Parameter kExecutionRow = GroupParameter(10000, "execution", "Where and when the node runs in the pipeline");
constexpr Parameter kStageRow =
    IntParameter(kStageId, "stage", 0, "", "Stage in which the node runs; 0 keeps its own").Between(0, kLastStage);
constexpr Parameter kPriorityRow =
    IntParameter(kPriorityId, "priority", 0, "", "Added to the node's own priority; the smaller runs earlier");
constexpr Parameter kOwnBlockRow =
    BoolParameter(kOwnBlockId, "own_block", true, "The node opens an execution block of its own").Fallback(0.0);

constexpr Parameter kCommon[] = {kPositionRow,      kScaleRow,      kRotationRow, kConstraintsRow,
                                 kAddConstraintRow, kIterationsRow, kDurationRow, kExecutionRow,
                                 kStageRow,         kPriorityRow,   kOwnBlockRow};
constexpr Parameter kConfined[] = {kPositionRow,  kScaleRow, kRotationRow, kConstraintsRow, kAddConstraintRow,
                                   kExecutionRow, kStageRow, kPriorityRow, kOwnBlockRow};
constexpr Parameter kTimed[] = {kPositionRow,  kScaleRow, kRotationRow, kUnreadConstraintsRow, kDurationRow,
                                kExecutionRow, kStageRow, kPriorityRow, kOwnBlockRow};
constexpr Parameter kPlain[] = {kPositionRow,  kScaleRow, kRotationRow, kUnreadConstraintsRow,
                                kExecutionRow, kStageRow, kPriorityRow, kOwnBlockRow};

}  // namespace

std::span<const Parameter> CommonNodeParameters() { return kCommon; }
std::span<const Parameter> ConfinedNodeParameters() { return kConfined; }
std::span<const Parameter> TimedNodeParameters() { return kTimed; }
std::span<const Parameter> PlainNodeParameters() { return kPlain; }

iBase::iBase(BaseList2D* hostObject, OrlixScene& owner)
    : handler(hostObject), scene(&owner), simulationInfo(&owner.info) {}

const GridSpace& iBase::GetSimulationSpace() const { return scene->space; }

std::string iBase::DisplayName() const { return handler.HasObject() ? handler.hostObject()->Path() : "(no object)"; }

void iBase::Warn(const std::string& key, const std::string& text) const { scene->Warn(DisplayName(), key, text); }

bool iBase::NextIteration() {
  ++iteration;
  if (iteration < iterationCount) return true;
  iteration = -1;
  return false;
}

void iBase::ClearState(bool) { SetFlag(NodeActive, false); }

bool iBase::Reread() {
  if (!classPlace_) classPlace_ = ClassPlace{stageMask, priority};
  stageMask = classPlace_->stages;
  priority = classPlace_->priority;
  return ReadParameters();
}

bool iBase::ReadParameters() {
  if (!handler.HasObject()) return false;
  const std::int32_t stage = handler.GetInt(kStageId), userPriority = handler.GetInt(kPriorityId);
  if (stage >= 1 && stage <= kLastStage) {
    priority = userPriority;
    stageMask = StageBit(stage);
  } else {
    const std::int64_t sum = std::int64_t(priority) + userPriority;
    priority = static_cast<std::int32_t>(std::clamp<std::int64_t>(sum, INT32_MIN, INT32_MAX));
  }
  SetFlag(NodeOwnBlock, handler.GetBool(kOwnBlockId));
  return true;
}

void iBase::CheckDirty() {
  if (!handler.HasObject() || HasFlag(NodeDirtyChecked)) return;
  SetFlag(NodeEnabled, true);
  std::uint32_t counter = 0;
  if (!handler.GetDirtyCount(counter)) {
    SetFlag(NodeEnabled | NodeDirty | NodeHardDirty, false);
    return;
  }
  if (counter != dirtyCount)
    SetFlag(NodeDirty, true);
  else
    SetFlag(NodeDirty | NodeHardDirty, false);
  dirtyCount = counter;
  SetFlag(NodeDirtyChecked, true);
}

void iBase::VisitNode(StateVisitor& visitor) {
  // The host's counters start anew with the program: what counts is whether this node has seen the last change.
  std::uint32_t counter = 0;
  const bool counted = handler.GetDirtyCount(counter);
  std::uint8_t seen = counted && counter == dirtyCount;
  visitor.Keep("flags", flags);
  visitor.Keep("seen", seen);
  visitor.Keep("iteration", iteration);
  if (counted && (seen != 0) != (counter == dirtyCount)) dirtyCount = seen != 0 ? counter : counter - 1;
  VisitState(visitor);
}

std::uint32_t iBase::MarkDirty(bool hard) {
  SetFlag(NodeDirty, true);
  if (hard) SetFlag(NodeHardDirty, true);
  return --dirtyCount;
}

bool iBase::HasRetrieveType(std::int32_t type) const {
  return type >= 0 && type < RETRIEVE_ANY && (RetrieveMask() & (1u << type)) != 0;
}

}  // namespace orlix
