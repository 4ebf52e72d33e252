#pragma once
// The foreign object of one node, and its phases: what PluginForce, PluginConstraint and PluginOperator share.
//
// An operation of the foreign object that throws ends the simulation by the node's name; one that gives false makes the
// node idle. Nothing of it is called after it threw, until the next phase of the driving thread.

#include "fluids/api/PluginContext.h"
#include "fluids/api/PluginType.h"

namespace orlix {

class PluginNode {
 public:
  // The node's object is of a PluginType.
  PluginNode(iBase& node, OrlixScene& owner);
  ~PluginNode();
  PluginNode(const PluginNode&) = delete;
  PluginNode& operator=(const PluginNode&) = delete;

  const PluginType& type() const { return type_; }
  PluginContext& context() const { return context_; }

  // --- phases, on the driving thread
  bool ReadParameters();
  bool ResolveLinks();
  void ReleaseLinks();
  bool CheckDirty();
  void Reset();
  bool Prepare();
  bool Setup();
  // Tells what workers noted, too.
  void Finish();
  bool Ask(ZQAPI::Question question);
  std::int32_t IterationCount();
  // As of the last ReadParameters.
  std::uint32_t retrieveTypes() const { return retrieveTypes_; }
  void Advise() const;

  // --- on workers
  bool Process(ZQAPI::ProcessData& data) const;
  void Evaluate(const ZQAPI::ForceBatch& batch) const;
  void Evaluate(const ZQAPI::ConstraintBatch& batch) const;

  void VisitState(StateVisitor& visitor);
  // Takes over what another node of the same type keeps.
  void CopyState(const PluginNode& other);

 private:
  template <class F>
  bool Call(const char* phase, F&& call) const;
  // The same, and tells a fault at once.
  template <class F>
  bool CallNow(const char* phase, F&& call) const;
  bool Save(std::vector<std::uint8_t>& bytes) const;
  bool Load(const std::vector<std::uint8_t>& bytes);
  bool HasNumbers(const ZQAPI::ForceBatch& batch) const;
  void TellPlace(const ZQAPI::PlaceBatch& batch, std::int32_t n, double value) const;

  const PluginType& type_;
  mutable PluginContext context_;
  void* object_ = nullptr;
  std::string creationFault_;
  std::uint32_t retrieveTypes_ = 0;
};

// The particles of a scene by their lists: where a batch of a list belongs.
class PluginGroups {
 public:
  void Gather(PluginContext& context);
  // The group and the kind of a list in a batch; nothing for places without one.
  void Name(const ParticleList* list, ZQAPI::PlaceBatch& batch) const;

 private:
  struct Entry {
    const ParticleList* list;
    ZQAPI::ZQParticleGroup* group;
    std::int32_t kind;
  };
  std::vector<Entry> entries_;
};

// Places of a batch, as it takes them.
struct BatchPlaces {
  // Centres of the cells [first, first + count) of a row.
  void SetCells(const CellRow& row, std::int32_t first, ZQAPI::PlaceBatch& batch);
  void SetPoints(const Vec3D* points, ZQAPI::PlaceBatch& batch);

  double x[ZQAPI::kBatch], y[ZQAPI::kBatch], z[ZQAPI::kBatch];
};

}  // namespace orlix
