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

// Sums over the samples of a pixel.
struct PixelSums {
  Vec3D colour, gas, surfaces, emission, velocity, nearest;
  double alpha = 0, gasAlpha = 0, depth = 0;
  double seen = 0, seenSquared = 0;  // brightness as the eye takes it
  int samples = 0;

  double Mean() const { return seen / samples; }
  // Of one sample; there are two at least.
  double Variance() const { return std::max(0.0, seenSquared - seen * Mean()) / (samples - 1); }
};

// What a variance must rest on.
constexpr int kFewestSamples = 4;

// The planes of the picture while it is made. Those of what isn't asked for are null.
struct Planes {
  explicit Planes(Picture& picture) {
    const auto plane = [&](const std::string& name) {
      PictureChannel* channel = picture.Find(name);
      return channel ? channel->values.data() : nullptr;
    };
    const char* kAxes[] = {"X", "Y", "Z"};
    const char* kColours[] = {"R", "G", "B"};
    for (int c = 0; c < 3; ++c) {
      colour[c] = plane(kColours[c]), velocity[c] = plane(std::string("velocity.") + kAxes[c]);
      gas[c] = plane(std::string("gas.") + kColours[c]), surfaces[c] = plane(std::string("surfaces.") + kColours[c]);
      emission[c] = plane(std::string("emission.") + kColours[c]);
    }
    alpha = plane("A"), depth = plane("Z"), gasAlpha = plane("gas.A"), done = plane(kDoneChannel);
    motion[0] = plane("motion.X"), motion[1] = plane("motion.Y");
  }
  static void Put(float* const (&planes)[3], std::size_t pixel, const Vec3D& value) {
    for (int c = 0; c < 3 && planes[c]; ++c) planes[c][pixel] = static_cast<float>(value[c]);
  }
  float *colour[3], *velocity[3], *gas[3], *surfaces[3], *emission[3];
  float *alpha, *depth, *gasAlpha, *done, *motion[2];
};

using Tile = PointRaster::Area;

class PictureJob {
 public:
  // Throws std::bad_alloc.
  PictureJob(const RenderWorld& world, const std::vector<VolumeInBox>& volumes, const PointRaster& points,
             const std::vector<Vec2D>& places, const RenderOptions& options, int workers, Picture& picture);

  void Run(WorkerPool& workers);
  RayCounts counts() const;
  bool broken() const { return broken_.load(); }
  int tiles() const { return tiles_; }
  int tilesDone() const { return done_.load(); }
  std::uint64_t samples() const { return samples_.load(); }

 private:
  Tile TileAt(int number) const;
  bool TakeDone(const Tile& area);
  bool IsInCrop(const Tile& area) const;
  void ShadeTiles(int worker);
  void ShadeTile(RayShader& shader, const Tile& area, const std::vector<PointSample>& drawn);
  // Up to a number of samples. points: what they see of the clouds; null where there are none.
  void AddSamples(RayShader& shader, int x, int y, int samples, const PointSample* points, PixelSums& sums) const;
  CameraRay RayOf(const SampleMoment& moment, int x, int y, int sample) const;
  void Write(const PixelSums& sums, int x, int y);
  void Report(bool last);

  const RenderWorld& world_;
  const std::vector<VolumeInBox>& volumes_;
  const PointRaster& points_;
  const std::vector<Vec2D>& places_;
  const RenderOptions& options_;
  Picture& picture_;
  Planes planes_;
  int columns_, tiles_;
  std::vector<int> order_;  // numbers of the tiles that are to be made
  std::atomic<int> next_{0}, done_{0};
  std::atomic<bool> broken_{false};
  std::atomic<std::uint64_t> samples_{0};
  std::vector<RayCounts> countsOfWorkers_;
  std::vector<std::vector<PointSample>> drawn_;  // of each worker's tile, where there are points
  Clock::time_point start_ = Clock::now();
  double reported_ = 0;
};

PictureJob::PictureJob(const RenderWorld& world, const std::vector<VolumeInBox>& volumes, const PointRaster& points,
                       const std::vector<Vec2D>& places, const RenderOptions& options, int workers, Picture& picture)
    : world_(world),
      volumes_(volumes),
      points_(points),
      places_(places),
      options_(options),
      picture_(picture),
      planes_(picture) {
  columns_ = (picture.width() + kTileSize - 1) / kTileSize;
  tiles_ = columns_ * ((picture.height() + kTileSize - 1) / kTileSize);
  for (int tile = 0; tile < tiles_; ++tile) {
    const Tile area = TileAt(tile);
    if (!IsInCrop(area) || TakeDone(area)) continue;
    order_.push_back(tile);
  }
  tiles_ = static_cast<int>(order_.size());
  countsOfWorkers_.resize(static_cast<std::size_t>(workers));
  drawn_.resize(static_cast<std::size_t>(workers));
  if (points.empty()) return;
  for (auto& each : drawn_) each.reserve(std::size_t(kTileSize) * kTileSize * places.size());
}

