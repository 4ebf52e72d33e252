#include "host/render/PointRaster.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "host/render/RenderWorld.h"
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

PointRaster::Eye::Eye(const Camera& camera, int width, int height)
    : position(camera.position),
      right(camera.right),
      up(camera.up),
      forward(camera.forward),
      scale(static_cast<float>(width / (2 * camera.halfWidth))),
      perPixel(static_cast<float>(2 * camera.halfWidth / width)),
      middleX(static_cast<float>(0.5 * width)),
      middleY(static_cast<float>(0.5 * height)),
      near(static_cast<float>(camera.near)),
      far(static_cast<float>(camera.far)),
      lens(camera.projection == Projection::Parallel ? 0 : static_cast<float>(0.5 * camera.aperture)),
      inverseFocus(static_cast<float>(1 / camera.focus)),
      parallel(camera.projection == Projection::Parallel) {}

PointRaster::Seen PointRaster::Eye::See(const Vec3F& d, float radius, float least) const {
  Seen seen;
  seen.depth = Dot(d, forward);
  const float pixels = parallel ? scale : scale / seen.depth;
  seen.x = middleX + Dot(d, right) * pixels, seen.y = middleY - Dot(d, up) * pixels;
  seen.radius = std::max(radius * pixels, least);
  return seen;
}

PointRaster::Seen PointRaster::SeenFrom(int end, const PointCloud& cloud, std::size_t index) const {
  const PointCloud::Point& point = cloud.points[index];
  Vec3F d = point.position + Vec3F(cloud.origin - eyes_[end].position);
  if (!cloud.velocities.empty()) d += cloud.velocities[index] * (end == 0 ? -halfShutter_ : halfShutter_);
  const Eye& eye = eyes_[end];
  Seen seen = eye.See(d, point.radius, cloud.leastRadius);
  if (cloud.lit) seen.bulge = eye.BulgeOf(seen.radius, seen.depth);
  seen.lens = eye.lens * eye.scale * (eye.inverseFocus - 1 / seen.depth);
  return seen;
}

bool PointRaster::Surround(const PointCloud& cloud, std::size_t index, Spot& spot) const {
  const Seen ends[] = {SeenFrom(0, cloud, index), SeenFrom(1, cloud, index)};
  float left = std::numeric_limits<float>::infinity(), right = -left, top = left, bottom = -left;
  spot.depth = left;
  for (int end = 0; end < 2; ++end) {
    const Seen& seen = ends[end];
    if (!(seen.depth > eyes_[end].near && seen.depth < eyes_[end].far)) return false;
    const float reach = seen.radius + std::abs(seen.lens);
    left = std::min(left, seen.x - reach), right = std::max(right, seen.x + reach);
    top = std::min(top, seen.y - reach), bottom = std::max(bottom, seen.y + reach);
    spot.depth = std::min(spot.depth, seen.depth - seen.bulge);
  }
  spot.x = 0.5f * (left + right), spot.y = 0.5f * (top + bottom);
  spot.radius = 0.5f * std::max(right - left, bottom - top);
  return true;
}

