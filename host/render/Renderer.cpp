#include "host/render/Renderer.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <new>

#include "host/render/PointRaster.h"
#include "host/render/RayShader.h"
#include "host/render/SampleSequence.h"

namespace orlix {

namespace {

using Clock = std::chrono::steady_clock;

double SecondsSince(Clock::time_point start) { return std::chrono::duration<double>(Clock::now() - start).count(); }

// The seed of the first tile's generator.
constexpr std::uint32_t kFirstSeed = 9229837u;

// The planes of the picture while it is made.
struct Planes {
  float *red, *green, *blue, *alpha, *depth, *velocity[3];
};

struct Tile {
  int left, top, right, bottom;
};

class PictureJob {
 public:
  // Throws std::bad_alloc.
  PictureJob(const RenderWorld& world, const std::vector<VolumeInBox>& volumes, const PointRaster& points,
             const RenderOptions& options, int workers, Picture& picture);

  void Run(WorkerPool& workers);
  RayCounts counts() const;
  bool broken() const { return broken_.load(); }

 private:
  Tile TileAt(int number) const;
  void ShadeTiles(int worker);
  // points: what the pixel's samples see of the clouds; null where there are none.
  void ShadePixel(RayShader& shader, int x, int y, const PointSample* points) const;
  void Report(bool last);

