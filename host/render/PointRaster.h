#pragma once
// Which point of the clouds each sample of a picture sees first. Points are sorted into the tiles of the picture, then
// each tile is drawn against a depth for each of its samples; the nearest wins, of equally near ones the first. What a
// point is to look like on its rim is that of a disc that faces the camera at the point's depth. Points that move while
// the shutter is open, and those out of focus, are where each sample's time and place of the lens have them; between
// the ends of the shutter they go in a straight line of the picture.

#include <cstdint>
#include <limits>
#include <vector>

#include "globals/Vec.h"
#include "host/render/Camera.h"
#include "host/render/PointCloud.h"
#include "host/threads/WorkerPool.h"

namespace orlix {

class RenderWorld;
struct SampleMoment;

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
  // The world's clouds must stay as they are while the raster lives. places: of each pixel's samples. Throws
  // std::bad_alloc.
  PointRaster(const RenderWorld& world, int tileSize, std::vector<Vec2D> places, WorkerPool& workers);

  bool empty() const { return spots_.empty() && wide_.empty(); }
  // Points that may be seen, once for each tile that they lie in.
  std::size_t spotCount() const { return spots_.size() + wide_.size(); }
  // Pixels; right and bottom lie outside.
  struct Area {
    int left, top, right, bottom;
  };
  // The samples of a tile, pixel by pixel in the rows of its area.
  void Draw(int tile, const Area& area, std::vector<PointSample>& drawn) const;
  PointHit HitOf(const PointSample& sample) const;

 private:
  // A point in the picture: pixels, but for depth. Of one that is blurred: a square around all of its places, and the
  // depth that is nearest.
  struct Spot {
    float x, y, radius, depth, opacity;
    std::uint32_t point;
  };
  // A point at one end of the shutter.
  struct Seen {
    float x = 0, y = 0, radius = 0, depth = 0;  // pixels, but for depth
    float bulge = 0;                            // depth by which the middle of a ball is nearer than its rim
    float lens = 0;                             // pixels to the right by which the lens's right rim sees it
  };
  // The camera at one end of the shutter, or at rest.
  struct Eye {
    Eye(const Camera& camera, int width, int height);
    // All but bulge and lens; d: from the camera.
    Seen See(const Vec3F& d, float radius, float least) const;
    // Of a ball.
    float BulgeOf(float radius, float depth) const { return radius * perPixel * (parallel ? 1 : depth); }
    Vec3D position;
    Vec3F right, up, forward;
    float scale, perPixel, middleX, middleY, near, far, lens, inverseFocus;
    bool parallel;
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
  Seen SeenFrom(int end, const PointCloud& cloud, std::size_t index) const;
  // False where either end of the shutter doesn't see the point.
  bool Surround(const PointCloud& cloud, std::size_t index, Spot& spot) const;
  float BulgeOf(const Spot& spot) const;
  float NearestOf(const Spot& spot) const { return blurred_ ? spot.depth : spot.depth - BulgeOf(spot); }
  void DrawSpot(const Spot& spot, const Area& tile, const std::vector<SampleMoment>& moments,
                std::vector<PointSample>& drawn) const;
  template <class F>
  void ForEachSample(const Spot& spot, const Area& tile, std::vector<PointSample>& drawn, F&& f) const;
  std::vector<SampleMoment> MomentsOf(const Area& tile) const;

  const RenderWorld& world_;
  const std::vector<PointCloud>& clouds_;
  const Eye eyes_[2];
  const bool blurred_;
  const float halfShutter_;  // seconds
  const int width_, height_, tileSize_, samples_, columns_, rows_;
  std::vector<std::size_t> firsts_;  // of each cloud's points, and the end
  std::vector<Spot> spots_;          // tile by tile
  std::vector<std::size_t> starts_;  // of each tile in spots_, and the end
  std::vector<Spot> wide_;           // those that lie in many tiles, the nearest first
  std::vector<Vec2D> places_;        // of the samples in a pixel
};

}  // namespace orlix
