#pragma once
// The root class of all nodes. A node is a small engine-side object that mirrors one host object beneath the scene
// root.
//
// Its life: constructed by the factory; in each scene pass ReadParameters, ResolveLinks, CheckDirty; in each run of a
// stage Prepare, Setup, Process, Finish (iObject); at the end of a frame ReleaseLinks; destroyed when its host object
// leaves the tree.

#include <cstdint>
#include <map>
#include <optional>
#include <string>

#include "fluids/grids/GridSpace.h"
#include "fluids/scene/C4D_InterfaceHandler.h"
#include "fluids/scene/SimulationInfo.h"
#include "fluids/scene/StateVisitor.h"

namespace orlix {

class OrlixScene;
struct SubstepReport;

// Bytes: what is kept from one sub-step to the next, and what is borrowed beside it for a while.
struct MemoryNeed {
  double kept = 0, scratch = 0;
};

// The scene list to which a class belongs. A class that is used only inside another node has none.
enum NodeBaseType : std::int32_t {
  NODE_NONE = 0,
  NODE_CHANNEL = 1,
  NODE_VOLUME = 2,
  NODE_EMITTER = 3,
  NODE_OPERATOR = 4,
  NODE_SOLVER = 5,
  NODE_PARTICLES = 6,
  NODE_FORCE = 7,
  NODE_CACHE = 8,
  NODE_SETTINGS = 10,
  NODE_HELPER = 11,
  NODE_ALL = 12  // in Retrieve: all lists
};

// Bit numbers of what a node offers.
enum NodeRetrieveType : std::int32_t {
  RETRIEVE_SCALAR = 1,
  RETRIEVE_VECTOR = 2,
  RETRIEVE_STATE = 3,
  RETRIEVE_GRID = 6,
  RETRIEVE_PARTICLE = 7,
  RETRIEVE_CONSTRAINT = 8,
  RETRIEVE_INSTANT = 9,
  RETRIEVE_PROPERTY = 10,
  RETRIEVE_MESH = 12,
  RETRIEVE_LEVELSET = 13,
  RETRIEVE_VOLUME = 14,
  RETRIEVE_ANY = 31
};
constexpr std::uint32_t RetrieveBit(NodeRetrieveType type) { return 1u << type; }

enum NodeFlag : std::uint32_t {
  NodeActive = 1,   // has valid data and does real work this step
  NodeEnabled = 2,  // its host object exists; only enabled nodes are found, collected or run
  NodeChanged = 4,  // a volume's geometry changed in this step
  NodeDirty = 8,    // the host object changed since the last check, or a neighbour marked this node
  NodeDirtyChecked = 16,
  NodeFromCache = 32,   // data is played back and not to be computed
  NodeHasBounds = 64,   // contributes to the automatic container bounds
  NodeHardDirty = 128,  // the dirty mark came with a demand for a reset
  NodeOwnBlock = 256,   // starts a new execution block in its stage
  NodeInvert = 0x400    // alignment: the result is inverted
};

class iBase {
 public:
  // A small table from a port number to a node (not owned).
  class iPortData {
   public:
    virtual ~iPortData() = default;
    iBase* Get(std::int32_t port) const {
      const auto found = ports_.find(port);
      return found == ports_.end() ? nullptr : found->second;
    }
    void Set(std::int32_t port, iBase* node) { ports_[port] = node; }
    void Clear() { ports_.clear(); }

   private:
    std::map<std::int32_t, iBase*> ports_;
  };

  iBase(BaseList2D* hostObject, OrlixScene& owner);
  virtual ~iBase() = default;
  iBase(const iBase&) = delete;
  iBase& operator=(const iBase&) = delete;

  // Steps the iteration counter and says whether one more round is to run.
  virtual bool NextIteration();
  // Throws away all simulated state.
  virtual void ResetSimulation() {}
  // Drops data that depends on the current container.
  virtual void ClearState(bool deactivate);
  // Widens the box by the node's own extent, in simulation space.
  virtual void ExtendBounds(Vec3D&, Vec3D&) {}
  // Work at the end of a sub-step.
  virtual void AfterStep() {}
  // Resizes the node's data to a new container, in simulation space. False when it failed.
  virtual bool ApplyBounds(const Vec3D&, const Vec3D&) { return true; }
  virtual std::int32_t GetNodeSubType() const { return 0; }
  virtual std::int32_t GetNodeBaseType() const { return NODE_NONE; }
  virtual void GetRetrieveTypes(std::uint32_t&) const {}
  virtual bool RunsSerially() const { return false; }
  virtual bool IsIterated() const { return false; }
  virtual bool PreparesEachIteration() const { return false; }
  virtual bool EvaluatesOnUpdate() const { return false; }
  // Its stage comes while its duration lets it rest.
  virtual void RestsInStage() {}
  virtual bool ResetWhenDirty() const { return false; }
  // Reads the node's settings; the user's priority is an offset to the class's, a stage of the user's replaces the
  // class's. The scene calls it through Reread. False without a host object.
  virtual bool ReadParameters();
  // The same, from the stages and the priority on that the class gave itself when it was made: what the user adds
  // doesn't add up from one reading to the next.
  bool Reread();
  // Turns link parameters into node pointers, valid until ReleaseLinks. Runs after ReadParameters of all nodes.
  virtual bool ResolveLinks() { return handler.HasObject(); }
  // Tells, by Warn, what in the node's settings and links can't work. Runs after ResolveLinks of all nodes, in each
  // frame and where a scene is only checked; it simulates nothing.
  virtual void Advise() {}
  // At the end of a run: tells what could be known only then.
  virtual void Conclude() {}
  // Whether it carries this channel, or the velocity of this solver, through a velocity. Between ResolveLinks and
  // ReleaseLinks.
  virtual bool Moves(const iBase&) const { return false; }
  // Whether it is a cache that its settings tell to play this node back.
  virtual bool PlaysBack(const iBase&) const { return false; }
  virtual void ReleaseLinks() { SetFlag(NodeDirtyChecked, false); }
  virtual void CheckDirty();
  virtual bool ComesBefore(const iBase& other) const { return priority < other.priority; }
  virtual bool IsDirty() const { return HasFlag(NodeDirty); }

