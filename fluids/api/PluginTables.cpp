// The functions of the library: each finds the engine's object behind a handle and forwards. What an object isn't gives
// nothing.

#include <fmt/format.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <filesystem>

#include "fluids/api/PluginContext.h"
#include "fluids/channels/ScalarChannels.h"
#include "fluids/channels/VectorChannels.h"
#include "fluids/particles/ParticleGroup.h"
#include "fluids/particles/PropertyList.h"
#include "fluids/surfacing/ImplicitMesher.h"
#include "fluids/volumes/MultiVolume.h"

namespace orlix {

namespace {

namespace api = ZQAPI;

PluginHandle& HandleBehind(const void* handle) { return *static_cast<PluginHandle*>(const_cast<void*>(handle)); }
bool IsThread(std::int32_t thread) { return thread >= 0 && thread < WorkerPool::kMaxWorkers; }
// The node behind a handle as one of its class; null when it is none.
template <class Node>
Node* NodeBehind(const void* handle) {
  return handle ? dynamic_cast<Node*>(HandleBehind(handle).node) : nullptr;
}
const BaseObject* ObjectBehind(const api::BaseObject* object) { return reinterpret_cast<const BaseObject*>(object); }
api::BaseObject* ObjectToApi(const BaseObject* object) {
  return reinterpret_cast<api::BaseObject*>(const_cast<BaseObject*>(object));
}
api::BaseDocument* DocumentToApi(const BaseDocument* document) {
  return reinterpret_cast<api::BaseDocument*>(const_cast<BaseDocument*>(document));
}
api::Matrix MatrixToApi(const LMatrix& m) { return {ToApi(m.off), ToApi(m.v1), ToApi(m.v2), ToApi(m.v3)}; }

std::int64_t WriteText(const std::string& text, char* out, std::int64_t capacity) {
  const auto length = static_cast<std::int64_t>(text.size());
  if (capacity > 0) {
    const std::int64_t copied = std::min(length, capacity - 1);
    std::memcpy(out, text.data(), static_cast<std::size_t>(copied));
    out[copied] = '\0';
  }
  return length;
}

// --- objects

std::int64_t FileOf(const api::BaseObject* object, std::int32_t id, char* out, std::int64_t capacity) {
  const BaseObject& host = *ObjectBehind(object);
  const std::string name = host.GetString(id);
  return WriteText(name.empty() ? name : (std::filesystem::path(host.document().folder) / name).string(), out,
                   capacity);
}

api::BaseObject* ListEntry(const api::BaseObject* object, std::int32_t id, std::int32_t n) {
  const InExcludeData* list = ObjectBehind(object)->GetInExclude(id);
  if (!list || n < 0 || static_cast<std::size_t>(n) >= list->entries.size()) return nullptr;
  return ObjectToApi(ObjectBehind(object)->document().FindObject(list->entries[static_cast<std::size_t>(n)].target));
}

constexpr api::ObjectTable kObjectTable = {
    .GetTypeId = [](const api::BaseObject* o) -> std::int32_t { return ObjectBehind(o)->typeId(); },
    .GetPath = [](const api::BaseObject* o, char* out,
                  std::int64_t capacity) { return WriteText(ObjectBehind(o)->Path(), out, capacity); },
    .GetBool = [](const api::BaseObject* o, std::int32_t id) { return ObjectBehind(o)->GetBool(id); },
    .GetInt = [](const api::BaseObject* o, std::int32_t id) { return ObjectBehind(o)->GetInt(id); },
    .GetReal = [](const api::BaseObject* o, std::int32_t id) { return ObjectBehind(o)->GetDouble(id); },
    .GetVector = [](const api::BaseObject* o, std::int32_t id) { return ToApi(ObjectBehind(o)->GetVector(id)); },
    .GetText = [](const api::BaseObject* o, std::int32_t id, char* out,
                  std::int64_t capacity) { return WriteText(ObjectBehind(o)->GetString(id), out, capacity); },
    .GetFile = FileOf,
    .GetLink = [](const api::BaseObject* o, std::int32_t id) { return ObjectToApi(ObjectBehind(o)->GetLink(id)); },
    .GetListCount = [](const api::BaseObject* o, std::int32_t id) -> std::int32_t {
      const InExcludeData* list = ObjectBehind(o)->GetInExclude(id);
      return list ? static_cast<std::int32_t>(list->entries.size()) : 0;
    },
    .GetListEntry = ListEntry,
    .GetCurveValue = [](const api::BaseObject* o, std::int32_t id, double x) -> double {
      const SplineData* curve = ObjectBehind(o)->GetSpline(id);
      return curve ? curve->ValueAt(x) : 0;
    },
    .GetMatrix = [](const api::BaseObject* o) { return MatrixToApi(ObjectBehind(o)->GlobalMatrix()); },
    .GetDocument = [](const api::BaseObject* o) { return DocumentToApi(&ObjectBehind(o)->document()); },
    .GetFps = [](const api::BaseDocument* d) { return reinterpret_cast<const BaseDocument*>(d)->fps; },
};

// --- nodes

constexpr api::BaseTable kBaseTable = {
    .GetHostObject = [](const api::ZQBase* b) { return ObjectToApi(HandleBehind(b).node->handler.hostObject()); },
    .GetNodeBaseType = [](const api::ZQBase* b) { return HandleBehind(b).node->GetNodeBaseType(); },
    .GetNodeSubType = [](const api::ZQBase* b) { return HandleBehind(b).node->GetNodeSubType(); },
    .GetRetrieveTypes = [](const api::ZQBase* b) { return HandleBehind(b).node->RetrieveMask(); },
    .IsFromCache = [](const api::ZQBase* b) { return HandleBehind(b).node->HasFlag(NodeFromCache); },
};

// --- the server and the scene

api::ZQBase* FindAny(api::ZQServer* server, const api::BaseObject* object) {
  PluginContext& context = PluginContext::Of(server);
  return context.HandleOf(context.scene.Retrieve(ObjectBehind(object), NODE_ALL, RETRIEVE_ANY, RETRIEVE_ANY));
}

template <class Volume>
api::ZQVolume* FindVolumeOf(api::ZQServer* server, const api::BaseObject* object) {
  PluginContext& context = PluginContext::Of(server);
  return context.HandleOf<api::ZQVolume>(context.scene.RetrieveAs<Volume>(ObjectBehind(object), NODE_VOLUME));
}

std::int32_t FindChannelsOf(api::ZQServer* server, const api::BaseObject* object, api::ZQBase** out,
                            std::int32_t capacity) {
  PluginContext& context = PluginContext::Of(server);
  std::int32_t count = 0;
  const auto add = [&](iBase* node) {
    if (!node) return;
    if (count < capacity) out[count] = context.HandleOf(node);
    ++count;
  };
  add(context.scene.Retrieve(ObjectBehind(object), NODE_CHANNEL, RETRIEVE_ANY, RETRIEVE_ANY));
  if (auto* solver = context.scene.RetrieveAs<iSolver>(ObjectBehind(object), NODE_SOLVER)) add(solver->Velocity());
  return count;
}

void WeighPlaces(api::ZQServer* server, const api::PlaceBatch& places, double* weights) {
  PluginContext& context = PluginContext::Of(server);
  context.NoteAsking();
  if (places.count > api::kBatch || !IsThread(places.threadIndex)) {
    return context.NoteFault(ErrorKind::Internal,
                             fmt::format("its plug-in asks its constraints for {} places in thread {}, which may be {} "
                                         "at once in a thread below {}",
                                         places.count, places.threadIndex, api::kBatch, WorkerPool::kMaxWorkers));
  }
  if (context.constraints.empty()) return;
  Vec3D points[api::kBatch];
  std::uint8_t open[api::kBatch];
  for (std::int32_t n = 0; n < places.count; ++n) {
    points[n] = FromApi(places.Position(n));
    open[n] = weights[n] != 0;
  }
  const auto* group = NodeBehind<ParticleGroup>(places.group);
  ParticleList* list = group && places.kind >= 0 && places.kind < kParticleKinds ? group->list(places.kind) : nullptr;
  const std::int64_t begin = places.firstIndex, last = begin + places.count - 1;
  const bool known = list && begin >= 0 && last < list->count() && begin >> kChunkShift == last >> kChunkShift;
  if (known) {
    const auto first = static_cast<std::int32_t>(places.firstIndex);
    EvaluateChain(context.constraints,
                  ParticleRun{list, first, places.count, places.threadIndex, points, weights, open}, &context.self);
    return;
  }
  for (std::int32_t n = 0; n < places.count; ++n) {
    if (open[n]) EvaluateChain(context.constraints, points[n], weights[n], &context.self, places.threadIndex);
  }
}

constexpr api::ServerTable kServerTable = {
    .GetThreadCount = [](const api::ZQServer* s) { return PluginContext::Of(s).scene.threadCount; },
    .FindNode = FindAny,
    .FindVolume = FindVolumeOf<VolumeBase>,
    .FindMultiVolume = FindVolumeOf<MultiVolume>,
    .FindChannels = FindChannelsOf,
    .GetScene = [](api::ZQServer* s) { return reinterpret_cast<api::ZQScene*>(s); },
    .Weigh = WeighPlaces,
    .Warn = [](api::ZQServer* s, const char* key, const char* text) { PluginContext::Of(s).self.Warn(key, text); },
};

void SpaceOf(const api::ZQScene* scene, api::SimulationSpace* out) {
  const GridSpace& space = PluginContext::Of(scene).scene.space;
  *out = {ToApi(space.hostPerSim), ToApi(space.simPerHost), static_cast<double>(space.cellSize)};
}

void InfoOf(const api::ZQScene* scene, api::SimulationInfo* out) {
  const SimulationInfo& info = PluginContext::Of(scene).scene.info;
  out->substep = info.substep, out->substepCount = info.substepCount, out->minSubsteps = info.minSubsteps;
  out->lastSubstep = info.lastSubstep;
  out->frame = info.frame, out->frameDuration = info.frameDuration;
  out->time = info.time, out->substepDuration = info.substepDuration, out->frameElapsed = info.frameElapsed;
  out->fps = info.fps, out->substepFraction = info.substepFraction, out->frameRemaining = info.frameRemaining;
}

constexpr api::SceneTable kSceneTable = {
    .GetHostObject = [](const api::ZQScene* s) { return ObjectToApi(PluginContext::Of(s).scene.GetHostObject()); },
    .GetHostDocument =
        [](const api::ZQScene* s) { return DocumentToApi(PluginContext::Of(s).scene.GetHostDocument()); },
    .GetThreadCount = [](const api::ZQScene* s) { return PluginContext::Of(s).scene.threadCount; },
    .GetSimulationSpace = SpaceOf,
    .GetSimulationInfo = InfoOf,
};

struct KindTest {
  NodeBaseType list;
  NodeRetrieveType type;
};
std::optional<KindTest> TestOf(api::NodeKind kind) {
  switch (kind) {
    case api::KindParticles:
      return KindTest{NODE_PARTICLES, RETRIEVE_ANY};
    case api::KindVolume:
      return KindTest{NODE_VOLUME, RETRIEVE_VOLUME};
    case api::KindScalar:
      return KindTest{NODE_CHANNEL, RETRIEVE_SCALAR};
    case api::KindVector:
      return KindTest{NODE_CHANNEL, RETRIEVE_VECTOR};
    case api::KindMesh:
      return KindTest{NODE_VOLUME, RETRIEVE_MESH};
  }
  return {};
}

// Of the particles' list groups alone, of the meshes' those that a mesher makes.
bool IsOfKind(const iBase& node, api::NodeKind kind) {
  if (kind == api::KindParticles) return node.GetNodeSubType() == api::SubTypeParticleGroup;
  return kind != api::KindMesh || node.GetNodeSubType() == api::SubTypeMesher;
}

api::ZQBase* FindOfKind(api::ZQScene* scene, const api::BaseObject* object, api::NodeKind kind) {
  const std::optional<KindTest> test = TestOf(kind);
  if (!scene || !object || !test) return nullptr;
  PluginContext& context = PluginContext::Of(scene);
  iBase* node = context.scene.Retrieve(ObjectBehind(object), test->list, test->type, RETRIEVE_ANY);
  return node && IsOfKind(*node, kind) ? context.HandleOf(node) : nullptr;
}

std::int32_t CollectOfKind(api::ZQScene* scene, const api::BaseObject* object, std::int32_t listId, api::NodeKind kind,
                           api::ZQBase** out, std::int32_t capacity) {
  const std::optional<KindTest> test = TestOf(kind);
  if (!scene || !test) return 0;
  PluginContext& context = PluginContext::Of(scene);
  std::int32_t count = 0;
  const auto add = [&](iBase& node) {
    if (!node.IsEnabled() || !IsOfKind(node, kind)) return;
    if (test->type != RETRIEVE_ANY && !node.HasRetrieveType(test->type)) return;
    if (count < capacity) out[count] = context.HandleOf(&node);
    ++count;
  };
  if (!object) {
    context.scene.ForEachNode(test->list, test->list, add);
    return count;
  }
  const InExcludeData* list = ObjectBehind(object)->GetInExclude(listId);
  for (std::size_t n = 0; list && n < list->entries.size(); ++n) {
    const BaseObject* entry = context.scene.GetHostDocument()->FindObject(list->entries[n].target);
    if (iBase* node = context.scene.Retrieve(entry, test->list, test->type, RETRIEVE_ANY)) add(*node);
  }
  return count;
}

// --- channels

bool GridToApi(const ScalarGrid* grid, api::ZQGrid* out) {
  if (!grid || grid->count < 1) return false;
  out->values = grid->data;
  out->nx = grid->dims.x, out->ny = grid->dims.y, out->nz = grid->dims.z;
  out->origin = ToApi(grid->space.simMin), out->step = ToApi(grid->space.simPerVoxel);
  out->offset = ToApi(CellSampleOffset(grid->gridType));
  return true;
}

template <class Channel>
bool EditGridOf(void* handle, std::int32_t component, api::ZQGrid* out) {
  const auto* channel = NodeBehind<Channel>(handle);
  if (!channel || channel->HasFlag(NodeFromCache) || !GridToApi(channel->GetGrid(component), out)) return false;
  HandleBehind(handle).written.store(true, std::memory_order_relaxed);
  return true;
}

// What f makes of the node of that class behind a handle; nothing of another.
template <class Node, class F>
auto With(const void* handle, F&& f) {
  const auto* node = NodeBehind<Node>(handle);
  return node ? f(*node) : decltype(f(*node)){};
}

using Scalar = ChannelBase_Scalar;
using Vector = ChannelBase_Vector;

constexpr api::ScalarChannelTable kScalarChannelTable = {
    .GetMinimum = [](const api::ZQScalarChannel* c) { return With<Scalar>(c, [](auto& n) { return n.valueMin; }); },
    .GetMaximum = [](const api::ZQScalarChannel* c) { return With<Scalar>(c, [](auto& n) { return n.valueMax; }); },
    .GetBackground =
        [](const api::ZQScalarChannel* c) { return With<Scalar>(c, [](auto& n) { return n.backgroundValue; }); },
    .ContainsPoint =
        [](const api::ZQScalarChannel* c, const api::Vec3D& p) {
          return With<Scalar>(c, [&](auto& n) { return n.ContainsPoint(FromApi(p)); });
        },
    .SamplePoint =
        [](const api::ZQScalarChannel* c, const api::Vec3D& p) {
          return With<Scalar>(c, [&](auto& n) { return n.SamplePoint(FromApi(p)); });
        },
    .GetGrid = [](const api::ZQScalarChannel* c,
                  api::ZQGrid* out) { return With<Scalar>(c, [&](auto& n) { return GridToApi(n.grid.get(), out); }); },
    .EditGrid = [](api::ZQScalarChannel* c, api::ZQGrid* out) { return EditGridOf<Scalar>(c, 0, out); },
    .GetIgnitionTemperature =
        [](const api::ZQScalarChannel* c) {
          return With<FuelGridChannel>(c, [](auto& n) { return n.ignitionTemperature; });
        },
    .GetFlameTemperature =
        [](const api::ZQScalarChannel* c) {
          return With<FireGridChannel>(c, [](auto& n) { return n.flameTemperature; });
        },
    .GetCoolingTimeCold =
        [](const api::ZQScalarChannel* c) {
          return With<FireGridChannel>(c, [](auto& n) { return n.coolingTimeCold; });
        },
    .GetCoolingTimeHot =
        [](const api::ZQScalarChannel* c) {
          return With<FireGridChannel>(c, [](auto& n) { return n.coolingTimeHot; });
        },
};

constexpr api::VectorChannelTable kVectorChannelTable = {
    .GetMinimum =
        [](const api::ZQVectorChannel* c) { return With<Vector>(c, [](auto& n) { return ToApi(n.valueMin); }); },
    .GetMaximum =
        [](const api::ZQVectorChannel* c) { return With<Vector>(c, [](auto& n) { return ToApi(n.valueMax); }); },
    .GetBackground =
        [](const api::ZQVectorChannel* c) { return With<Vector>(c, [](auto& n) { return ToApi(n.backgroundValue); }); },
    .ContainsPoint =
        [](const api::ZQVectorChannel* c, const api::Vec3D& p) {
          return With<Vector>(c, [&](auto& n) { return n.ContainsPoint(FromApi(p)); });
        },
    .SamplePoint =
        [](const api::ZQVectorChannel* c, const api::Vec3D& p) {
          return With<Vector>(c, [&](auto& n) { return ToApi(n.SamplePoint(FromApi(p))); });
        },
    .GetGrid =
        [](const api::ZQVectorChannel* c, std::int32_t component, api::ZQGrid* out) {
          return With<Vector>(c, [&](auto& n) { return GridToApi(n.GetGrid(component), out); });
        },
    .EditGrid = [](api::ZQVectorChannel* c, std::int32_t component,
                   api::ZQGrid* out) { return EditGridOf<Vector>(c, component, out); },
};

// --- volumes

// What f makes of a volume, or of several.
template <class F>
auto WithSolid(const void* handle, F&& f) {
  if (const auto* several = NodeBehind<MultiVolume>(handle)) return f(*several);
  return With<VolumeBase>(handle, f);
}

bool CollideWith(const api::ZQVolume* volume, const api::Vec3D& p, api::VolumeHit* hit) {
  const auto* node = NodeBehind<VolumeBase>(volume);
  if (!node || !node->InsideWorld(FromApi(p))) return false;
  Vec3D place = FromApi(p);
  hit->inside = true;
  hit->distance = node->SampleWorld(place);
  hit->normal = ToApi(node->View().Normal(node->View().IndexOfWorld(place)));
  node->PushOut(place, true, 0);
  hit->position = ToApi(place);
  return true;
}

constexpr api::VolumeTable kVolumeTable = {
    .IsInside =
        [](const api::ZQVolume* v, const api::Vec3D& p, float threshold) {
          return WithSolid(v, [&](auto& n) { return n.InsideWorld(FromApi(p), static_cast<double>(threshold)); });
        },
    .GetDistance = [](const api::ZQVolume* v,
                      const api::Vec3D& p) { return WithSolid(v, [&](auto& n) { return n.SampleWorld(FromApi(p)); }); },
    .GetDepth =
        [](const api::ZQVolume* v, const api::Vec3D& p) {
          return With<VolumeBase>(v, [&](auto& n) { return n.DepthWorld(FromApi(p)); });
        },
    .GetNormal =
        [](const api::ZQVolume* v, const api::Vec3D& p) {
          return With<VolumeBase>(v, [&](auto& n) {
            return n.HasLevelSet() ? ToApi(n.View().Normal(n.View().IndexOfWorld(FromApi(p)))) : api::Vec3D();
          });
        },
    .GetLevelSet =
        [](const api::ZQVolume* v, api::ZQGrid* out) {
          return With<VolumeBase>(v, [&](auto& n) { return GridToApi(n.LevelSet(), out); });
        },
    .IsMultiVolume = [](const api::ZQVolume* v) { return NodeBehind<MultiVolume>(v) != nullptr; },
    .IsDynamicBody =
        [](const api::ZQVolume* v) { return With<VolumeBase>(v, [](auto& n) { return n.IsDynamicBody(); }); },
    .IsDrivenBody =
        [](const api::ZQVolume* v) { return With<VolumeBase>(v, [](auto& n) { return n.IsDrivenBody(); }); },
    .IsStaticBody =
        [](const api::ZQVolume* v) { return With<VolumeBase>(v, [](auto& n) { return n.IsStaticBody(); }); },
    .GetCellSize = [](const api::ZQVolume* v) { return With<iVolume>(v, [](auto& n) { return double(n.cellSize); }); },
    .GetResolution =
        [](const api::ZQVolume* v, std::int32_t* cells) {
          const VecInt3D n = With<iVolume>(v, [](auto& node) { return VecInt3D(node.resolution); });
          cells[0] = n.x, cells[1] = n.y, cells[2] = n.z;
        },
    .MovePoint =
        [](const api::ZQVolume* v, api::Vec3D* p, double offset) {
          Vec3D place = FromApi(*p);
          const bool inside = WithSolid(v, [&](auto& n) { return n.PushOut(place, true, offset); });
          *p = ToApi(place);
          return inside;
        },
    .Collide = CollideWith,
    .GetMatrix =
        [](const api::ZQVolume* v) { return MatrixToApi(With<VolumeBase>(v, [](auto& n) { return n.BodyMatrix(); })); },
    .GetVelocity =
        [](const api::ZQVolume* v, const api::Vec3D& p) {
          return With<VolumeBase>(v, [&](auto& n) { return ToApi(n.VelocityAt(FromApi(p))); });
        },
    .GetLinearMotion =
        [](const api::ZQVolume* v) { return With<VolumeBase>(v, [](auto& n) { return ToApi(n.LinearMotion()); }); },
    .GetAngularMotion =
        [](const api::ZQVolume* v) { return With<VolumeBase>(v, [](auto& n) { return ToApi(n.AngularMotion()); }); },
};

// --- particles

bool IsKind(std::int32_t kind) { return kind >= 0 && kind < kParticleKinds; }

bool ChunkOf(const api::ZQParticleGroup* handle, std::int32_t kind, std::int32_t index, api::ChunkData* out) {
  const auto* group = NodeBehind<ParticleGroup>(handle);
  ParticleList* list = group && IsKind(kind) ? group->list(kind) : nullptr;
  if (!list || index < 0 || index >= list->count()) return false;
  ParticleChunk& chunk = list->ChunkOf(index);
  out->chunk = &chunk, out->list = list;
  out->first = index & ~(kChunkRows - 1);
  out->count = std::min(kChunkRows, list->count() - out->first);
  out->positions = reinterpret_cast<const api::Vec3D*>(chunk.positions);
  out->velocities = reinterpret_cast<const api::Vec3D*>(chunk.velocities);
  out->ids = chunk.ids, out->flags = chunk.flags;
  return true;
}

void* EditColumnOf(api::ZQParticleGroup* handle, std::int32_t kind, const api::ChunkData* data,
                   api::ChunkColumn column) {
  const auto* group = NodeBehind<ParticleGroup>(handle);
  if (!group || !data->chunk || !IsKind(kind) || group->KindIsKept(kind)) return nullptr;
  HandleBehind(handle).written.store(true, std::memory_order_relaxed);
  auto& chunk = *static_cast<ParticleChunk*>(data->chunk);
  if (column == api::ColumnVelocities) return chunk.velocities;
  chunk.moved.store(true, std::memory_order_relaxed);  // neighbours that were found before are stale
  return column == api::ColumnPositions ? static_cast<void*>(chunk.positions) : chunk.flags;
}

bool PropertyOf(api::ZQParticleGroup* handle, const api::ChunkData* data, std::int32_t id, const api::ZQBase* owner,
                api::PropertyType type, bool make, api::ColumnData* out) {
  if (!data->chunk || id < 0 || id == PP::Velocity || id == PP::Position) return false;
  if (id < kFirstUserProperty && static_cast<std::int32_t>(TypeOfProperty(id)) != type) return false;
  const iBase* node = owner ? HandleBehind(owner).node : nullptr;
  if (id >= kFirstUserProperty && make && !node) return false;
  const PropertyKey key(id, node && id >= kFirstUserProperty ? OwnerOf(*node) : 0);
  auto& list = *static_cast<ParticleList*>(data->list);
  auto& chunk = *static_cast<ParticleChunk*>(data->chunk);
  const auto* group = NodeBehind<ParticleGroup>(handle);
  for (std::int32_t kind = 0; make && group && kind < kParticleKinds; ++kind) {
    if (group->list(kind) != &list) continue;
    if (group->KindIsKept(kind)) return false;
    HandleBehind(handle).written.store(true, std::memory_order_relaxed);
  }
  const auto find = [&](PropertyType found) {
    const int slot = make ? list.NeedSlot(key, found) : list.SlotOf(key, found);
    return slot < 0 ? nullptr : make ? &chunk.NeedColumn(slot, found) : chunk.column(slot);
  };
  try {
    PropertyColumn* column = find(static_cast<PropertyType>(type));
    if (!column) return false;
    out->values = column->values<std::byte>(), out->present = column->present();
    return true;
  } catch (const std::bad_alloc&) {
    HandleBehind(handle).context->NoteFault(ErrorKind::Memory, "memory doesn't suffice for a property of particles");
    return false;
  }
}

bool PrepareNeighboursOf(api::ZQParticleGroup* handle, std::int32_t kind, std::int32_t most) {
  auto* group = NodeBehind<ParticleGroup>(handle);
  try {
    return group && IsKind(kind) && group->EnsureTree(kind, false, most);
  } catch (const std::bad_alloc&) {
    HandleBehind(handle).context->NoteFault(ErrorKind::Memory, "memory doesn't suffice for a tree of particles");
    return false;
  }
}

void FindNeighboursOf(const api::ZQParticleGroup* handle, std::int32_t kind, const api::Vec3D& p, double radius,
                      std::int32_t thread, api::NeighborData* out) {
  const auto* group = NodeBehind<ParticleGroup>(handle);
  if (!group || !IsKind(kind) || !group->Tree(kind) || !IsThread(thread)) return;
  const std::span<const Neighbour> found = group->Nearest(kind, FromApi(p), radius, thread);
  out->neighbors = reinterpret_cast<const api::Neighbor*>(found.data());
  out->count = static_cast<std::int32_t>(found.size());
}

constexpr api::ParticleGroupTable kParticleGroupTable = {
    .GetCount = [](const api::ZQParticleGroup* g, std::int32_t kind) -> std::int32_t {
      return IsKind(kind) ? With<ParticleGroup>(g, [&](auto& n) { return n.Count(kind); }) : 0;
    },
    .GetChunk = ChunkOf,
    .EditColumn = EditColumnOf,
    .GetProperty = PropertyOf,
    .PrepareNeighbours = PrepareNeighboursOf,
    .FindNeighbours = FindNeighboursOf,
};

// --- constraints and meshes

constexpr api::ConstraintTable kConstraintTable = {
    .IsInverted = [](const api::ZQConstraint* c) { return With<Constraint>(c, [](auto& n) { return n.Inverted(); }); },
    .Prepare =
        [](api::ZQConstraint* c) {
          if (auto* node = NodeBehind<Constraint>(c)) {
            HandleBehind(c).context->NoteAsking();
            node->Prepare(&HandleBehind(c).context->self);
          }
        },
    .Evaluate =
        [](const api::ZQConstraint* c, const api::Vec3D& p, double* value, std::int32_t thread) {
          const auto* node = NodeBehind<Constraint>(c);
          return !node || !IsThread(thread) ||
                 node->Evaluate(FromApi(p), *value, &HandleBehind(c).context->self, thread);
        },
    .Finish =
        [](api::ZQConstraint* c) {
          if (auto* node = NodeBehind<Constraint>(c)) node->Finish();
        },
};

bool MeshOf(const api::ZQMesher* handle, api::ZQMesh* out) {
  const auto* mesher = NodeBehind<ImplicitMesher>(handle);
  if (!mesher) return false;
  const TriMeshSTL& mesh = mesher->Mesh();
  out->points = reinterpret_cast<const api::Vec3D*>(mesh.Points().data()), out->pointCount = mesh.PointCount();
  out->corners = reinterpret_cast<const std::int32_t*>(mesh.Triangles().data());
  out->polygonCount = mesh.TriangleCount();
  return true;
}

constexpr api::MesherTable kMesherTable = {
    .GetMatrix =
        [](const api::ZQMesher* m) {
          return MatrixToApi(With<ImplicitMesher>(m, [](auto& n) { return LMatrix(n.Mesh().matrix); }));
        },
    .GetMesh = MeshOf,
};

constexpr api::Library kLibrary = {
    .id = api::kLibraryId,
    .version = api::kLibraryVersion,
    .size = sizeof(api::Library),
    .mesher = &kMesherTable,
    .volume = &kVolumeTable,
    .vectorChannel = &kVectorChannelTable,
    .scalarChannel = &kScalarChannelTable,
    .constraint = &kConstraintTable,
    .base = &kBaseTable,
    .particleGroup = &kParticleGroupTable,
    .scene = &kSceneTable,
    .server = &kServerTable,
    .object = &kObjectTable,
    .FindNodeByKind = FindOfKind,
    .CollectNodesByKind = CollectOfKind,
};

}  // namespace

static_assert(sizeof(api::Neighbor) == sizeof(Neighbour) &&
              offsetof(api::Neighbor, distance) == offsetof(Neighbour, distance));
static_assert(sizeof(VecInt3D) == 3 * sizeof(std::int32_t));
// What plug-ins of this generation were built with; see CONTRIBUTING.md before changing a number.
static_assert(api::kLibraryVersion / 1000 == 25 && sizeof(api::NodeCalls) == 144 && sizeof(api::Row) == 112 &&
              sizeof(api::NodeType) == 72 && sizeof(api::ForceBatch) == 112 && sizeof(api::ConstraintBatch) == 72 &&
              sizeof(api::ProcessDataParticles) == 128 && sizeof(api::ChunkData) == 56);

const ZQAPI::Library& PluginLibraryTables() { return kLibrary; }

}  // namespace orlix
