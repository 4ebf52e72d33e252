#include "scene_file/ObjectIndex.h"

#include "scene_file/Mistakes.h"

namespace orlix {

namespace {

// Whether the parts of path, from its last on, are the names of the object and its parents.
bool Fits(const BaseObject* object, std::string_view path) {
  const bool whole = path.starts_with('/');
  if (whole) path.remove_prefix(1);
  while (object) {
    const auto slash = path.rfind('/');
    const bool last = slash == std::string_view::npos;
    if (object->name != (last ? path : path.substr(slash + 1))) return false;
    object = object->parent();
    if (last) return !whole || !object;
    path = path.substr(0, slash);
  }
  return false;
}

}  // namespace

ObjectIndex::ObjectIndex(const BaseDocument& document) {
  document.ForEachObject([&](BaseObject& object) {
    auto& sameName = byName_[object.name];
    if (sameName.empty()) names_.push_back(object.name);
    sameName.push_back(&object);
  });
}

std::vector<BaseObject*> ObjectIndex::Find(std::string_view reference) const {
  const auto slash = reference.rfind('/');
  const auto found = byName_.find(slash == std::string_view::npos ? reference : reference.substr(slash + 1));
  std::vector<BaseObject*> fitting;
  if (found == byName_.end()) return fitting;
  for (BaseObject* object : found->second) {
    if (Fits(object, reference)) fitting.push_back(object);
  }
  return fitting;
}

std::string ObjectIndex::ReferenceTo(const BaseObject& object) const {
  std::string reference = object.name;
  for (const BaseObject* up = object.parent(); up && Find(reference).size() != 1; up = up->parent()) {
    reference = up->name + "/" + reference;
  }
  return Find(reference).size() == 1 ? reference : "/" + object.Path();
}

std::string ObjectIndex::NearestName(std::string_view reference) const {
  const auto slash = reference.rfind('/');
  return NearestOf(slash == std::string_view::npos ? reference : reference.substr(slash + 1), names_);
}

}  // namespace orlix