  // Lists all simulated state: what the next sub-step reads that isn't read from settings or computed anew.
  virtual void VisitState(StateVisitor&) {}
  // Flags and counters of the node, and its state. A node calls it, through VisitPart, on each node that it embeds.
  void VisitNode(StateVisitor& visitor);
  static void VisitPart(StateVisitor& visitor, const char* name, iBase& part) {
    visitor.Begin(name);
    part.VisitNode(visitor);
    visitor.End();
  }
  // Lists the grids that this node may have written in the run that just ended, to be tested for NaN. By default, its
  // own state.
  virtual void VisitOutputs(StateVisitor& visitor) { VisitState(visitor); }
  // Bytes that are kept from one sub-step to the next beside the state, and computed anew when they are missing.
  virtual std::int64_t DerivedBytes() const { return 0; }
  // Adds what the node tells of itself to a sub-step's statistics.
  virtual void AddToReport(SubstepReport&) {}
  // What the node will take in a container of these cells; 0 where it follows something else.
  virtual MemoryNeed MemoryFor(const VecInt3D&) const { return {}; }

  void SetChanged(bool changed) { SetFlag(NodeChanged, changed); }
  bool HasFlag(std::uint32_t flag) const { return (flags & flag) != 0; }
  void SetFlag(std::uint32_t flag, bool on) { flags = on ? flags | flag : flags & ~flag; }
  bool IsActive() const { return HasFlag(NodeActive); }
  bool IsEnabled() const { return HasFlag(NodeEnabled); }
  // Gives the new dirty count. A node calls it on the nodes that depend on it.
  std::uint32_t MarkDirty(bool hard);
  // Type 31 gives false: callers treat it as no test.
  bool HasRetrieveType(std::int32_t type) const;
  std::uint32_t RetrieveMask() const {
    std::uint32_t mask = 0;
    GetRetrieveTypes(mask);
    return mask;
  }

  OrlixScene& GetScene() const { return *scene; }
  const SimulationInfo& GetSimulationInfo() const { return *simulationInfo; }
  const GridSpace& GetSimulationSpace() const;
  // What messages call the node: its host object's path.
  std::string DisplayName() const;
  // For the user, once a run for each key: what happens and the remedy. See Warnings.h.
  void Warn(const std::string& key, const std::string& text) const;

  C4D_InterfaceHandler handler;
  std::uint32_t flags = NodeActive | NodeEnabled | NodeHasBounds;
  std::uint32_t dirtyCount = 100000000;  // no host counter has this value: the first check always finds a change
  std::uint32_t stageMask = 0;           // bit n: takes part in stage n
  std::int32_t priority = 0;             // smaller runs earlier inside a stage
  std::int16_t iteration = -1, iterationCount = 1;

 private:
  struct ClassPlace {
    std::uint32_t stages;
    std::int32_t priority;
  };
  std::optional<ClassPlace> classPlace_;

 protected:
  OrlixScene* scene;
  const SimulationInfo* simulationInfo;
};

constexpr std::uint32_t StageBit(int stage) { return 1u << stage; }

// The rows that nodes share: transform, constraint list, duration, execution settings. A row acts where a type has it:
// nodes with a stage are passed over while their duration says so (StageRunner), a node that others call asks for it
// itself, and each asks its constraints itself.
std::span<const Parameter> CommonNodeParameters();
// Of a node that is confined in space and has its time from its caller, or a duration of its own.
std::span<const Parameter> ConfinedNodeParameters();
// Of a node that acts at times, and then everywhere.
std::span<const Parameter> TimedNodeParameters();
// Of a node that others only read, or that acts always and everywhere.
std::span<const Parameter> PlainNodeParameters();

inline constexpr std::int32_t kDurationId = 950;
inline constexpr std::int32_t kConstraintsId = 2502;
inline constexpr std::int32_t kIterationsId = 2604;
inline constexpr std::int32_t kStageId = 10001;
inline constexpr std::int32_t kPriorityId = 10002;
inline constexpr std::int32_t kOwnBlockId = 10003;

}  // namespace orlix
