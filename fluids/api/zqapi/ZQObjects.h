#pragma once
// The engine's objects as a plug-in sees them. Pointers to them come from the engine, are never freed by a plug-in, and
// hold from ResolveLinks to ReleaseLinks of the node that asked for them. Where a class was asked for something that it
// isn't, operations give nothing: 0, null, false.
//
// Look-ups and what an Edit gives begin on the driving thread: in ResolveLinks, Prepare, Setup. Everything const may be
// called by workers.

#include <string>
#include <vector>

#include "ZQLibrary.h"

namespace ZQAPI {

namespace detail {

// The text that a function of the library writes.
template <class F>
std::string TextOf(F&& write) {
  std::string text(64, '\0');
  for (;;) {
    const std::int64_t length = write(text.data(), static_cast<std::int64_t>(text.size()));
    const bool whole = length < static_cast<std::int64_t>(text.size());
    text.resize(static_cast<std::size_t>(whole ? length : length + 1));
    if (whole) return text;
  }
}

// What a function of the library collects.
template <class F>
std::vector<ZQBase*> NodesOf(F&& collect) {
  std::vector<ZQBase*> nodes(16);
  for (;;) {
    const auto count = static_cast<std::size_t>(collect(nodes.data(), static_cast<std::int32_t>(nodes.size())));
    const bool whole = count <= nodes.size();
    nodes.resize(count);
    if (whole) return nodes;
  }
}

}  // namespace detail

class BaseDocument {
 public:
  BaseDocument() = delete;
  double GetFps() const { return theLibrary->object->GetFps(this); }
};

// An object of the scene file: its settings, by the numbers of its rows.
class BaseObject {
 public:
  BaseObject() = delete;
  std::int32_t GetTypeId() const { return Calls().GetTypeId(this); }
  // Names from the outermost parent on, with "/" between.
  std::string GetPath() const {
    return detail::TextOf([&](char* out, std::int64_t capacity) { return Calls().GetPath(this, out, capacity); });
  }
  bool GetBool(std::int32_t id) const { return Calls().GetBool(this, id); }
  std::int64_t GetInt(std::int32_t id) const { return Calls().GetInt(this, id); }
  double GetReal(std::int32_t id) const { return Calls().GetReal(this, id); }
  Vec3D GetVector(std::int32_t id) const { return Calls().GetVector(this, id); }
  std::string GetText(std::int32_t id) const {
    return detail::TextOf([&](char* out, std::int64_t capacity) { return Calls().GetText(this, id, out, capacity); });
  }
  // The whole path of a row of a file; empty without one.
  std::string GetFile(std::int32_t id) const {
    return detail::TextOf([&](char* out, std::int64_t capacity) { return Calls().GetFile(this, id, out, capacity); });
  }
  BaseObject* GetLink(std::int32_t id) const { return Calls().GetLink(this, id); }
  std::vector<BaseObject*> GetList(std::int32_t id) const {
    std::vector<BaseObject*> objects;
    for (std::int32_t n = 0; n < Calls().GetListCount(this, id); ++n) {
      if (BaseObject* object = Calls().GetListEntry(this, id, n)) objects.push_back(object);
    }
    return objects;
  }
  // The curve of a row at x; 0 without one.
  double GetCurveValue(std::int32_t id, double x) const { return Calls().GetCurveValue(this, id, x); }
  // From the object's own space to host space, host units.
  Matrix GetMatrix() const { return Calls().GetMatrix(this); }
  BaseDocument* GetDocument() const { return Calls().GetDocument(this); }

