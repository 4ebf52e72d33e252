#include "scene_file/Mistakes.h"

#include <fmt/format.h>

#include <algorithm>

#include "host/description/TypeRegistry.h"

namespace orlix {

void Mistakes::Add(const Place& place, std::string text) {
  ++count_;
  if (Full()) return;
  auto source = std::find(sources_.begin(), sources_.end(), place.source.get());
  if (source == sources_.end()) source = sources_.insert(sources_.end(), place.source.get());
  entries_.push_back({place, static_cast<std::size_t>(source - sources_.begin()), std::move(text)});
}

std::string Mistakes::Text() const {
  std::vector<const Entry*> sorted;
  for (const Entry& entry : entries_) sorted.push_back(&entry);
  std::stable_sort(sorted.begin(), sorted.end(), [](const Entry* a, const Entry* b) {
    return a->sourceOrder != b->sourceOrder ? a->sourceOrder < b->sourceOrder : a->place.offset < b->place.offset;
  });
  std::string out;
  const SourceText* source = nullptr;
  int line = 1;
  std::size_t lineStart = 0;  // lines are counted on from the entry before: one pass over the text
  for (const Entry* entry : sorted) {
    if (entry->place.source.get() != source) source = entry->place.source.get(), line = 1, lineStart = 0;
    if (!out.empty()) out += '\n';
    if (source->hasLines) {
      const std::string_view text = source->text;
      const auto at = std::min<std::size_t>(entry->place.offset, text.size());
      const LineColumn here = LineColumnAt(text.substr(lineStart, at - lineStart), at - lineStart);
      line += here.line - 1;
      if (const auto newline = text.substr(0, at).rfind('\n'); newline != std::string_view::npos && here.line > 1) {
        lineStart = newline + 1;
      }
      out += fmt::format("{}:{}:{}: {}", source->name, line, here.column, entry->text);
    } else {
      out += fmt::format("{}: {}", source->name, entry->text);
    }
  }
  if (count_ > entries_.size()) out += fmt::format("\nand {} more", count_ - entries_.size());
  return out;
}

std::string Shortened(std::string_view text, std::size_t limit) {
  if (text.size() <= limit) return std::string(text);
  std::size_t end = limit;
  while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xC0) == 0x80) --end;
  return std::string(text.substr(0, end)) + "...";
}

std::string Quoted(std::string_view text, std::size_t limit) {
  std::string out = "\"";
  for (const char c : Shortened(text, limit)) {
    if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F)
      out += fmt::format("\\x{:02x}", static_cast<unsigned char>(c));
    else
      out += c;
  }
  return out + "\"";
}

std::string DidYouMean(std::string_view nearest) {
  return nearest.empty() ? std::string() : fmt::format(", did you mean {}?", Quoted(nearest));
}

std::string NearestOf(std::string_view name, const std::vector<std::string_view>& candidates) {
  std::string best;
  if (name.size() > 200) return best;
  int bestDistance = (name.size() < 4 ? 1 : std::max<int>(2, static_cast<int>(name.size()) / 3)) + 1;
  for (const std::string_view candidate : candidates) {
    const int distance = EditDistance(name, candidate, bestDistance);
    if (distance < bestDistance) bestDistance = distance, best = candidate;
  }
  return best;
}

}  // namespace orlix
