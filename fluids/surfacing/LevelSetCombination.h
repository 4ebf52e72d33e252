#pragma once
// Two level sets made into one, node by node; a is the first's value, b the second's, b' = b - offset. Metres, negative
// inside.
//
//   Union          min(a, b')
//   Intersection   max(a, b')
//   Subtraction    max(a, -b')
//   Blend          by its mode, with t from a node's weight
//     Smooth       (a + b' - sqrt(|a^2 + b'^2 - 2 t a b'|)) / (t + 1) - value: an R-function (Rvachev), min(a, b') at
//     1,
//                  whose zero is the union's; value moves the surface out, further at seams
//     Soft         (value - h(a) - h(b)) 4/3 t, h(x) = 2 s^3 - 3 s^2 + 1, s = x / t in [0, 1]: soft objects of reach t;
//                  no distance, but its zero is a surface. The union at t = 0
//     Morph        a + (b' - a) t

#include <vector>

#include "fluids/grids/EGrid.h"
#include "host/threads/WorkerPool.h"

namespace orlix {

struct CombinationSettings {
  enum class Operation : std::int32_t { Union, Intersection, Subtraction, Blend };
  enum class BlendMode : std::int32_t { Smooth, Soft, Morph };
  Operation operation = Operation::Union;
  BlendMode blendMode = BlendMode::Smooth;
  double offset = 0;      // m, by which the second grows
  double blendValue = 0;  // m, of Smooth; of Soft, where the surface lies
};

void CombineRow(const CombinationSettings& settings, const double* a, const double* b, const double* t, int count,
                double* result);

// Rows of a level set on another's nodes. Beyond its box, its border's value and the distance from there.
class LevelSetRows {
 public:
  LevelSetRows(const ScalarGrid& source, const ScalarGrid& target);
  // The nodes of the target that lie at most margin (m) outside the source's box: [low, high).
  void Reach(double margin, VecInt3D& low, VecInt3D& high) const;
  void Read(int j, int k, double* row) const;

 private:
  GridView<const double> source_;
  VecInt3D dims_;    // the target's
  Vec3D origin_;     // the target's first node, in nodes of the source
  double step_ = 1;  // from node to node, in nodes of the source
  double cell_ = 1;  // of the source, m
  bool aligned_ = false;
};

// Fills the target, whose lattice the caller chose. weights(j, k, worker) gives t for each node of a row; Blend alone
// asks. The others change only what the second reaches, also by its offset; other nodes have the first's value.
template <class Weights>
void CombineLevelSets(WorkerPool& pool, const CombinationSettings& settings, const LevelSetRows& first,
                      const LevelSetRows& second, ScalarGrid& target, Weights&& weights) {
  const bool blend = settings.operation == CombinationSettings::Operation::Blend;
  VecInt3D low, high = target.dims;
  if (!blend) second.Reach(settings.offset > 0 ? settings.offset : 0, low, high);
  std::vector<double> buffers(std::size_t(target.dims.x) * std::size_t(pool.count()));
  ParallelRange(pool, 0, target.dims.z, [&](int from, int to, int worker) {
    double* b = buffers.data() + std::size_t(target.dims.x) * std::size_t(worker);
    for (int k = from; k < to; ++k) {
      for (int j = 0; j < target.dims.y; ++j) {
        double* row = &target(0, j, k);
        first.Read(j, k, row);
        if (k < low.z || k >= high.z || j < low.y || j >= high.y || low.x >= high.x) continue;
        second.Read(j, k, b);
        const double* t = blend ? weights(j, k, worker) : b;
        CombineRow(settings, row + low.x, b + low.x, t + low.x, high.x - low.x, row + low.x);
      }
    }
  });
}

}  // namespace orlix
