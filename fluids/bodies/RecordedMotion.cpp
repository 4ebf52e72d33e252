#include "fluids/bodies/RecordedMotion.h"

namespace orlix {

bool RecordedMotion::Replay(std::int32_t frame, float key, LMatrix& matrix) const {
  if (IsEmpty(frame)) return false;
  const std::vector<Entry>& entries = frames_.at(frame);
  std::size_t at = 0;
  while (at + 1 < entries.size() && entries[at + 1].key <= key) ++at;
  const Entry& from = entries[at];
  matrix = from.matrix;
  if (at + 1 == entries.size() || !(key > from.key)) return true;
  const Entry& to = entries[at + 1];
  const double share = (double(key) - from.key) / (double(to.key) - from.key);
  const auto blend = [share](const Vec3D& a, const Vec3D& b) { return a + (b - a) * share; };
  matrix = {blend(from.matrix.off, to.matrix.off), blend(from.matrix.v1, to.matrix.v1),
            blend(from.matrix.v2, to.matrix.v2), blend(from.matrix.v3, to.matrix.v3)};
  return true;
}

void RecordedMotion::VisitState(StateVisitor& visitor) {
  auto count = static_cast<std::int64_t>(frames_.size());
  visitor.Visit("recordedFrames", count);
  if (visitor.Reading()) {
    frames_.clear();
    for (std::int64_t n = 0; n < count && visitor.Good(); ++n) {
      std::int32_t frame = 0;
      visitor.Visit("frame", frame);
      visitor.VisitVector("transforms", frames_[frame]);
    }
    return;
  }
  for (auto& [frame, entries] : frames_) {
    std::int32_t number = frame;
    visitor.Visit("frame", number);
    visitor.VisitVector("transforms", entries);
  }
}

}  // namespace orlix
