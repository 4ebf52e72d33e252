#include "fluids/particles/ParticleKdTree.h"

#include <algorithm>
#include <cmath>

namespace orlix {

void ParticleKdTree::Build(const ParticleList& list, WorkerPool& pool, bool smoothed) {
  points_.resize(static_cast<std::size_t>(list.count()));
  ParallelRows(pool, list, [&](const ParticleRows& rows, int) {
    const auto centres = rows.Property<Vec3D>(PP::SmoothedCentre);
    for (std::int32_t r = rows.begin; r < rows.end; ++r) {
      const Vec3D& x = rows.positions()[r];
      points_[static_cast<std::size_t>(rows.first + r)] = {smoothed ? centres.Get(r, x) : x, rows.first + r};
    }
  });
  BuildNodes();
}

void ParticleKdTree::Build(std::span<const Vec3D> points, WorkerPool&) {
  points_.resize(points.size());
  for (std::size_t i = 0; i < points.size(); ++i) points_[i] = {points[i], static_cast<std::int32_t>(i)};
  BuildNodes();
}

void ParticleKdTree::SetCapacity(std::int32_t k) { capacity_ = std::max(k, 1); }

std::int64_t ParticleKdTree::Bytes() const {
  return static_cast<std::int64_t>(points_.capacity() * sizeof(Point) + nodes_.capacity() * sizeof(Node));
}

void ParticleKdTree::BuildNodes() {
  nodes_.clear();
  if (points_.empty()) return;
  boxMin_ = boxMax_ = points_[0].x;
  for (const Point& p : points_) boxMin_ = Min(boxMin_, p.x), boxMax_ = Max(boxMax_, p.x);
  BuildNode(0, pointCount(), boxMin_, boxMax_);
}

std::int32_t ParticleKdTree::BuildNode(std::int32_t begin, std::int32_t end, Vec3D boxMin, Vec3D boxMax) {
  const auto self = static_cast<std::int32_t>(nodes_.size());
  nodes_.push_back({0, -1, begin, end});
  if (end - begin <= kBucketSize) return self;
  const Vec3D size = boxMax - boxMin;
  int axis = 0;
  for (int a = 1; a < 3; ++a) {
    if (size[a] >= size[axis]) axis = a;
  }
  const auto first = points_.begin() + begin, last = points_.begin() + end;
  const auto [lowest, highest] =
      std::minmax_element(first, last, [axis](const Point& a, const Point& b) { return a.x[axis] < b.x[axis]; });
  const double low = lowest->x[axis], high = highest->x[axis];
  const double cut = std::clamp((boxMin[axis] + boxMax[axis]) / 2, low, high);
  const auto equal = std::partition(first, last, [&](const Point& p) { return p.x[axis] < cut; });
  const auto above = std::partition(equal, last, [&](const Point& p) { return p.x[axis] == cut; });
  const auto below = static_cast<std::int32_t>(equal - first), upTo = static_cast<std::int32_t>(above - first);
  const std::int32_t half = (end - begin) / 2;
  std::int32_t split = below > half ? below : upTo < half ? upTo : half;
  split = begin + std::clamp(split, 1, end - begin - 1);
  Vec3D lowMax = boxMax, highMin = boxMin;
  lowMax[axis] = highMin[axis] = cut;
  const std::int32_t a = BuildNode(begin, split, boxMin, lowMax);
  const std::int32_t b = BuildNode(split, end, highMin, boxMax);
  nodes_[static_cast<std::size_t>(self)] = {cut, axis, a, b};
  return self;
}

// The k best so far, sorted, nearest first; of equally near ones the lower index first.
struct ParticleKdTree::Query {
  const ParticleKdTree& tree;
  Vec3D x;
  double bound;  // squared; points at it or beyond are out
  std::vector<Neighbour>& best;
  std::size_t capacity;

  double Worst() const { return best.size() < capacity ? bound : best.back().distanceSquared; }
  void Take(const Point& p) {
    const double d = LengthSquared(p.x - x);
    if (!(d < bound)) return;
    const auto nearer = [](const Neighbour& a, const Neighbour& b) {
      return a.distanceSquared != b.distanceSquared ? a.distanceSquared < b.distanceSquared : a.index < b.index;
    };
    const Neighbour found{p.index, d, 0};
    if (best.size() == capacity) {
      if (!nearer(found, best.back())) return;
      best.pop_back();
    }
    best.insert(std::upper_bound(best.begin(), best.end(), found, nearer), found);
  }
  // boxDistance: squared, from x to the node's box, the sum of the squares of offsets.
  void Visit(std::int32_t index, double boxDistance, Vec3D offsets) {
    const Node& node = tree.nodes_[static_cast<std::size_t>(index)];
    if (node.axis < 0) {
      for (std::int32_t p = node.first; p < node.second; ++p) Take(tree.points_[static_cast<std::size_t>(p)]);
      return;
    }
    const double d = x[node.axis] - node.cut;
    const bool low = d < 0;
    Visit(low ? node.first : node.second, boxDistance, offsets);
    // Rounding must not hide a point that lies on the bound of the k best.
    const double far = (boxDistance - offsets[node.axis] * offsets[node.axis] + d * d) * (1 - 1e-12);
    if (far > Worst()) return;
    offsets[node.axis] = d;
    Visit(low ? node.second : node.first, far, offsets);
  }
};

std::span<const Neighbour> ParticleKdTree::Search(const Vec3D& position, double maxDistanceSquared,
                                                  std::int32_t thread) const {
  std::vector<Neighbour>& best = results_[thread];
  best.clear();
  if (nodes_.empty()) return best;
  Query query{*this, position, maxDistanceSquared, best, static_cast<std::size_t>(capacity_)};
  Vec3D offsets;
  for (int a = 0; a < 3; ++a) {
    offsets[a] = std::max({boxMin_[a] - position[a], position[a] - boxMax_[a], 0.0});
  }
  query.Visit(0, LengthSquared(offsets), offsets);
  for (Neighbour& n : best) n.distance = std::sqrt(n.distanceSquared);
  return best;
}

}  // namespace orlix
