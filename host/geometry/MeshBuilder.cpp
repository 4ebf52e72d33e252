#include "host/geometry/MeshBuilder.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <system_error>

namespace orlix {

namespace {

constexpr std::int64_t kMaxElements = std::numeric_limits<std::int32_t>::max();

bool IsBlank(char c) { return c == ' ' || c == '\t' || c == '\v' || c == '\f'; }
bool IsLineEnd(char c) { return c == '\n' || c == '\r'; }

// Beyond the range of a double the standard's parser gives no value: infinity or 0 by the C library's rule.
double ParseOutOfRange(const char* begin, const char* end) {
  return std::strtod(std::string(begin, end).c_str(), nullptr);
}

}  // namespace

void TextCursor::SkipBlanks() {
  while (at_ != end_) {
    if (IsBlank(*at_)) {
      ++at_;
    } else if (*at_ == '\\' && at_ + 1 != end_ && IsLineEnd(at_[1])) {
      const bool pair = at_[1] == '\r' && at_ + 2 != end_ && at_[2] == '\n';
      at_ += pair ? 3 : 2;
    } else {
      return;
    }
  }
}

void TextCursor::SkipBlanksAndLines() {
  while (at_ != end_ && (IsBlank(*at_) || IsLineEnd(*at_))) ++at_;
}

void TextCursor::SkipLine() {
  char last = 0;
  while (at_ != end_) {
    const char c = *at_++;
    if (c == '\n') {
      if (last != '\\') return;
      last = 0;
    } else if (c != '\r') {
      last = c;
    }
  }
}

std::string_view TextCursor::Word() {
  const char* from = at_;
  while (at_ != end_ && !IsBlank(*at_) && !IsLineEnd(*at_)) ++at_;
  return {from, static_cast<std::size_t>(at_ - from)};
}

std::string_view TextCursor::Line() {
  const char* from = at_;
  const void* newline = at_ != end_ ? std::memchr(at_, '\n', Remaining()) : nullptr;
  at_ = newline ? static_cast<const char*>(newline) : end_;
  const char* to = at_;
  if (at_ != end_) ++at_;
  while (to != from && to[-1] == '\r') --to;
  return {from, static_cast<std::size_t>(to - from)};
}

bool TextCursor::Number(double& value) {
  const char* from = at_ != end_ && *at_ == '+' ? at_ + 1 : at_;
  const auto [to, error] = std::from_chars(from, end_, value);
  if (error == std::errc::invalid_argument || (to != end_ && !IsBlank(*to) && !IsLineEnd(*to))) return false;
  if (error == std::errc::result_out_of_range) value = ParseOutOfRange(from, to);
  at_ = to;
  return true;
}

bool TextCursor::Integer(std::int64_t& value) {
  const char* from = at_ != end_ && *at_ == '+' ? at_ + 1 : at_;
  const auto [to, error] = std::from_chars(from, end_, value);
  if (error == std::errc::invalid_argument) return false;
  if (error != std::errc()) value = std::numeric_limits<std::int64_t>::max();
  at_ = to;
  return true;
}

std::size_t TextCursor::LineOf(const char* place) const {
  return 1 + static_cast<std::size_t>(std::count(begin_, std::min(place, end_), '\n'));
}

bool MeshBuilder::AddPoint(const Vec3D& point) {
  if (!IsFinite(point) || std::int64_t(mesh_.points.size()) >= kMaxElements) return false;
  mesh_.points.push_back(point);
  return true;
}

bool MeshBuilder::AddTexturePoint(const Vec2D& point) {
  if (!std::isfinite(point.x) || !std::isfinite(point.y) || std::int64_t(texturePoints_.size()) >= kMaxElements) {
    return false;
  }
  texturePoints_.push_back(point);
  return true;
}

void MeshBuilder::AddPolygon(std::span<const std::int64_t> corners, std::size_t place,
                             std::span<const std::int64_t> textures) {
  if (corners.size() < 3) return;
  for (const std::int64_t corner : corners) {
    if (!anyCorner_ || corner < lowest_) lowest_ = corner, lowestPlace_ = place;
    if (!anyCorner_ || corner > highest_) highest_ = corner, highestPlace_ = place;
    anyCorner_ = true;
  }
  // What Finish refuses is not stored: a corner is an i32.
  if (lowest_ < 0 || highest_ >= kMaxElements) return;
  if (std::int64_t(mesh_.polygons.size() + corners.size()) > kMaxElements) {
    tooMany_ = true;
    return;
  }
  const auto add = [&](std::size_t a, std::size_t b, std::size_t c, std::size_t d) {
    const auto index = [&](std::size_t i) { return static_cast<std::int32_t>(corners[i]); };
    if (!textures.empty()) {
      textureCorners_.resize(mesh_.polygons.size(), {-1, -1, -1, -1});
      textureCorners_.push_back({textures[a], textures[b], textures[c], textures[d]});
    }
    mesh_.polygons.push_back({index(a), index(b), index(c), index(d)});
  };
  if (corners.size() == 4) return add(0, 1, 2, 3);
  for (std::size_t i = 2; i < corners.size(); ++i) add(0, i - 1, i, i);
}

void MeshBuilder::TakeTextures() {
  if (textureCorners_.empty()) return;
  textureCorners_.resize(mesh_.polygons.size(), {-1, -1, -1, -1});
  mesh_.textureCoordinates.resize(textureCorners_.size());
  const auto count = static_cast<std::int64_t>(texturePoints_.size());
  for (std::size_t p = 0; p < textureCorners_.size(); ++p) {
    for (std::size_t corner = 0; corner < 4; ++corner) {
      const std::int64_t at = textureCorners_[p][corner];
      if (at >= 0 && at < count) mesh_.textureCoordinates[p][corner] = texturePoints_[static_cast<std::size_t>(at)];
    }
  }
}

}  // namespace orlix
