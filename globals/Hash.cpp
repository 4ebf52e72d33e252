#include "globals/Hash.h"

#include <fmt/format.h>
#include <xxhash.h>

namespace orlix {

struct StateHash::State {
  XXH64_state_t* xxh = XXH64_createState();
  ~State() { XXH64_freeState(xxh); }
};

StateHash::StateHash() : state_(std::make_unique<State>()) { XXH64_reset(state_->xxh, 0); }
StateHash::~StateHash() = default;

void StateHash::Add(const void* bytes, std::size_t size) {
  if (size > 0) XXH64_update(state_->xxh, bytes, size);
}

std::uint64_t StateHash::Value() const { return XXH64_digest(state_->xxh); }

std::uint64_t HashBytes(const void* bytes, std::size_t size) { return XXH64(bytes, size, 0); }

std::string HexHash(std::uint64_t hash) { return fmt::format("{:016x}", hash); }

}  // namespace orlix
