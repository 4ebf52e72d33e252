#include "host/render/SurfaceScene.h"

#include <embree3/rtcore.h>
#include <fmt/format.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <limits>
#include <numbers>

#include "host/objects/PlaceObject.h"
#include "host/render/Camera.h"
#include "host/render/SmoothNormals.h"

namespace orlix {

namespace {

// What 32 bits can number with two triangles a polygon and three corners a triangle.
constexpr std::size_t kMaxPolygons = std::size_t(1) << 29;

// The corners of one triangle in the points of its surface.
struct Triangle {
  std::int32_t corner[3];
  std::int32_t polygon = 0;
  bool second = false;  // of a quad
};

// What shading reads of a triangle, in one cache line: at a hit it is new to the caches.
struct ShadedTriangle {
  alignas(64) Vec3F normals[3];  // of the corners, host space
  // How far each corner stands above each of the two others, in the order of their numbers, along its own normal.
  float rises[3][2];
};

struct SurfaceData {
  std::vector<ShadedTriangle> triangles;
  std::vector<std::int32_t> corners;  // three a triangle: points; none without velocities
  std::vector<Vec3F> velocities;      // one a point, or none
  std::vector<Vec2D> textures;        // three a triangle, or none
  SurfaceMaterial material;
  bool mirrored = false;  // by its matrix: corners go round the other way
};

// An open scene of Embree, released with its owner.
struct Handles {
  RTCDevice device = nullptr;
  RTCScene scene = nullptr;
  ~Handles() { Release(); }
  void Release() {
    if (scene) rtcReleaseScene(scene);
    if (device) rtcReleaseDevice(device);
    scene = nullptr, device = nullptr;
  }
};

Vec3D ToHost(const Vec3F& v) { return Vec3D(v); }

}  // namespace

struct SurfaceScene::Impl {
  Handles embree;
  Vec3D centre, low, high;
  std::vector<SurfaceData> surfaces;  // by geometry number
  std::int64_t triangles = 0;
  bool anyClear = false;
  double shutter = 0;  // s

