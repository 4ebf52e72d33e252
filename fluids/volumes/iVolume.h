#pragma once
// The base of all volumes: the box of a level set on the scene's lattice.

#include <limits>
#include <vector>

#include "fluids/scene/iObject.h"

namespace orlix {

class VolumeBase;

class iVolume : public iObject {
 public:
  using iObject::iObject;

  std::int32_t GetNodeBaseType() const override { return NODE_VOLUME; }
  void GetRetrieveTypes(std::uint32_t& mask) const override { mask |= RetrieveBit(RETRIEVE_VOLUME); }
  bool RunsSerially() const override { return true; }
  bool EvaluatesOnUpdate() const override { return true; }
  void ExtendBounds(Vec3D& min, Vec3D& max) override {
    min = Min(min, boundsMin);
    max = Max(max, boundsMax);
  }

  virtual void ComputeBounds() = 0;
  // False when there is no memory for the level set.
  virtual bool PrepareGrid() = 0;
  // The volumes with a level set of their own that this one stands for: itself, or its members.
  virtual void AppendVolumes(std::vector<VolumeBase*>& out) = 0;

  // The box of its geometry as it stands, before anything is simulated; simulation space. False without one, or when
  // keyframes may move it elsewhere.
  virtual bool StillBox(Vec3D&, Vec3D&) const { return false; }

  void ResetBounds() {
    boundsMin = Vec3D(std::numeric_limits<double>::max());
    boundsMax = Vec3D(-std::numeric_limits<double>::max());
  }

  VecInt3D resolution;  // cells of the level set; it has one node more in each axis
  Vec3D extent;         // resolution x cellVector, host units
  Vec3D boundsMin = Vec3D(std::numeric_limits<double>::max());  // simulation space
  Vec3D boundsMax = Vec3D(-std::numeric_limits<double>::max());
  Vec3D centre;  // of the geometry's unpadded bounds
  Vec3D origin;  // the lower corner on the scene's lattice, host units
  double cellSize = 1.0;
  Vec3D cellVector;  // host units of a cell
  Vec3D position;    // the lower corner, padded and snapped
};

}  // namespace orlix
