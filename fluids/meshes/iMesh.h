#pragma once
// The interface of the engine's indexed triangle meshes: corners, points, a matrix and a box.

#include <vector>

#include "globals/Vec.h"

namespace orlix {

template <class Index, class IndexList, class Point, class PointList>
class iMesh {
 public:
  virtual ~iMesh() = default;
  virtual std::int32_t TriangleCount() const = 0;
  virtual std::int32_t PointCount() const = 0;
  virtual const IndexList& Triangles() const = 0;
  virtual const PointList& Points() const = 0;
  virtual void SetBox(const Point& min, const Point& max) {
    boxMin_ = min;
    boxMax_ = max;
    boxCentre_ = min + (max - min) * 0.5;
  }
  virtual Point BoxMinimum() const { return boxMin_; }
  virtual Point BoxMaximum() const { return boxMax_; }
  virtual Point BoxSize() const { return boxMax_ - boxMin_; }
  virtual Point BoxCentre() const { return boxCentre_; }
  // Widens min and max by this mesh's box.
  virtual void ExtendBox(Point& min, Point& max) const {
    min = Min(min, boxMin_);
    max = Max(max, boxMax_);
  }

  LMatrix matrix;

 private:
  Point boxMin_{}, boxMax_{}, boxCentre_{};
};

using iTriMesh = iMesh<VecInt3D, std::vector<VecInt3D>, Vec3D, std::vector<Vec3D>>;

}  // namespace orlix