 private:
  static const ObjectTable& Calls() { return *theLibrary->object; }
};

// A node of the scene.
class ZQBase {
 public:
  ZQBase() = delete;
  BaseObject* GetHostObject() const { return theLibrary->base->GetHostObject(this); }
  NodeBaseType GetNodeBaseType() const { return static_cast<NodeBaseType>(theLibrary->base->GetNodeBaseType(this)); }
  std::int32_t GetNodeSubType() const { return theLibrary->base->GetNodeSubType(this); }
  std::uint32_t GetRetrieveTypes() const { return theLibrary->base->GetRetrieveTypes(this); }
  bool HasRetrieveType(NodeRetrieveType type) const { return (GetRetrieveTypes() & RetrieveBit(type)) != 0; }
  // A cache plays the node back: it can be read and not changed.
  bool IsFromCache() const { return theLibrary->base->IsFromCache(this); }
};

// The scene that the node belongs to.
class ZQScene {
 public:
  ZQScene() = delete;
  BaseObject* GetHostObject() const { return theLibrary->scene->GetHostObject(this); }
  BaseDocument* GetHostDocument() const { return theLibrary->scene->GetHostDocument(this); }
  std::int32_t GetThreadCount() const { return theLibrary->scene->GetThreadCount(this); }
  SimulationSpace GetSimulationSpace() const {
    SimulationSpace space;
    theLibrary->scene->GetSimulationSpace(this, &space);
    return space;
  }
  SimulationInfo GetSimulationInfo() const {
    SimulationInfo info;
    theLibrary->scene->GetSimulationInfo(this, &info);
    return info;
  }
};

// What the engine does for one node of a plug-in.
class ZQServer {
 public:
  ZQServer() = delete;
  // Of the scene; an index of a thread is below 64 in any case.
  std::int32_t GetThreadCount() const { return Calls().GetThreadCount(this); }
  ZQScene* GetScene() { return Calls().GetScene(this); }
  // The node of an object; null when it has none, or the object is null.
  ZQBase* FindNode(const BaseObject* object) { return Calls().FindNode(this, object); }
  ZQVolume* FindVolume(const BaseObject* object) { return Calls().FindVolume(this, object); }
  ZQVolume* FindMultiVolume(const BaseObject* object) { return Calls().FindMultiVolume(this, object); }
  // The object's channels: one of a channel's object, the velocity of a solver's.
  std::vector<ZQBase*> FindChannels(const BaseObject* object) {
    return detail::NodesOf(
        [&](ZQBase** out, std::int32_t most) { return Calls().FindChannels(this, object, out, most); });
  }
  // What the constraints of the node's own list leave of weights[n] at each place. From Setup to Finish, also by
  // workers.
  void Weigh(const PlaceBatch& places, double* weights) { Calls().Weigh(this, places, weights); }
  // Tells the user, once a run for each key: what happens, and after a semicolon the remedy.
  void Warn(const char* key, const std::string& text) { Calls().Warn(this, key, text.c_str()); }

 private:
  static const ServerTable& Calls() { return *theLibrary->server; }
};

// A scalar quantity on a grid.
class ZQScalarChannel : public ZQBase {
 public:
  double GetMinimum() const { return Calls().GetMinimum(this); }
  double GetMaximum() const { return Calls().GetMaximum(this); }
  double GetBackground() const { return Calls().GetBackground(this); }
  bool ContainsPoint(const Vec3D& p) const { return Calls().ContainsPoint(this, p); }
  // Trilinear.
  double SamplePoint(const Vec3D& p) const { return Calls().SamplePoint(this, p); }
  // The grid of this sub-step, to be read; empty while there is none.
  ZQGrid GetGrid() const {
    ZQGrid grid;
    Calls().GetGrid(this, &grid);
    return grid;
  }
  // The same, to be changed; empty also where a cache plays the channel.
  ZQGrid EditGrid() {
    ZQGrid grid;
    Calls().EditGrid(this, &grid);
    return grid;
  }

 protected:
  static const ScalarChannelTable& Calls() { return *theLibrary->scalarChannel; }
};

class ZQFuelChannel : public ZQScalarChannel {
 public:
  double GetIgnitionTemperature() const { return Calls().GetIgnitionTemperature(this); }  // K
};

class ZQFireChannel : public ZQScalarChannel {
 public:
  double GetFlameTemperature() const { return Calls().GetFlameTemperature(this); }
  double GetCoolingTimeCold() const { return Calls().GetCoolingTimeCold(this); }  // s
  double GetCoolingTimeHot() const { return Calls().GetCoolingTimeHot(this); }    // s
};

// A vector quantity: a grid a component. Those of a solver's velocity stand on the faces of cells.
class ZQVectorChannel : public ZQBase {
 public:
  Vec3D GetMinimum() const { return Calls().GetMinimum(this); }
  Vec3D GetMaximum() const { return Calls().GetMaximum(this); }
  Vec3D GetBackground() const { return Calls().GetBackground(this); }
  bool ContainsPoint(const Vec3D& p) const { return Calls().ContainsPoint(this, p); }
  Vec3D SamplePoint(const Vec3D& p) const { return Calls().SamplePoint(this, p); }
  ZQGrid GetGrid(std::int32_t component) const {
    ZQGrid grid;
    Calls().GetGrid(this, component, &grid);
    return grid;
  }
  ZQGrid EditGrid(std::int32_t component) {
    ZQGrid grid;
    Calls().EditGrid(this, component, &grid);
    return grid;
  }

