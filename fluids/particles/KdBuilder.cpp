#include "fluids/particles/KdBuilder.h"

#include <algorithm>
#include <atomic>
#include <utility>

#include "fluids/grids/PieceMemory.h"

namespace orlix {

namespace {

using Point = KdBuilder::Point;
using Box = KdBuilder::Box;

constexpr std::int32_t kPartPoints = 2048;  // that a part has at most, about
constexpr std::int32_t kSamplesAPart = 16;
constexpr std::int32_t kLeafPoints = KdLeaf::kPoints;

std::int32_t LeavesFor(std::int32_t points) { return (points + kLeafPoints - 1) / kLeafPoints; }

// Leaves of each child of a node over so many: the largest power of eight below, so that lower nodes are full.
std::int32_t LeavesOfChild(std::int32_t leaves) {
  std::int32_t child = 1;
  while (child * KdBoxes::kChildren < leaves) child *= KdBoxes::kChildren;
  return child;
}

std::int32_t NodesFor(std::int32_t leaves) {
  if (leaves <= 1) return 0;
  const std::int32_t child = LeavesOfChild(leaves), full = leaves / child, rest = leaves % child;
  return 1 + full * NodesFor(child) + NodesFor(rest);
}

struct AlongAxis {
  int axis;
  bool operator()(const Point& a, const Point& b) const {
    return a.x[axis] != b.x[axis] ? a.x[axis] < b.x[axis] : a.index < b.index;
  }
};

void Widen(Box& box, const Box& other) { box.low = Min(box.low, other.low), box.high = Max(box.high, other.high); }

Box BoxOf(const Point* points, std::int32_t begin, std::int32_t end) {
  Box box;
  for (std::int32_t p = begin; p < end; ++p) Widen(box, {points[p].x, points[p].x});
  return box;
}

int LongestAxis(const Box& box) {
  const Vec3D size = box.high - box.low;
  int axis = 0;
  for (int a = 1; a < 3; ++a) {
    if (size[a] >= size[axis]) axis = a;
  }
  return axis;
}

void SetChild(KdBoxes& node, int c, std::int32_t child, const Box& box) {
  for (int a = 0; a < 3; ++a) node.low[a][c] = box.low[a], node.high[a][c] = box.high[a];
  node.child[c] = child;
}

}  // namespace

std::int32_t KdBuilder::Build(std::vector<Point>& points) {
  const auto count = static_cast<std::int32_t>(points.size());
  levels_ = 0;
  while ((count >> levels_) > kPartPoints) levels_ += 3;
  parts_.assign(std::size_t(1) << levels_, {});
  cuts_.assign(parts_.size(), {});
  if (levels_ > 0) {
    const std::int64_t samples = static_cast<std::int64_t>(parts_.size()) * kSamplesAPart;
    std::vector<Point> sample;
    for (std::int64_t s = 0; s < samples; ++s) sample.push_back(points[static_cast<std::size_t>(s * count / samples)]);
    CutSample(sample, 0, 0, static_cast<std::int32_t>(samples), levels_);
  }
  ShareOut(points);
  // The nodes above the parts come first.
  std::int32_t node = 0, leaf = 0;
  for (std::size_t level = parts_.size(); level > 1; level /= 8) node += static_cast<std::int32_t>(level / 8);
  for (Part& part : parts_) {
    part.node = node, part.leaf = leaf;
    const std::int32_t leaves = LeavesFor(part.end - part.begin);
    leaf += leaves, node += NodesFor(leaves);
  }
  nodes_.resize(static_cast<std::size_t>(node));
  leaves_.resize(static_cast<std::size_t>(leaf));
  std::atomic<std::size_t> next{0};
  pool_.Run(pool_.count(), [&](int) {
    for (std::size_t p = next++; p < parts_.size(); p = next++) {
      Part& part = parts_[p];
      if (part.begin < part.end) part.root = BuildPart(part, points.data(), part.begin, part.end, part.box);
    }
  });
  Box whole;
  nextTop_ = 0;
  return JoinParts(0, parts_.size(), whole);
}

// The medians of the sample's longest sides.
void KdBuilder::CutSample(std::vector<Point>& sample, std::size_t cut, std::int32_t begin, std::int32_t end,
                          int levels) {
  if (levels == 0) return;
  const int axis = LongestAxis(BoxOf(sample.data(), begin, end));
  const std::int32_t half = begin + (end - begin) / 2;
  std::nth_element(sample.begin() + begin, sample.begin() + half, sample.begin() + end, AlongAxis{axis});
  cuts_[cut] = {axis, sample[static_cast<std::size_t>(half)].x[axis]};
  CutSample(sample, 2 * cut + 1, begin, half, levels - 1);
  CutSample(sample, 2 * cut + 2, half, end, levels - 1);
}

std::size_t KdBuilder::PartOf(const Vec3D& x) const {
  std::size_t at = 0;
  for (int level = 0; level < levels_; ++level) {
    const Cut& cut = cuts_[at];
    at = 2 * at + 1 + (x[cut.axis] < cut.at ? 0 : 1);
  }
  return at + 1 - (std::size_t(1) << levels_);
}

// A stable counting sort by part.
void KdBuilder::ShareOut(std::vector<Point>& points) {
  const auto count = static_cast<std::int32_t>(points.size());
  if (levels_ == 0) {
    parts_[0].end = count;
    return;
  }
  const int workers = pool_.count();
  std::vector<std::uint32_t> partOf;
  ReserveOnLargePages(partOf, points.size());
  partOf.resize(points.size());
  std::vector<std::vector<std::int32_t>> next(static_cast<std::size_t>(workers),
                                              std::vector<std::int32_t>(parts_.size()));
  const auto share = [&](auto&& f) {
    pool_.Run(workers, [&](int w) {
      const auto from = static_cast<std::size_t>(std::int64_t(count) * w / workers);
      const auto to = static_cast<std::size_t>(std::int64_t(count) * (w + 1) / workers);
      for (std::size_t p = from; p < to; ++p) f(p, next[static_cast<std::size_t>(w)].data());
    });
  };
  share([&](std::size_t p, std::int32_t* counts) {
    partOf[p] = static_cast<std::uint32_t>(PartOf(points[p].x));
    ++counts[partOf[p]];
  });
  std::int32_t begin = 0;
  for (std::size_t p = 0; p < parts_.size(); ++p) {
    parts_[p].begin = begin;
    for (auto& own : next) begin += std::exchange(own[p], begin);
    parts_[p].end = begin;
  }
  std::vector<Point> sorted;
  ReserveOnLargePages(sorted, points.size());
  sorted.resize(points.size());
  share(
      [&](std::size_t p, std::int32_t* places) { sorted[static_cast<std::size_t>(places[partOf[p]]++)] = points[p]; });
  points.swap(sorted);
}

std::int32_t KdBuilder::FillLeaf(Part& part, const Point* points, std::int32_t begin, std::int32_t end, Box& box) {
  KdLeaf& leaf = leaves_[static_cast<std::size_t>(part.leaf)];
  for (std::int32_t l = 0; l < kLeafPoints; ++l) {
    const bool there = begin + l < end;
    const Point& point = points[there ? begin + l : begin];
    leaf.x[l] = there ? point.x.x : kNowhere;
    leaf.y[l] = there ? point.x.y : kNowhere;
    leaf.z[l] = there ? point.x.z : kNowhere;
    leaf.index[l] = there ? point.index : -1;
  }
  box = BoxOf(points, begin, end);
  return ~part.leaf++;
}

// Cuts [begin, end) at multiples of a child's points, each time along the longest side.
std::int32_t KdBuilder::BuildPart(Part& part, Point* points, std::int32_t begin, std::int32_t end, Box& box) {
  const std::int32_t leaves = LeavesFor(end - begin);
  if (leaves <= 1) return FillLeaf(part, points, begin, end, box);
  const std::int32_t self = part.node++, step = LeavesOfChild(leaves) * kLeafPoints;
  box = BoxOf(points, begin, end);
  struct Run {
    std::int32_t begin, end;
    Box box;
  } runs[KdBoxes::kChildren] = {{begin, end, box}};
  int count = 1;
  for (int r = 0; r < count;) {
    Run& run = runs[r];
    const std::int32_t units = (run.end - run.begin + step - 1) / step;
    if (units == 1) {
      ++r;
      continue;
    }
    const int axis = LongestAxis(run.box);
    const std::int32_t half = run.begin + units / 2 * step;
    std::nth_element(points + run.begin, points + half, points + run.end, AlongAxis{axis});
    Run upper{half, run.end, run.box};
    upper.box.low[axis] = run.box.high[axis] = points[half].x[axis];
    run.end = half;
    for (int m = count++; m > r + 1; --m) runs[m] = runs[m - 1];
    runs[r + 1] = upper;
  }
  for (int c = 0; c < KdBoxes::kChildren; ++c) {
    Box own;
    const std::int32_t child = c < count ? BuildPart(part, points, runs[c].begin, runs[c].end, own) : 0;
    SetChild(nodes_[static_cast<std::size_t>(self)], c, child, own);
  }
  return self;
}

// The nodes above the parts, eight at a time.
std::int32_t KdBuilder::JoinParts(std::size_t first, std::size_t count, Box& box) {
  if (count == 1) {
    box = parts_[first].box;
    return parts_[first].root;
  }
  const std::int32_t self = nextTop_++;
  for (int c = 0; c < KdBoxes::kChildren; ++c) {
    Box own;
    const std::int32_t child = JoinParts(first + count / 8 * static_cast<std::size_t>(c), count / 8, own);
    SetChild(nodes_[static_cast<std::size_t>(self)], c, child, own);
    Widen(box, own);
  }
  return self;
}

}  // namespace orlix
