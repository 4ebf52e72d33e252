#pragma once
// Transforms of a body, recorded while it moves, to be played back later: by frames of the simulation, in each of them
// by the share of the frame that had passed.

#include <map>
#include <vector>

#include "fluids/scene/StateVisitor.h"
#include "globals/Vec.h"

namespace orlix {

class RecordedMotion {
 public:
  struct Entry {
    float key = 0;  // share of the frame, 0 to 1
    LMatrix matrix;
  };

  void ClearFrame(std::int32_t frame) { frames_[frame].clear(); }
  void Clear() { frames_.clear(); }
  bool IsEmpty(std::int32_t frame) const {
    const auto found = frames_.find(frame);
    return found == frames_.end() || found->second.empty();
  }
  void Store(std::int32_t frame, const LMatrix& matrix, float key) { frames_[frame].push_back({key, matrix}); }
  // The transform at a share of a frame: between two entries both are blended component by component; before the first
  // and behind the last entry these hold. False, and matrix stays, for a frame without one.
  bool Replay(std::int32_t frame, float key, LMatrix& matrix) const;
  void VisitState(StateVisitor& visitor);

 private:
  std::map<std::int32_t, std::vector<Entry>> frames_;
};

}  // namespace orlix