 private:
  static const VectorChannelTable& Calls() { return *theLibrary->vectorChannel; }
};

// A region of space with a signed distance, negative inside, or several of them.
class ZQVolume : public ZQBase {
 public:
  bool IsInside(const Vec3D& p) const { return Calls().IsInside(this, p, 0); }
  // The distance is below threshold, m.
  bool IsInsideThreshold(const Vec3D& p, float threshold) const { return Calls().IsInside(this, p, threshold); }
  double GetDistance(const Vec3D& p) const { return Calls().GetDistance(this, p); }
  // As a share of the largest distance inside.
  double GetDepth(const Vec3D& p) const { return Calls().GetDepth(this, p); }
  // The unit gradient of the distance.
  Vec3D GetNormal(const Vec3D& p) const { return Calls().GetNormal(this, p); }
  // The distances at the corners of cells, to be read.
  ZQGrid GetLevelSet() const {
    ZQGrid grid;
    Calls().GetLevelSet(this, &grid);
    return grid;
  }
  bool IsMultiVolume() const { return Calls().IsMultiVolume(this); }
  bool IsDynamicBody() const { return Calls().IsDynamicBody(this); }
  bool IsDrivenBody() const { return Calls().IsDrivenBody(this); }
  bool IsStaticBody() const { return Calls().IsStaticBody(this); }
  double GetCellSize() const { return Calls().GetCellSize(this); }  // m
  void GetResolution(std::int32_t (&cells)[3]) const { Calls().GetResolution(this, cells); }
  // Moves a point from inside to where the distance is -offset cells. True when it was inside.
  bool MovePoint(Vec3D& p, double offset) const { return Calls().MovePoint(this, &p, offset); }
  // True when p is inside; where it would come out, and the normal there.
  bool Collide(const Vec3D& p, VolumeHit& hit) const { return Calls().Collide(this, p, &hit); }
  // Of the body.
  Matrix GetMatrix() const { return Calls().GetMatrix(this); }
  // Of the solid at p, m/s.
  Vec3D GetVelocity(const Vec3D& p) const { return Calls().GetVelocity(this, p); }
  // In this sub-step: displacement, m, and rotation vector, rad.
  Vec3D GetLinearMotion() const { return Calls().GetLinearMotion(this); }
  Vec3D GetAngularMotion() const { return Calls().GetAngularMotion(this); }

 private:
  static const VolumeTable& Calls() { return *theLibrary->volume; }
};

// The surface of a level set as triangles.
class ZQMesher : public ZQBase {
 public:
  Matrix GetMatrix() const { return theLibrary->mesher->GetMatrix(this); }
  ZQMesh GetMesh() const {
    ZQMesh mesh;
    theLibrary->mesher->GetMesh(this, &mesh);
    return mesh;
  }
  std::int32_t GetPolygonCount() const { return GetMesh().polygonCount; }
  std::int32_t GetPointCount() const { return GetMesh().pointCount; }
};

// A constraint of the scene, for a node that asks one by itself.
class ZQConstraint : public ZQBase {
 public:
  bool IsInverted() const { return theLibrary->constraint->IsInverted(this); }
  // Before and after a pass, on the driving thread.
  void Prepare() { theLibrary->constraint->Prepare(this); }
  void Finish() { theLibrary->constraint->Finish(this); }
  // Scales value. False ends a chain of constraints.
  bool Evaluate(const Vec3D& position, double& value, std::int32_t thread) const {
    return theLibrary->constraint->Evaluate(this, position, &value, thread);
  }
};

// One property of a chunk of particles. Empty where no particle of the chunk ever had it.
template <class T>
class ZQColumn {
 public:
  ZQColumn() = default;
  explicit ZQColumn(const ColumnData& data) : values_(static_cast<T*>(data.values)), present_(data.present) {}
  explicit operator bool() const { return values_ != nullptr; }
  bool Has(std::int32_t row) const { return values_ && (present_[row >> 6] >> (row & 63) & 1) != 0; }
  T Get(std::int32_t row, const T& fallback) const { return Has(row) ? values_[row] : fallback; }
  // Writes where the particle has the property.
  void Set(std::int32_t row, const T& value) const {
    if (Has(row)) values_[row] = value;
  }
  // Gives the particle the property. Only on a column of a Need; empty ones of it mean that there is no room.
  void Put(std::int32_t row, const T& value) const {
    values_[row] = value;
    present_[row >> 6] |= std::uint64_t(1) << (row & 63);
  }

