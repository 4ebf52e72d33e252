#pragma once
// What stands behind the engine's objects that a node of a plug-in holds: its server, its scene, and a handle for each
// node that it found, which remembers whether it was changed.

#include <atomic>
#include <deque>
#include <mutex>
#include <span>
#include <string>

#include "fluids/api/zqapi/ZQPlugin.h"
#include "fluids/constraints/Constraint.h"

namespace orlix {

class PluginContext;
class ParticleGroup;

struct PluginHandle {
  PluginHandle(iBase& found, PluginContext& owner) : node(&found), context(&owner) {}
  iBase* node;
  PluginContext* context;
  std::atomic<bool> written{false};
};

class PluginContext {
 public:
  PluginContext(iBase& node, OrlixScene& owner) : self(node), scene(owner) {}

  ZQAPI::ZQServer* Server() { return reinterpret_cast<ZQAPI::ZQServer*>(this); }
  static PluginContext& Of(const void* server) { return *static_cast<PluginContext*>(const_cast<void*>(server)); }

  // The handle of a node; null for null. Any thread may ask.
  template <class Handle = ZQAPI::ZQBase>
  Handle* HandleOf(iBase* node) {
    return reinterpret_cast<Handle*>(FindHandle(node));
  }
  void Clear() { handles_.clear(); }
  // The grids and particles that the plug-in has asked for to change them.
  void VisitWritten(StateVisitor& visitor);

  // Something that went wrong in a worker; the first is told by TellFault.
  void NoteFault(ErrorKind kind, std::string text);
  bool HasFault() const { return faulty_.load(std::memory_order_relaxed); }
  // On the driving thread: ends the simulation by what was noted.
  void TellFault();

  iBase& self;
  OrlixScene& scene;
  std::span<Constraint* const> constraints;  // of an operator, from Setup to Finish
  // The plug-in asks constraints, in this run.
  void NoteAsking() {
    if (!asks_.load(std::memory_order_relaxed)) asks_.store(true, std::memory_order_relaxed);
  }
  bool AsksConstraints() const { return asks_.load(std::memory_order_relaxed); }

 private:
  PluginHandle* FindHandle(iBase* node);

  std::mutex mutex_;
  std::deque<PluginHandle> handles_;
  std::atomic<bool> faulty_{false}, asks_{false};
  std::optional<Error> fault_;
};

// The tables of functions that plug-ins call.
const ZQAPI::Library& PluginLibraryTables();

// Both hold three doubles.
static_assert(sizeof(ZQAPI::Vec3D) == sizeof(Vec3D) && sizeof(Vec3D) == 3 * sizeof(double));
inline ZQAPI::Vec3D ToApi(const Vec3D& v) { return {v.x, v.y, v.z}; }
inline Vec3D FromApi(const ZQAPI::Vec3D& v) { return {v.x, v.y, v.z}; }

}  // namespace orlix
