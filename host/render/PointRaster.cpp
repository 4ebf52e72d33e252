#include "host/render/PointRaster.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "host/render/SampleSequence.h"

namespace orlix {

namespace {

// A point in more tiles than this is tried in every tile, so that a few large ones don't fill the memory.
constexpr int kMostTiles = 4;

// The share of [0, 1) that a point's first sample starts at: points that are seen half lose other samples each.
float FirstThreshold(std::uint32_t point) {
  std::uint32_t h = point * 0x9e3779b9u;
  h = (h ^ (h >> 15)) * 0x85ebca6bu;
  h ^= h >> 13;
  return static_cast<float>(h >> 8) * (1.0f / 16777216.0f);
}

// Samples of a pixel take their turns (the golden ratio spreads them evenly).
bool Sees(std::uint32_t point, int sample, float opacity) {
  const float threshold = FirstThreshold(point) + 0.618034f * static_cast<float>(sample);
  return threshold - std::floor(threshold) < opacity;
}

}  // namespace

template <class F>
void PointRaster::ForEachSpot(std::size_t begin, std::size_t end, F&& f) const {
  const bool parallel = camera_.projection == Projection::Parallel;
  const auto scale = static_cast<float>(width_ / (2 * camera_.halfWidth));
  const auto near = static_cast<float>(camera_.near), far = static_cast<float>(camera_.far);
  const auto middleX = static_cast<float>(0.5 * width_), middleY = static_cast<float>(0.5 * height_);
  const Vec3F right(camera_.right), up(camera_.up), forward(camera_.forward);
  for (std::size_t c = 0; c < clouds_.size(); ++c) {
    const PointCloud& cloud = clouds_[c];
    const Vec3F offset(cloud.origin - camera_.position);
    for (std::size_t p = std::max(begin, firsts_[c]); p < std::min(end, firsts_[c + 1]); ++p) {
      const PointCloud::Point& point = cloud.points[p - firsts_[c]];
      const Vec3F d = point.position + offset;
      Spot spot;
      spot.depth = Dot(d, forward);
      if (!(spot.depth > near && spot.depth < far)) continue;
      const float pixels = parallel ? scale : scale / spot.depth;
      spot.x = middleX + Dot(d, right) * pixels, spot.y = middleY - Dot(d, up) * pixels;
      spot.radius = std::max(point.radius * pixels, cloud.leastRadius);
      const float r = spot.radius, width = static_cast<float>(width_), height = static_cast<float>(height_);
      // Written so that what is no number is nowhere.
      if (!(spot.x + r > 0 && spot.x - r < width && spot.y + r > 0 && spot.y - r < height)) continue;
      spot.opacity = point.opacity;
      spot.point = static_cast<std::uint32_t>(p);
      const auto tile = [&](float at, int tiles) {
        return static_cast<int>(std::clamp(at / static_cast<float>(tileSize_), 0.0f, static_cast<float>(tiles - 1)));
      };
      f(spot, Tiles{tile(spot.x - r, columns_), tile(spot.y - r, rows_), tile(spot.x + r, columns_),
                    tile(spot.y + r, rows_)});
    }
  }
}

PointRaster::PointRaster(const std::vector<PointCloud>& clouds, const Camera& camera, int width, int height,
                         int tileSize, std::vector<Vec2D> places, WorkerPool& workers)
    : clouds_(clouds),
      camera_(camera),
      width_(width),
      height_(height),
      tileSize_(tileSize),
      samples_(static_cast<int>(places.size())),
      columns_((width + tileSize - 1) / tileSize),
      rows_((height + tileSize - 1) / tileSize),
      places_(std::move(places)) {
  firsts_.push_back(0);
  for (const PointCloud& cloud : clouds) firsts_.push_back(firsts_.back() + cloud.points.size());
  Sort(workers);
}

// A counting sort: how many each range of points puts into each tile, then where. Wide ones have a list of their own.
void PointRaster::Sort(WorkerPool& workers) {
  const std::size_t points = firsts_.back(),
                    tiles = static_cast<std::size_t>(columns_) * static_cast<std::size_t>(rows_);
  const auto ranges = static_cast<std::size_t>(workers.count());
  std::vector<std::size_t> places(ranges * (tiles + 1));
  const auto forEachPlace = [&](const auto& f) {
    workers.Run(static_cast<int>(ranges), [&](int worker) {
      const auto range = static_cast<std::size_t>(worker);
      std::size_t* own = &places[range * (tiles + 1)];
      ForEachSpot(points * range / ranges, points * (range + 1) / ranges, [&](const Spot& spot, const Tiles& in) {
        if (in.count() > kMostTiles) {
          f(wide_, spot, own[tiles]);
          return;
        }
        for (int y = in.top; y <= in.bottom; ++y) {
          for (int x = in.left; x <= in.right; ++x) f(spots_, spot, own[y * columns_ + x]);
        }
      });
    });
  };
  forEachPlace([](std::vector<Spot>&, const Spot&, std::size_t& place) { ++place; });
  std::size_t sum = 0, wide = 0;
  for (std::size_t tile = 0; tile <= tiles; ++tile) {
    if (tile < tiles) starts_.push_back(sum);
    std::size_t& total = tile < tiles ? sum : wide;
    for (std::size_t range = 0; range < ranges; ++range) {
      total += std::exchange(places[range * (tiles + 1) + tile], total);
    }
  }
  starts_.push_back(sum);
  spots_.resize(sum);
  wide_.resize(wide);
  forEachPlace([](std::vector<Spot>& to, const Spot& spot, std::size_t& place) { to[place++] = spot; });
  std::sort(wide_.begin(), wide_.end(), [&](const Spot& a, const Spot& b) {
    const float nearA = a.depth - BulgeOf(a), nearB = b.depth - BulgeOf(b);
    return nearA < nearB || (nearA == nearB && a.point < b.point);
  });
}

// The depth by which the middle of a ball is nearer than its rim.
float PointRaster::BulgeOf(const Spot& spot) const {
  if (!clouds_[CloudOf(spot.point)].lit) return 0;
  const auto perPixel = static_cast<float>(2 * camera_.halfWidth / width_);
  return spot.radius * perPixel * (camera_.projection == Projection::Parallel ? 1 : spot.depth);
}

void PointRaster::DrawSpot(const Spot& spot, int left, int top, int right, int bottom,
                           std::vector<PointSample>& drawn) const {
  const float inverse = 1 / spot.radius, bulge = BulgeOf(spot);
  const auto within = [](float at, int low, int high) {
    return static_cast<int>(std::clamp(std::floor(at), static_cast<float>(low), static_cast<float>(high)));
  };
  const int x0 = within(spot.x - spot.radius, left, right), x1 = within(spot.x + spot.radius + 1, left, right);
  const int y0 = within(spot.y - spot.radius, top, bottom), y1 = within(spot.y + spot.radius + 1, top, bottom);
  for (int y = y0; y < y1; ++y) {
    for (int x = x0; x < x1; ++x) {
      PointSample* pixel = &drawn[(static_cast<std::size_t>(y - top) * (right - left) + (x - left)) * samples_];
      for (int s = 0; s < samples_; ++s) {
        const float across = (static_cast<float>(x + places_[s].x) - spot.x) * inverse;
        const float down = (static_cast<float>(y + places_[s].y) - spot.y) * inverse;
        const float square = across * across + down * down;
        if (square > 1 || (spot.opacity < 1 && !Sees(spot.point, s, spot.opacity))) continue;
        const float depth = spot.depth - bulge * std::sqrt(1 - square);
        PointSample& sample = pixel[s];
        if (depth > sample.depth || (depth == sample.depth && spot.point >= sample.point)) continue;
        sample = {depth, spot.point, across, down};
      }
    }
  }
}

void PointRaster::Draw(int tile, int left, int top, int right, int bottom, std::vector<PointSample>& drawn) const {
  drawn.assign(static_cast<std::size_t>(right - left) * (bottom - top) * samples_, {});
  // The nearest of the wide ones come first: what lies behind all that they cover is passed over, so that a heap of
  // points before the camera takes no longer than the few that are seen.
  float farthest = std::numeric_limits<float>::infinity();
  for (const Spot& spot : wide_) {
    if (spot.depth - BulgeOf(spot) > farthest) break;
    if (!(spot.x + spot.radius > left && spot.x - spot.radius < right && spot.y + spot.radius > top &&
          spot.y - spot.radius < bottom)) {
      continue;
    }
    DrawSpot(spot, left, top, right, bottom, drawn);
    farthest = 0;
    for (const PointSample& sample : drawn) farthest = std::max(farthest, sample.depth);
  }
  for (std::size_t s = starts_[tile]; s < starts_[static_cast<std::size_t>(tile) + 1]; ++s) {
    if (spots_[s].depth - BulgeOf(spots_[s]) <= farthest) DrawSpot(spots_[s], left, top, right, bottom, drawn);
  }
}

std::size_t PointRaster::CloudOf(std::size_t point) const {
  return static_cast<std::size_t>(std::upper_bound(firsts_.begin(), firsts_.end(), point) - firsts_.begin()) - 1;
}

PointHit PointRaster::HitOf(const PointSample& sample) const {
  const std::size_t c = CloudOf(sample.point), index = sample.point - firsts_[c];
  const PointCloud& cloud = clouds_[c];
  PointHit hit;
  hit.depth = std::max<double>(sample.depth, camera_.near);
  hit.colour = Vec3D(cloud.points[index].colour);
  if (!cloud.velocities.empty()) hit.velocity = Vec3D(cloud.velocities[index]);
  hit.lit = cloud.lit;
  const double x = sample.across, y = sample.down;
  hit.normal =
      Normalized(camera_.right * x - camera_.up * y - camera_.forward * std::sqrt(std::max(0.0, 1 - x * x - y * y)));
  return hit;
}

}  // namespace orlix
