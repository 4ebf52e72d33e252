#pragma once
// The body of an obstacle, as fluids see it: its mass may follow from a density, and factors scale what it hands to a
// fluid and takes from it.

#include "fluids/bodies/RigidBody.h"

namespace orlix {

class RigidBody_Variational final : public RigidBody {
 public:
  void ReadTag(const BaseObject& tag, bool started) override;
  // 0 of a driven body; by density, density times volume.
  double GetMass() const override { return currentMass; }
  // Of a body whose mesh isn't closed, whose volume cells tell, m^3.
  void SetVolume(double volume);
  // The tag asks for a body that moves by forces.
  bool WantsDynamic() const { return !driven && (byDensity ? density > 0 : mass > 0); }

  bool byDensity = false;
  double density = 100;    // kg/m^3; with a given mass, mass over volume
  double currentMass = 1;  // kg
  // Factors on the motion that the fluid feels, and on what its pressure does to the body.
  double linearMotionScale = 1.0, angularMotionScale = 0.25;
  double forceScale = 1.0, torqueScale = 1.0;

 private:
  void VolumeChanged() override { UpdateMass(); }
  void UpdateMass();
};

}  // namespace orlix
