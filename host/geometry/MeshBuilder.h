#pragma once
// What the mesh readers share: a cursor over text, and polygons that are checked as they come.

#include <fmt/format.h>

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "globals/Result.h"
#include "host/objects/BaseObject.h"

namespace orlix {

// Reads words and numbers from text. It never passes the end.
class TextCursor {
 public:
  explicit TextCursor(std::string_view text) : begin_(text.data()), at_(begin_), end_(begin_ + text.size()) {}

  bool AtEnd() const { return at_ == end_; }
  const char* Place() const { return at_; }
  std::size_t Offset() const { return static_cast<std::size_t>(at_ - begin_); }
  std::size_t Remaining() const { return static_cast<std::size_t>(end_ - at_); }
  // Passes blanks and, with a backslash before them, line ends.
  void SkipBlanks();
  void SkipBlanksAndLines();
  // Behind the next line end. A line that ends in a backslash goes on.
  void SkipLine();
  bool AtLineEnd() const { return at_ == end_ || *at_ == '\n' || *at_ == '\r'; }
  // Up to the next blank or line end; empty at a line end.
  std::string_view Word();
  // The rest of the line without its end.
  std::string_view Line();
  // At most what remains.
  void Advance(std::size_t bytes) { at_ += bytes; }
  // A number in decimal, up to a blank or line end; a leading plus is allowed. False, without a move, when there is
  // none. Out of a double's range gives infinity or 0.
  bool Number(double& value);
  bool Integer(std::int64_t& value);
  // The 1-based line of a place, counted on demand.
  std::size_t LineOf(const char* place) const;

 private:
  const char* begin_;
  const char* at_;
  const char* end_;
};

// Collects points and polygons. Indices are checked by Finish, since some formats may name a point before it comes.
class MeshBuilder {
 public:
  // False when a coordinate is no finite number or there are too many points.
  bool AddPoint(const Vec3D& point);
  // Of the next point that has none, of any length; what isn't finite is none. Points have normals when all have.
  void AddNormal(const Vec3D& normal) { mesh_.normals.push_back(IsFinite(normal) ? Normalized(normal) : Vec3D()); }
  // False likewise.
  bool AddTexturePoint(const Vec2D& point);
  // Corners count from 0 and may be anything. place is where the file names them, for the message. textures: the
  // texture points of the corners, or none; one that isn't there gives (0, 0).
  void AddPolygon(std::span<const std::int64_t> corners, std::size_t place,
                  std::span<const std::int64_t> textures = {});

  std::size_t PointCount() const { return mesh_.points.size(); }
  std::size_t TexturePointCount() const { return texturePoints_.size(); }
  void ReservePoints(std::size_t count) { mesh_.points.reserve(count); }
  void ReservePolygons(std::size_t count) { mesh_.polygons.reserve(count); }

  // The mesh, or an error for the first place whose index lies outside: describe gives "file:line" of a place. first
  // is the number that the format gives to the first point.
  template <class Describe>
  Result<PolygonObject> Finish(Describe describe, std::int64_t first) {
    const auto count = static_cast<std::int64_t>(mesh_.points.size());
    if (anyCorner_ && (lowest_ < 0 || highest_ >= count)) {
      const bool low = lowest_ < 0;
      return Error{ErrorKind::InputFile, fmt::format("{}: a face names point {}, the file has points {} to {}",
                                                     describe(low ? lowestPlace_ : highestPlace_),
                                                     (low ? lowest_ : highest_) + first, first, count - 1 + first)};
    }
    if (tooMany_) return Error{ErrorKind::InputFile, fmt::format("{}: too many polygons", describe(0))};
    TakeTextures();
    if (mesh_.normals.size() != mesh_.points.size()) mesh_.normals.clear();
    mesh_.version = 1;
    return std::move(mesh_);
  }

 private:
  void TakeTextures();

  PolygonObject mesh_;
  std::vector<Vec2D> texturePoints_;
  std::vector<std::array<std::int64_t, 4>> textureCorners_;  // of each polygon; empty while none has any
  bool anyCorner_ = false, tooMany_ = false;
  std::int64_t lowest_ = 0, highest_ = 0;
  std::size_t lowestPlace_ = 0, highestPlace_ = 0;
};

}  // namespace orlix
