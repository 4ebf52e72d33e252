#include "fluids/forces/VortexParticles.h"

#include "fluids/grids/Interpolation.h"

namespace orlix {

namespace {

Vec3D HalfBefore(int component) {
  Vec3D half(0.5);
  half[component] = 0;
  return half;
}

// The differences of a component to its upper neighbours, 1/s; 0 for cells outside [1, n - 2).
Vec3D UpperDifferences(const GridView<const double>& grid, const VecInt3D& n, double perMetre, std::int32_t i,
                       std::int32_t j, std::int32_t k) {
  if (i < 1 || j < 1 || k < 1 || i >= n.x - 2 || j >= n.y - 2 || k >= n.z - 2) return {};
  const double* at = grid.data + grid.Index(i, j, k);
  return Vec3D(at[1] - at[0], at[grid.dims.x] - at[0], at[grid.slab] - at[0]) * perMetre;
}

}  // namespace

Vec3D StretchField::VelocityAt(const Vec3D& voxel) const {
  Vec3D velocity;
  for (int c = 0; c < 3; ++c) {
    const Vec3D at = voxel - HalfBefore(c);
    velocity[c] = SampleTrilinear(component[c], at.x, at.y, at.z);
  }
  return velocity;
}

Vec3D StretchField::Stretch(const Vec3D& voxel, const Vec3D& w) const {
  Vec3D stretch;
  const double perMetre = lattice.voxelsPerSim.x;
  for (int c = 0; c < 3; ++c) {
    const VecInt3D& dims = component[c].dims;
    const Vec3D at = voxel - HalfBefore(c);
    const AxisCell x = LinearAxis(at.x, dims.x), y = LinearAxis(at.y, dims.y), z = LinearAxis(at.z, dims.z);
    Vec3D gradient;
    for (int corner = 0; corner < 8; ++corner) {
      const int a = corner & 1, b = corner >> 1 & 1, d = corner >> 2;
      const double weight = (a ? x.f : 1 - x.f) * (b ? y.f : 1 - y.f) * (d ? z.f : 1 - z.f);
      gradient += UpperDifferences(component[c], lattice.dims, perMetre, x.i + a, y.i + b, z.i + d) * weight;
    }
    stretch[c] = Dot(w, gradient);
  }
  return stretch;
}

Vec3D Stretched(const StretchField& field, const Vec3D& position, const Vec3D& w, double dt, double least,
                double most) {
  const Vec3D stretched = w + field.Stretch(field.lattice.VoxelOfSim(position), w) * dt;
  return Normalized(stretched) * std::clamp(Length(stretched), least, std::max(least, most));
}

}  // namespace orlix