Tile PictureJob::TileAt(int number) const {
  const int left = number % columns_ * kTileSize, top = number / columns_ * kTileSize;
  return {left, top, std::min(left + kTileSize, picture_.width()), std::min(top + kTileSize, picture_.height())};
}

bool PictureJob::IsInCrop(const Tile& area) const {
  const PictureCrop& crop = options_.crop;
  return crop.Empty() ||
         (area.left < crop.right && area.right > crop.left && area.top < crop.bottom && area.bottom > crop.top);
}

// From the unfinished picture, where it has the tile.
bool PictureJob::TakeDone(const Tile& area) {
  const Picture* before = options_.unfinished;
  const PictureChannel* done = before ? before->Find(kDoneChannel) : nullptr;
  const auto first = static_cast<std::size_t>(area.top) * static_cast<std::size_t>(picture_.width()) +
                     static_cast<std::size_t>(area.left);
  if (!done || before->width() != picture_.width() || before->height() != picture_.height() ||
      !(done->values[first] > 0.5f)) {
    return false;
  }
  for (const PictureChannel& channel : before->channels()) {
    PictureChannel* own = picture_.Find(channel.name);
    for (int y = area.top; own && y < area.bottom; ++y) {
      const auto row = static_cast<std::size_t>(y) * static_cast<std::size_t>(picture_.width());
      std::copy(channel.values.data() + row + area.left, channel.values.data() + row + area.right,
                own->values.data() + row + area.left);
    }
  }
  return true;
}

CameraRay PictureJob::RayOf(const SampleMoment& moment, int x, int y, int sample) const {
  const RenderSettings& settings = world_.settings;
  const Camera moved = world_.cameraMoves ? world_.camera.Towards(world_.closing, moment.time) : world_.camera;
  const Vec2D place = places_[static_cast<std::size_t>(sample)];
  const CameraRay ray = moved.RayThrough(x + place.x, y + place.y, settings.width, settings.height);
  return moved.aperture > 0 ? moved.ThroughLens(ray, moment.lens) : ray;
}

void PictureJob::AddSamples(RayShader& shader, int x, int y, int samples, const PointSample* points,
                            PixelSums& sums) const {
  const RenderSettings& settings = world_.settings;
  const auto seed = static_cast<std::uint32_t>(settings.seed);
  SampleDraws draws;
  draws.offset = PixelOffset(x, y, seed);
  if (sums.samples == 0) sums.depth = world_.camera.far;
  const int first = sums.samples;
  for (int sample = first; sample < samples; ++sample) {
    const SampleMoment moment = MomentOf(x, y, seed, sample, settings.shutter > 0, world_.camera.aperture > 0);
    draws.sample = static_cast<std::uint64_t>(sample), draws.opensPair = (sample - first) % 2 == 0;
    draws.jitter = PixelDraw(x, y, seed, 0, sample);
    draws.time = moment.time;
    const CameraRay ray = RayOf(moment, x, y, sample);
    const bool onPoint = points && std::isfinite(points[sample].depth);
    const PointHit point = onPoint ? points_.HitOf(points[sample]) : PointHit();
    const ShadedRay shaded = shader.Shade(ray, onPoint ? &point : nullptr, draws);
    sums.colour += shaded.colour, sums.gas += shaded.gas, sums.surfaces += shaded.surfaces;
    sums.emission += shaded.emission;
    sums.alpha += shaded.alpha, sums.gasAlpha += shaded.gasAlpha;
    const double bright = 0.2126 * shaded.colour.x + 0.7152 * shaded.colour.y + 0.0722 * shaded.colour.z;
    const double seen = std::sqrt(std::max(bright, 0.0) / (1 + std::max(bright, 0.0)));
    sums.seen += seen, sums.seenSquared += seen * seen;
    ++sums.samples;
    const double sampleDepth = world_.camera.near + shaded.distance * ray.cosine;
    if (shaded.found && sampleDepth < sums.depth) {
      sums.depth = sampleDepth, sums.velocity = shaded.velocity;
      sums.nearest = ray.origin + ray.direction * shaded.distance;
    }
  }
}

