#include "scene_file/ScenePlaces.h"

#include <cstdlib>

namespace orlix {

namespace {

// Where the byte of a JSON string's value stands, from where the value begins: an escape is longer than what it means.
std::size_t SkipEscapes(const std::string& json, std::size_t begin, std::size_t bytes) {
  std::size_t at = begin;
  for (std::size_t n = 0; n < bytes && at < json.size();) {
    if (json[at] != '\\') {
      ++at, ++n;
      continue;
    }
    const bool isCode = at + 1 < json.size() && json[at + 1] == 'u';
    const unsigned long code = isCode ? std::strtoul(json.substr(at + 2, 4).c_str(), nullptr, 16) : 0;
    at += isCode ? 6 : 2;
    // Half of a pair gives two of its four bytes.
    n += code < 0x80 ? 1 : code < 0x800 || (code >= 0xD800 && code < 0xE000) ? 2 : 3;
  }
  return at;
}

}  // namespace

std::optional<Place> ScenePlaces::FindInText(std::uint64_t object, int row, std::int64_t offset) const {
  const auto text = texts_.find({object, row});
  if (text != texts_.end() && offset >= 0) {
    auto rest = static_cast<std::size_t>(offset);
    for (const TextPiece& piece : text->second) {
      if (rest > piece.size) {
        rest -= piece.size + 1;
        continue;
      }
      Place place = piece.place;
      place.offset = static_cast<std::uint32_t>(piece.isJson ? SkipEscapes(place.source->text, place.offset, rest)
                                                             : place.offset + rest);
      return place;
    }
  }
  const Place* place = Find(object, row);
  return place ? std::optional(*place) : std::nullopt;
}

}  // namespace orlix
