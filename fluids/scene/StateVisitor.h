#pragma once
// A walk over simulated state: all that the next frame needs. Each class lists its own in one place, VisitState; the
// state hash, checkpoints, the memory count and the test for NaN are visitors.

#include <memory>
#include <type_traits>
#include <vector>

#include "fluids/grids/EGrid.h"

namespace orlix {

class StateVisitor {
 public:
  virtual ~StateVisitor() = default;

  // A grid, or null. A reading visitor may make, replace or delete it.
  virtual void VisitGrid(const char* name, std::unique_ptr<ScalarGrid>& grid) = 0;
  // Plain bytes. A reading visitor overwrites them.
  virtual void VisitBytes(const char* name, void* bytes, std::size_t size) = 0;
  // What decides how the next pass treats a node, such as its flags: a checkpoint keeps it, results don't depend on it.
  virtual void VisitBookkeeping(const char*, void*, std::size_t) {}
  // What follows, to End, belongs to an embedded part of the node.
  virtual void Begin(const char*) {}
  virtual void End() {}

  template <class T>
  void Visit(const char* name, T& value) {
    static_assert(std::is_trivially_copyable_v<T>);
    VisitBytes(name, &value, sizeof value);
  }
  template <class T>
  void Keep(const char* name, T& value) {
    static_assert(std::is_trivially_copyable_v<T>);
    VisitBookkeeping(name, &value, sizeof value);
  }
};

}  // namespace orlix
