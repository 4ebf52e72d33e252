#pragma once
// The mistakes of a scene, collected so that one pass shows them all:
//   plume.json:14:9: "Plume/Air".cell_size is -3, must be above 0

#include <string>
#include <string_view>
#include <vector>

#include "scene_file/SourceText.h"

namespace orlix {

class Mistakes {
 public:
  // How many are shown; the rest is counted.
  static constexpr std::size_t kMaxShown = 100;

  void Add(const Place& place, std::string text);
  bool empty() const { return count_ == 0; }
  std::size_t count() const { return count_; }
  // No further text will be shown: a caller need not look for the nearest name.
  bool Full() const { return entries_.size() >= kMaxShown; }
  // One line each, file by file in the order of the text.
  std::string Text() const;

 private:
  struct Entry {
    Place place;
    std::size_t sourceOrder;
    std::string text;
  };
  std::vector<Entry> entries_;
  std::vector<const SourceText*> sources_;
  std::size_t count_ = 0;
};

// Text in double quotes, with control characters escaped and a long text cut.
std::string Quoted(std::string_view text, std::size_t limit = 60);
// At most limit bytes, cut between code points, with "..." after a cut.
std::string Shortened(std::string_view text, std::size_t limit);

// `, did you mean "smoke"?`, or nothing when no candidate is near.
std::string DidYouMean(std::string_view nearest);
// The candidate with the smallest edit distance to name; empty when none is near enough to be meant.
std::string NearestOf(std::string_view name, const std::vector<std::string_view>& candidates);

}  // namespace orlix