 private:
  T* values_ = nullptr;
  std::uint64_t* present_ = nullptr;
};

// Rows [begin, end) of a chunk of particles; row r is the particle first + r of its group and kind. Columns stand at
// row 0. Workers take rows of their own: see ForEachRows in ZQIterators.h.
class ZQParticleRows {
 public:
  ZQParticleRows(ZQParticleGroup* owner, std::int32_t ofKind, const ChunkData& chunk)
      : group(owner), kind(ofKind), first(chunk.first), end(chunk.count), data_(chunk) {}

  ZQParticleGroup* group;
  std::int32_t kind, first, begin = 0, end;

  const Vec3D* Positions() const { return data_.positions; }
  const Vec3D* Velocities() const { return data_.velocities; }
  const std::int32_t* Ids() const { return data_.ids; }
  const std::uint16_t* Flags() const { return data_.flags; }
  bool IsAlive(std::int32_t row) const { return (data_.flags[row] & kAlive) != 0; }
  // To be changed; null where a cache plays the particles.
  Vec3D* EditPositions() const { return static_cast<Vec3D*>(Edit(ColumnPositions)); }
  Vec3D* EditVelocities() const { return static_cast<Vec3D*>(Edit(ColumnVelocities)); }
  // Clear kAlive to kill; leave the other bits.
  std::uint16_t* EditFlags() const { return static_cast<std::uint16_t*>(Edit(ColumnFlags)); }

  // A property by its number; from 75 on that of a property node. Not for velocity and position.
  ZQColumn<double> Reals(std::int32_t id, const ZQBase* owner = nullptr) const {
    return Property<double>(id, owner, TypeReal, false);
  }
  ZQColumn<Vec3D> Vectors(std::int32_t id, const ZQBase* owner = nullptr) const {
    return Property<Vec3D>(id, owner, TypeVector, false);
  }
  ZQColumn<std::uint8_t> States(std::int32_t id, const ZQBase* owner = nullptr) const {
    return Property<std::uint8_t>(id, owner, TypeState, false);
  }
  // The same, made where it isn't there yet.
  ZQColumn<double> NeedReals(std::int32_t id, const ZQBase* owner = nullptr) const {
    return Property<double>(id, owner, TypeReal, true);
  }
  ZQColumn<Vec3D> NeedVectors(std::int32_t id, const ZQBase* owner = nullptr) const {
    return Property<Vec3D>(id, owner, TypeVector, true);
  }
  ZQColumn<std::uint8_t> NeedStates(std::int32_t id, const ZQBase* owner = nullptr) const {
    return Property<std::uint8_t>(id, owner, TypeState, true);
  }

 private:
  void* Edit(ChunkColumn column) const { return theLibrary->particleGroup->EditColumn(group, kind, &data_, column); }
  template <class T>
  ZQColumn<T> Property(std::int32_t id, const ZQBase* owner, PropertyType type, bool make) const {
    ColumnData column;
    theLibrary->particleGroup->GetProperty(group, &data_, id, owner, type, make, &column);
    return ZQColumn<T>(column);
  }

  ChunkData data_;
};

// One particle, by value. For many, go by rows.
class ZQParticle {
 public:
  ZQParticle() = default;
  ZQParticle(ZQParticleGroup* group, std::int32_t kind, std::int32_t index);

