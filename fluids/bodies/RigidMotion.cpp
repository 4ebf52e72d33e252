#include "fluids/bodies/RigidMotion.h"

#include <cmath>
#include <initializer_list>

namespace orlix {

ObjectMotion MotionBetween(const LMatrix& from, const LMatrix& to) {
  ObjectMotion motion;
  motion.displacement = to.off - from.off;
  const Vec3D f[3] = {Normalized(from.v1), Normalized(from.v2), Normalized(from.v3)};
  const Vec3D t[3] = {Normalized(to.v1), Normalized(to.v2), Normalized(to.v3)};
  // R = sum t_i f_i^T. Its antisymmetric part is 2 sin(angle) times the axis, its trace 1 + 2 cos(angle).
  Vec3D twice;
  double trace = 0;
  for (int i = 0; i < 3; ++i) {
    twice += Cross(f[i], t[i]);
    trace += Dot(f[i], t[i]);
  }
  const double sine = Length(twice);
  motion.angle = std::atan2(sine, trace - 1);
  if (motion.angle == 0 || from.Determinant() == 0 || to.Determinant() == 0) {
    motion.angle = 0;
    return motion;
  }
  Vec3D axis = Normalized(twice);
  if (sine < 1e-6) {
    // Half a turn: R + I is twice the axis's outer product with itself, and its longest column lies along the axis.
    double longest = 0;
    for (int column = 0; column < 3; ++column) {
      Vec3D c;
      c[column] = 1;
      for (int i = 0; i < 3; ++i) c += t[i] * f[i][column];
      if (LengthSquared(c) <= longest) continue;
      longest = LengthSquared(c);
      axis = Normalized(c);
    }
    if (trace > 1) axis = Normalized(twice);  // a turn that is tiny, not half a one
  }
  motion.rotation = axis * motion.angle;
  return motion;
}

LMatrix MovedBy(const LMatrix& from, const ObjectMotion& motion, double share) {
  LMatrix moved = from;
  moved.off += motion.displacement * share;
  const double angle = motion.angle * share;
  if (angle == 0) return moved;
  // Rodrigues' formula.
  const Vec3D axis = Normalized(motion.rotation);
  const double c = std::cos(angle), s = std::sin(angle);
  for (Vec3D* v : {&moved.v1, &moved.v2, &moved.v3})
    *v = *v * c + Cross(axis, *v) * s + axis * (Dot(axis, *v) * (1 - c));
  return moved;
}

}  // namespace orlix