  bool SetVertices(RTCGeometry geometry, const Surface& surface, const std::vector<Vec3D>& points) const;
  double Clearance(const SurfaceHit& hit) const;
  RTCRay RayOf(const Vec3D& origin, const Vec3D& direction, double length, double time) const;
  Status Add(const Surface& surface, const std::vector<Vec3D>& points, const std::vector<Triangle>& triangles);
};

namespace {

// Host positions of the points; NaN where a point is no number.
std::vector<Vec3D> HostPoints(const Surface& surface) {
  std::vector<Vec3D> points;
  points.reserve(surface.polygons->points.size());
  for (const Vec3D& p : surface.polygons->points) points.push_back(surface.matrix * p);
  return points;
}

// Quads are cut along a-c, as the host does.
std::vector<Triangle> TrianglesOf(const PolygonObject& object, const std::vector<Vec3D>& points) {
  const auto usable = [&](std::int32_t i) {
    return i >= 0 && static_cast<std::size_t>(i) < points.size() && IsFinite(points[static_cast<std::size_t>(i)]);
  };
  std::vector<Triangle> triangles;
  triangles.reserve(object.polygons.size() * 2);
  for (const PolygonObject::Polygon& p : object.polygons) {
    if (!usable(p.a) || !usable(p.b) || !usable(p.c) || !usable(p.d)) continue;
    const auto polygon = static_cast<std::int32_t>(&p - object.polygons.data());
    triangles.push_back({{p.a, p.b, p.c}, polygon, false});
    if (!p.IsTriangle()) triangles.push_back({{p.a, p.c, p.d}, polygon, true});
  }
  return triangles;
}

}  // namespace

SurfaceScene::SurfaceScene() : impl_(std::make_unique<Impl>()) {}
SurfaceScene::~SurfaceScene() = default;

bool SurfaceScene::empty() const { return impl_->triangles == 0; }
std::int64_t SurfaceScene::triangleCount() const { return impl_->triangles; }

bool SurfaceScene::Bounds(Vec3D& low, Vec3D& high) const {
  low = impl_->low, high = impl_->high;
  return !empty();
}

namespace {

bool HasVelocities(const Surface& surface, const std::vector<Vec3D>& points) {
  return surface.velocities && surface.velocities->size() == points.size();
}

std::vector<Vec2D> TexturesOf(const PolygonObject& object, const std::vector<Triangle>& triangles) {
  std::vector<Vec2D> textures;
  if (object.textureCoordinates.size() != object.polygons.size()) return textures;
  textures.reserve(3 * triangles.size());
  for (const Triangle& t : triangles) {
    const auto& corners = object.textureCoordinates[static_cast<std::size_t>(t.polygon)];
    for (const std::size_t c : {std::size_t(0), t.second ? std::size_t(2) : 1, t.second ? std::size_t(3) : 2})
      textures.push_back(corners[c]);
  }
  return textures;
}

std::vector<ShadedTriangle> ShadedTriangles(const std::vector<Vec3D>& points, const std::vector<std::int32_t>& corners,
                                            const std::vector<Vec3F>& normals) {
  std::vector<ShadedTriangle> triangles(corners.size() / 3);
  for (std::size_t t = 0; t < triangles.size(); ++t) {
    const auto at = [&](int c) {
      return points[static_cast<std::size_t>(corners[3 * t + static_cast<std::size_t>(c)])];
    };
    for (int c = 0; c < 3; ++c) {
      const Vec3F& normal = normals[3 * t + static_cast<std::size_t>(c)];
      const Vec3D n = ToHost(normal);
      triangles[t].normals[c] = normal;
      for (int o = 0; o < 2; ++o) {
        triangles[t].rises[c][o] = static_cast<float>(Dot(at(c) - at(o < c ? o : o + 1), n));
      }
    }
  }
  return triangles;
}

}  // namespace

// Points that move get a place for the shutter's opening and one for its closing.
bool SurfaceScene::Impl::SetVertices(RTCGeometry geometry, const Surface& surface,
                                     const std::vector<Vec3D>& points) const {
  const bool moves = shutter > 0 && HasVelocities(surface, points);
  if (moves) rtcSetGeometryTimeStepCount(geometry, 2);
  for (unsigned step = 0; step < (moves ? 2u : 1u); ++step) {
    auto* vertices = static_cast<float*>(rtcSetNewGeometryBuffer(geometry, RTC_BUFFER_TYPE_VERTEX, step,
                                                                 RTC_FORMAT_FLOAT3, 3 * sizeof(float), points.size()));
    if (!vertices) return false;
    const double seconds = moves ? (step - 0.5) * shutter : 0;
    for (std::size_t i = 0; i < points.size(); ++i) {
      Vec3D p = IsFinite(points[i]) ? points[i] - centre : Vec3D();
      if (moves && IsFinite((*surface.velocities)[i])) p += (*surface.velocities)[i] * seconds;
      for (std::size_t axis = 0; axis < 3; ++axis)
        vertices[3 * i + axis] = static_cast<float>(p[static_cast<int>(axis)]);
    }
  }
  return true;
}

Status SurfaceScene::Impl::Add(const Surface& surface, const std::vector<Vec3D>& points,
                               const std::vector<Triangle>& list) {
  const auto failed = [] { return Status::Fail(ErrorKind::Memory, "no memory for the surfaces of the picture"); };
  RTCGeometry geometry = rtcNewGeometry(embree.device, RTC_GEOMETRY_TYPE_TRIANGLE);
  if (!geometry) return failed();
  auto* indices = static_cast<unsigned*>(
      rtcSetNewGeometryBuffer(geometry, RTC_BUFFER_TYPE_INDEX, 0, RTC_FORMAT_UINT3, 3 * sizeof(unsigned), list.size()));
  if (!indices || !SetVertices(geometry, surface, points)) {
    rtcReleaseGeometry(geometry);
    return failed();
  }
  for (std::size_t t = 0; t < list.size(); ++t) {
    for (std::size_t c = 0; c < 3; ++c) indices[3 * t + c] = static_cast<unsigned>(list[t].corner[c]);
  }
  rtcCommitGeometry(geometry);
  rtcAttachGeometryByID(embree.scene, geometry, static_cast<unsigned>(surfaces.size()));
  rtcReleaseGeometry(geometry);  // the scene holds it

  SurfaceData data;
  data.material = surface.material;
  data.mirrored = surface.matrix.Determinant() < 0;
  std::vector<std::int32_t> corners;
  corners.reserve(list.size() * 3);
  for (const Triangle& t : list) corners.insert(corners.end(), t.corner, t.corner + 3);
  std::vector<Vec3F> normals;
  if (const std::vector<Vec3D>& own = surface.polygons->normals; own.size() == points.size()) {
    const LMatrix turn = NormalMatrix(surface.matrix);
    normals.reserve(corners.size());
    for (const std::int32_t corner : corners) {
      normals.emplace_back(Normalized(turn.Rotate(own[static_cast<std::size_t>(corner)])));
    }
  } else {
    normals = SmoothNormals(points, corners, surface.material.smoothAngle);
  }
  data.triangles = ShadedTriangles(points, corners, normals);
  data.textures = TexturesOf(*surface.polygons, list);
  if (HasVelocities(surface, points)) {
    for (const Vec3D& v : *surface.velocities) data.velocities.emplace_back(IsFinite(v) ? v : Vec3D());
    data.corners = std::move(corners);
  }
  anyClear |= data.material.IsClear();
  surfaces.push_back(std::move(data));
  triangles += static_cast<std::int64_t>(list.size());
  return {};
}

Status SurfaceScene::Build(const std::vector<Surface>& surfaces, double shutter) {
  impl_ = std::make_unique<Impl>();
  impl_->shutter = shutter;
  std::vector<std::vector<Vec3D>> points;
  std::vector<std::vector<Triangle>> triangles;
  constexpr double kFar = std::numeric_limits<double>::max();
  Vec3D low{kFar, kFar, kFar}, high{-kFar, -kFar, -kFar};
  for (const Surface& surface : surfaces) {
    if (surface.polygons->polygons.size() > kMaxPolygons || surface.polygons->points.size() > kMaxPolygons) {
      return Status::Fail(ErrorKind::Memory, fmt::format("a mesh of {} polygons is too large for a picture, at most {}",
                                                         surface.polygons->polygons.size(), kMaxPolygons));
    }
    points.push_back(HostPoints(surface));
    triangles.push_back(TrianglesOf(*surface.polygons, points.back()));
    for (const Triangle& t : triangles.back()) {
      for (const std::int32_t corner : t.corner) {
        const Vec3D& p = points.back()[static_cast<std::size_t>(corner)];
        if (Length(p) > kFarthest) {
          return Status::Fail(ErrorKind::Scene, fmt::format("\"{}\" reaches to ({:.3g}, {:.3g}, {:.3g}), pictures show "
                                                            "what is within {:g} host units",
                                                            surface.name, p.x, p.y, p.z, kFarthest));
        }
        low = Min(low, p), high = Max(high, p);
      }
    }
  }
  if (!(low.x <= high.x)) return {};
  impl_->low = low, impl_->high = high;
  impl_->centre = low * 0.5 + high * 0.5;
  // One thread: the structure, and with it every bit of the picture, is the same each time.
  impl_->embree.device = rtcNewDevice("threads=1,set_affinity=0");
  if (!impl_->embree.device) return Status::Fail(ErrorKind::Internal, "the ray tracer for surfaces can't be started");
  impl_->embree.scene = rtcNewScene(impl_->embree.device);
  rtcSetSceneFlags(impl_->embree.scene, RTC_SCENE_FLAG_ROBUST);
  rtcSetSceneBuildQuality(impl_->embree.scene, RTC_BUILD_QUALITY_MEDIUM);
  for (std::size_t i = 0; i < surfaces.size(); ++i) {
    if (triangles[i].empty()) continue;
    if (Status s = impl_->Add(surfaces[i], points[i], triangles[i]); !s) {
      impl_ = std::make_unique<Impl>();
      return s;
    }
  }
  rtcCommitScene(impl_->embree.scene);
  if (rtcGetDeviceError(impl_->embree.device) != RTC_ERROR_NONE) {
    impl_ = std::make_unique<Impl>();
    return Status::Fail(ErrorKind::Memory, "no memory for the surfaces of the picture");
  }
  return {};
}

RTCRay SurfaceScene::Impl::RayOf(const Vec3D& origin, const Vec3D& direction, double length, double time) const {
  const Vec3F o(origin - centre), d(direction);
  RTCRay ray{};
  ray.org_x = o.x, ray.org_y = o.y, ray.org_z = o.z;
  ray.dir_x = d.x, ray.dir_y = d.y, ray.dir_z = d.z;
  ray.tnear = 0;
  ray.time = static_cast<float>(time);
  constexpr double kLongest = 1e30;
  ray.tfar = static_cast<float>(std::min(length, kLongest));
  ray.mask = 0xffffffffu;
  return ray;
}

bool SurfaceScene::Intersect(const Vec3D& origin, const Vec3D& direction, double length, SurfaceHit& hit,
                             double time) const {
  if (empty()) return false;
  RTCRayHit query{};
  query.ray = impl_->RayOf(origin, direction, length, time);
  query.hit.geomID = RTC_INVALID_GEOMETRY_ID;
  RTCIntersectContext context;
  rtcInitIntersectContext(&context);
  rtcIntersect1(impl_->embree.scene, &context, &query);
  if (query.hit.geomID == RTC_INVALID_GEOMETRY_ID) return false;

  const SurfaceData& surface = impl_->surfaces[query.hit.geomID];
  const std::size_t triangle = query.hit.primID;
  const double u = query.hit.u, v = query.hit.v, w = 1 - u - v;
  hit.distance = query.ray.tfar;
  hit.point = origin + direction * hit.distance;
  hit.material = &surface.material;
  hit.faceNormal = Normalized(Vec3D{query.hit.Ng_x, query.hit.Ng_y, query.hit.Ng_z});
  if (surface.mirrored) hit.faceNormal = -hit.faceNormal;
  const ShadedTriangle& shaded = surface.triangles[triangle];
  const Vec3F* normals = shaded.normals;
  hit.normal = Normalized(ToHost(normals[0]) * w + ToHost(normals[1]) * u + ToHost(normals[2]) * v);
  if (Dot(hit.normal, hit.faceNormal) < 0) hit.normal = -hit.normal;
  hit.outside = Dot(hit.faceNormal, direction) <= 0;
  if (!hit.outside) hit.faceNormal = -hit.faceNormal, hit.normal = -hit.normal;
  // A smoothed normal may look away at the rim.
  if (Dot(hit.normal, direction) > -1e-3) hit.normal = hit.faceNormal;
  // To the mean of the point's projections onto the planes of the corners' normals, of those that it lies below (Hanika
  // 2021, "Hacking the shadow terminator").
  const double weights[] = {w, u, v};
  hit.lift = {};
  for (int c = 0; c < 3; ++c) {
    const double rise = shaded.rises[c][0] * weights[c == 0 ? 1 : 0] + shaded.rises[c][1] * weights[c == 2 ? 1 : 2];
    const Vec3D n = ToHost(normals[c]);
    const double side = Dot(n, hit.faceNormal) < 0 ? -1 : 1;
    hit.lift += n * (side * weights[c] * std::max(0.0, side * rise));
  }
  hit.velocity = {};
  if (!surface.velocities.empty()) {
    const std::int32_t* corner = &surface.corners[3 * triangle];
    const auto at = [&](int c) { return ToHost(surface.velocities[static_cast<std::size_t>(corner[c])]); };
    hit.velocity = at(0) * w + at(1) * u + at(2) * v;
  }
  hit.hasTexture = !surface.textures.empty();
  if (hit.hasTexture) {
    const Vec2D* t = &surface.textures[3 * triangle];
    hit.texture = {t[0].x * w + t[1].x * u + t[2].x * v, t[0].y * w + t[1].y * u + t[2].y * v};
  }
  return true;
}

void SurfaceScene::IntersectPacket(const Vec3D& origin, const DirectionPacket& directions, std::uint32_t asked,
                                   PacketHits& hits, double time) const {
  constexpr int kSize = DirectionPacket::kSize, kFewest = 4;  // rays from which on a packet is worth its filling
  std::fill_n(hits.material, kSize, nullptr);
  if (empty()) return;
  const auto take = [&](int i, unsigned geometry, float distance) {
    if (geometry == RTC_INVALID_GEOMETRY_ID) return;
    hits.material[i] = &impl_->surfaces[geometry].material, hits.distance[i] = distance;
  };
  RTCIntersectContext context;
  rtcInitIntersectContext(&context);
  RTCRayHit one{};
  one.ray = impl_->RayOf(origin, Vec3D(), std::numeric_limits<double>::max(), time);
  if (std::popcount(asked) < kFewest) {
    for (; asked != 0; asked &= asked - 1) {
      const int i = std::countr_zero(asked);
      RTCRayHit query = one;
      const Vec3F d(directions[i]);
      query.ray.dir_x = d.x, query.ray.dir_y = d.y, query.ray.dir_z = d.z;
      query.hit.geomID = RTC_INVALID_GEOMETRY_ID;
      rtcIntersect1(impl_->embree.scene, &context, &query);
      take(i, query.hit.geomID, query.ray.tfar);
    }
    return;
  }
  static_assert(kSize == 16);
  alignas(64) RTCRayHit16 query;
  alignas(64) int valid[kSize];
  for (int i = 0; i < kSize; ++i) {
    valid[i] = asked >> i & 1u ? -1 : 0;
    query.ray.org_x[i] = one.ray.org_x, query.ray.org_y[i] = one.ray.org_y, query.ray.org_z[i] = one.ray.org_z;
    query.ray.dir_x[i] = static_cast<float>(directions.x[i]);
    query.ray.dir_y[i] = static_cast<float>(directions.y[i]);
    query.ray.dir_z[i] = static_cast<float>(directions.z[i]);
    query.ray.tnear[i] = one.ray.tnear, query.ray.tfar[i] = one.ray.tfar;
    query.ray.time[i] = one.ray.time, query.ray.mask[i] = one.ray.mask, query.ray.id[i] = query.ray.flags[i] = 0;
    query.hit.geomID[i] = RTC_INVALID_GEOMETRY_ID;
  }
  rtcIntersect16(valid, impl_->embree.scene, &context, &query);
  for (int i = 0; i < kSize; ++i) {
    if (valid[i]) take(i, query.hit.geomID[i], query.ray.tfar[i]);
  }
}

bool SurfaceScene::Occluded(const Vec3D& origin, const Vec3D& direction, double length, double time) const {
  if (empty()) return false;
  RTCRay ray = impl_->RayOf(origin, direction, length, time);
  RTCIntersectContext context;
  rtcInitIntersectContext(&context);
  rtcOccluded1(impl_->embree.scene, &context, &ray);
  return ray.tfar < 0;
}

bool SurfaceScene::IntersectOpaque(const Vec3D& origin, const Vec3D& direction, double length, SurfaceHit& hit,
                                   Vec3D& passing, double time) const {
  constexpr int kMostLayers = 64;
  Vec3D from = origin;
  double gone = 0;
  for (int layer = 0; layer < kMostLayers && Intersect(from, direction, length - gone, hit, time); ++layer) {
    const SurfaceMaterial& material = *hit.material;
    if (!hit.outside && material.IsClear()) passing = passing * material.Absorbed(hit.distance);
    gone += hit.distance;
    if (!material.IsClear()) {
      hit.distance = gone;
      return true;
    }
    // Not what is bent away at the inner side: the straight way stands for all that come through.
    const ClearSplit split = SplitAtSurface(direction, hit.normal, 1 / material.refraction);
    passing *= (1 - split.reflected) * material.transmission;
    from = BeyondSurface(hit);
  }
  return false;
}

Vec3D SurfaceScene::Passing(const Vec3D& origin, const Vec3D& direction, double length, double time) const {
  if (!impl_->anyClear) return Occluded(origin, direction, length, time) ? Vec3D() : Vec3D(1.0);
  SurfaceHit hit;
  Vec3D passing(1.0);
  return IntersectOpaque(origin, direction, length, hit, passing, time) ? Vec3D() : passing;
}

Vec3D SurfaceScene::OffSurface(const SurfaceHit& hit) const {
  return hit.point + hit.faceNormal * impl_->Clearance(hit);
}
Vec3D SurfaceScene::BeyondSurface(const SurfaceHit& hit) const {
  return hit.point - hit.faceNormal * impl_->Clearance(hit);
}

// A few units in the last place of the largest number that went into the hit.
double SurfaceScene::Impl::Clearance(const SurfaceHit& hit) const {
  const Vec3D p = hit.point - centre;
  return std::max({std::abs(p.x), std::abs(p.y), std::abs(p.z), hit.distance}) * 4e-6;
}

}  // namespace orlix
