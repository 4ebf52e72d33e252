#include "fluids/forces/VorticityKernels.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "globals/Multiversion.h"

namespace orlix {

namespace {

constexpr int kBlock = 128;  // cells whose curl stands in the first cache

// Twice the cell-centre components.
inline double U2(const MacComponents& m, std::int64_t i, std::int64_t j, std::int64_t k) {
  const double* p = m.u.data + m.u.slab * k + m.u.dims.x * j + i;
  return p[0] + p[1];
}
inline double V2(const MacComponents& m, std::int64_t i, std::int64_t j, std::int64_t k) {
  const double* p = m.v.data + m.v.slab * k + m.v.dims.x * j + i;
  return p[0] + p[m.v.dims.x];
}
inline double W2(const MacComponents& m, std::int64_t i, std::int64_t j, std::int64_t k) {
  const double* p = m.w.data + m.w.slab * k + m.w.dims.x * j + i;
  return p[0] + p[m.w.slab];
}

}  // namespace

ORLIX_MULTIVERSION
void CurlRow(const MacComponents& m, double inverseCellSize, const Vec3D& mean, std::int32_t j, std::int32_t k,
             std::int32_t begin, std::int32_t end, double* __restrict outX, double* __restrict outY,
             double* __restrict outZ) {
  const double scale = 0.25 * inverseCellSize;
  const std::int64_t nu = m.u.dims.x, nv = m.v.dims.x, nw = m.w.dims.x;
  const double* u = m.u.data + m.u.Index(begin, j, k);
  const double* v = m.v.data + m.v.Index(begin, j, k);
  const double* w = m.w.data + m.w.Index(begin, j, k);
  const double *uLowY = u - nu, *uHighY = u + nu, *uLowZ = u - m.u.slab, *uHighZ = u + m.u.slab;
  const double *vLowZ = v - m.v.slab, *vHighZ = v + m.v.slab;
  const double *wLowY = w - nw, *wHighY = w + nw, *wAbove = w + m.w.slab;
  const double *wLowYAbove = wLowY + m.w.slab, *wHighYAbove = wHighY + m.w.slab;
  const double *vBeyond = v + nv, *vLowZBeyond = vLowZ + nv, *vHighZBeyond = vHighZ + nv;
  const std::int32_t count = end - begin;
  for (std::int32_t i = 0; i < count; ++i) {
    outX[i] = (((wHighY[i] + wHighYAbove[i]) - (wLowY[i] + wLowYAbove[i])) -
               ((vHighZ[i] + vHighZBeyond[i]) - (vLowZ[i] + vLowZBeyond[i]))) *
                  scale -
              mean.x;
  }
  for (std::int32_t i = 0; i < count; ++i) {
    outY[i] = (((uHighZ[i] + uHighZ[i + 1]) - (uLowZ[i] + uLowZ[i + 1])) -
               ((w[i + 1] + wAbove[i + 1]) - (w[i - 1] + wAbove[i - 1]))) *
                  scale -
              mean.y;
  }
  for (std::int32_t i = 0; i < count; ++i) {
    outZ[i] = (((v[i + 1] + vBeyond[i + 1]) - (v[i - 1] + vBeyond[i - 1])) -
               ((uHighY[i] + uHighY[i + 1]) - (uLowY[i] + uLowY[i + 1]))) *
                  scale -
              mean.z;
  }
}

Vec3D MeanCurl(const MacComponents& m, double inverseCellSize, WorkerPool& pool) {
  const VecInt3D n = m.cells();
  if (n.x < 3 || n.y < 3 || n.z < 3) return {};
  // Of a row of central differences only the two last values less the two first remain.
  const auto ends = [](auto&& value, std::int32_t size) {
    return (value(size - 1) + value(size - 2)) - (value(1) + value(0));
  };
  // Differences in x and y: a sum for each layer.
  std::vector<Vec3D> layers(static_cast<std::size_t>(n.z));
  ParallelRange(pool, 1, n.z - 1, [&](int begin, int end, int) {
    for (std::int32_t k = begin; k < end; ++k) {
      Vec3D sum;
      for (std::int32_t i = 1; i < n.x - 1; ++i) {
        sum.x += ends([&](std::int32_t j) { return W2(m, i, j, k); }, n.y);
        sum.z -= ends([&](std::int32_t j) { return U2(m, i, j, k); }, n.y);
      }
      for (std::int32_t j = 1; j < n.y - 1; ++j) {
        sum.y -= ends([&](std::int32_t i) { return W2(m, i, j, k); }, n.x);
        sum.z += ends([&](std::int32_t i) { return V2(m, i, j, k); }, n.x);
      }
      layers[static_cast<std::size_t>(k)] = sum;
    }
  });
  // Differences in z: a sum for each row.
  std::vector<Vec3D> rows(static_cast<std::size_t>(n.y));
  ParallelRange(pool, 1, n.y - 1, [&](int begin, int end, int) {
    for (std::int32_t j = begin; j < end; ++j) {
      Vec3D sum;
      for (std::int32_t i = 1; i < n.x - 1; ++i) {
        sum.x -= ends([&](std::int32_t k) { return V2(m, i, j, k); }, n.z);
        sum.y += ends([&](std::int32_t k) { return U2(m, i, j, k); }, n.z);
      }
      rows[static_cast<std::size_t>(j)] = sum;
    }
  });
  Vec3D sum;
  for (const Vec3D& layer : layers) sum += layer;
  for (const Vec3D& row : rows) sum += row;
  return sum * (0.25 * inverseCellSize / static_cast<double>(CellCount(n - VecInt3D(2, 2, 2))));
}

namespace {

ORLIX_MULTIVERSION
void LengthRow(const double* x, const double* y, const double* z, std::int32_t count, double* out) {
  for (std::int32_t i = 0; i < count; ++i) out[i] = std::sqrt(x[i] * x[i] + y[i] * y[i] + z[i] * z[i]);
}

}  // namespace

void CurlMagnitude(const MacComponents& m, double inverseCellSize, const Vec3D& mean, Grid<double>& magnitude,
                   WorkerPool& pool) {
  const VecInt3D n = magnitude.dims;
  ParallelRange(pool, 0, n.z, [&](int first, int last, int) {
    double x[kBlock], y[kBlock], z[kBlock];
    for (std::int32_t k = first; k < last; ++k) {
      for (std::int32_t j = 0; j < n.y; ++j) {
        double* out = magnitude.data + magnitude.Index(0, j, k);
        if (k == 0 || k == n.z - 1 || j == 0 || j == n.y - 1) {
          std::fill(out, out + n.x, 0.0);
          continue;
        }
        out[0] = out[n.x - 1] = 0;
        for (std::int32_t from = 1; from < n.x - 1; from += kBlock) {
          const std::int32_t to = std::min(from + kBlock, n.x - 1);
          CurlRow(m, inverseCellSize, mean, j, k, from, to, x, y, z);
          LengthRow(x, y, z, to - from, out + from);
        }
      }
    }
  });
}

namespace {

// Amounts of a block, scaled by the flow along the vorticity, which becomes a unit vector.
void ScaleAlongFlow(const MacComponents& m, const ConfinementRow& row, std::int32_t from, std::int32_t count, double* x,
                    double* y, double* z, double* amounts) {
  for (std::int32_t i = 0; i < count; ++i) {
    const std::int32_t cell = from + i;
    const Vec3D velocity = Vec3D(U2(m, cell, row.j, row.k), V2(m, cell, row.j, row.k), W2(m, cell, row.j, row.k)) * 0.5;
    const Vec3D curl(x[i], y[i], z[i]), unit = Normalized(curl);
    amounts[i] *= Dot(velocity, curl);
    x[i] = unit.x, y[i] = unit.y, z[i] = unit.z;
  }
}

// f += amount (g x w) / |g|, g the central differences of a row's magnitudes.
ORLIX_MULTIVERSION
void CrossRow(const double* magnitude, std::int64_t rowStride, std::int64_t slab, double halfInverse, double epsilon,
              const double* x, const double* y, const double* z, const double* amounts, std::int32_t count,
              double* __restrict fx, double* __restrict fy, double* __restrict fz) {
  const double *lowY = magnitude - rowStride, *highY = magnitude + rowStride, *lowZ = magnitude - slab,
               *highZ = magnitude + slab;
  for (std::int32_t i = 0; i < count; ++i) {
    const double gx = (magnitude[i + 1] - magnitude[i - 1]) * halfInverse, gy = (highY[i] - lowY[i]) * halfInverse,
                 gz = (highZ[i] - lowZ[i]) * halfInverse;
    const double length = std::sqrt(gx * gx + gy * gy + gz * gz) + epsilon;
    const double scale = length > epsilon ? amounts[i] / length : 0;
    fx[i] += (gy * z[i] - gz * y[i]) * scale;
    fy[i] += (gz * x[i] - gx * z[i]) * scale;
    fz[i] += (gx * y[i] - gy * x[i]) * scale;
  }
}

}  // namespace

void AddConfinement(const MacComponents& m, const GridView<const double>& magnitude, const Confinement& terms,
                    const ConfinementRow& row) {
  double x[kBlock], y[kBlock], z[kBlock], amounts[kBlock];
  for (std::int32_t from = row.begin; from < row.end; from += kBlock) {
    const std::int32_t to = std::min(from + kBlock, row.end), count = to - from;
    CurlRow(m, terms.inverseCellSize, terms.mean, row.j, row.k, from, to, x, y, z);
    const double* scaled = row.amounts + from;
    if (terms.alongFlow) {
      std::copy_n(scaled, count, amounts);
      ScaleAlongFlow(m, row, from, count, x, y, z, amounts);
      scaled = amounts;
    }
    CrossRow(magnitude.data + magnitude.Index(from, row.j, row.k), magnitude.dims.x, magnitude.slab,
             0.5 * terms.inverseCellSize, terms.epsilon, x, y, z, scaled, count, row.force[0] + from,
             row.force[1] + from, row.force[2] + from);
  }
}

}  // namespace orlix
