#pragma once
// What a user should know though the simulation goes on: said once a run, with what to do about it.

#include <cstdint>
#include <functional>
#include <mutex>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace orlix {

struct Warning {
  std::string node;        // path of the object that it is about
  std::string key;         // "no-solver": what scripts go by; the same in every release
  std::string text;        // what happens, and after a semicolon the remedy
  std::int32_t frame = 0;  // of the document
};

// The warnings of a run, in the order in which they came. Any thread may tell one.
class Warnings {
 public:
  // False when this node has told this key before.
  bool Tell(Warning warning) {
    const std::lock_guard lock(mutex_);
    if (!told_.emplace(warning.node, warning.key).second) return false;
    all_.push_back(std::move(warning));
    if (onWarning) onWarning(all_.back());
    return true;
  }
  // Only while no step runs.
  const std::vector<Warning>& all() const { return all_; }

  // Called for each as it comes; must not tell one itself.
  std::function<void(const Warning&)> onWarning;

 private:
  std::mutex mutex_;
  std::set<std::pair<std::string, std::string>> told_;
  std::vector<Warning> all_;
};

}  // namespace orlix
