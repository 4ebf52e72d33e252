#pragma once
// Builds the nodes of a ParticleKdTree, on all workers. The tree's upper levels are cut by the medians of a sample; the
// points, shared out by them, make parts that are cut exactly, each by one worker. The same tree at any number of them.

#include <span>
#include <vector>

#include "fluids/particles/KdNodes.h"
#include "host/threads/WorkerPool.h"

namespace orlix {

class KdBuilder {
 public:
  struct Point {
    Vec3D x;
    std::int32_t index;
  };
  struct Box {
    Vec3D low{kNowhere}, high{-kNowhere};
  };

  KdBuilder(WorkerPool& pool, std::vector<KdBoxes>& nodes, std::vector<KdLeaf>& leaves)
      : pool_(pool), nodes_(nodes), leaves_(leaves) {}

  // Fills nodes and leaves and gives the root, as a child. The points end in another order.
  std::int32_t Build(std::vector<Point>& points);

 private:
  // A range of points that one worker cuts, and where its nodes and leaves go.
  struct Part {
    std::int32_t begin = 0, end = 0, node = 0, leaf = 0;
    std::int32_t root = 0;
    Box box;
  };

  void CutSample(std::vector<Point>& sample, std::size_t cut, std::int32_t begin, std::int32_t end, int levels);
  std::size_t PartOf(const Vec3D& x) const;
  void ShareOut(std::vector<Point>& points);
  std::int32_t BuildPart(Part& part, Point* points, std::int32_t begin, std::int32_t end, Box& box);
  std::int32_t FillLeaf(Part& part, const Point* points, std::int32_t begin, std::int32_t end, Box& box);
  std::int32_t JoinParts(std::size_t first, std::size_t count, Box& box);

  struct Cut {
    std::int32_t axis = 0;
    double at = 0;
  };

  WorkerPool& pool_;
  std::vector<KdBoxes>& nodes_;
  std::vector<KdLeaf>& leaves_;
  int levels_ = 0;         // of binary cuts above the parts, a multiple of 3
  std::vector<Cut> cuts_;  // a heap: the children of n are 2n + 1 and 2n + 2
  std::vector<Part> parts_;
  std::int32_t nextTop_ = 0;  // of the nodes above the parts
};

}  // namespace orlix
