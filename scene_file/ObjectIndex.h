#pragma once
// Names and paths of a document's objects, for links: "smoke", "Plume/smoke" (the end of the object's path), "/smoke"
// (its whole path).

#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "host/objects/BaseDocument.h"

namespace orlix {

class ObjectIndex {
 public:
  explicit ObjectIndex(const BaseDocument& document);

  // Every object that the reference fits, in tree order.
  std::vector<BaseObject*> Find(std::string_view reference) const;
  // The shortest reference that fits this object alone.
  std::string ReferenceTo(const BaseObject& object) const;
  // The name nearest to a reference that fits nothing; empty when none is near.
  std::string NearestName(std::string_view reference) const;

 private:
  std::unordered_map<std::string_view, std::vector<BaseObject*>> byName_;
  std::vector<std::string_view> names_;
};

}  // namespace orlix
