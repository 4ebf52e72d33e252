#pragma once
// Attributes of a mesh's points, vectors and reals, a column for each attribute in use.

#include <cstdint>
#include <map>
#include <vector>

#include "globals/Vec.h"

namespace orlix {

inline constexpr std::int32_t kPointNormalId = 34;

class MeshProperties {
 public:
  // Columns in use keep what they hold; new points get 0.
  void Resize(std::size_t points) {
    points_ = points;
    for (auto& [id, column] : columns_) column.resize(points);
    for (auto& [id, column] : reals_) column.resize(points);
  }
  void Clear() {
    columns_.clear();
    reals_.clear();
    points_ = 0;
  }
  std::size_t PointCount() const { return points_; }

  // The attribute of all points; made, filled with 0, when it isn't there.
  std::vector<Vec3D>& Column(std::int32_t id) {
    std::vector<Vec3D>& column = columns_[id];
    column.resize(points_);
    return column;
  }
  std::vector<double>& RealColumn(std::int32_t id) {
    std::vector<double>& column = reals_[id];
    column.resize(points_);
    return column;
  }
  // Null when no point has the attribute.
  const std::vector<Vec3D>* Find(std::int32_t id) const {
    const auto found = columns_.find(id);
    return found == columns_.end() ? nullptr : &found->second;
  }
  const std::vector<double>* FindReal(std::int32_t id) const {
    const auto found = reals_.find(id);
    return found == reals_.end() ? nullptr : &found->second;
  }

 private:
  std::map<std::int32_t, std::vector<Vec3D>> columns_;
  std::map<std::int32_t, std::vector<double>> reals_;
  std::size_t points_ = 0;
};

}  // namespace orlix
