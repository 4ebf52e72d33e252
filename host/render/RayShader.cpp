#include "host/render/RayShader.h"

#include <algorithm>
#include <cmath>

namespace orlix {

namespace {

double Mean(const Vec3D& colour) { return (colour.x + colour.y + colour.z) / 3; }

SurfacePlace PlaceOf(const SurfaceHit& hit) { return {hit.point, hit.normal, hit.texture, hit.hasTexture}; }

// What draws are for, beside the rays around surfaces: each light has a stream of its own.
constexpr int kLightStream = 1, kGlowStream = 80;

// How far a ray goes that nothing ends, in host units.
constexpr double kSkyDistance = 1e6;

}  // namespace

RayShader::RayShader(const RenderWorld& world, const std::vector<VolumeInBox>& volumes, int worker)
    : world_(world), volumes_(volumes), worker_(worker) {
  spans_.reserve(volumes.size());
  memos_.resize(volumes.size());
}

// The volumes whose boxes the ray meets before end and that its kind sees, in order of entry.
bool RayShader::FindSpans(const Vec3D& origin, const Vec3D& direction, double end, std::uint32_t kind) {
  spans_.clear();
  for (const VolumeInBox& volume : volumes_) {
    if (kind == kRayGlobal && !volume.gathered) continue;
    double begin = 0, last = end;
    if (ClipToBox(origin, direction, volume.low, volume.high, 0, begin, last)) spans_.push_back({begin, &volume});
  }
  std::stable_sort(spans_.begin(), spans_.end(), [](const Span& a, const Span& b) { return a.begin < b.begin; });
  return !spans_.empty();
}

VolumeSample RayShader::VolumesAlong(VolumeRay& ray, double end) {
  VolumeSample all;
  if (!FindSpans(ray.origin, ray.direction, end, ray.kind)) return all;
  ray.worker = worker_;
  ray.random = random_;
  ray.time = (draws_.time - 0.5) * world_.settings.ShutterSeconds();
  bool seen = false;
  // Samples that look from elsewhere or at another time have little to share.
  const bool keeps = ray.kind == kRayCamera && !(world_.settings.shutter > 0) && !(world_.camera.aperture > 0);
  for (const Span& span : spans_) {
    VolumeSample sample;
    if (keeps) ray.memo = &memos_[static_cast<std::size_t>(span.volume - volumes_.data())];
    span.volume->volume->Volume(ray, sample);
    ++counts_.volume;
    counts_.volumeSamples += sample.samples;
    all.colour += all.transmittance * sample.colour;
    all.emission += all.transmittance * sample.emission;
    all.transmittance = all.transmittance * sample.transmittance;
    // The depth is that of the volume with which the ray gets more than half opaque.
    if (!seen && Mean(all.transmittance) < 0.5) {
      seen = true;
      all.distance = sample.distance;
      all.velocity = sample.velocity;
    }
  }
  return all;
}

ShadedRay RayShader::Shade(const CameraRay& ray, const PointHit* point, const SampleDraws& draws) {
  ++counts_.camera;
  draws_ = draws;
  if (draws.opensPair) std::fill(memos_.begin(), memos_.end(), VolumeMemo());
  if (world_.lightsMove) {
    lights_.clear();
    for (const Light& light : world_.lights) lights_.push_back(light.AtTime(draws.time));
  }
  const double toPoint = point ? (point->depth - world_.camera.near) / ray.cosine : ray.length;
  SurfaceHit hit;
  const bool onSurface =
      world_.surfaces.Intersect(ray.origin, ray.direction, std::min(toPoint, ray.length), hit, draws.time);
  const bool onPoint = point && !onSurface;
  const double end = onSurface ? hit.distance : std::min(toPoint, ray.length);

  VolumeRay volumeRay;
  volumeRay.origin = ray.origin, volumeRay.direction = ray.direction;
  volumeRay.hit = onSurface || end < kSkyDistance;
  volumeRay.hitDistance = end;
  volumeRay.jitter = draws.jitter;
  const VolumeSample volumes = VolumesAlong(volumeRay, end);

  const RenderSettings& settings = world_.settings;
  Vec3D behind = settings.skyVisible ? world_.SkyColour(ray.direction) : Vec3D();
  if (onSurface && hit.material->IsClear()) {
    Path path;
    path.direction = ray.direction, path.bounce = 0, path.way = hit.distance;
    if (point) {
      path.point = point, path.toPoint = toPoint - hit.distance;
      path.pointPlace = ray.origin + ray.direction * toPoint;
    }
    behind = ShadeClear(hit, path);
  } else if (onSurface) {
    behind = Hazed(ShadeSurface(hit, -ray.direction, settings.skySamples), ray.direction, end);
  }
  if (onPoint) behind = Hazed(ShadePoint(*point, ray.origin + ray.direction * end), ray.direction, end);

  ShadedRay result;
  result.colour = volumes.colour + volumes.transmittance * behind;
  result.gas = volumes.colour, result.emission = volumes.emission;
  if (onSurface || onPoint) result.surfaces = volumes.transmittance * behind;
  result.gasAlpha = 1 - Mean(volumes.transmittance);
  result.alpha = onSurface || onPoint || settings.skyVisible ? 1 : 1 - Mean(volumes.transmittance);
  if (Mean(volumes.transmittance) < 0.5) {
    result.found = true, result.distance = volumes.distance, result.velocity = volumes.velocity;
  } else if (onSurface || onPoint) {
    result.found = true, result.distance = end, result.velocity = onPoint ? point->velocity : hit.velocity;
  }
  if (!IsFinite(result.colour) || !std::isfinite(result.alpha)) {
    ++counts_.notFinite;
    result.colour = result.gas = result.surfaces = result.emission = {};
    result.alpha = 1, result.gasAlpha = 0;
  }
  return result;
}

Vec3D RayShader::Hazed(const Vec3D& colour, const Vec3D& direction, double way) const {
  const RenderSettings& settings = world_.settings;
  if (!(settings.haze > 0) || way <= settings.hazeBegin) return colour;
  const double left = std::exp((settings.hazeBegin - way) / settings.haze);
  const Vec3D level = Normalized(Vec3D(direction.x, std::max(0.0, direction.y), direction.z));
  return colour * left + world_.SkyColour(level) * (1 - left);
}

// The share of the light that reaches x through surfaces and volumes.
Vec3D RayShader::LightPassing(const Light& light, const Illumination& illumination, const Vec3D& x,
                              const VolumeShader* except) {
  if (!light.castsShadow) return {1, 1, 1};
  ++counts_.shadow;
  Vec3D passing = world_.surfaces.Passing(x, illumination.toLight, illumination.distance, draws_.time);
  if (passing == Vec3D() || !FindSpans(x, illumination.toLight, illumination.distance, kRayShadow)) return passing;
  VolumeRay ray;
  ray.origin = x, ray.direction = illumination.toLight;
  ray.kind = kRayShadow;
  ray.light = &light;
  ray.lightDistance = illumination.distance;
  ray.worker = worker_, ray.random = random_;
  ray.time = (draws_.time - 0.5) * world_.settings.ShutterSeconds();
  for (const Span& span : spans_) {
    if (span.volume->volume != except) passing = passing * span.volume->volume->Transparency(ray);
  }
  return passing;
}

Vec3D RayShader::LightOnSurface(const Light& light, const SurfaceHit& hit, const SurfaceMaterial& material,
                                const Vec3D& origin, const Vec3D& toEye) {
  const auto reflected = [&](const Illumination& illumination) {
    return illumination.colour * ReflectedLight(material, hit.normal, toEye, illumination.toLight);
  };
  const bool area = light.kind == LightKind::Area;
  const Illumination middle = light.Illuminate(hit.point);
  // A disc faces the point and counts by its middle; an area may be seen in part.
  const Vec3D seen = area ? Vec3D() : reflected(middle);
  if (!area && seen == Vec3D()) return {};
  if (!light.HasWidth() || (!area && !light.castsShadow)) return seen * LightPassing(light, middle, origin);
  Vec3D sum;
  for (int n = 0; n < light.shadowRays; ++n) {
    const Vec2D square = draws_.Point(kLightStream + static_cast<int>(light.object % 64), n, light.shadowRays);
    const Illumination aimed = light.IlluminateFrom(origin, square);
    const Vec3D colour = area ? reflected(aimed) : seen;
    if (colour != Vec3D()) sum += colour * LightPassing(light, aimed, origin);
  }
  return sum / light.shadowRays;
}

Vec3D RayShader::GlowOnSurface(const SurfaceHit& hit, const SurfaceMaterial& material, const Vec3D& origin,
                               const Vec3D& toEye) {
  Vec3D all;
  for (const VolumeInBox& box : volumes_) {
    const int points = box.volume->GlowPoints();
    Vec3D sum;
    for (int n = 0; n < points; ++n) {
      // Which part of the glow counts most; where in it, little: its two numbers may go together.
      const Vec2D a = draws_.Point(kGlowStream, n, points), b = draws_.Point(kGlowStream + 1, n, points);
      const GlowPoint glow = box.volume->GlowAt({a.x, a.y, b.y});
      const Vec3D towards = glow.place - origin;
      Illumination illumination;
      illumination.distance = Length(towards), illumination.toLight = Normalized(towards);
      if (glow.colour == Vec3D()) continue;
      const double d2 = std::max(illumination.distance * illumination.distance, glow.size * glow.size);
      illumination.colour = glow.colour / d2;
      const Vec3D seen = illumination.colour * ReflectedLight(material, hit.normal, toEye, illumination.toLight);
      Light point;
      point.position = glow.place;
      if (seen != Vec3D()) sum += seen * LightPassing(point, illumination, origin, box.volume);
    }
    if (points > 0) all += sum / points;
  }
  return all;
}

// A ball reflects evenly. The sky counts by how far the ball's surface looks up: no rays are spent on what else is
// near.
Vec3D RayShader::ShadePoint(const PointHit& point, const Vec3D& x) {
  if (!point.lit) return point.colour;
  const RenderSettings& settings = world_.settings;
  const Vec3D above = world_.sky.empty() ? settings.skyColour : world_.SkyColour(point.normal);
  Vec3D light = above * (settings.skyLight * 0.5 * (1 + point.normal.y));
  for (const Light& each : Lights()) {
    const Illumination illumination = each.Illuminate(x);
    const double cosine = Dot(point.normal, illumination.toLight);
    if (cosine > 0) light += illumination.colour * LightPassing(each, illumination, x) * cosine;
  }
  return point.colour * light;
}

void RayShader::Media::Enter(const SurfaceMaterial* shape) {
  Leave(shape);
  const auto free = std::find(shapes_.begin(), shapes_.end(), nullptr);
  if (free != shapes_.end()) *free = shape;
}

void RayShader::Media::Leave(const SurfaceMaterial* shape) {
  const auto found = std::find(shapes_.begin(), shapes_.end(), shape);
  if (found != shapes_.end()) *found = nullptr;
}

const SurfaceMaterial* RayShader::Media::There() const {
  const SurfaceMaterial* strongest = nullptr;
  for (const SurfaceMaterial* shape : shapes_) {
    if (shape && (!strongest || shape->refraction > strongest->refraction)) strongest = shape;
  }
  return strongest;
}

// Both ways are followed while they count for something; what is left then stands for sky.
Vec3D RayShader::Follow(const Path& path) {
  const RenderSettings& settings = world_.settings;
  constexpr int kMostBounces = 12;
  constexpr double kLeastWeight = 0.01;
  if (path.bounce > kMostBounces || path.weight < kLeastWeight) return world_.SkyColour(path.direction);
  SurfaceHit hit;
  const double reach = path.point ? path.toPoint : kSkyDistance;
  const bool onSurface =
      world_.surfaces.Intersect(path.origin, path.direction, std::min(reach, kSkyDistance), hit, draws_.time);
  VolumeRay ray;
  ray.origin = path.origin, ray.direction = path.direction, ray.kind = path.kind, ray.weight = path.weight;
  ray.hit = onSurface || path.point;
  ray.hitDistance = onSurface ? hit.distance : reach;
  const VolumeSample volumes = VolumesAlong(ray, ray.hitDistance);
  Vec3D behind;
  if (onSurface && hit.material->IsClear()) {
    Path on = path;
    on.toPoint -= hit.distance, on.way += hit.distance;
    behind = ShadeClear(hit, on);
  } else if (onSurface) {
    behind = Hazed(ShadeSurface(hit, -path.direction, std::max(1, settings.skySamples >> path.bounce)), path.direction,
                   path.way + hit.distance);
  } else if (path.point) {
    behind = Hazed(ShadePoint(*path.point, path.pointPlace), path.direction, path.way + path.toPoint);
  } else {
    behind = world_.SkyColour(path.direction);
  }
  Vec3D seen = volumes.colour + volumes.transmittance * behind;
  if (const SurfaceMaterial* medium = path.media.There()) seen = seen * medium->Absorbed(ray.hitDistance);
  return seen;
}

Vec3D RayShader::ShadeClear(const SurfaceHit& hit, const Path& path) {
  const SurfaceMaterial& material = *hit.material;
  Path mirrored = path, bent = path;
  mirrored.bounce = bent.bounce = path.bounce + 1;
  bent.origin = world_.surfaces.BeyondSurface(hit);
  // Whatever it met before, or missed, a ray that leaves a shape was in it, and one that enters wasn't.
  (hit.outside ? bent : mirrored).media.Enter(&material);
  (hit.outside ? mirrored : bent).media.Leave(&material);
  const SurfaceMaterial* here = mirrored.media.There();
  const SurfaceMaterial* beyond = bent.media.There();
  if (here == beyond) return Follow(bent);  // within a shape that counts for more
  const double index = here ? here->refraction : 1, indexBeyond = beyond ? beyond->refraction : 1;
  const ClearSplit split = SplitAtSurface(path.direction, hit.normal, index / indexBeyond);
  mirrored.origin = world_.surfaces.OffSurface(hit);
  mirrored.direction = split.reflection;
  // A smoothed normal may send it into the surface.
  if (Dot(mirrored.direction, hit.faceNormal) <= 0) {
    mirrored.direction = SplitAtSurface(path.direction, hit.faceNormal, 1).reflection;
  }
  mirrored.kind = kRayReflection;
  mirrored.point = nullptr;
  mirrored.weight *= split.reflected;
  const double through = (1 - split.reflected) * material.transmission;
  bent.direction = split.refraction;
  bent.kind = kRayRefraction;
  bent.weight *= through;
  Vec3D colour = material.emission;
  if (split.reflected > 0) colour += Follow(mirrored) * split.reflected;
  if (through > 0) colour += Follow(bent) * through;
  if (!hit.outside) return colour;
  if (material.transmission < 1) {
    const int rays = std::max(1, world_.settings.skySamples >> path.bounce);
    colour += ShadeSurface(hit, -path.direction, rays) * (1 - material.transmission);
  }
  return colour + Highlights(hit, -path.direction) * material.transmission;
}

Vec3D RayShader::Highlights(const SurfaceHit& hit, const Vec3D& toEye) {
  SurfaceMaterial gloss = *hit.material;
  gloss.colour = {};
  gloss.specular = std::pow((gloss.refraction - 1) / (gloss.refraction + 1), 2);
  const Vec3D origin = world_.surfaces.ShadowOrigin(hit);
  Vec3D colour;
  for (const Light& light : Lights()) colour += LightOnSurface(light, hit, gloss, origin, toEye);
  return colour;
}

Vec3D RayShader::ShadeSurface(const SurfaceHit& hit, const Vec3D& toEye, int rays) {
  const Vec3D origin = world_.surfaces.ShadowOrigin(hit);
  const bool shaders = hit.material->HasShaders();
  const SurfaceMaterial own = shaders ? hit.material->At(PlaceOf(hit)) : SurfaceMaterial();
  const SurfaceMaterial& material = shaders ? own : *hit.material;
  Vec3D colour = material.emission;
  for (const Light& light : Lights()) colour += LightOnSurface(light, hit, material, origin, toEye);
  return colour + GlowOnSurface(hit, material, origin, toEye) + GatherAround(hit, material, origin, rays);
}

// Light from the sky, from volumes that glow and from surfaces that do, over the half sphere above a surface. Light
// that other surfaces scatter isn't followed.
Vec3D RayShader::GatherAround(const SurfaceHit& hit, const SurfaceMaterial& material, const Vec3D& origin, int rays) {
  const RenderSettings& settings = world_.settings;
  if (settings.skySamples <= 0 || material.colour == Vec3D()) return {};
  if (world_.sky.empty() && settings.skyColour * settings.skyLight == Vec3D() && volumes_.empty() &&
      world_.surfaces.empty())
    return {};
  Vec3D sum;
  DirectionPacket directions;
  PacketHits hits;
  for (int first = 0; first < rays; first += DirectionPacket::kSize) {
    const int count = std::min(rays - first, DirectionPacket::kSize);
    FillWithCosineDirections(hit.normal, draws_.Index(first, rays), count, draws_.offset, directions);
    std::uint32_t asked = 0;
    for (int i = 0; i < count; ++i) {
      if (Dot(directions[i], hit.faceNormal) > 0) asked |= 1u << i, ++counts_.gather;
    }
    world_.surfaces.IntersectPacket(origin, directions, asked, hits, draws_.time);
    for (int i = 0; i < count; ++i) {
      if (asked >> i & 1u) sum += GatherAlong(origin, directions[i], hits.material[i], hits.distance[i]);
    }
  }
  return material.colour * sum / rays;
}

Vec3D RayShader::GatherAlong(const Vec3D& origin, const Vec3D& direction, const SurfaceMaterial* met, double distance) {
  Vec3D light, passing(1.0);
  if (met && (met->IsClear() || (met->emission != Vec3D() && met->HasShaders()))) {
    SurfaceHit hit;
    const bool opaque = world_.surfaces.IntersectOpaque(origin, direction, kSkyDistance, hit, passing, draws_.time);
    met = opaque ? hit.material : nullptr, distance = hit.distance;
    if (met) light = met->HasShaders() ? met->At(PlaceOf(hit)).emission : met->emission;
  } else if (met) {
    light = met->emission;
  }
  if (!met) light = world_.SkyColour(direction) * world_.settings.skyLight, distance = kSkyDistance;
  VolumeRay ray;
  ray.origin = origin, ray.direction = direction, ray.kind = kRayGlobal;
  ray.hit = met, ray.hitDistance = distance;
  const VolumeSample volumes = VolumesAlong(ray, distance);
  return volumes.colour + volumes.transmittance * passing * light;
}

}  // namespace orlix
