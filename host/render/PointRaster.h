#pragma once
// Which point of the clouds each sample of a picture sees first. Points are sorted into the tiles of the picture, then
// each tile is drawn against a depth for each of its samples; the nearest wins, of equally near ones the first. What a
// point is to look like on its rim is that of a disc that faces the camera at the point's depth.

#include <cstdint>
#include <limits>
#include <vector>

#include "globals/Vec.h"
#include "host/render/Camera.h"
#include "host/render/PointCloud.h"
#include "host/threads/WorkerPool.h"

namespace orlix {

// What a sample sees of the clouds. Without a point, depth is infinite.
struct PointSample {
  float depth = std::numeric_limits<float>::infinity();  // along the view axis, from the eye
  std::uint32_t point = 0;                               // counted over all clouds
  float across = 0, down = 0;                            // from the point's middle, in its radius
};

// The same as a shader wants it.
struct PointHit {
  double depth = 0;
  Vec3D colour, normal, velocity;
  bool lit = false;
};

class PointRaster {
 public:
  // The clouds must stay as they are while the raster lives. places: of each pixel's samples. Throws std::bad_alloc.
  PointRaster(const std::vector<PointCloud>& clouds, const Camera& camera, int width, int height, int tileSize,
              std::vector<Vec2D> places, WorkerPool& workers);

  bool empty() const { return spots_.empty() && wide_.empty(); }
  // Points that may be seen, once for each tile that they lie in.
  std::size_t spotCount() const { return spots_.size() + wide_.size(); }
  // The samples of a tile, pixel by pixel in its rows. left to bottom: its pixels.
  void Draw(int tile, int left, int top, int right, int bottom, std::vector<PointSample>& drawn) const;
  PointHit HitOf(const PointSample& sample) const;

 private:
  // A point in the picture: pixels, but for depth.
  struct Spot {
    float x, y, radius, depth, opacity;
    std::uint32_t point;
  };
  struct Tiles {
    int left, top, right, bottom;  // right and bottom are included
    int count() const { return (right - left + 1) * (bottom - top + 1); }
  };
  void Sort(WorkerPool& workers);
  // f(spot, tiles) for points [begin, end) that lie in the picture.
  template <class F>
  void ForEachSpot(std::size_t begin, std::size_t end, F&& f) const;
  std::size_t CloudOf(std::size_t point) const;
  float BulgeOf(const Spot& spot) const;
  void DrawSpot(const Spot& spot, int left, int top, int right, int bottom, std::vector<PointSample>& drawn) const;

  const std::vector<PointCloud>& clouds_;
  const Camera camera_;
  const int width_, height_, tileSize_, samples_, columns_, rows_;
  std::vector<std::size_t> firsts_;  // of each cloud's points, and the end
  std::vector<Spot> spots_;          // tile by tile
  std::vector<std::size_t> starts_;  // of each tile in spots_, and the end
  std::vector<Spot> wide_;           // those that lie in many tiles, the nearest first
  std::vector<Vec2D> places_;        // of the samples in a pixel
};

}  // namespace orlix
