#pragma once
// A 64-bit hash of simulated state (xxHash64), fed in pieces. Equal bits, equal hash: two runs are compared by it.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <type_traits>

namespace orlix {

class StateHash {
 public:
  StateHash();
  ~StateHash();
  StateHash(const StateHash&) = delete;
  StateHash& operator=(const StateHash&) = delete;

  void Add(const void* bytes, std::size_t size);
  template <class T>
  void AddValue(const T& value) {
    static_assert(std::is_trivially_copyable_v<T>);
    Add(&value, sizeof value);
  }
  std::uint64_t Value() const;

 private:
  struct State;
  std::unique_ptr<State> state_;
};

// xxHash64 of one block.
std::uint64_t HashBytes(const void* bytes, std::size_t size);

// Sixteen lower-case hexadecimal digits.
std::string HexHash(std::uint64_t hash);

}  // namespace orlix
