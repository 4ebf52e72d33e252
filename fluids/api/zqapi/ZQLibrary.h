#pragma once
// The library: what the engine offers to plug-ins, as tables of functions. Their order stays; later versions only add
// at the end. Authors call through the classes of ZQObjects.h, each of whose operations is an entry here with the
// engine's object as first argument.

#include "ZQRecords.h"

namespace ZQAPI {

constexpr std::uint32_t kLibraryId = 1033628;
// Thousands change when a plug-in has to be built anew, the rest when something was added.
constexpr std::uint32_t kLibraryVersion = 25000;

class BaseDocument;
class BaseObject;
class ZQBase;
class ZQConstraint;
class ZQMesher;
class ZQScalarChannel;
class ZQScene;
class ZQServer;
class ZQVectorChannel;
class ZQVolume;
class ZQVolumeMesh;

struct ObjectTable {
  std::int32_t (*GetTypeId)(const BaseObject*);
  std::int64_t (*GetPath)(const BaseObject*, char* out, std::int64_t capacity);
  bool (*GetBool)(const BaseObject*, std::int32_t id);
  std::int64_t (*GetInt)(const BaseObject*, std::int32_t id);
  double (*GetReal)(const BaseObject*, std::int32_t id);
  Vec3D (*GetVector)(const BaseObject*, std::int32_t id);
  std::int64_t (*GetText)(const BaseObject*, std::int32_t id, char* out, std::int64_t capacity);
  std::int64_t (*GetFile)(const BaseObject*, std::int32_t id, char* out, std::int64_t capacity);
  BaseObject* (*GetLink)(const BaseObject*, std::int32_t id);
  std::int32_t (*GetListCount)(const BaseObject*, std::int32_t id);
  BaseObject* (*GetListEntry)(const BaseObject*, std::int32_t id, std::int32_t n);
  double (*GetCurveValue)(const BaseObject*, std::int32_t id, double x);
  Matrix (*GetMatrix)(const BaseObject*);
  BaseDocument* (*GetDocument)(const BaseObject*);
  double (*GetFps)(const BaseDocument*);
};

struct BaseTable {
  BaseObject* (*GetHostObject)(const ZQBase*);
  std::int32_t (*GetNodeBaseType)(const ZQBase*);
  std::int32_t (*GetNodeSubType)(const ZQBase*);
  std::uint32_t (*GetRetrieveTypes)(const ZQBase*);
  bool (*IsFromCache)(const ZQBase*);
};

struct ServerTable {
  std::int32_t (*GetThreadCount)(const ZQServer*);
  ZQBase* (*FindNode)(ZQServer*, const BaseObject*);
  ZQVolume* (*FindVolume)(ZQServer*, const BaseObject*);
  ZQVolume* (*FindMultiVolume)(ZQServer*, const BaseObject*);
  std::int32_t (*FindChannels)(ZQServer*, const BaseObject*, ZQBase** out, std::int32_t capacity);
  ZQScene* (*GetScene)(ZQServer*);
  void (*Weigh)(ZQServer*, const PlaceBatch&, double* weights);
  void (*Warn)(ZQServer*, const char* key, const char* text);
};

struct SceneTable {
  BaseObject* (*GetHostObject)(const ZQScene*);
  BaseDocument* (*GetHostDocument)(const ZQScene*);
  std::int32_t (*GetThreadCount)(const ZQScene*);
  void (*GetSimulationSpace)(const ZQScene*, SimulationSpace*);
  void (*GetSimulationInfo)(const ZQScene*, SimulationInfo*);
};

struct ScalarChannelTable {
  double (*GetMinimum)(const ZQScalarChannel*);
  double (*GetMaximum)(const ZQScalarChannel*);
  double (*GetBackground)(const ZQScalarChannel*);
  bool (*ContainsPoint)(const ZQScalarChannel*, const Vec3D&);
  double (*SamplePoint)(const ZQScalarChannel*, const Vec3D&);
  bool (*GetGrid)(const ZQScalarChannel*, ZQGrid*);
  bool (*EditGrid)(ZQScalarChannel*, ZQGrid*);
  double (*GetIgnitionTemperature)(const ZQScalarChannel*);
  double (*GetFlameTemperature)(const ZQScalarChannel*);
  double (*GetCoolingTimeCold)(const ZQScalarChannel*);
  double (*GetCoolingTimeHot)(const ZQScalarChannel*);
};

struct VectorChannelTable {
  Vec3D (*GetMinimum)(const ZQVectorChannel*);
  Vec3D (*GetMaximum)(const ZQVectorChannel*);
  Vec3D (*GetBackground)(const ZQVectorChannel*);
  bool (*ContainsPoint)(const ZQVectorChannel*, const Vec3D&);
  Vec3D (*SamplePoint)(const ZQVectorChannel*, const Vec3D&);
  bool (*GetGrid)(const ZQVectorChannel*, std::int32_t component, ZQGrid*);
  bool (*EditGrid)(ZQVectorChannel*, std::int32_t component, ZQGrid*);
};

struct VolumeTable {
  bool (*IsInside)(const ZQVolume*, const Vec3D&, float threshold);
  double (*GetDistance)(const ZQVolume*, const Vec3D&);
  double (*GetDepth)(const ZQVolume*, const Vec3D&);
  Vec3D (*GetNormal)(const ZQVolume*, const Vec3D&);
  bool (*GetLevelSet)(const ZQVolume*, ZQGrid*);
  bool (*IsMultiVolume)(const ZQVolume*);
  bool (*IsDynamicBody)(const ZQVolume*);
  bool (*IsDrivenBody)(const ZQVolume*);
  bool (*IsStaticBody)(const ZQVolume*);
  double (*GetCellSize)(const ZQVolume*);
  void (*GetResolution)(const ZQVolume*, std::int32_t* cells);
  bool (*MovePoint)(const ZQVolume*, Vec3D* p, double offset);
  bool (*Collide)(const ZQVolume*, const Vec3D&, VolumeHit*);
  Matrix (*GetMatrix)(const ZQVolume*);
  Vec3D (*GetVelocity)(const ZQVolume*, const Vec3D&);
  Vec3D (*GetLinearMotion)(const ZQVolume*);
  Vec3D (*GetAngularMotion)(const ZQVolume*);
};

// What of a chunk of particles lies in memory; see ZQParticleRows.
struct ChunkData {
  void* chunk = nullptr;
  void* list = nullptr;
  std::int32_t first = 0, count = 0;
  const Vec3D *positions = nullptr, *velocities = nullptr;
  const std::int32_t* ids = nullptr;
  const std::uint16_t* flags = nullptr;
};
enum ChunkColumn : std::int32_t { ColumnPositions, ColumnVelocities, ColumnFlags };
enum PropertyType : std::int32_t { TypeReal, TypeVector, TypeState };
struct ColumnData {
  void* values = nullptr;
  std::uint64_t* present = nullptr;  // a bit a row
};

struct ParticleGroupTable {
  std::int32_t (*GetCount)(const ZQParticleGroup*, std::int32_t kind);
  bool (*GetChunk)(const ZQParticleGroup*, std::int32_t kind, std::int32_t index, ChunkData*);
  void* (*EditColumn)(ZQParticleGroup*, std::int32_t kind, const ChunkData*, ChunkColumn);
  bool (*GetProperty)(ZQParticleGroup*, const ChunkData*, std::int32_t id, const ZQBase* owner, PropertyType, bool make,
                      ColumnData*);
  bool (*PrepareNeighbours)(ZQParticleGroup*, std::int32_t kind, std::int32_t most);
  void (*FindNeighbours)(const ZQParticleGroup*, std::int32_t kind, const Vec3D&, double radius, std::int32_t thread,
                         NeighborData*);
};

struct ConstraintTable {
  bool (*IsInverted)(const ZQConstraint*);
  void (*Prepare)(ZQConstraint*);
  bool (*Evaluate)(const ZQConstraint*, const Vec3D&, double* value, std::int32_t thread);
  void (*Finish)(ZQConstraint*);
};

struct MesherTable {
  Matrix (*GetMatrix)(const ZQMesher*);
  bool (*GetMesh)(const ZQMesher*, ZQMesh*);
};

struct Library {
  std::uint32_t id, version, size;
  const MesherTable* mesher;
  const VolumeTable* volume;
  const VectorChannelTable* vectorChannel;
  const ScalarChannelTable* scalarChannel;
  const ConstraintTable* constraint;
  const BaseTable* base;
  const ParticleGroupTable* particleGroup;
  const SceneTable* scene;
  const ServerTable* server;
  const ObjectTable* object;
  ZQBase* (*FindNodeByKind)(ZQScene*, const BaseObject*, NodeKind);
  std::int32_t (*CollectNodesByKind)(ZQScene*, const BaseObject*, std::int32_t listId, NodeKind, ZQBase** out,
                                     std::int32_t capacity);
};

// Set when the engine takes the plug-in in, before any of its nodes is made. Each plug-in has its own.
[[gnu::visibility("hidden")]] inline const Library* theLibrary = nullptr;

}  // namespace ZQAPI
