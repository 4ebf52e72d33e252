#pragma once
// Turns a point into a direction: an axis, away from a centre, a volume's normal, a random direction, a body's
// velocity.
//
//   alignment.Prepare();                              // once a pass, on the stage's thread
//   Vec3D direction = alignment.GetDirection(point);  // on any worker; point in simulation space

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
  // Brings the volume's place up to date.
  void Prepare(iBase* caller = nullptr) override;

  // matrix turns directions; centre in simulation space. A random direction follows from the scene's seed, the frame
  // and the point alone: who asks, and in which order, doesn't matter.
  Vec3D GetDirection(const Vec3D& point, const LMatrix& matrix, const Vec3D& centre) const;
  Vec3D GetDirection(const Vec3D& point) const { return GetDirection(point, matrix_, centre_); }
  // With the caller's generator where the direction is random.
  Vec3D GetDirection(const Vec3D& point, MersenneTwister& random) const;
  // The three axes set the vector.
  void SetMode(std::int32_t mode);
  void SetVector(const Vec3D& vector) { vector_ = vector; }
  const Vec3D& GetVector() const { return vector_; }
  void SetCentre(const Vec3D& centre) { centre_ = centre; }

 private:
  void TakeVolumeFrame();
  Vec3D Unsigned(const Vec3D& point, const LMatrix& matrix, const Vec3D& centre) const;
  Vec3D RandomAt(const Vec3D& point) const;

  std::int32_t mode_ = AxisX;
  Vec3D vector_, centre_;
  LMatrix matrix_;
  VolumeBase* volume_ = nullptr;
};

// The axis of d's largest absolute component, with that component's sign. x wins only when strictly greatest, then y
// over z.
Vec3D MajorAxisOf(const Vec3D& d);
// Uniform over the sphere, by two numbers that are uniform in [0, 1).
Vec3D DirectionOf(double u, double v);
Vec3D RandomDirection(MersenneTwister& random);

}  // namespace orlix