template <class F>
void PointRaster::ForEachSpot(std::size_t begin, std::size_t end, F&& f) const {
  const Eye& eye = eyes_[0];
  for (std::size_t c = 0; c < clouds_.size(); ++c) {
    const PointCloud& cloud = clouds_[c];
    const Vec3F offset(cloud.origin - eye.position);
    for (std::size_t p = std::max(begin, firsts_[c]); p < std::min(end, firsts_[c + 1]); ++p) {
      const PointCloud::Point& point = cloud.points[p - firsts_[c]];
      Spot spot;
      if (blurred_) {
        if (!Surround(cloud, p - firsts_[c], spot)) continue;
      } else {
        const Seen seen = eye.See(point.position + offset, point.radius, cloud.leastRadius);
        if (!(seen.depth > eye.near && seen.depth < eye.far)) continue;
        spot.x = seen.x, spot.y = seen.y, spot.radius = seen.radius, spot.depth = seen.depth;
      }
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

PointRaster::PointRaster(const RenderWorld& world, int tileSize, std::vector<Vec2D> places, WorkerPool& workers)
    : world_(world),
      clouds_(world.points),
      eyes_{Eye(world.camera, world.settings.width, world.settings.height),
            Eye(world.cameraMoves ? world.closing : world.camera, world.settings.width, world.settings.height)},
      blurred_(world.settings.shutter > 0 || eyes_[0].lens > 0),
      halfShutter_(static_cast<float>(0.5 * world.settings.ShutterSeconds())),
      width_(world.settings.width),
      height_(world.settings.height),
      tileSize_(tileSize),
      samples_(static_cast<int>(places.size())),
      columns_((width_ + tileSize - 1) / tileSize),
      rows_((height_ + tileSize - 1) / tileSize),
      places_(std::move(places)) {
  firsts_.push_back(0);
  for (const PointCloud& cloud : clouds_) firsts_.push_back(firsts_.back() + cloud.points.size());
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
    const float nearA = NearestOf(a), nearB = NearestOf(b);
    return nearA < nearB || (nearA == nearB && a.point < b.point);
  });
}

float PointRaster::BulgeOf(const Spot& spot) const {
  return clouds_[CloudOf(spot.point)].lit ? eyes_[0].BulgeOf(spot.radius, spot.depth) : 0;
}

// The pixels of the tile around the spot: f(sample of the first one's row and so on, x, y) for each sample.
template <class F>
void PointRaster::ForEachSample(const Spot& spot, const Area& tile, std::vector<PointSample>& drawn, F&& f) const {
  const auto within = [](float at, int low, int high) {
    return static_cast<int>(std::clamp(std::floor(at), static_cast<float>(low), static_cast<float>(high)));
  };
  const int x0 = within(spot.x - spot.radius, tile.left, tile.right);
  const int x1 = within(spot.x + spot.radius + 1, tile.left, tile.right);
  const int y0 = within(spot.y - spot.radius, tile.top, tile.bottom);
  const int y1 = within(spot.y + spot.radius + 1, tile.top, tile.bottom);
  for (int y = y0; y < y1; ++y) {
    for (int x = x0; x < x1; ++x) {
      const std::size_t first =
          (static_cast<std::size_t>(y - tile.top) * (tile.right - tile.left) + (x - tile.left)) * samples_;
      for (int s = 0; s < samples_; ++s) {
        if (spot.opacity < 1 && !Sees(spot.point, s, spot.opacity)) continue;
        const Seen seen = f(first + s);
        const float inverse = 1 / seen.radius;
        const float across = (static_cast<float>(x + places_[s].x) - seen.x) * inverse;
        const float down = (static_cast<float>(y + places_[s].y) - seen.y) * inverse;
        const float square = across * across + down * down;
        if (square > 1) continue;
        const float depth = seen.depth - seen.bulge * std::sqrt(1 - square);
        PointSample& sample = drawn[first + s];
        if (depth > sample.depth || (depth == sample.depth && spot.point >= sample.point)) continue;
        sample = {depth, spot.point, across, down};
      }
    }
  }
}

void PointRaster::DrawSpot(const Spot& spot, const Area& tile, const std::vector<SampleMoment>& moments,
                           std::vector<PointSample>& drawn) const {
  if (!blurred_) {
    const Seen seen{spot.x, spot.y, spot.radius, spot.depth, BulgeOf(spot), 0};
    ForEachSample(spot, tile, drawn, [&](std::size_t) { return seen; });
    return;
  }
  const std::size_t c = CloudOf(spot.point);
  const Seen a = SeenFrom(0, clouds_[c], spot.point - firsts_[c]), b = SeenFrom(1, clouds_[c], spot.point - firsts_[c]);
  ForEachSample(spot, tile, drawn, [&](std::size_t sample) {
    const SampleMoment& moment = moments[sample];
    const auto t = static_cast<float>(moment.time);
    const float lens = a.lens + (b.lens - a.lens) * t;
    return Seen{a.x + (b.x - a.x) * t + lens * static_cast<float>(moment.lens.x),
                a.y + (b.y - a.y) * t - lens * static_cast<float>(moment.lens.y),
                a.radius + (b.radius - a.radius) * t,
                a.depth + (b.depth - a.depth) * t,
                a.bulge + (b.bulge - a.bulge) * t,
                0};
  });
}

std::vector<SampleMoment> PointRaster::MomentsOf(const Area& tile) const {
  std::vector<SampleMoment> moments;
  if (!blurred_) return moments;
  const RenderSettings& settings = world_.settings;
  for (int y = tile.top; y < tile.bottom; ++y) {
    for (int x = tile.left; x < tile.right; ++x) {
      for (int s = 0; s < samples_; ++s) {
        moments.push_back(MomentOf(x, y, static_cast<std::uint32_t>(settings.seed), s, settings.shutter > 0,
                                   world_.camera.aperture > 0));
      }
    }
  }
  return moments;
}

void PointRaster::Draw(int tile, const Area& area, std::vector<PointSample>& drawn) const {
  drawn.assign(static_cast<std::size_t>(area.right - area.left) * (area.bottom - area.top) * samples_, {});
  const std::vector<SampleMoment> moments = MomentsOf(area);
  // The nearest of the wide ones come first: what lies behind all that they cover is passed over, so that a heap of
  // points before the camera takes no longer than the few that are seen.
  float farthest = std::numeric_limits<float>::infinity();
  for (const Spot& spot : wide_) {
    if (NearestOf(spot) > farthest) break;
    if (!(spot.x + spot.radius > area.left && spot.x - spot.radius < area.right && spot.y + spot.radius > area.top &&
          spot.y - spot.radius < area.bottom)) {
      continue;
    }
    DrawSpot(spot, area, moments, drawn);
    farthest = 0;
    for (const PointSample& sample : drawn) farthest = std::max(farthest, sample.depth);
  }
  for (std::size_t s = starts_[tile]; s < starts_[static_cast<std::size_t>(tile) + 1]; ++s) {
    if (NearestOf(spots_[s]) <= farthest) DrawSpot(spots_[s], area, moments, drawn);
  }
}

std::size_t PointRaster::CloudOf(std::size_t point) const {
  return static_cast<std::size_t>(std::upper_bound(firsts_.begin(), firsts_.end(), point) - firsts_.begin()) - 1;
}

PointHit PointRaster::HitOf(const PointSample& sample) const {
  const std::size_t c = CloudOf(sample.point), index = sample.point - firsts_[c];
  const PointCloud& cloud = clouds_[c];
  PointHit hit;
  hit.depth = std::max<double>(sample.depth, world_.camera.near);
  hit.colour = Vec3D(cloud.points[index].colour);
  if (!cloud.velocities.empty()) hit.velocity = Vec3D(cloud.velocities[index]);
  hit.lit = cloud.lit;
  const double x = sample.across, y = sample.down;
  const Camera& camera = world_.camera;
  hit.normal =
      Normalized(camera.right * x - camera.up * y - camera.forward * std::sqrt(std::max(0.0, 1 - x * x - y * y)));
  return hit;
}

}  // namespace orlix
