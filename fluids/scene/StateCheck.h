#pragma once
// Visitors of simulated state: the hash by which two runs are compared, the test for values that are no numbers, and
// the count of bytes.

#include <algorithm>
#include <optional>

#include "fluids/scene/StateVisitor.h"
#include "fluids/scene/StepReport.h"
#include "globals/Hash.h"
#include "host/threads/WorkerPool.h"

namespace orlix {

class StateHasher final : public StateVisitor {
 public:
  void VisitGrid(const char* name, std::unique_ptr<ScalarGrid>& grid) override;
  void VisitBytes(const char* name, void* bytes, std::size_t size) override;
  void Begin(const char* name) override { path_.emplace_back(name); }
  void End() override { path_.pop_back(); }
  std::uint64_t Value() const { return hash_.Value(); }
  GridHashes& grids() { return grids_; }

 private:
  StateHash hash_;
  GridHashes grids_;
  std::vector<std::string> path_;  // of the node and its parts
};

// Finds the first cell or particle, in index order, of the first grid or list that holds NaN or infinity.
class NonFiniteFinder final : public StateVisitor {
 public:
  explicit NonFiniteFinder(WorkerPool& pool) : pool_(pool) {}
  void VisitGrid(const char* name, std::unique_ptr<ScalarGrid>& grid) override;
  void VisitBytes(const char*, void*, std::size_t) override {}
  void VisitNumbers(const char* name, std::span<const Numbers> pieces) override;
  const std::optional<Divergence>& found() const { return found_; }

 private:
  WorkerPool& pool_;
  std::optional<Divergence> found_;
};

class StateSize final : public StateVisitor {
 public:
  void VisitGrid(const char*, std::unique_ptr<ScalarGrid>& grid) override {
    if (grid) bytes_ += grid->MemorySize(), cells_ = std::max<std::int64_t>(cells_, grid->space.count);
  }
  void VisitBytes(const char*, void*, std::size_t size) override { bytes_ += static_cast<std::int64_t>(size); }
  std::int64_t bytes() const { return bytes_; }
  // Of the largest lattice.
  std::int64_t cells() const { return cells_; }

 private:
  std::int64_t bytes_ = 0, cells_ = 0;
};

// True when all values are finite.
bool AllFinite(const double* data, std::int64_t count);

}  // namespace orlix
