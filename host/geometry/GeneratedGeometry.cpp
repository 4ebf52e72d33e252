#include "host/geometry/GeneratedGeometry.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>

namespace orlix {

Status GeneratedGeometry::Update(BaseObject& object, const BaseTime&) {
  if (builtAt_ == object.dirtyCount()) return {};
  builtAt_ = object.dirtyCount();
  // Where it stands, which changes with every frame of a body that falls, isn't among the type's own rows.
  std::vector<Value> settings;
  for (const Parameter& row : object.type().parameters) settings.push_back(object.Get(row.id));
  if (polygons_.version != 0 && std::ranges::equal(settings, builtFrom_, SameValue)) return {};
  builtFrom_ = std::move(settings);
  PolygonObject fresh;
  fresh.version = polygons_.version + 1;
  Build(object, fresh);
  polygons_ = std::move(fresh);
  return {};
}

namespace {

double UsableLength(double length) {
  return length > 0 ? std::min(length, double(std::numeric_limits<float>::max())) : 0;
}

}  // namespace

double LengthOf(const BaseObject& object, int id) { return UsableLength(object.GetDouble(id)); }

Vec3D LengthsOf(const BaseObject& object, int id) {
  const Vec3D lengths = object.GetVector(id);
  return {UsableLength(lengths.x), UsableLength(lengths.y), UsableLength(lengths.z)};
}

int SegmentsOf(const BaseObject& object, int id, int least, int most) {
  return static_cast<int>(std::clamp<std::int64_t>(object.GetInt(id), least, most));
}

void Revolve(std::span<const ProfilePoint> profile, bool closed, int segments, PolygonObject& result) {
  std::vector<std::int32_t> first(profile.size());  // of each profile point's ring
  for (std::size_t i = 0; i < profile.size(); ++i) {
    first[i] = static_cast<std::int32_t>(result.points.size());
    if (profile[i].x == 0) {
      result.points.push_back({0, profile[i].y, 0});
      continue;
    }
    for (int s = 0; s < segments; ++s) {
      const double angle = 2 * std::numbers::pi * s / segments;
      result.points.push_back({profile[i].x * std::cos(angle), profile[i].y, profile[i].x * std::sin(angle)});
    }
  }
  const auto point = [&](std::size_t i, int s) { return profile[i].x == 0 ? first[i] : first[i] + s % segments; };
  const std::size_t bands = closed ? profile.size() : profile.size() - 1;
  for (std::size_t i = 0; i < bands; ++i) {
    const std::size_t above = (i + 1) % profile.size();
    for (int s = 0; s < segments; ++s) {
      const std::int32_t a = point(i, s), b = point(above, s), c = point(above, s + 1), d = point(i, s + 1);
      if (a == d && b == c) continue;  // a piece of the axis itself
      if (a == d) {
        result.polygons.push_back({a, b, c, c});
      } else if (b == c) {
        result.polygons.push_back({a, b, d, d});
      } else {
        result.polygons.push_back({a, b, c, d});
      }
    }
  }
}

}  // namespace orlix
