#include "fluids/forces/TrigoWave.h"

#include <numbers>

#include "fluids/forces/TrigTables.h"

namespace orlix {

namespace {

constexpr double kPi = std::numbers::pi;
constexpr double kSpiralReach = 100;  // amplitudes

}  // namespace

double TrigoWave::PhaseAt(double x) const { return 2 * kPi * frequency * (travelled - x); }

double TrigoWave::AngleOf(double c, double side) {
  const double angle = TableAcos(c);
  return side > 0 ? 2 * kPi - angle : angle;
}

Vec3D TrigoWave::At(const Vec3D& u) const {
  if (!(frequency >= -1000 && frequency <= 1000)) return {};
  const double along = Dot(u, axisZ);
  const Vec3D offAxis = u - axisZ * along;
  const double distance = Length(offAxis);
  const Vec3D outward = distance == 0 ? Vec3D() : offAxis / distance;
  switch (type) {
    case WaveType::Plane:
    case WaveType::PlaneOutward:
      return Mixed(Plane(along, outward));
    case WaveType::Rings:
      return Mixed(Rings(distance, offAxis, outward));
    case WaveType::Around:
      return distance > 0 ? Mixed(Around(outward)) : Vec3D();
    case WaveType::Spiral: {
      const double r = distance / amplitude - 1;
      return r > 0 && r < kSpiralReach ? Mixed(Spiral(r, outward)) : Vec3D();
    }
  }
  return {};
}

TrigoWave::Terms TrigoWave::Plane(double along, const Vec3D& outward) const {
  Terms terms;
  terms.phase = PhaseAt(along);
  const bool oneVector = shape == WaveShape::Rise || shape == WaveShape::Fall || shape == WaveShape::Sine;
  terms.v1 = type == WaveType::Plane ? axisY : oneVector ? Vec3D() : outward;
  terms.v2 = offsetVector;
  return terms;
}

TrigoWave::Terms TrigoWave::Rings(double distance, const Vec3D& offAxis, const Vec3D& outward) const {
  Terms terms;
  terms.phase = PhaseAt(distance);
  terms.flag = true;
  terms.v1 = offsetVector;
  terms.v2 = outward;
  if (shape == WaveShape::RiseFirst || shape == WaveShape::FallFirst) terms.v2 = {};
  if (shape == WaveShape::FigureFirst) terms.v2 = terms.phase == 0 ? Vec3D() : outward / terms.phase;
  if (shape == WaveShape::FigureSecond) terms.v2 = terms.phase > 0 ? offAxis / terms.phase : Vec3D();
  return terms;
}

TrigoWave::Terms TrigoWave::Around(const Vec3D& outward) const {
  Terms terms;
  const Vec3D side = Cross(axisZ, outward);
  terms.phase = PhaseAt(AngleOf(Dot(side, axisY), Dot(side, axisX)) * amplitude);
  terms.flag = true;
  terms.v1 = offsetVector;
  terms.v2 = outward;
  return terms;
}

TrigoWave::Terms TrigoWave::Spiral(double r, const Vec3D& outward) const {
  Terms terms;
  const double p = Dot(axisX, outward), m = Dot(axisY, outward);
  const Vec3D turned = Normalized(outward * (r * r) + (axisY * p - axisX * m) * (4 * r));
  const double p2 = Dot(axisX, turned), m2 = Dot(axisY, turned);
  terms.phase = PhaseAt(AngleOf(m2, p2) * amplitude);
  terms.flag = true;
  terms.v1 = offsetVector;
  terms.v2 = axisY * p2 - axisX * m2;
  terms.factor = (kSpiralReach - r) / (5 / r + 4 * r);
  return terms;
}

Vec3D TrigoWave::Mixed(const Terms& terms) const {
  const double s = TableSin(terms.phase), h = (s + 1) / 2;
  const double scaled = amplitude * terms.factor;
  const double k2 = terms.flag ? scaled : terms.factor;  // weighs V2
  const double k1 = terms.flag ? terms.factor : scaled;  // weighs V1 alone
  const double k3 = terms.flag ? 1 : amplitude;          // weighs V1 in mixtures
  const Vec3D &v1 = terms.v1, &v2 = terms.v2;
  switch (shape) {
    case WaveShape::Rise:
      return v2 * (h * k2);
    case WaveShape::Fall:
      return v2 * ((s / 2 - 0.5) * k2);
    case WaveShape::RiseFirst:
      return v1 * (h * k1);
    case WaveShape::FallFirst:
      return v1 * ((s / 2 - 0.5) * k1);
    case WaveShape::Sine:
      return v2 * (s * k2);
    case WaveShape::CrossFade:
      return v1 * ((1 - h) * k3) + v2 * (h * k2);
    case WaveShape::CrossFadeBack:
      return v1 * ((h - 1) * k3) + v2 * (h * k2);
    case WaveShape::SineFirst:
      return v1 * (s * k1);
    case WaveShape::FigureFirst:
      return v1 * ((0.5 - TableCos(2 * terms.phase) * 0.5 * terms.factor) * k3) + v2 * (TableCos(terms.phase) * k2);
    case WaveShape::FigureSecond:
      return v1 * (TableCos(terms.phase) * terms.factor * k3) + v2 * ((0.5 - TableCos(2 * terms.phase) * 0.5) * k2);
    case WaveShape::Ellipse:
      return v1 * (TableCos(terms.phase) * terms.factor * k3) + v2 * (s * k2);
  }
  return {};
}

}  // namespace orlix
