#pragma once
// A walk over simulated state: all that the next frame needs. Each class lists its own in one place, VisitState; the
// state hash, checkpoints, the memory count and the test for NaN are visitors.

#include <algorithm>
#include <memory>
#include <span>
#include <string>
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
  // Reals that belong to things with ids, such as the positions of particles; only the test for NaN looks at them, and
  // VisitOutputs lists them.
  struct Numbers {
    const double* numbers;
    std::size_t count;
    const std::int32_t* owners;  // an id for each perOwner numbers
    int perOwner;
  };
  virtual void VisitNumbers(const char*, std::span<const Numbers>) {}
  // Whether values are overwritten, and whether all went well so far. A walk over something of variable length asks
  // before it takes memory for what a file says will follow, and refuses what can't be.
  virtual bool Reading() const { return false; }
  virtual bool Good() const { return true; }
  virtual void Refuse(const std::string&) {}
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
  // Memory grows only as the file has bytes for it.
  template <class T>
  void VisitVector(const char* name, std::vector<T>& values) {
    static_assert(std::is_trivially_copyable_v<T>);
    constexpr std::int64_t kPiece = 1 << 16;
    auto size = static_cast<std::int64_t>(values.size());
    Visit(name, size);
    if (Reading()) values.clear();
    for (std::int64_t begin = 0; begin < size && Good(); begin += kPiece) {
      const std::int64_t end = std::min(size, begin + kPiece);
      if (Reading()) values.resize(static_cast<std::size_t>(end));
      VisitBytes(name, values.data() + begin, static_cast<std::size_t>(end - begin) * sizeof(T));
    }
  }
};

}  // namespace orlix
