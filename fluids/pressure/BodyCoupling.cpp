#include "fluids/pressure/BodyCoupling.h"

#include <algorithm>
#include <cmath>

#include "fluids/pressure/PressureRows.h"

namespace orlix {

namespace {

// Cells that a face's owner may be further from it than another solid: the distances that both have come from grids.
constexpr double kTie = 0.25;

struct CellBox {
  VecInt3D low, high;

  bool Meets(const CellBox& b) const {
    return low.x < b.high.x && b.low.x < high.x && low.y < b.high.y && b.low.y < high.y && low.z < b.high.z &&
           b.low.z < high.z;
  }
};

CellBox InnerCells(const GridSpace& space, const CoupledBody& body, const VecInt3D& n) {
  const Vec3D from = space.VoxelOfSim(body.boxMin), to = space.VoxelOfSim(body.boxMax);
  CellBox box;
  for (int axis = 0; axis < 3; ++axis) {
    const double end = std::max(n[axis] - 1.0, 1.0);
    box.low[axis] = static_cast<std::int32_t>(std::clamp(std::floor(from[axis]), 1.0, end));
    box.high[axis] = static_cast<std::int32_t>(std::clamp(std::ceil(to[axis]), 1.0, end));
  }
  return box;
}

// The mean of the four corners of a low face of the axis.
double AtFace(const GridView<const double>& corners, int axis, int i, int j, int k) {
  double sum = corners(i, j, k);
  if (axis == 0) sum += corners(i, j + 1, k) + corners(i, j, k + 1) + corners(i, j + 1, k + 1);
  if (axis == 1) sum += corners(i + 1, j, k) + corners(i, j, k + 1) + corners(i + 1, j, k + 1);
  if (axis == 2) sum += corners(i + 1, j, k) + corners(i, j + 1, k) + corners(i + 1, j + 1, k);
  return sum * 0.25;
}

// Whose a face is.
struct Owners {
  const std::vector<CoupledBody>& bodies;
  const GridSpace& space;
  const GridView<const double>& solid;
  double cell;

