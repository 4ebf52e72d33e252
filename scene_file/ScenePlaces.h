#pragma once
// Where in its files a document's objects and their parameters stand, for what is found out behind the reading.

#include <climits>
#include <map>
#include <utility>

#include "host/objects/BaseObject.h"
#include "scene_file/SourceText.h"

namespace orlix {

class ScenePlaces {
 public:
  static constexpr int kWholeObject = INT_MIN;  // instead of a row's id

  void Add(const BaseObject& object, int row, const Place& place) {
    places_.insert_or_assign({object.creationNumber(), row}, place);
  }
  // The parameter's place, where it is left out that of the object; null for an object that no file has.
  const Place* Find(std::uint64_t object, int row) const {
    auto found = places_.find({object, row});
    if (found == places_.end()) found = places_.find({object, kWholeObject});
    return found == places_.end() ? nullptr : &found->second;
  }

 private:
  std::map<std::pair<std::uint64_t, int>, Place> places_;
};

}  // namespace orlix
