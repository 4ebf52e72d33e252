#pragma once
// Normals for shading: a mesh of flat triangles that looks round.

#include <cstdint>
#include <span>
#include <vector>

#include "globals/Vec.h"

namespace orlix {

// One unit normal for each corner of each triangle; corners holds three point numbers a triangle, all valid. A corner's
// normal is the mean of the faces around its point that lean no more than the angle (degrees) from its own face, each
// with the weight of its angle there (Thuermer and Wuethrich 1998). A triangle without an area takes part in nothing
// and gets zero normals.
std::vector<Vec3F> SmoothNormals(std::span<const Vec3D> points, std::span<const std::int32_t> corners, double angle);

}  // namespace orlix
