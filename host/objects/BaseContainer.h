#pragma once
// Values by number: the settings of a host object.

#include <utility>
#include <vector>

#include "host/description/Value.h"

namespace orlix {

class BaseContainer {
 public:
  // The value under id, or an empty one.
  const Value& Get(int id) const;
  bool Has(int id) const;
  void Set(int id, Value value);
  void Remove(int id);
  const std::vector<std::pair<int, Value>>& entries() const { return entries_; }  // ascending ids

 private:
  std::vector<std::pair<int, Value>> entries_;
};

}  // namespace orlix