// Whether the standard error of each pixel is small enough. A few samples that agree by chance, as in the edge of a
// penumbra, say little: the variance of the pixels around counts as much as four samples more.
void FindDone(const std::vector<PixelSums>& pixels, int width, double noise, std::vector<std::uint8_t>& done) {
  const int height = static_cast<int>(pixels.size()) / width;
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      const auto pixel = static_cast<std::size_t>(y * width + x);
      if (done[pixel]) continue;
      double around = 0;
      int count = 0;
      for (int v = std::max(y - 1, 0); v <= std::min(y + 1, height - 1); ++v) {
        for (int u = std::max(x - 1, 0); u <= std::min(x + 1, width - 1); ++u) {
          around += pixels[static_cast<std::size_t>(v * width + u)].Variance(), ++count;
        }
      }
      const PixelSums& own = pixels[pixel];
      const double n = own.samples;
      const double variance = (n * own.Variance() + kFewestSamples * around / count) / (n + kFewestSamples);
      done[pixel] = std::sqrt(variance / n) <= noise * std::max(own.Mean(), 0.1);
    }
  }
}

void PictureJob::Write(const PixelSums& sums, int x, int y) {
  const RenderSettings& settings = world_.settings;
  const std::size_t pixel =
      static_cast<std::size_t>(y) * static_cast<std::size_t>(settings.width) + static_cast<std::size_t>(x);
  const double share = 1.0 / sums.samples;
  Planes::Put(planes_.colour, pixel, sums.colour * share);
  Planes::Put(planes_.velocity, pixel, sums.velocity);
  Planes::Put(planes_.gas, pixel, sums.gas * share);
  Planes::Put(planes_.surfaces, pixel, sums.surfaces * share);
  Planes::Put(planes_.emission, pixel, sums.emission * share);
  planes_.alpha[pixel] = static_cast<float>(sums.alpha * share);
  planes_.depth[pixel] = static_cast<float>(sums.depth);
  planes_.done[pixel] = 1;
  if (planes_.gasAlpha) planes_.gasAlpha[pixel] = static_cast<float>(sums.gasAlpha * share);
  if (!planes_.motion[0] || sums.depth >= world_.camera.far) return;
  // From where the camera of the neighbouring frame saw that place to where this frame's does.
  const int sign = world_.motionSign;
  const Vec3D there = sums.nearest + sums.velocity * (sign * settings.frameSeconds);
  const ProjectedPoint now = world_.ofFrame.Project(sums.nearest, settings.width, settings.height);
  const ProjectedPoint then = world_.ofNeighbour.Project(there, settings.width, settings.height);
  if (!(then.depth > 0) || !(now.depth > 0)) return;
  planes_.motion[0][pixel] = static_cast<float>((then.x - now.x) * sign);
  planes_.motion[1][pixel] = static_cast<float>((then.y - now.y) * sign);
}

void PictureJob::ShadeTile(RayShader& shader, const Tile& area, const std::vector<PointSample>& drawn) {
  const RenderSettings& settings = world_.settings;
  const int width = area.right - area.left, most = settings.SamplesAtMost();
  // The channel of what is done speaks for whole tiles: a tile that is broken off leaves nothing.
  std::vector<PixelSums> all(static_cast<std::size_t>(width) * static_cast<std::size_t>(area.bottom - area.top));
  std::vector<std::uint8_t> done(all.size());
  for (int target = settings.IsAdaptive() ? std::clamp(kFewestSamples, settings.samples, most) : most;;) {
    for (std::size_t pixel = 0; pixel < all.size(); ++pixel) {
      const int x = static_cast<int>(pixel) % width, y = static_cast<int>(pixel) / width;
      if (x == 0 && options_.thread && options_.thread->TestBreak()) broken_ = true;
      if (broken_) return;
      if (done[pixel]) continue;
      const PointSample* points = drawn.empty() ? nullptr : &drawn[pixel * places_.size()];
      AddSamples(shader, area.left + x, area.top + y, target, points, all[pixel]);
    }
    if (target >= most) break;
    FindDone(all, width, settings.noise, done);
    if (std::find(done.begin(), done.end(), 0) == done.end()) break;
    target = std::min(most, target + target / 2);
  }
  std::uint64_t samples = 0;
  for (const PixelSums& sums : all) samples += static_cast<std::uint64_t>(sums.samples);
  samples_ += samples;
  std::size_t pixel = 0;
  for (int y = area.top; y < area.bottom; ++y) {
    for (int x = area.left; x < area.right; ++x) Write(all[pixel++], x, y);
  }
  ++done_;
}

