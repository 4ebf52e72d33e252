#include "fluids/scene/C4D_InterfaceHandler.h"

#include <cassert>
#include <cmath>
#include <limits>

namespace orlix {

namespace {

std::int32_t Narrow(std::int64_t value) {
  using Limits = std::numeric_limits<std::int32_t>;
  return static_cast<std::int32_t>(value < Limits::min()   ? Limits::min()
                                   : value > Limits::max() ? Limits::max()
                                                           : value);
}

}  // namespace

void C4D_InterfaceHandler::SetHost(BaseList2D* object) {
  hostObject_ = object;
  document_ = object ? &object->document() : nullptr;
  hostLink_ = object ? object->creationNumber() : 0;
}

const Parameter& C4D_InterfaceHandler::RowOf(std::int32_t id) const {
  static constexpr Parameter kNone;
  if (!hostObject_) return kNone;
  const Parameter* row = hostObject_->type().Find(id);
  assert(row && "a parameter is read that its type's table doesn't have");
  return row ? *row : kNone;
}

Vec3D C4D_InterfaceHandler::GetVector(std::int32_t id, const Vec3D& fallback) const {
  return hostObject_ ? AsVector(hostObject_->Get(id), fallback) : fallback;
}

VecInt3D C4D_InterfaceHandler::GetVecInt(std::int32_t id, const VecInt3D& fallback) const {
  const Vec3D v = GetVector(id, Vec3D(fallback));
  return {Narrow(AsInt(v.x, fallback.x)), Narrow(AsInt(v.y, fallback.y)), Narrow(AsInt(v.z, fallback.z))};
}

float C4D_InterfaceHandler::GetFloat(std::int32_t id, float fallback) const {
  return hostObject_ ? static_cast<float>(AsDouble(hostObject_->Get(id), fallback)) : fallback;
}

double C4D_InterfaceHandler::GetDouble(std::int32_t id, double fallback) const {
  return hostObject_ ? AsDouble(hostObject_->Get(id), fallback) : fallback;
}

std::int32_t C4D_InterfaceHandler::GetInt(std::int32_t id, std::int32_t fallback) const {
  return hostObject_ ? Narrow(AsInt(hostObject_->Get(id), fallback)) : fallback;
}

bool C4D_InterfaceHandler::GetBool(std::int32_t id, bool fallback) const {
  return hostObject_ ? AsInt(hostObject_->Get(id), fallback) == 1 : fallback;
}

std::string C4D_InterfaceHandler::GetString(std::int32_t id, const std::string& fallback) const {
  return hostObject_ ? AsString(hostObject_->Get(id), fallback) : fallback;
}

BaseList2D* C4D_InterfaceHandler::GetLink(std::int32_t id) const {
  return hostObject_ ? hostObject_->GetLink(id) : nullptr;
}

BaseObject* C4D_InterfaceHandler::GetObjectLink(std::int32_t id) const {
  BaseList2D* target = GetLink(id);
  return target && target->type().role != TypeRole::Tag ? target : nullptr;
}

void C4D_InterfaceHandler::Set(std::int32_t id, Value value) {
  if (hostObject_) hostObject_->Set(id, std::move(value));
}

bool C4D_InterfaceHandler::IsHostInDocument(std::int32_t baseId, const BaseDocument* doc) const {
  if (!document_ || (doc && doc != document_)) return false;
  const BaseList2D* found = document_->FindObject(hostLink_);
  return found && found == hostObject_ && (baseId == 0 || found->IsInstanceOf(baseId));
}

bool C4D_InterfaceHandler::GetDirtyCount(std::uint32_t& count) const {
  if (!hostObject_) return false;
  count = hostObject_->dirtyCount();
  return true;
}

void C4D_InterfaceHandler::MarkHostChanged() const {
  if (hostObject_) hostObject_->MarkDirty();
}

}  // namespace orlix
