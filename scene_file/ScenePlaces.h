#pragma once
// Where in its files a document's objects and their parameters stand, for what is found out behind the reading.

#include <climits>
#include <map>
#include <optional>
#include <utility>
#include <vector>

#include "host/objects/BaseObject.h"
#include "scene_file/SourceText.h"

namespace orlix {

// A part of a text that stands in one place: a line, or all of it. A line break follows each but the last.
struct TextPiece {
  Place place;           // of its first byte
  std::size_t size = 0;  // of the text, in bytes
  bool isJson = false;   // it stands in a JSON string: some of its bytes may be written as escapes
};

class ScenePlaces {
 public:
  static constexpr int kWholeObject = INT_MIN;  // instead of a row's id

  void Add(const BaseObject& object, int row, const Place& place) {
    places_.insert_or_assign({object.creationNumber(), row}, place);
  }
  // Where the text of a script stands.
  void AddText(const BaseObject& object, int row, std::vector<TextPiece> pieces) {
    texts_.insert_or_assign({object.creationNumber(), row}, std::move(pieces));
  }
  // The place of a byte of a script's text; that of the row for a text that no file has.
  std::optional<Place> FindInText(std::uint64_t object, int row, std::int64_t offset) const;
  // The parameter's place, where it is left out that of the object; null for an object that no file has.
  const Place* Find(std::uint64_t object, int row) const {
    auto found = places_.find({object, row});
    if (found == places_.end()) found = places_.find({object, kWholeObject});
    return found == places_.end() ? nullptr : &found->second;
  }

 private:
  std::map<std::pair<std::uint64_t, int>, Place> places_;
  std::map<std::pair<std::uint64_t, int>, std::vector<TextPiece>> texts_;
};

}  // namespace orlix
