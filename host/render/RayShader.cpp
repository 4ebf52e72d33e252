#include "host/render/RayShader.h"

#include <algorithm>
#include <cmath>

#include "host/render/SampleSequence.h"

namespace orlix {

namespace {

double Mean(const Vec3D& colour) { return (colour.x + colour.y + colour.z) / 3; }

// How far a ray goes that nothing ends, in host units.
constexpr double kSkyDistance = 1e6;

}  // namespace

RayShader::RayShader(const RenderWorld& world, const std::vector<VolumeInBox>& volumes, int worker)
    : world_(world), volumes_(volumes), worker_(worker) {
  spans_.reserve(volumes.size());
}

// The volumes whose boxes the ray meets before end, in order of entry.
bool RayShader::FindSpans(const Vec3D& origin, const Vec3D& direction, double end) {
  spans_.clear();
  for (const VolumeInBox& volume : volumes_) {
    double begin = 0, last = end;
    if (ClipToBox(origin, direction, volume.low, volume.high, 0, begin, last)) spans_.push_back({begin, &volume});
  }
  std::stable_sort(spans_.begin(), spans_.end(), [](const Span& a, const Span& b) { return a.begin < b.begin; });
  return !spans_.empty();
}

VolumeSample RayShader::VolumesAlong(VolumeRay& ray, double end) {
  VolumeSample all;
  if (!FindSpans(ray.origin, ray.direction, end)) return all;
  ray.worker = worker_;
  ray.random = random_;
  bool seen = false;
  for (const Span& span : spans_) {
    VolumeSample sample;
    span.volume->volume->Volume(ray, sample);
    ++counts_.volume;
    counts_.volumeSamples += sample.samples;
    all.colour += all.transmittance * sample.colour;
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

ShadedRay RayShader::Shade(const CameraRay& ray, const PointHit* point, const Vec2D& pixelOffset,
                           std::uint64_t firstIndex) {
  ++counts_.camera;
  const double toPoint = point ? (point->depth - world_.camera.near) / ray.cosine : ray.length;
  SurfaceHit hit;
  const bool onSurface = world_.surfaces.Intersect(ray.origin, ray.direction, std::min(toPoint, ray.length), hit);
  const bool onPoint = point && !onSurface;
  const double end = onSurface ? hit.distance : std::min(toPoint, ray.length);

  VolumeRay volumeRay;
  volumeRay.origin = ray.origin, volumeRay.direction = ray.direction;
  volumeRay.hit = onSurface || end < kSkyDistance;
  volumeRay.hitDistance = end;
  const VolumeSample volumes = VolumesAlong(volumeRay, end);

  const RenderSettings& settings = world_.settings;
  Vec3D behind = settings.skyVisible ? world_.SkyColour(ray.direction) : Vec3D();
  if (onSurface) behind = ShadeSurface(hit, -ray.direction, pixelOffset, firstIndex);
  if (onPoint) behind = ShadePoint(*point, ray.origin + ray.direction * end);

  ShadedRay result;
  result.colour = volumes.colour + volumes.transmittance * behind;
  result.alpha = onSurface || onPoint || settings.skyVisible ? 1 : 1 - Mean(volumes.transmittance);
  if (Mean(volumes.transmittance) < 0.5) {
    result.found = true, result.distance = volumes.distance, result.velocity = volumes.velocity;
  } else if (onSurface || onPoint) {
    result.found = true, result.distance = end, result.velocity = onPoint ? point->velocity : hit.velocity;
  }
  if (!IsFinite(result.colour) || !std::isfinite(result.alpha)) {
    ++counts_.notFinite;
    result.colour = {}, result.alpha = 1;
  }
  return result;
}

// The share of the light that reaches x through surfaces and volumes.
Vec3D RayShader::LightPassing(const Light& light, const Illumination& illumination, const Vec3D& x) {
  if (!light.castsShadow) return {1, 1, 1};
  ++counts_.shadow;
  if (world_.surfaces.Occluded(x, illumination.toLight, illumination.distance)) return {};
  Vec3D passing{1, 1, 1};
  if (!FindSpans(x, illumination.toLight, illumination.distance)) return passing;
  VolumeRay ray;
  ray.origin = x, ray.direction = illumination.toLight;
  ray.kind = kRayShadow;
  ray.light = &light;
  ray.lightDistance = illumination.distance;
  ray.worker = worker_, ray.random = random_;
  for (const Span& span : spans_) passing = passing * span.volume->volume->Transparency(ray);
  return passing;
}

// A ball reflects evenly. The sky counts by how far the ball's surface looks up: no rays are spent on what else is
// near.
Vec3D RayShader::ShadePoint(const PointHit& point, const Vec3D& x) {
  if (!point.lit) return point.colour;
  const RenderSettings& settings = world_.settings;
  Vec3D light = settings.skyColour * (settings.skyLight * 0.5 * (1 + point.normal.y));
  for (const Light& each : world_.lights) {
    const Illumination illumination = each.Illuminate(x);
    const double cosine = Dot(point.normal, illumination.toLight);
    if (cosine > 0) light += illumination.colour * LightPassing(each, illumination, x) * cosine;
  }
  return point.colour * light;
}

Vec3D RayShader::ShadeSurface(const SurfaceHit& hit, const Vec3D& toEye, const Vec2D& pixelOffset,
                              std::uint64_t firstIndex) {
  const Vec3D origin = world_.surfaces.OffSurface(hit);
  Vec3D colour = hit.material->emission;
  for (const Light& light : world_.lights) {
    const Illumination illumination = light.Illuminate(hit.point);
    if (Dot(hit.faceNormal, illumination.toLight) <= 0) continue;
    const Vec3D seen = illumination.colour * ReflectedLight(*hit.material, hit.normal, toEye, illumination.toLight);
    if (seen != Vec3D()) colour += seen * LightPassing(light, illumination, origin);
  }
  return colour + GatherAround(hit, origin, pixelOffset, firstIndex);
}

// Light from the sky, from volumes that glow and from surfaces that do, over the half sphere above a surface. Light
// that other surfaces scatter isn't followed.
Vec3D RayShader::GatherAround(const SurfaceHit& hit, const Vec3D& origin, const Vec2D& pixelOffset,
                              std::uint64_t firstIndex) {
  const RenderSettings& settings = world_.settings;
  if (settings.skySamples <= 0 || hit.material->colour == Vec3D()) return {};
  if (settings.skyColour * settings.skyLight == Vec3D() && volumes_.empty() && world_.surfaces.empty()) return {};
  Vec3D sum;
  for (int i = 0; i < settings.skySamples; ++i) {
    VolumeRay ray;
    ray.direction = CosineDirection(hit.normal, SquarePoint(firstIndex + static_cast<std::uint64_t>(i), pixelOffset));
    if (Dot(ray.direction, hit.faceNormal) <= 0) continue;
    ++counts_.gather;
    ray.origin = origin;
    ray.kind = kRayGlobal;
    SurfaceHit other;
    ray.hit = world_.surfaces.Intersect(origin, ray.direction, kSkyDistance, other);
    ray.hitDistance = ray.hit ? other.distance : kSkyDistance;
    const VolumeSample volumes = VolumesAlong(ray, ray.hitDistance);
    const Vec3D behind = ray.hit ? other.material->emission : world_.SkyColour(ray.direction) * settings.skyLight;
    sum += volumes.colour + volumes.transmittance * behind;
  }
  return hit.material->colour * sum / settings.skySamples;
}

}  // namespace orlix
