#pragma once
// Turns a point into a direction: an axis, away from a centre, a volume's normal, a random direction, a body's
// velocity.
//
//   alignment.Prepare();                                           // once a pass, on the stage's thread
//   Vec3D direction = alignment.GetDirection(point, threadIndex);  // on a worker; point in simulation space

#include <span>
#include <vector>

#include "fluids/scene/OrlixScene.h"
#include "fluids/volumes/VolumeBase.h"
#include "globals/Random.h"

namespace orlix {

class AlignmentVector3D final : public iObject {
 public:
  enum Mode : std::int32_t {
    AxisX = 0,
    AxisY = 1,
    AxisZ = 2,
    FromCentre = 3,
    MajorAxis = 4,
    AroundZ = 5,
    Normal = 6,
    Vector = 7,  // as any number that isn't listed
    Random = 8,
    BodyVelocity = 9
  };

  using iObject::iObject;
  static constexpr int kModeId = 1000, kInvertId = 1001, kVectorId = 1002, kReferenceId = 1003;
  static const TypeInfo& Type();
  std::int32_t GetNodeBaseType() const override { return NODE_HELPER; }
  std::int32_t GetNodeSubType() const override { return 53; }
  bool ReadParameters() override;
  bool ResolveLinks() override;
  void ReleaseLinks() override;
  // Brings the volume's place up to date and seeds the generators of all workers: each pass draws the same numbers.
  void Prepare(iBase* caller = nullptr) override;

  // matrix turns directions; centre in simulation space.
  Vec3D GetDirection(const Vec3D& point, const LMatrix& matrix, const Vec3D& centre, std::int32_t threadIndex);
  Vec3D GetDirection(const Vec3D& point, std::int32_t threadIndex) {
    return GetDirection(point, matrix_, centre_, threadIndex);
  }
  // With the caller's generator where the direction is random.
  Vec3D GetDirection(const Vec3D& point, MersenneTwister& random) const;
  // count generators, or fallback when count is below 1. Generator w starts from the scene's seed + 234145 + w.
  void SeedThreads(std::int32_t count, std::int32_t fallback);
  // The three axes set the vector.
  void SetMode(std::int32_t mode);
  void SetVector(const Vec3D& vector) { vector_ = vector; }
  const Vec3D& GetVector() const { return vector_; }
  void SetCentre(const Vec3D& centre) { centre_ = centre; }

 private:
  void TakeVolumeFrame();
  Vec3D Unsigned(const Vec3D& point, const LMatrix& matrix, const Vec3D& centre) const;

  std::int32_t mode_ = AxisX;
  Vec3D vector_, centre_;
  LMatrix matrix_;
  std::vector<MersenneTwister> random_;  // one a worker
  VolumeBase* volume_ = nullptr;
};

// The axis of d's largest absolute component, with that component's sign. x wins only when strictly greatest, then y
// over z.
Vec3D MajorAxisOf(const Vec3D& d);
// Uniform over the sphere.
Vec3D RandomDirection(MersenneTwister& random);

}  // namespace orlix
