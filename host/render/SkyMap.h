#pragma once
// A sky that a shader gives: its colours, laid around as a picture of longitudes and latitudes.

#include <vector>

#include "globals/Vec.h"
#include "host/objects/BaseObject.h"

namespace orlix {

class SkyMap {
 public:
  bool empty() const { return colours_.empty(); }
  // Asks the shader at texture coordinates: u runs around from -z by way of +x, v from straight down to straight up.
  // Throws std::bad_alloc.
  void Build(const BaseObject& object, const Shader& shader);
  // Bilinear; direction is of unit length.
  Vec3D Colour(const Vec3D& direction) const;

 private:
  static constexpr int kWidth = 2048, kHeight = 1024;
  std::vector<Vec3F> colours_;  // rows from below
};

}  // namespace orlix