  double DistanceTo(std::size_t body, const Vec3D& p) const {
    const LevelSetView& view = bodies[body].levelSet;
    return view.Sample(view.IndexOfWorld(p));
  }
  bool Owns(std::size_t body, const std::vector<std::size_t>& neighbours, int axis, int i, int j, int k,
            const Vec3D& p) const {
    const double own = DistanceTo(body, p);
    if (!(own < cell) || (solid.data && own > AtFace(solid, axis, i, j, k) + kTie * cell)) return false;
    for (const std::size_t other : neighbours) {
      const double distance = DistanceTo(other, p);
      if (other < body ? distance <= own : distance < own) return false;
    }
    return true;
  }
};

}  // namespace

void BodyCoupling::Offsets::Add(const Row& row, const Vec3D& o) {
  linear.v1 += row.linear * o.x, linear.v2 += row.linear * o.y, linear.v3 += row.linear * o.z;
  angular.v1 += row.angular * o.x, angular.v2 += row.angular * o.y, angular.v3 += row.angular * o.z;
}

void BodyCoupling::FindRows(std::size_t b, const DivergenceInput& input, const GridSpace& space,
                            const GridView<const double>& solid, const GridView<const double>& liquid,
                            std::vector<Row>& rows) {
  const CoupledBody& body = bodies_[b];
  if (!body.levelSet.HasData()) return;
  const VecInt3D n = input.Cells();
  const double h = input.cellSize;
  const CellBox box = InnerCells(space, body, n);
  std::vector<std::size_t> neighbours;
  for (std::size_t o = 0; o < bodies_.size(); ++o) {
    if (o == b || !bodies_[o].levelSet.HasData()) continue;
    if (InnerCells(space, bodies_[o], n).Meets(box)) neighbours.push_back(o);
  }
  const Owners owners{bodies_, space, solid, h};
  const auto look = [&](int i, int j, int k, const FaceRow<float>& open) {
    const float shares[6] = {open.x[i], open.x[i + 1], open.yLow[i], open.yHigh[i], open.zLow[i], open.zHigh[i]};
    if (std::all_of(shares, shares + 6, [](float s) { return s >= 1; })) return;
    if (std::none_of(shares, shares + 6, [](float s) { return s > 0; })) return;
    if (liquid.data && !(static_cast<float>(liquid(i, j, k)) < 0)) return;
    Row row{(std::int64_t(k) * n.y + j) * n.x + i, {}, {}};
    bool touches = false;
    for (int face = 0; face < 6; ++face) {
      const double s = 1 - double(shares[face]);
      if (!(s > 0)) continue;
      const int axis = face / 2;
      VecInt3D at(i, j, k);
      at[axis] += face % 2;
      Vec3D middle = Vec3D(at) + Vec3D(0.5);
      middle[axis] -= 0.5;
      const Vec3D p = space.SimOfVoxel(middle);
      if (!owners.Owns(b, neighbours, axis, at.x, at.y, at.z, p)) continue;
      Vec3D normal;
      normal[axis] = (face % 2 ? 1 : -1) * s * h * h;
      row.linear += normal;
      row.angular += Cross(p - body.centre, normal);
      touches = true;
    }
    if (!touches) return;
    rows.push_back(row);
    const Vec3D index = body.levelSet.IndexOfWorld(space.SimOfVoxel(Vec3D(i, j, k) + Vec3D(0.5)));
    offsets_[b].Add(row, body.levelSet.Normal(index) * -std::clamp(body.levelSet.Sample(index), -h, h));
  };
  for (int k = box.low.z; k < box.high.z; ++k) {
    for (int j = box.low.y; j < box.high.y; ++j) {
      const FaceRow<float> open(input.share, j, k);
      for (int i = box.low.x; i < box.high.x; ++i) look(i, j, k, open);
    }
  }
}

void BodyCoupling::Build(std::vector<CoupledBody> bodies, const DivergenceInput& input, const GridSpace& space,
                         const GridView<const double>& solid, const GridView<const double>& liquid, WorkerPool& pool) {
  bodies_ = std::move(bodies);
  rows_.clear();
  begins_.assign(1, 0);
  offsets_.assign(bodies_.size(), {});
  const double h = cellSize_ = input.cellSize;
  cells_ = input.Cells();
  inverseCell_ = 1 / (h * h * h);
  std::vector<std::vector<Row>> found(bodies_.size());
  ParallelRange(pool, 0, static_cast<int>(bodies_.size()), [&](int first, int last, int) {
    for (auto b = std::size_t(first); b < std::size_t(last); ++b) FindRows(b, input, space, solid, liquid, found[b]);
  });
  for (const auto& rows : found) {
    rows_.insert(rows_.end(), rows.begin(), rows.end());
    begins_.push_back(rows_.size());
  }
}

void BodyCoupling::AddMotion(double* rhs) const {
  for (std::size_t b = 0; b < bodies_.size(); ++b) {
    const ForceAndTorque& v = bodies_[b].velocity;
    for (std::size_t r = begins_[b]; r < begins_[b + 1]; ++r) {
      const Row& row = rows_[r];
      rhs[row.cell] -= inverseCell_ * (Dot(row.linear, v.force) + Dot(row.angular, v.torque));
    }
  }
}

ForceAndTorque BodyCoupling::Total(std::size_t body, const double* values) const {
  ForceAndTorque total;
  for (std::size_t r = begins_[body]; r < begins_[body + 1]; ++r) {
    const Row& row = rows_[r];
    const double value = values[row.cell];
    total.force += row.linear * value;
    total.torque += row.angular * value;
  }
  return total;
}

std::vector<ForceAndTorque> BodyCoupling::Forces(const double* pressure, WorkerPool& pool) const {
  std::vector<ForceAndTorque> totals(bodies_.size());
  ParallelRange(pool, 0, static_cast<int>(bodies_.size()), [&](int first, int last, int) {
    for (int b = first; b < last; ++b) totals[std::size_t(b)] = Total(std::size_t(b), pressure);
  });
  return totals;
}

std::optional<double> BodyCoupling::ShareOf(const Vec3D& gradient, std::size_t body, const double* pressure,
                                            const std::uint8_t* equation) const {
  const std::int64_t strides[3] = {1, cells_.x, std::int64_t(cells_.x) * cells_.y};
  double sum = 0, weights = 0;
  for (std::size_t r = begins_[body]; r < begins_[body + 1]; ++r) {
    const std::int64_t c = rows_[r].cell;
    for (int axis = 0; axis < 3; ++axis) {
      for (const std::int64_t step : {-strides[axis], strides[axis]}) {
        if (gradient[axis] == 0 || !equation[c] || !equation[c + step]) continue;
        const double slope = (pressure[c + step] - pressure[c]) / (step < 0 ? -cellSize_ : cellSize_);
        sum += slope * gradient[axis], weights += gradient[axis] * gradient[axis];
      }
    }
  }
  return weights > 0 ? std::optional(sum / weights) : std::nullopt;
}

// Two bodies may meet in a cell: what they add to it is added body by body.
double BodyCoupling::AddProduct(const double* search, double* product, double dt, WorkerPool& pool) const {
  const std::vector<ForceAndTorque> totals = Forces(search, pool);
  double sum = 0;
  for (std::size_t b = 0; b < bodies_.size(); ++b) {
    const CoupledBody& body = bodies_[b];
    const ForceAndTorque& f = totals[b];
    const Vec3D linear = body.inverseMass * f.force * (dt * inverseCell_);
    const Vec3D angular = body.inverseInertia.Rotate(f.torque) * (dt * inverseCell_);
    if (linear == Vec3D() && angular == Vec3D()) continue;
    sum += Dot(linear, f.force) + Dot(angular, f.torque);
    for (std::size_t r = begins_[b]; r < begins_[b + 1]; ++r) {
      const Row& row = rows_[r];
      product[row.cell] += Dot(row.linear, linear) + Dot(row.angular, angular);
    }
  }
  return sum;
}

}  // namespace orlix
