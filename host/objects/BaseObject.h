#pragma once
// A host object: a type, a name, settings, a matrix, tags, children. It holds no simulation data; nodes mirror it.

#include <array>
#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "globals/Result.h"
#include "host/description/TypeRegistry.h"
#include "host/objects/BaseContainer.h"
#include "host/objects/BaseTime.h"

namespace orlix {

class BaseDocument;
class BaseObject;

// The ids of the rows that every object has (see TransformParameters).
inline constexpr int kPositionId = 903;
inline constexpr int kScaleId = 904;
inline constexpr int kRotationId = 905;
// position (host units), scale (factors), rotation (degrees about x, y, z, applied in this order). A type lists them in
// its common rows.
std::span<const Parameter> TransformParameters();

inline constexpr int kMaterialId = 906;
inline constexpr int kShownInPicturesId = 907;
// The rows of TransformParameters, a link to the material, and whether pictures show the object: the common rows of a
// type that has polygons.
std::span<const Parameter> GeometryParameters();

// Polygons in the object's local space: triangles and quads, as the host keeps them.
struct PolygonObject {
  struct Polygon {
    std::int32_t a = 0, b = 0, c = 0, d = 0;  // d equals c on a triangle
    bool IsTriangle() const { return c == d; }
  };
  std::vector<Vec3D> points;  // local space, host units
  std::vector<Polygon> polygons;
  // Of each polygon's corners, where the object has them: as many as polygons, or none. The fourth entry of a triangle
  // isn't read.
  std::vector<std::array<Vec2D, 4>> textureCoordinates;
  // Of the points; empty when there are none.
  std::vector<Vec3D> normals;     // unit vectors, or zero
  std::vector<Vec3D> velocities;  // host units a second
  struct Attribute {
    std::string name;
    int components = 1;          // 1 or 3 numbers a point
    std::vector<double> values;  // point after point
  };
  std::vector<Attribute> attributes;
  std::uint64_t version = 0;  // grows when points or polygons change
};

// A factor by place. Rows of places are asked at once, by several workers.
class Falloff {
 public:
  virtual ~Falloff() = default;
  // Multiplies values[i] by the factor at start + i x step, in host space.
  virtual void MultiplyRow(const BaseObject& object, const Vec3D& start, const Vec3D& step,
                           std::span<double> values) const = 0;
};

// A colour by place. Runs of places are asked at once, by several workers.
class Shader {
 public:
  enum class PlaceKind { Space, Texture };  // host space, or texture coordinates (u, v, 0)
  virtual ~Shader() = default;
  // colours[i] of places[i], linear Rec. 709. Colours may take the memory of their places.
  virtual void Colours(const BaseObject& object, PlaceKind kind, std::span<const Vec3D> places,
                       std::span<Vec3D> colours) const = 0;
};

// What a type does beyond its table. One instance belongs to one object.
class ObjectData {
 public:
  virtual ~ObjectData() = default;
  // After the defaults were written into the container.
  virtual void Init(BaseObject&) {}
  // Makes what it generates anew for a frame; called for many objects at once, so that it touches its own alone.
  virtual Status Update(BaseObject&, const BaseTime&) { return {}; }
  // The polygons that the object shows, in its local space; null when it shows none.
  virtual const PolygonObject* Polygons() const { return nullptr; }
  // The factor that the object makes of a place; null when it makes none.
  virtual const Falloff* AsFalloff() const { return nullptr; }
  // The colours that the object gives to places; null when it gives none.
  virtual const Shader* AsShader() const { return nullptr; }
};

class BaseObject {
 public:
  // Writes the type's defaults into the container. The creation number comes from the document.
  BaseObject(const TypeInfo& type, BaseDocument& document, std::uint64_t creationNumber);
  BaseObject(const BaseObject&) = delete;
  BaseObject& operator=(const BaseObject&) = delete;

  const TypeInfo& type() const { return *type_; }
  int typeId() const { return type_->id; }
  BaseDocument& document() const { return *document_; }
  // Grows with each object that the document makes; orders every map that is keyed by objects.
  std::uint64_t creationNumber() const { return creationNumber_; }
  // True for the object's own type and its base, and for 1300000 on every node and root: the common base of the
  // engine's objects.
  bool IsInstanceOf(int typeId) const;

  std::string name;
  BaseObject* parent() const { return parent_; }
  const std::vector<std::unique_ptr<BaseObject>>& children() const { return children_; }
  const std::vector<std::unique_ptr<BaseObject>>& tags() const { return tags_; }
  BaseObject* FindTag(int typeId) const;
  // Names from the outermost parent to this object, with "/" between.
  std::string Path() const;

  // Settings. A set value that differs from the one that is there counts as a change.
  const BaseContainer& container() const { return container_; }
  const Value& Get(int id) const { return container_.Get(id); }
  void Set(int id, Value value);
  template <class E>
  requires std::is_enum_v<E>
  void Set(int id, E choice) { Set(id, static_cast<std::int64_t>(choice)); }
  double GetDouble(int id) const;  // with the row's fallback
  std::int64_t GetInt(int id) const;
  bool GetBool(int id) const;
  template <class E>
  E GetChoice(int id) const {
    return static_cast<E>(GetInt(id));
  }
  Vec3D GetVector(int id) const;
  std::string GetString(int id) const;
  BaseObject* GetLink(int id) const;  // null when the target is gone
  const SplineData* GetSpline(int id) const;
  const Gradient* GetGradient(int id) const;
  const InExcludeData* GetInExclude(int id) const;

  // Rows that its user set, not a preset or a default.
  void MarkGiven(int row) { given_.insert(row); }
  bool WasGiven(int row) const { return given_.contains(row); }
  // Counts changes of the data.
  std::uint32_t dirtyCount() const { return dirtyCount_; }
  void MarkDirty() { ++dirtyCount_; }

  LMatrix LocalMatrix() const;
  LMatrix GlobalMatrix() const;

  ObjectData* data() const { return data_.get(); }
  const PolygonObject* Polygons() const { return data_ ? data_->Polygons() : nullptr; }

 private:
  friend class BaseDocument;
  const TypeInfo* type_;
  BaseDocument* document_;
  std::uint64_t creationNumber_;
  BaseObject* parent_ = nullptr;
  std::vector<std::unique_ptr<BaseObject>> children_, tags_;
  BaseContainer container_;
  std::set<int> given_;
  std::uint32_t dirtyCount_ = 1;
  std::unique_ptr<ObjectData> data_;
};

using BaseList2D = BaseObject;

}  // namespace orlix
