#include "host/objects/BaseObject.h"

#include <cmath>

#include "host/objects/BaseDocument.h"
#include "host/objects/HostRange.h"
#include "host/objects/RowMistake.h"

namespace orlix {

namespace {

constexpr int kRootTypeId = 1300000;

constexpr Parameter kGeometry[] = {
    VectorParameter(kPositionId, "position", {0, 0, 0}, "host units", "Place in the parent's space")
        .Between(-kMostHostUnits, kMostHostUnits),
    VectorParameter(kScaleId, "scale", {1, 1, 1}, "", "Factors along the object's own axes")
        .Between(-kMostScale, kMostScale),
    VectorParameter(kRotationId, "rotation", {0, 0, 0}, "degrees", "Turns about x, then y, then z"),
    LinkParameter(kMaterialId, "material", kLinkMaterial, "What the surface looks like in pictures; grey without one"),
    BoolParameter(kShownInPicturesId, "shown_in_pictures", true, "Whether pictures show the object and its shadow"),
};
constexpr std::size_t kTransformRows = 3;

LMatrix RotationAbout(int axis, double degrees) {
  const double angle = degrees * (3.14159265358979323846 / 180.0), c = std::cos(angle), s = std::sin(angle);
  LMatrix m;
  if (axis == 0) m.v2 = {0, c, s}, m.v3 = {0, -s, c};
  if (axis == 1) m.v1 = {c, 0, -s}, m.v3 = {s, 0, c};
  if (axis == 2) m.v1 = {c, s, 0}, m.v2 = {-s, c, 0};
  return m;
}

}  // namespace

std::span<const Parameter> TransformParameters() { return std::span(kGeometry).first(kTransformRows); }
std::span<const Parameter> GeometryParameters() { return kGeometry; }

BaseObject::BaseObject(const TypeInfo& type, BaseDocument& document, std::uint64_t creationNumber)
    : name(type.ShortName()), type_(&type), document_(&document), creationNumber_(creationNumber) {
  type.ForEachParameter([&](const Parameter& p) {
    if (Value value = DefaultOf(p); !std::holds_alternative<std::monostate>(value)) {
      container_.Set(p.id, std::move(value));
    }
  });
  if (type.createData) {
    data_ = type.createData();
    data_->Init(*this);
  }
}

bool BaseObject::IsInstanceOf(int typeId) const {
  if (typeId == type_->id || (type_->base != 0 && typeId == type_->base)) return true;
  return typeId == kRootTypeId && (type_->role == TypeRole::Node || type_->role == TypeRole::Root);
}

BaseObject* BaseObject::FindTag(int typeId) const {
  for (const auto& tag : tags_) {
    if (tag->typeId() == typeId) return tag.get();
  }
  return nullptr;
}

std::string BaseObject::Path() const { return parent_ ? parent_->Path() + "/" + name : name; }

void BaseObject::Set(int id, Value value) {
  if (SameValue(container_.Get(id), value)) return;
  container_.Set(id, std::move(value));
  ++dirtyCount_;
}

double BaseObject::GetDouble(int id) const {
  const Parameter* row = type_->Find(id);
  return AsDouble(Get(id), row ? row->FallbackNumber() : 0);
}
std::int64_t BaseObject::GetInt(int id) const {
  const Parameter* row = type_->Find(id);
  return AsInt(Get(id), row ? static_cast<std::int64_t>(row->FallbackNumber()) : 0);
}
bool BaseObject::GetBool(int id) const { return GetInt(id) == 1; }
Vec3D BaseObject::GetVector(int id) const {
  const Parameter* row = type_->Find(id);
  return AsVector(Get(id), row ? row->FallbackVector() : Vec3D());
}
std::string BaseObject::GetString(int id) const { return AsString(Get(id), ""); }

BaseObject* BaseObject::GetLink(int id) const {
  const auto* link = std::get_if<LinkValue>(&Get(id));
  return link ? document_->FindObject(link->target) : nullptr;
}

namespace {

template <class T>
const T* Pointee(const Value& value) {
  const auto* pointer = std::get_if<std::shared_ptr<const T>>(&value);
  return pointer ? pointer->get() : nullptr;
}

}  // namespace

const SplineData* BaseObject::GetSpline(int id) const { return Pointee<SplineData>(Get(id)); }
const Gradient* BaseObject::GetGradient(int id) const { return Pointee<Gradient>(Get(id)); }
const InExcludeData* BaseObject::GetInExclude(int id) const { return Pointee<InExcludeData>(Get(id)); }

LMatrix BaseObject::LocalMatrix() const {
  const Vec3D position = AsVector(Get(kPositionId), {}), scale = AsVector(Get(kScaleId), {1, 1, 1});
  const Vec3D rotation = AsVector(Get(kRotationId), {});
  LMatrix m;
  if (rotation != Vec3D()) {
    m = RotationAbout(2, rotation.z) * RotationAbout(1, rotation.y) * RotationAbout(0, rotation.x);
  }
  m.v1 *= scale.x;
  m.v2 *= scale.y;
  m.v3 *= scale.z;
  m.off = position;
  return m;
}

std::string Described(const BaseObject& object, int row, const std::string& text) {
  const Parameter* found = object.type().Find(row);
  return "\"" + object.Path() + "\"" + (found ? std::string(".") + found->key : "") + " " + text;
}

LMatrix BaseObject::GlobalMatrix() const { return parent_ ? parent_->GlobalMatrix() * LocalMatrix() : LocalMatrix(); }

}  // namespace orlix
