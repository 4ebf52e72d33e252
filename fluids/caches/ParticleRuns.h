#pragma once
// Particles of a list as runs of a frame file, and back.

#include <functional>
#include <string>
#include <vector>

#include "fluids/caches/ParticleFrameFile.h"

namespace orlix {

class BaseDocument;

// Which properties are kept; all while nothing is named.
struct PropertyFilter {
  std::vector<PropertyKey> keys;
  bool Lets(PropertyKey key) const;
};

// Sets weights[n] of the particles [first, first + n) of the list: 0 leaves one out. Empty: all stay.
using WeighParticles = std::function<void(ParticleList& list, const ParticleRows& rows, double* weights)>;

// All particles of the list. Rows that are left out leave no gap.
std::vector<ParticleRunData> TakeParticleRuns(ParticleList& list, const PropertyFilter& filter,
                                              const WeighParticles& weigh, const BaseDocument& document,
                                              WorkerPool& pool);

// Puts runs into a list from its first row on; what rows held before is gone, and their memory serves again. After End
// the list holds just what was put. Nothing counts as born or died.
class ParticleRefill {
 public:
  ParticleRefill(ParticleList& list, const BaseDocument& document) : list_(list), document_(document) {}
  // Only the rows with keep[row] true; empty for all. Throws std::bad_alloc.
  void Put(const ParticleRunData& run, const std::vector<std::uint8_t>& keep = {});
  void End();
  std::int32_t count() const { return count_; }

 private:
  void PutColumn(const ParticleRunColumn& column, const std::vector<std::int32_t>& source, std::int32_t begin);

  ParticleList& list_;
  const BaseDocument& document_;
  std::int32_t count_ = 0, lastId_ = -1;
  bool linksGone_ = false;
};

}  // namespace orlix
