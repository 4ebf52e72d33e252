// The state of a particle list: what checkpoints keep and the state hash covers. Files are input of unknown origin:
// memory grows only as the file has rows for it, and what no list could hold is refused.

#include <algorithm>
#include <new>

#include "fluids/particles/ParticleList.h"

namespace orlix {

namespace {

// Bits of rows that don't exist and values of rows without the property are nothing, whatever a file says.
void CleanColumn(PropertyColumn& column, std::int32_t rows) {
  for (std::int32_t r = 0; r < kChunkRows; ++r) {
    if (r >= rows || !column.Has(r)) column.Erase(r);
  }
  if (column.type() != PropertyType::State) return;
  for (std::int32_t r = 0; r < rows; ++r) column.values<std::uint8_t>()[r] = column.values<std::uint8_t>()[r] != 0;
}

std::size_t ValueSize(PropertyType type) {
  return type == PropertyType::Real ? sizeof(double) : type == PropertyType::Vector ? sizeof(Vec3D) : 1;
}

}  // namespace

void ParticleList::VisitState(StateVisitor& visitor) {
  std::int32_t rows = count();
  visitor.Visit("count", rows);
  if (visitor.Reading()) {
    if (rows < 0) visitor.Refuse("a list of particles whose count is negative");
    Clear();
  }
  visitor.Visit("nextId", nextId_);
  VisitUserKeys(visitor);
  for (std::int32_t begin = 0; begin < rows && visitor.Good(); begin += std::min(kChunkRows, rows - begin)) {
    try {
      VisitChunk(visitor, begin, std::min(kChunkRows, rows - begin));
    } catch (const std::bad_alloc&) {
      visitor.Refuse("no memory for " + std::to_string(rows) + " particles");
    }
  }
  VisitLinks(visitor);
  if (visitor.Reading()) born_ = died_ = 0;
}

void ParticleList::VisitUserKeys(StateVisitor& visitor) {
  std::int32_t keys = userSlots_.load();
  visitor.Visit("userKeys", keys);
  if (visitor.Reading() && (keys < 0 || keys > kPropertySlots - kFirstUserProperty)) {
    return visitor.Refuse("particles with more properties than they can have");
  }
  if (!visitor.Good()) return;
  for (std::int32_t n = 0; n < keys; ++n) {
    UserKey& key = userKeys_[n];
    visitor.Visit("id", key.id);
    visitor.Visit("type", key.type);
    visitor.Visit("owner", key.owner);
    if (visitor.Reading() && (key.id < kFirstUserProperty || key.type < 0 || key.type > 2)) {
      return visitor.Refuse("a property of particles that can't be");
    }
  }
  userSlots_.store(keys);
}

void ParticleList::VisitChunk(StateVisitor& visitor, std::int32_t begin, std::int32_t rows) {
  if (visitor.Reading()) Reserve(begin + rows);
  ParticleChunk& chunk = ChunkOf(begin);
  const auto visit = [&](const char* name, auto* values) {
    visitor.VisitBytes(name, values, sizeof *values * static_cast<std::size_t>(rows));
  };
  visit("positions", chunk.positions);
  visit("velocities", chunk.velocities);
  visit("flags", chunk.flags);
  visit("ids", chunk.ids);
  std::uint8_t has[kPropertySlots] = {};
  for (int slot = 0; slot < kPropertySlots; ++slot) {
    const PropertyColumn* column = chunk.column(slot);
    has[slot] = column && column->Any(0, rows);
  }
  visitor.Visit("properties", has);
  for (int slot = 0; slot < kPropertySlots && visitor.Good(); ++slot) {
    if (!has[slot]) continue;
    if (visitor.Reading() &&
        (slot == PP::Velocity || slot == PP::Position || slot >= kFirstUserProperty + userSlots_.load())) {
      return visitor.Refuse("a property of particles that can't be");
    }
    PropertyColumn& column = chunk.NeedColumn(slot, TypeOfSlot(slot));
    visitor.VisitBytes("present", column.present(), kChunkRows / 8);
    visitor.VisitBytes("values", column.values<std::byte>(), ValueSize(column.type()) * static_cast<std::size_t>(rows));
    if (visitor.Reading()) CleanColumn(column, rows);
  }
  if (visitor.Reading() && visitor.Good()) count_.store(begin + rows);
}

void ParticleList::VisitLinks(StateVisitor& visitor) {
  std::vector<std::int32_t> owners, counts;
  std::vector<ParticleLink> links;
  for (const auto& [id, own] : links_) owners.push_back(id);
  std::sort(owners.begin(), owners.end());
  for (const std::int32_t id : owners) {
    const std::vector<ParticleLink>& own = links_[id];
    counts.push_back(static_cast<std::int32_t>(own.size()));
    links.insert(links.end(), own.begin(), own.end());
  }
  visitor.VisitVector("linkOwners", owners);
  visitor.VisitVector("linkCounts", counts);
  visitor.VisitVector("links", links);
  if (!visitor.Reading() || !visitor.Good()) return;
  links_.clear();
  auto next = links.begin();
  for (std::size_t n = 0; n < owners.size(); ++n) {
    if (n >= counts.size() || counts[n] < 1 || counts[n] > links.end() - next) {
      return visitor.Refuse("links of particles whose counts disagree");
    }
    links_[owners[n]].assign(next, next + counts[n]);
    next += counts[n];
  }
}

void ParticleList::VisitNumbers(StateVisitor& visitor) {
  std::vector<StateVisitor::Numbers> positions, velocities;
  for (std::int32_t c = 0; c < chunkCount(); ++c) {
    const ParticleRows rows = Rows(c);
    const auto numbers = static_cast<std::size_t>(rows.end) * 3;
    positions.push_back({&rows.positions()->x, numbers, rows.ids(), 3});
    velocities.push_back({&rows.velocities()->x, numbers, rows.ids(), 3});
  }
  visitor.VisitNumbers("position", positions);
  visitor.VisitNumbers("velocity", velocities);
}

}  // namespace orlix