  explicit operator bool() const { return rows_.group != nullptr; }
  std::int32_t GetIndex() const { return rows_.first + row_; }
  std::int32_t GetId() const { return rows_.Ids()[row_]; }
  bool IsAlive() const { return rows_.IsAlive(row_); }
  Vec3D GetPosition() const { return rows_.Positions()[row_]; }
  Vec3D GetVelocity() const { return rows_.Velocities()[row_]; }
  // False where a cache plays the particles.
  bool SetPosition(const Vec3D& position) const { return Write(rows_.EditPositions(), position); }
  bool SetVelocity(const Vec3D& velocity) const { return Write(rows_.EditVelocities(), velocity); }
  bool Kill() const {
    std::uint16_t* flags = rows_.EditFlags();
    if (flags) flags[row_] = static_cast<std::uint16_t>(flags[row_] & ~kAlive);
    return flags != nullptr;
  }
  // Frames left to live; false when the particle doesn't age.
  bool GetLife(double& frames) const { return GetDouble(PropertyAge, frames); }
  // A value stays, and false is given, where the particle lacks the property.
  bool GetDouble(std::int32_t id, double& value) const { return Read(rows_.Reals(id), value); }
  bool GetVector(std::int32_t id, Vec3D& value) const { return Read(rows_.Vectors(id), value); }
  bool GetBool(std::int32_t id, bool& value) const {
    const ZQColumn<std::uint8_t> column = rows_.States(id);
    if (column.Has(row_)) value = column.Get(row_, 0) != 0;
    return column.Has(row_);
  }
  bool SetDouble(std::int32_t id, double value) const { return Store(rows_.Reals(id), value); }
  bool SetVector(std::int32_t id, const Vec3D& value) const { return Store(rows_.Vectors(id), value); }
  bool SetBool(std::int32_t id, bool value) const { return Store(rows_.States(id), std::uint8_t{value}); }

 private:
  bool Write(Vec3D* column, const Vec3D& value) const {
    if (column) column[row_] = value;
    return column != nullptr;
  }
  template <class T>
  bool Read(const ZQColumn<T>& column, T& value) const {
    if (column.Has(row_)) value = column.Get(row_, value);
    return column.Has(row_);
  }
  template <class T>
  bool Store(const ZQColumn<T>& column, const T& value) const {
    column.Set(row_, value);
    return column.Has(row_);
  }

  ZQParticleRows rows_{nullptr, -1, ChunkData()};
  std::int32_t row_ = 0;
};

class ZQParticleIterator;

// A group of particles: a population of each kind. Indices stay until the end of the sub-step.
class ZQParticleGroup : public ZQBase {
 public:
  std::int32_t GetCount(std::int32_t kind) const { return Calls().GetCount(this, kind); }
  // Empty when there is none of this index.
  ZQParticle GetParticle(std::int32_t index, std::int32_t kind) { return {this, kind, index}; }
  // The rows of the chunk that holds the particle of this index; false when there is none.
  bool GetChunk(std::int32_t kind, std::int32_t index, ChunkData& chunk) const {
    return Calls().GetChunk(this, kind, index, &chunk);
  }
  ZQParticleIterator GetIterator(std::int32_t kind, std::int32_t threadCount);
  // On the driving thread, before FindNeighbours of the pass: most is how many a query gives. False without particles.
  bool PrepareNeighbours(std::int32_t kind, std::int32_t most) { return Calls().PrepareNeighbours(this, kind, most); }
  // Nearest first, strictly nearer than radius.
  NeighborData FindNeighbours(std::int32_t kind, const Vec3D& p, double radius, std::int32_t thread) const {
    NeighborData found;
    Calls().FindNeighbours(this, kind, p, radius, thread, &found);
    return found;
  }

 private:
  static const ParticleGroupTable& Calls() { return *theLibrary->particleGroup; }
};

inline ZQParticle::ZQParticle(ZQParticleGroup* group, std::int32_t kind, std::int32_t index) {
  ChunkData chunk;
  if (!group || !group->GetChunk(kind, index, chunk)) return;
  rows_ = ZQParticleRows(group, kind, chunk);
  row_ = index - chunk.first;
}

// --- free functions

inline void SimToHost(const ZQScene* scene, Vec3D& v) {
  if (scene) v = v * scene->GetSimulationSpace().hostPerSim;
}
inline void HostToSim(const ZQScene* scene, Vec3D& v) {
  if (scene) v = v * scene->GetSimulationSpace().simPerHost;
}
// The object's node if it is of that kind. The kind is that of the class that the result may be cast to.
inline ZQBase* FindNodeByKind(ZQScene* scene, const BaseObject* object, NodeKind kind) {
  return theLibrary->FindNodeByKind(scene, object, kind);
}
// The enabled nodes of the kind in an object's list of this number, in its order; of the whole scene when object is
// null.
inline std::vector<ZQBase*> CollectNodesByKind(ZQScene* scene, const BaseObject* object, std::int32_t listId,
                                               NodeKind kind) {
  return detail::NodesOf([&](ZQBase** out, std::int32_t most) {
    return theLibrary->CollectNodesByKind(scene, object, listId, kind, out, most);
  });
}

}  // namespace ZQAPI
