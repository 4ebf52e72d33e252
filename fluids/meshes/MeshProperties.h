#pragma once
// Attributes of a mesh's points by number: tables of vectors, scalars and states, a column for each attribute in use.

#include <cstdint>
#include <map>
#include <tuple>
#include <vector>

#include "globals/Vec.h"

namespace orlix {

inline constexpr std::int32_t kPointNormalId = 34;

class MeshProperties {
 public:
  // What a state's column holds: 0 or 1.
  using State = std::uint8_t;

  // Columns in use keep what they hold; new points get 0.
  void Resize(std::size_t points) {
    points_ = points;
    std::apply(
        [&](auto&... tables) {
          const auto resize = [&](auto& table) {
            for (auto& [id, column] : table) column.resize(points);
          };
          (resize(tables), ...);
        },
        tables_);
  }
  void Clear() {
    tables_ = {};
    points_ = 0;
  }
  std::size_t PointCount() const { return points_; }

  // The attribute of all points, T: Vec3D, double or State; made, filled with 0, when it isn't there.
  template <class T = Vec3D>
  std::vector<T>& Column(std::int32_t id) {
    std::vector<T>& column = std::get<Table<T>>(tables_)[id];
    column.resize(points_);
    return column;
  }
  // Null when no point has the attribute.
  template <class T = Vec3D>
  const std::vector<T>* Find(std::int32_t id) const {
    const Table<T>& table = std::get<Table<T>>(tables_);
    const auto found = table.find(id);
    return found == table.end() ? nullptr : &found->second;
  }

 private:
  template <class T>
  using Table = std::map<std::int32_t, std::vector<T>>;
  std::tuple<Table<Vec3D>, Table<double>, Table<State>> tables_;
  std::size_t points_ = 0;
};

}  // namespace orlix
