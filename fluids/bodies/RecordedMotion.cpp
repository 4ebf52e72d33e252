#include "fluids/bodies/RecordedMotion.h"

#include <utility>

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

// Number by number: an entry has gaps between its members.
void RecordedMotion::VisitState(StateVisitor& visitor) {
  constexpr std::size_t kNumbers = 13;
  auto count = static_cast<std::int64_t>(frames_.size());
  visitor.Visit("recordedFrames", count);
  std::map<std::int32_t, std::vector<Entry>> read;
  auto next = frames_.begin();
  for (std::int64_t n = 0; n < count && visitor.Good(); ++n) {
    std::int32_t frame = visitor.Reading() ? 0 : next->first;
    std::vector<double> numbers;
    for (const Entry& e : visitor.Reading() ? std::vector<Entry>() : next->second) {
      numbers.push_back(e.key);
      for (const Vec3D& v : {e.matrix.off, e.matrix.v1, e.matrix.v2, e.matrix.v3}) {
        numbers.insert(numbers.end(), {v.x, v.y, v.z});
      }
    }
    visitor.Visit("frame", frame);
    visitor.VisitVector("transforms", numbers);
    if (!visitor.Reading()) {
      ++next;
      continue;
    }
    std::vector<Entry>& entries = read[frame];
    for (std::size_t at = 0; at + kNumbers <= numbers.size(); at += kNumbers) {
      const double* v = &numbers[at];
      entries.push_back(
          {float(v[0]), {{v[1], v[2], v[3]}, {v[4], v[5], v[6]}, {v[7], v[8], v[9]}, {v[10], v[11], v[12]}}});
    }
  }
  if (visitor.Reading()) frames_ = std::move(read);
}

}  // namespace orlix
