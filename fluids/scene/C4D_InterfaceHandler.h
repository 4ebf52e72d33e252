#pragma once
// The seam between the engine and the host: a value that stands for one host object, and through which all settings are
// read by numeric id. No operation fails visibly: a missing object gives defaults, a broken link gives null.
//
// Getters without a default take the one of the parameter's row in the object's type.

#include <cstdint>
#include <string>

#include "host/objects/BaseDocument.h"

namespace orlix {

class C4D_InterfaceHandler {
 public:
  // Null is allowed and gives a handler that returns all defaults.
  explicit C4D_InterfaceHandler(BaseList2D* object = nullptr) { SetHost(object); }
  void SetHost(BaseList2D* object);

  Vec3D GetVector(std::int32_t id, const Vec3D& fallback) const;
  // Read as a real vector, each component truncated.
  VecInt3D GetVecInt(std::int32_t id, const VecInt3D& fallback) const;
  float GetFloat(std::int32_t id, float fallback) const;  // read as double, narrowed
  double GetDouble(std::int32_t id, double fallback) const;
  std::int32_t GetInt(std::int32_t id, std::int32_t fallback) const;
  std::int32_t GetChoice(std::int32_t id, std::int32_t fallback) const { return GetInt(id, fallback); }
  bool GetBool(std::int32_t id, bool fallback) const;  // true when the stored integer is exactly 1
  std::string GetString(std::int32_t id, const std::string& fallback = {}) const;

  Vec3D GetVector(std::int32_t id) const { return GetVector(id, RowOf(id).FallbackVector()); }
  VecInt3D GetVecInt(std::int32_t id) const { return GetVecInt(id, VecInt3D(RowOf(id).FallbackVector())); }
  float GetFloat(std::int32_t id) const { return GetFloat(id, static_cast<float>(RowOf(id).FallbackNumber())); }
  double GetDouble(std::int32_t id) const { return GetDouble(id, RowOf(id).FallbackNumber()); }
  std::int32_t GetInt(std::int32_t id) const {
    return GetInt(id, static_cast<std::int32_t>(RowOf(id).FallbackNumber()));
  }
  std::int32_t GetChoice(std::int32_t id) const { return GetInt(id); }
  template <class E>
  E GetChoice(std::int32_t id) const {
    return static_cast<E>(GetInt(id));
  }
  bool GetBool(std::int32_t id) const { return GetBool(id, RowOf(id).FallbackNumber() == 1); }

  // Null when the link is empty or its target isn't in the object's document (any more).
  BaseList2D* GetLink(std::int32_t id) const;
  // As GetLink, and the target must be an object of the tree, not a tag.
  BaseObject* GetObjectLink(std::int32_t id) const;
  const Gradient* GetGradient(std::int32_t id) const { return hostObject_ ? hostObject_->GetGradient(id) : nullptr; }
  const SplineData* GetSplineData(std::int32_t id) const { return hostObject_ ? hostObject_->GetSpline(id) : nullptr; }
  double GetSplineValue(std::int32_t id, float x) const { return SplineValueOf(GetSplineData(id), x); }
  // 0 without a curve.
  static double SplineValueOf(const SplineData* curve, float x) { return curve ? curve->ValueAt(x) : 0; }
  const InExcludeData* GetInExclude(std::int32_t id) const {
    return hostObject_ ? hostObject_->GetInExclude(id) : nullptr;
  }

  void SetVector(std::int32_t id, const Vec3D& value) { Set(id, value); }
  void SetDouble(std::int32_t id, double value) { Set(id, value); }
  void SetInt(std::int32_t id, std::int32_t value) { Set(id, static_cast<std::int64_t>(value)); }
  void SetBool(std::int32_t id, bool value) { Set(id, static_cast<std::int64_t>(value)); }
  void SetString(std::int32_t id, std::string value) { Set(id, std::move(value)); }

  BaseDocument* GetDocument() const { return document_; }
  BaseList2D* hostObject() const { return hostObject_; }
  bool HasObject() const { return hostObject_ != nullptr; }
  // The link still finds the very object, in doc (null: the object's own), as an instance of baseId (0: any type). This
  // is how a node finds that its object was deleted.
  bool IsHostInDocument(std::int32_t baseId, const BaseDocument* doc = nullptr) const;
  // The object's change counter; false when the object is in no document.
  bool GetDirtyCount(std::uint32_t& count) const;
  void MarkHostChanged() const;
  LMatrix GetMatrix() const { return hostObject_ ? hostObject_->GlobalMatrix() : LMatrix(); }

 private:
  const Parameter& RowOf(std::int32_t id) const;
  void Set(std::int32_t id, Value value);

  BaseList2D* hostObject_ = nullptr;
  BaseDocument* document_ = nullptr;
  std::uint64_t hostLink_ = 0;  // the object's creation number: survives its removal and tells that it is gone
};

}  // namespace orlix
