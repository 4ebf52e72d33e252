#pragma once
// "enabled": false of an object: it is read and checked like any other, and then left out of the document with all that
// is beneath it. What links to it finds nothing there; lists keep its place, since an empty list may mean all.

#include <set>
#include <string>
#include <vector>

#include "host/objects/BaseDocument.h"
#include "scene_file/JsonValue.h"
#include "scene_file/Mistakes.h"

namespace orlix {

class SwitchedOff {
 public:
  // Not where the type has a row of that name.
  static bool Applies(const BaseObject& object) { return !object.type().FindKey("enabled"); }
  // The value of "enabled"; the last one that is read counts.
  void Read(BaseObject& object, const std::shared_ptr<const SourceText>& source, const JsonValue& value,
            Mistakes& mistakes);
  // Removes them from the document, whose links are resolved. Gives their paths.
  std::vector<std::string> TakeOut(BaseDocument& document);

 private:
  std::set<std::uint64_t> numbers_;  // of creation
};

}  // namespace orlix
