// Wavefront OBJ: "v x y z" and "f a b c ..." lines; an index is 1-based or, below 0, counted back from the last point
// so far; "/texture" after it names a "vt u v" line likewise, "/normal" after that a "vn x y z" line.

#include <algorithm>
#include <vector>

#include "host/geometry/MeshBuilder.h"
#include "host/geometry/MeshReader.h"

namespace orlix {

namespace {

class ObjReader {
 public:
  ObjReader(std::string_view content, std::string_view name) : text_(content), name_(name) {}

  Result<PolygonObject> Read() {
    Reserve();
    bool comments = false, more = false;
    while (!text_.AtEnd()) {
      text_.SkipBlanks();
      const std::string_view word = text_.Word();
      comments |= word.starts_with('#'), more |= !word.empty() && !word.starts_with('#');
      if (word.starts_with('#')) {
        text_.Line();  // a backslash at a comment's end, as in a folder's name, continues nothing
        continue;
      }
      if (word == "v") {
        if (Status status = ReadPoint(); !status) return status.error();
      } else if (word == "vt") {
        if (Status status = ReadTexturePoint(); !status) return status.error();
      } else if (word == "vn") {
        ReadNormal();
      } else if (word == "f") {
        if (Status status = ReadFace(); !status) return status.error();
      }
      text_.SkipLine();
    }
    TakeNormals();
    Result<PolygonObject> mesh = builder_.Finish([&](std::size_t place) { return Where(begin_ + place); }, 1);
    // A frame without a surface is a file of comments alone, as an output writes it.
    if (mesh.ok() && mesh->polygons.empty() && (more || !comments)) {
      return Error{ErrorKind::InputFile,
                   fmt::format("{}: has {} points and no face: is it an OBJ file?", name_, mesh->points.size())};
    }
    return mesh;
  }

 private:
  // Room for the points and faces that lines begin with, as arrays that grow touch thrice their memory.
  void Reserve() {
    std::size_t points = 0, faces = 0;
    for (TextCursor line = text_; line.Remaining() > 1; line.Line()) {
      const char* start = line.Place();
      points += start[0] == 'v' && start[1] == ' ';
      faces += start[0] == 'f' && start[1] == ' ';
    }
    builder_.ReservePoints(points);
    builder_.ReservePolygons(faces);
  }

  std::string Where(const char* place) const { return fmt::format("{}:{}", name_, text_.LineOf(place)); }
  Status Fail(const char* place, std::string_view what) const {
    return Status::Fail(ErrorKind::InputFile, fmt::format("{}: {}", Where(place), what));
  }

  Status ReadPoint() {
    const char* line = text_.Place();
    Vec3D point;
    for (int axis = 0; axis < 3; ++axis) {
      text_.SkipBlanks();
      if (!text_.Number(point[axis])) return Fail(line, "a point needs three numbers");
    }
    if (!builder_.AddPoint(point)) return Fail(line, "a point's coordinates must be finite numbers");
    return {};
  }

  void ReadNormal() {
    Vec3D normal;
    for (int axis = 0; axis < 3; ++axis) {
      text_.SkipBlanks();
      text_.Number(normal[axis]);
    }
    normals_.push_back(normal);
  }

  // A point has one normal, or none where faces differ.
  void NameNormal(std::int64_t point, std::int64_t normal) {
    const auto at = static_cast<std::size_t>(point);
    if (at >= builder_.PointCount() || static_cast<std::size_t>(normal) >= normals_.size()) return;
    normalOf_.resize(builder_.PointCount(), -1);
    std::int64_t& own = normalOf_[at];
    edged_ |= own >= 0 && normals_[static_cast<std::size_t>(own)] != normals_[static_cast<std::size_t>(normal)];
    own = normal;
  }

  void TakeNormals() {
    normalOf_.resize(builder_.PointCount(), -1);
    if (edged_ || std::find(normalOf_.begin(), normalOf_.end(), -1) != normalOf_.end()) return;
    for (const std::int64_t normal : normalOf_) builder_.AddNormal(normals_[static_cast<std::size_t>(normal)]);
  }

  Status ReadTexturePoint() {
    const char* line = text_.Place();
    double u = 0, v = 0;
    text_.SkipBlanks();
    if (!text_.Number(u)) return Fail(line, "a texture point needs a number");
    text_.SkipBlanks();
    text_.Number(v);
    if (!builder_.AddTexturePoint({u, v})) return Fail(line, "a texture point's coordinates must be finite numbers");
    return {};
  }

  // An index of the file, from 1 or back from -1, as one from 0.
  static std::int64_t FromZero(std::int64_t index, std::size_t count) {
    return index > 0 ? index - 1 : static_cast<std::int64_t>(count) + index;
  }

  Status ReadFace() {
    const char* line = text_.Place();
    corners_.clear(), textures_.clear();
    bool textured = false;
    for (;;) {
      text_.SkipBlanks();
      if (text_.AtLineEnd() || *text_.Place() == '#') break;
      std::int64_t index = 0;
      if (!text_.Integer(index) || index == 0) {
        return Fail(line, "a face needs point numbers, counted from 1 or back from -1");
      }
      if (!text_.AtLineEnd() && *text_.Place() == '.') return Fail(line, "a face's point number must be whole");
      corners_.push_back(FromZero(index, builder_.PointCount()));
      std::int64_t texture = 0;
      if (!text_.AtLineEnd() && *text_.Place() == '/') text_.Advance(1), text_.Integer(texture);
      textures_.push_back(texture == 0 ? -1 : FromZero(texture, builder_.TexturePointCount()));
      textured |= texture != 0;
      std::int64_t normal = 0;
      if (!text_.AtLineEnd() && *text_.Place() == '/') text_.Advance(1), text_.Integer(normal);
      if (normal != 0) NameNormal(corners_.back(), FromZero(normal, normals_.size()));
      text_.Word();
    }
    builder_.AddPolygon(corners_, static_cast<std::size_t>(line - begin_),
                        textured ? std::span<const std::int64_t>(textures_) : std::span<const std::int64_t>());
    return {};
  }

  TextCursor text_;
  const char* begin_ = text_.Place();
  std::string_view name_;
  MeshBuilder builder_;
  std::vector<std::int64_t> corners_, textures_;
  std::vector<Vec3D> normals_;
  std::vector<std::int64_t> normalOf_;  // of each point that a face gave one, below 0 of others
  bool edged_ = false;                  // a point has several
};

}  // namespace

Result<PolygonObject> ParseObj(std::string_view content, std::string_view name) {
  return ObjReader(content, name).Read();
}

}  // namespace orlix