void PictureJob::ShadeTiles(int worker) {
  RayShader shader(world_, volumes_, worker);
  MersenneTwister random;
  shader.SetRandom(random);
  std::vector<PointSample>& drawn = drawn_[static_cast<std::size_t>(worker)];
  for (int next = next_++; next < tiles_ && !broken_; next = next_++) {
    const int tile = order_[static_cast<std::size_t>(next)];
    random.Seed(kFirstSeed + static_cast<std::uint32_t>(tile) +
                0x9e3779b9u * static_cast<std::uint32_t>(world_.settings.seed));
    const Tile area = TileAt(tile);
    if (!points_.empty()) points_.Draw(tile, area, drawn);
    ShadeTile(shader, area, drawn);
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
  const double fraction = tiles_ > 0 ? static_cast<double>(done_.load()) / tiles_ : 1;
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
    if (settings.writeLayers) {
      for (const char* name : {"gas.R", "gas.G", "gas.B", "gas.A", "surfaces.R", "surfaces.G", "surfaces.B",
                               "emission.R", "emission.G", "emission.B", "motion.X", "motion.Y"}) {
        picture.AddChannel(name);
      }
    }
    picture.AddChannel(kDoneChannel);
    return picture;
  } catch (const std::bad_alloc&) {
    return Result<Picture>::Fail(ErrorKind::Memory, "no memory for the picture");
  }
}

// What of a whole picture isn't asked for goes.
Picture Finished(const Picture& whole, const PictureCrop& crop) {
  const PictureCrop area = crop.Empty() ? PictureCrop{0, 0, whole.width(), whole.height()} : crop;
  Picture picture(area.right - area.left, area.bottom - area.top);
  if (!crop.Empty()) picture.part = {area.left, area.top, whole.width(), whole.height()};
  for (const PictureChannel& channel : whole.channels()) {
    if (channel.name == kDoneChannel) continue;
    PictureChannel& part = picture.AddChannel(channel.name, 0, channel.single);
    for (int y = area.top; y < area.bottom; ++y) {
      const float* row = channel.values.data() + static_cast<std::size_t>(y) * static_cast<std::size_t>(whole.width());
      std::copy(
          row + area.left, row + area.right,
          part.values.data() + static_cast<std::size_t>(y - area.top) * static_cast<std::size_t>(picture.width()));
    }
  }
  return picture;
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
  const PictureCrop& crop = options.crop;
  if (!crop.Empty() &&
      (crop.left < 0 || crop.top < 0 || crop.right > world.settings.width || crop.bottom > world.settings.height)) {
    return Result<Picture>::Fail(ErrorKind::Usage, "the part of the picture that is asked for lies outside of it");
  }
  Result<Picture> picture = EmptyPicture(world);
  if (!picture) return picture;

  const Clock::time_point start = Clock::now();
  StartedVolumes volumes;
  std::vector<VolumeInBox> boxes;
  for (VolumeShader* volume : world.volumes) {
    const RenderContext context{&world, &workers, options.thread, options.status, options.time, options.preview};
    if (Status s = volume->RenderStart(context); !s) return s.error();
    volumes.started.push_back(volume);
    VolumeInBox box{volume, {}, {}, volume->Sees(kRayGlobal)};
    if (volume->Bounds(box.low, box.high)) boxes.push_back(box);
  }
  const RenderSettings& settings = world.settings;
  try {
    const std::vector<Vec2D> places = PlacesInPixel(settings.SamplesAtMost(), settings.IsAdaptive());
    const PointRaster points(world, kTileSize, places, workers);
    PictureJob job(world, boxes, points, places, options, workers.count(), *picture);
    r.startSeconds = SecondsSince(start);
    job.Run(workers);
    r.raySeconds = SecondsSince(start) - r.startSeconds;
    const RayCounts counts = job.counts();
    r.cameraRays = counts.camera, r.shadowRays = counts.shadow, r.gatherRays = counts.gather;
    r.volumeCalls = counts.volume, r.volumeSamples = counts.volumeSamples, r.notFinite = counts.notFinite;
    r.pixelSamples = job.samples();
    r.tiles = job.tiles(), r.tilesDone = job.tilesDone();
    r.broken = job.broken();
    if (!r.broken) return Finished(*picture, options.crop);
  } catch (const std::bad_alloc&) {
    return Result<Picture>::Fail(ErrorKind::Memory, "no memory for the particles of the picture");
  }
  return picture;
}

}  // namespace orlix
