#pragma once
// The population of one kind of a group. List 0 is the one that everybody works on; a group that isn't active has none.

#include "fluids/particles/OrlixParticle.h"

namespace orlix {

// The box of a population in cells of its frame and in metres, each particle with its radius and one cell around it.
struct ParticleBounds {
  VecInt3D cellMin{0x7FFFFFFF, 0x7FFFFFFF, 0x7FFFFFFF};
  VecInt3D cellMax{-0x7FFFFFFF, -0x7FFFFFFF, -0x7FFFFFFF};
  Vec3D min{1.7976931348623157e308}, max{-1.7976931348623157e308};
  double largestRadiusCells = 0;  // in cells
  double largestRadius = 0;       // m
};

class ParticleFactory {
 public:
  std::int32_t listCount() const { return static_cast<std::int32_t>(lists_.size()); }
  // Null when there is no such list.
  ParticleList* list(std::int32_t index = 0) const {
    return index >= 0 && index < listCount() ? lists_[static_cast<std::size_t>(index)].get() : nullptr;
  }
  std::int32_t Count(std::int32_t index = 0) const { return list(index) ? list(index)->count() : 0; }
  // Null when index or list is out of range.
  OrlixParticle At(std::int32_t index, std::int32_t listIndex = 0) const { return {list(listIndex), index}; }
  // Null for a list that doesn't exist.
  OrlixParticle Make(const BaseParticleData& data, std::int32_t listIndex = 0) const {
    ParticleList* to = list(listIndex);
    return to ? OrlixParticle(to, to->Append(1, data)) : OrlixParticle();
  }
  // Makes lists, or destroys those from n on.
  void SetListCount(std::int32_t n);
  // Destroys all particles and takes the frame.
  void Reset(const GridSpace& space);
  void SetFrame(const GridSpace& space) { frame = space; }
  void UpdateBounds(WorkerPool& pool);
  // Of all lists; gives how many left.
  std::int32_t RemoveDead(bool keepOrder);
  std::int64_t Bytes() const;
  ParticleTally TakeTally();
  void VisitState(StateVisitor& visitor);
  void VisitNumbers(StateVisitor& visitor);

  ParticleBounds bounds;
  GridSpace frame;
  // The kernel sum that counts as density 1, measured in the first step by the node that writes densities.
  double referenceSum = 1;

 private:
  std::vector<std::unique_ptr<ParticleList>> lists_;
};

}  // namespace orlix