  const RenderWorld& world_;
  const std::vector<VolumeInBox>& volumes_;
  const PointRaster& points_;
  const RenderOptions& options_;
  Picture& picture_;
  Planes planes_{};
  int columns_, tiles_;
  std::atomic<int> next_{0}, done_{0};
  std::atomic<bool> broken_{false};
  std::vector<RayCounts> countsOfWorkers_;
  std::vector<std::vector<PointSample>> drawn_;  // of each worker's tile, where there are points
  Clock::time_point start_ = Clock::now();
  double reported_ = 0;
};

PictureJob::PictureJob(const RenderWorld& world, const std::vector<VolumeInBox>& volumes, const PointRaster& points,
                       const RenderOptions& options, int workers, Picture& picture)
    : world_(world), volumes_(volumes), points_(points), options_(options), picture_(picture) {
  columns_ = (picture.width() + kTileSize - 1) / kTileSize;
  tiles_ = columns_ * ((picture.height() + kTileSize - 1) / kTileSize);
  const auto plane = [&](const char* name) {
    PictureChannel* channel = picture_.Find(name);
    return channel ? channel->values.data() : nullptr;
  };
  planes_ = {plane("R"), plane("G"), plane("B"),
             plane("A"), plane("Z"), {plane("velocity.X"), plane("velocity.Y"), plane("velocity.Z")}};
  countsOfWorkers_.resize(static_cast<std::size_t>(workers));
  drawn_.resize(static_cast<std::size_t>(workers));
  if (points.empty()) return;
  for (auto& each : drawn_)
    each.reserve(std::size_t(kTileSize) * kTileSize * static_cast<std::size_t>(world.settings.samples));
}

Tile PictureJob::TileAt(int number) const {
  const int left = number % columns_ * kTileSize, top = number / columns_ * kTileSize;
  return {left, top, std::min(left + kTileSize, picture_.width()), std::min(top + kTileSize, picture_.height())};
}

void PictureJob::ShadePixel(RayShader& shader, int x, int y, const PointSample* points) const {
  const RenderSettings& settings = world_.settings;
  const Vec2D offset = PixelOffset(x, y, static_cast<std::uint32_t>(settings.seed));
  Vec3D colour, velocity;
  double alpha = 0, depth = world_.camera.far;
  for (int sample = 0; sample < settings.samples; ++sample) {
    const Vec2D place = PlaceInPixel(sample, settings.samples);
    const CameraRay ray = world_.camera.RayThrough(x + place.x, y + place.y, settings.width, settings.height);
    const auto first =
        static_cast<std::uint64_t>(sample) * static_cast<std::uint64_t>(std::max(settings.skySamples, 1));
    const bool onPoint = points && std::isfinite(points[sample].depth);
    const PointHit point = onPoint ? points_.HitOf(points[sample]) : PointHit();
    const ShadedRay shaded = shader.Shade(ray, onPoint ? &point : nullptr, offset, first);
    colour += shaded.colour;
    alpha += shaded.alpha;
    const double sampleDepth = world_.camera.near + shaded.distance * ray.cosine;
    if (shaded.found && sampleDepth < depth) depth = sampleDepth, velocity = shaded.velocity;
  }
  const std::size_t pixel =
      static_cast<std::size_t>(y) * static_cast<std::size_t>(settings.width) + static_cast<std::size_t>(x);
  const double share = 1.0 / settings.samples;
  planes_.red[pixel] = static_cast<float>(colour.x * share);
  planes_.green[pixel] = static_cast<float>(colour.y * share);
  planes_.blue[pixel] = static_cast<float>(colour.z * share);
  planes_.alpha[pixel] = static_cast<float>(alpha * share);
  planes_.depth[pixel] = static_cast<float>(depth);
  for (int axis = 0; axis < 3 && planes_.velocity[axis]; ++axis) {
    planes_.velocity[axis][pixel] = static_cast<float>(velocity[axis]);
  }
}

void PictureJob::ShadeTiles(int worker) {
  RayShader shader(world_, volumes_, worker);
  MersenneTwister random;
  shader.SetRandom(random);
  std::vector<PointSample>& drawn = drawn_[static_cast<std::size_t>(worker)];
  for (int tile = next_++; tile < tiles_; tile = next_++) {
    random.Seed(kFirstSeed + static_cast<std::uint32_t>(tile) +
                0x9e3779b9u * static_cast<std::uint32_t>(world_.settings.seed));
    const Tile area = TileAt(tile);
    if (!points_.empty()) points_.Draw(tile, area.left, area.top, area.right, area.bottom, drawn);
    for (int y = area.top; y < area.bottom; ++y) {
      if (options_.thread && options_.thread->TestBreak()) broken_ = true;
      if (broken_) break;
      for (int x = area.left; x < area.right; ++x) {
        const std::size_t pixel =
            static_cast<std::size_t>(y - area.top) * (area.right - area.left) + static_cast<std::size_t>(x - area.left);
        ShadePixel(shader, x, y, drawn.empty() ? nullptr : &drawn[pixel * world_.settings.samples]);
      }
    }
    ++done_;
    if (worker == 0) Report(false);
  }
  countsOfWorkers_[static_cast<std::size_t>(worker)] = shader.counts();
}

// Worker 0 is the calling thread.
void PictureJob::Report(bool last) {
  const double elapsed = SecondsSince(start_);
  constexpr double kInterval = 0.1;
  if (!options_.onProgress || (!last && elapsed < reported_ + kInterval)) return;
  reported_ = elapsed;
  const double fraction = static_cast<double>(done_.load()) / tiles_;
  options_.onProgress({fraction, elapsed, fraction > 0 ? elapsed * (1 - fraction) / fraction : -1});
}

void PictureJob::Run(WorkerPool& workers) {
  start_ = Clock::now();
  workers.Run(workers.count(), [&](int worker) { ShadeTiles(worker); });
  Report(true);
}

RayCounts PictureJob::counts() const {
  RayCounts sum;
  for (const RayCounts& c : countsOfWorkers_) {
    sum.camera += c.camera, sum.shadow += c.shadow, sum.gather += c.gather;
    sum.volume += c.volume, sum.volumeSamples += c.volumeSamples, sum.notFinite += c.notFinite;
  }
  return sum;
}

Result<Picture> EmptyPicture(const RenderWorld& world) {
  const RenderSettings& settings = world.settings;
  if (Status s = CheckPictureSize(settings.width, settings.height); !s) return s.error();
  try {
    Picture picture(settings.width, settings.height);
    for (const char* name : {"R", "G", "B", "A"}) picture.AddChannel(name);
    picture.AddChannel("Z", static_cast<float>(world.camera.far), true);
    if (settings.writeVelocity) {
      for (const char* name : {"velocity.X", "velocity.Y", "velocity.Z"}) picture.AddChannel(name);
    }
    return picture;
  } catch (const std::bad_alloc&) {
    return Result<Picture>::Fail(ErrorKind::Memory, "no memory for the picture");
  }
}

// Ends the volumes whose start went well, in any way that leaves the picture.
struct StartedVolumes {
  std::vector<VolumeShader*> started;
  ~StartedVolumes() {
    for (VolumeShader* volume : started) volume->RenderEnd();
  }
};

}  // namespace

Result<Picture> RenderPicture(const RenderWorld& world, WorkerPool& workers, const RenderOptions& options,
                              RenderReport* report) {
  RenderReport ownReport;
  RenderReport& r = report ? *report : ownReport;
  r = {};
  Result<Picture> picture = EmptyPicture(world);
  if (!picture) return picture;

  const Clock::time_point start = Clock::now();
  StartedVolumes volumes;
  std::vector<VolumeInBox> boxes;
  for (VolumeShader* volume : world.volumes) {
    const RenderContext context{&world, &workers, options.thread, options.status, options.time, options.preview};
    if (Status s = volume->RenderStart(context); !s) return s.error();
    volumes.started.push_back(volume);
    VolumeInBox box{volume, {}, {}};
    if (volume->Bounds(box.low, box.high)) boxes.push_back(box);
  }
  const RenderSettings& settings = world.settings;
  try {
    const PointRaster points(world.points, world.camera, settings.width, settings.height, kTileSize, settings.samples,
                             workers);
    PictureJob job(world, boxes, points, options, workers.count(), *picture);
    r.startSeconds = SecondsSince(start);
    job.Run(workers);
    r.raySeconds = SecondsSince(start) - r.startSeconds;
    const RayCounts counts = job.counts();
    r.cameraRays = counts.camera, r.shadowRays = counts.shadow, r.gatherRays = counts.gather;
    r.volumeCalls = counts.volume, r.volumeSamples = counts.volumeSamples, r.notFinite = counts.notFinite;
    r.broken = job.broken();
  } catch (const std::bad_alloc&) {
    return Result<Picture>::Fail(ErrorKind::Memory, "no memory for the particles of the picture");
  }
  return picture;
}

}  // namespace orlix
