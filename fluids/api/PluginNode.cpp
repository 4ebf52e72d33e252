#include "fluids/api/PluginNode.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

#include "fluids/particles/ParticleGroup.h"
#include "fluids/scene/StateCheck.h"

namespace orlix {

namespace {

using ZQAPI::Outcome;

// What a plug-in says, as a line of ours.
std::string Said(ZQAPI::Fault& fault) {
  fault.text[sizeof fault.text - 1] = '\0';
  std::string text = fault.text;
  for (char& c : text) {
    if (static_cast<unsigned char>(c) < ' ' || c == 0x7f) c = ' ';
  }
  return text;
}

const PluginType& TypeOfNode(const iBase& node) {
  return static_cast<const PluginType&>(node.handler.hostObject()->type());
}

}  // namespace

PluginNode::PluginNode(iBase& node, OrlixScene& owner) : type_(TypeOfNode(node)), context_(node, owner) {
  ZQAPI::Fault fault;
  fault.text[0] = '\0';
  object_ = type_.calls->create(&fault);
  if (!object_) creationFault_ = Said(fault);
}

PluginNode::~PluginNode() {
  if (object_) type_.calls->destroy(object_);
}

template <class F>
bool PluginNode::Call(const char* phase, F&& call) const {
  if (!object_ || context_.HasFault()) return false;
  ZQAPI::Fault fault;
  fault.text[0] = '\0';
  switch (call(&fault)) {
    case Outcome::True:
      return true;
    case Outcome::False:
      return false;
    case Outcome::NoMemory:
      context_.NoteFault(ErrorKind::Memory,
                         fmt::format("memory doesn't suffice in {} of its plug-in \"{}\"", phase, type_.plugin));
      return false;
    default:
      context_.NoteFault(ErrorKind::Internal,
                         fmt::format("its plug-in \"{}\" ended {} with: {}", type_.plugin, phase, Said(fault)));
      return false;
  }
}

template <class F>
bool PluginNode::CallNow(const char* phase, F&& call) const {
  const bool done = Call(phase, call);
  context_.TellFault();
  return done;
}

bool PluginNode::ReadParameters() {
  if (!object_) {
    context_.NoteFault(ErrorKind::Internal,
                       fmt::format("its plug-in \"{}\" couldn't make its node: {}", type_.plugin, creationFault_));
    context_.TellFault();
    return false;
  }
  auto* host = reinterpret_cast<ZQAPI::BaseObject*>(context_.self.handler.hostObject());
  const bool read =
      CallNow("ReadParameters", [&](auto* fault) { return type_.calls->readParameters(object_, host, fault); });
  retrieveTypes_ = 0;
  CallNow("GetRetrieveTypes",
          [&](auto* fault) { return type_.calls->getRetrieveTypes(object_, &retrieveTypes_, fault); });
  return read;
}

bool PluginNode::ResolveLinks() {
  auto* host = reinterpret_cast<ZQAPI::BaseObject*>(context_.self.handler.hostObject());
  return CallNow("ResolveLinks",
                 [&](auto* fault) { return type_.calls->resolveLinks(object_, host, context_.Server(), fault); });
}

void PluginNode::ReleaseLinks() {
  CallNow("ReleaseLinks", [&](auto* fault) { return type_.calls->releaseLinks(object_, fault); });
  context_.Clear();
}

bool PluginNode::CheckDirty() {
  auto* document = reinterpret_cast<ZQAPI::BaseDocument*>(context_.scene.GetHostDocument());
  return CallNow("CheckDirty", [&](auto* fault) { return type_.calls->checkDirty(object_, document, fault); });
}

void PluginNode::Reset() {
  CallNow("Reset", [&](auto* fault) { return type_.calls->reset(object_, fault); });
}

bool PluginNode::Prepare() {
  return CallNow("Prepare", [&](auto* fault) { return type_.calls->prepare(object_, context_.Server(), fault); });
}

bool PluginNode::Setup() {
  return CallNow("Setup", [&](auto* fault) { return type_.calls->setup(object_, context_.Server(), fault); });
}

void PluginNode::Finish() {
  context_.TellFault();
  CallNow("Finish", [&](auto* fault) { return type_.calls->finish(object_, fault); });
}

bool PluginNode::Ask(ZQAPI::Question question) {
  return CallNow("a question", [&](auto* fault) { return type_.calls->ask(object_, question, fault); });
}

std::int32_t PluginNode::IterationCount() {
  std::int32_t count = 1;
  CallNow("IterationCount", [&](auto* fault) { return type_.calls->iterationCount(object_, &count, fault); });
  return std::clamp(count, 0, 10000);
}

void PluginNode::Advise() const {
  if (type_.state != ZQAPI::State::Unsaved) return;
  context_.self.Warn("no-resume", fmt::format("its plug-in \"{}\" keeps what isn't saved, so an interrupted run can't "
                                              "be resumed; run the scene in one go",
                                              type_.plugin));
}

// --- on workers ------------------------------------------------------------------------------------------------------

bool PluginNode::Process(ZQAPI::ProcessData& data) const {
  return Call("Process", [&](auto* fault) { return type_.calls->process(object_, &data, fault); });
}

void PluginNode::TellPlace(const ZQAPI::PlaceBatch& batch, std::int32_t n, double value) const {
  context_.NoteFault(ErrorKind::Diverged, fmt::format("its plug-in \"{}\" made a value that is no number: {} at "
                                                      "({:.4g}, {:.4g}, {:.4g})",
                                                      type_.plugin, value, batch.x[n], batch.y[n], batch.z[n]));
}

bool PluginNode::HasNumbers(const ZQAPI::ForceBatch& batch) const {
  for (const double* sums : {batch.pushX, batch.pushY, batch.pushZ}) {
    if (AllFinite(sums, batch.count)) continue;
    const double* bad = std::find_if(sums, sums + batch.count, [](double v) { return !std::isfinite(v); });
    TellPlace(batch, static_cast<std::int32_t>(bad - sums), *bad);
    return false;
  }
  return true;
}

void PluginNode::Evaluate(const ZQAPI::ForceBatch& batch) const {
  const auto call = [&](const ZQAPI::ForceBatch& asked) {
    return Call("Evaluate", [&](auto* fault) { return type_.calls->evaluateForce(object_, &asked, fault); });
  };
  if (!call(batch)) return;
  const bool finite =
      AllFinite(batch.pushX, batch.count) && AllFinite(batch.pushY, batch.count) && AllFinite(batch.pushZ, batch.count);
  if (finite) return;
  // The sums may have come so from a force before: the plug-in's own are asked for.
  double own[3][ZQAPI::kBatch] = {};
  ZQAPI::ForceBatch again = batch;
  again.pushX = own[0], again.pushY = own[1], again.pushZ = own[2];
  if (call(again)) HasNumbers(again);
}

void PluginNode::Evaluate(const ZQAPI::ConstraintBatch& batch) const {
  if (!Call("Evaluate", [&](auto* fault) { return type_.calls->evaluateConstraint(object_, &batch, fault); })) return;
  for (std::int32_t n = 0; n < batch.count; ++n) {
    if (batch.asked[n] && !std::isfinite(batch.values[n])) return TellPlace(batch, n, batch.values[n]);
  }
}

// --- state -----------------------------------------------------------------------------------------------------------

bool PluginNode::Save(std::vector<std::uint8_t>& bytes) const {
  const ZQAPI::ByteSink sink{&bytes, [](void* target, const void* from, std::int64_t size) {
                               const auto* first = static_cast<const std::uint8_t*>(from);
                               if (size > 0)
                                 static_cast<std::vector<std::uint8_t>*>(target)->assign(first, first + size);
                             }};
  return CallNow("SaveState", [&](auto* fault) { return type_.calls->saveState(object_, &sink, fault); });
}

bool PluginNode::Load(const std::vector<std::uint8_t>& bytes) {
  return CallNow("LoadState", [&](auto* fault) {
    return type_.calls->loadState(object_, bytes.data(), static_cast<std::int64_t>(bytes.size()), fault);
  });
}

void PluginNode::VisitState(StateVisitor& visitor) {
  if (type_.state == ZQAPI::State::None) return;
  if (type_.state == ZQAPI::State::Unsaved) {
    if (visitor.Reading()) {
      visitor.Refuse(fmt::format("\"{}\" can't go on: its plug-in \"{}\" keeps what isn't saved; run the scene anew",
                                 context_.self.DisplayName(), type_.plugin));
    }
    return;
  }
  std::vector<std::uint8_t> bytes;
  if (!visitor.Reading()) Save(bytes);
  visitor.VisitVector("plugin", bytes);
  if (visitor.Reading() && visitor.Good() && !Load(bytes)) {
    visitor.Refuse(fmt::format("\"{}\" can't go on: its plug-in \"{}\" doesn't take the state that it saved",
                               context_.self.DisplayName(), type_.plugin));
  }
}

void PluginNode::CopyState(const PluginNode& other) {
  std::vector<std::uint8_t> bytes;
  if (type_.state == ZQAPI::State::Saved && other.Save(bytes)) Load(bytes);
}

// --- batches ---------------------------------------------------------------------------------------------------------

void PluginGroups::Gather(PluginContext& context) {
  entries_.clear();
  context.scene.ForEachNode(NODE_PARTICLES, NODE_PARTICLES, [&](iBase& node) {
    auto* group = dynamic_cast<ParticleGroup*>(&node);
    if (!group || !group->IsEnabled()) return;
    auto* handle = context.HandleOf<ZQAPI::ZQParticleGroup>(group);
    for (std::int32_t kind = 0; kind < kParticleKinds; ++kind) {
      if (const ParticleList* list = group->list(kind)) entries_.push_back({list, handle, kind});
    }
  });
}

void PluginGroups::Name(const ParticleList* list, ZQAPI::PlaceBatch& batch) const {
  batch.isParticle = true;
  for (const Entry& entry : entries_) {
    if (entry.list == list) batch.group = entry.group, batch.kind = entry.kind;
  }
}

void BatchPlaces::SetCells(const CellRow& row, std::int32_t first, ZQAPI::PlaceBatch& batch) {
  const Vec3D start = row.Position(first);
  const double cell = row.space->simPerVoxel.x, min = row.space->simMin.x;
  for (std::int32_t n = 0; n < batch.count; ++n) x[n] = (first + n + 0.5) * cell + min;
  std::fill_n(y, batch.count, start.y);
  std::fill_n(z, batch.count, start.z);
  const VecInt3D n = row.space->dims;
  batch.firstIndex = (std::int64_t(row.k) * n.y + row.j) * n.x + first;
  batch.threadIndex = row.threadIndex;
  batch.x = x, batch.y = y, batch.z = z;
}

void BatchPlaces::SetPoints(const Vec3D* points, ZQAPI::PlaceBatch& batch) {
  for (std::int32_t n = 0; n < batch.count; ++n) x[n] = points[n].x, y[n] = points[n].y, z[n] = points[n].z;
  batch.x = x, batch.y = y, batch.z = z;
}

}  // namespace orlix
