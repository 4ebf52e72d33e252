#include "host/objects/BaseContainer.h"

#include <algorithm>

namespace orlix {

namespace {

template <class Entries>
auto LowerBound(Entries& entries, int id) {
  return std::lower_bound(entries.begin(), entries.end(), id,
                          [](const auto& entry, int key) { return entry.first < key; });
}

}  // namespace

const Value& BaseContainer::Get(int id) const {
  static const Value kEmpty;
  const auto at = LowerBound(entries_, id);
  return at != entries_.end() && at->first == id ? at->second : kEmpty;
}

bool BaseContainer::Has(int id) const { return !std::holds_alternative<std::monostate>(Get(id)); }

void BaseContainer::Set(int id, Value value) {
  const auto at = LowerBound(entries_, id);
  if (at != entries_.end() && at->first == id)
    at->second = std::move(value);
  else
    entries_.insert(at, {id, std::move(value)});
}

void BaseContainer::Remove(int id) {
  const auto at = LowerBound(entries_, id);
  if (at != entries_.end() && at->first == id) entries_.erase(at);
}

}  // namespace orlix
