#include "fluids/caches/ParticleRuns.h"

#include <algorithm>
#include <new>

#include "host/objects/BaseDocument.h"

namespace orlix {

namespace {

constexpr std::int32_t kMask = kChunkRows - 1;

// --- from a list -----------------------------------------------------------------------------------------------------

std::vector<std::int32_t> KeptRows(ParticleList& list, const ParticleRows& rows, const WeighParticles& weigh) {
  std::vector<std::int32_t> kept;
  kept.reserve(static_cast<std::size_t>(rows.end));
  if (!weigh) {
    for (std::int32_t r = rows.begin; r < rows.end; ++r) kept.push_back(r);
    return kept;
  }
  std::vector<double> weights(static_cast<std::size_t>(rows.end), 1.0);
  weigh(list, rows, weights.data());
  for (std::int32_t r = rows.begin; r < rows.end; ++r) {
    if (weights[static_cast<std::size_t>(r)] != 0) kept.push_back(r);
  }
  return kept;
}

template <class To, class From>
std::vector<To> Gather(const From* values, const std::vector<std::int32_t>& rows) {
  const auto count = static_cast<std::int32_t>(rows.size());
  if (count > 0 && rows.back() - rows.front() + 1 == count) {
    return std::vector<To>(values + rows.front(), values + rows.back() + 1);
  }
  std::vector<To> gathered;
  gathered.reserve(rows.size());
  for (const std::int32_t r : rows) gathered.push_back(static_cast<To>(values[r]));
  return gathered;
}

std::string PathOfOwner(PropertyOwner owner, const BaseDocument& document) {
  const BaseObject* object = owner == 0 ? nullptr : document.FindObject(owner);
  return object ? object->Path() : std::string();
}

ParticleRunColumn GatherColumn(const PropertyColumn& column, const std::vector<std::int32_t>& rows) {
  ParticleRunColumn gathered;
  gathered.type = column.type();
  const bool all = std::all_of(rows.begin(), rows.end(), [&](std::int32_t r) { return column.Has(r); });
  if (!all) {
    gathered.present.assign((rows.size() + 63) / 64, 0);
    for (std::size_t n = 0; n < rows.size(); ++n) {
      gathered.present[n >> 6] |= std::uint64_t(column.Has(rows[n])) << (n & 63);
    }
  }
  switch (column.type()) {
    case PropertyType::Real:
      gathered.reals = Gather<float>(column.values<double>(), rows);
      break;
    case PropertyType::Vector:
      gathered.vectors = Gather<Vec3D>(column.values<Vec3D>(), rows);
      break;
    case PropertyType::State:
      gathered.states = Gather<std::uint8_t>(column.values<std::uint8_t>(), rows);
      break;
  }
  return gathered;
}

ParticleRunData TakeRun(ParticleList& list, const ParticleRows& rows, const PropertyFilter& filter,
                        const WeighParticles& weigh, const BaseDocument& document) {
  ParticleRunData run;
  const std::vector<std::int32_t> kept = KeptRows(list, rows, weigh);
  run.positions = Gather<Vec3D>(rows.positions(), kept);
  run.velocities = Gather<Vec3D>(rows.velocities(), kept);
  run.flags = Gather<std::uint16_t>(rows.flags(), kept);
  run.ids = Gather<std::int32_t>(rows.ids(), kept);
  const ParticleChunk& chunk = list.ChunkOf(rows.first);
  list.ForEachSlot([&](int slot, const PropertyKey& key, PropertyType) {
    const PropertyColumn* column = chunk.column(slot);
    if (!column || !filter.Lets(key) || !column->Any(rows.begin, rows.end)) return;
    run.columns.push_back(GatherColumn(*column, kept));
    run.columns.back().id = key.id;
    run.columns.back().owner = PathOfOwner(key.owner, document);
  });
  for (std::size_t n = 0; list.HasLinks() && n < kept.size(); ++n) {
    for (const ParticleLink& link : list.Links(rows.first + kept[n])) {
      run.links.push_back({static_cast<std::int32_t>(n), link.partner, link.weight});
    }
  }
  return run;
}

}  // namespace

bool PropertyFilter::Lets(PropertyKey key) const {
  const auto names = [&](const PropertyKey& named) {
    return named.id == key.id && (named.owner == 0 || named.owner == key.owner);
  };
  return keys.empty() || std::any_of(keys.begin(), keys.end(), names);
}

std::vector<ParticleRunData> TakeParticleRuns(ParticleList& list, const PropertyFilter& filter,
                                              const WeighParticles& weigh, const BaseDocument& document,
                                              WorkerPool& pool) {
  std::vector<ParticleRunData> runs(static_cast<std::size_t>(list.chunkCount()));
  std::atomic<bool> failed{false};
  ParallelChunks(pool, list, [&](int chunk, const ParticleRows& rows) {
    try {
      runs[static_cast<std::size_t>(chunk)] = TakeRun(list, rows, filter, weigh, document);
    } catch (const std::bad_alloc&) {
      failed.store(true, std::memory_order_relaxed);
    }
  });
  if (failed) throw std::bad_alloc();
  std::erase_if(runs, [](const ParticleRunData& run) { return run.rows() == 0; });
  return runs;
}

// --- into a list -----------------------------------------------------------------------------------------------------

void ParticleRefill::Put(const ParticleRunData& run, const std::vector<std::uint8_t>& keep) {
  if (!linksGone_ && list_.HasLinks()) {
    for (std::int32_t i = 0; i < list_.count(); ++i) list_.SetLinks(i, {});
  }
  linksGone_ = true;
  std::vector<std::int32_t> source;
  for (std::int32_t r = 0; r < static_cast<std::int32_t>(run.rows()); ++r) {
    if (keep.empty() || keep[static_cast<std::size_t>(r)]) source.push_back(r);
  }
  const std::int32_t begin = count_, kept = static_cast<std::int32_t>(source.size());
  if (kept > INT32_MAX - begin) throw std::bad_alloc();
  if (begin + kept > list_.count()) list_.Append(begin + kept - list_.count(), {});
  for (std::int32_t n = 0; n < kept; ++n) {
    const auto from = static_cast<std::size_t>(source[static_cast<std::size_t>(n)]);
    ParticleChunk& chunk = list_.ChunkOf(begin + n);
    const std::int32_t row = (begin + n) & kMask;
    chunk.positions[row] = run.positions[from];
    chunk.velocities[row] = run.velocities[from];
    chunk.flags[row] = run.flags[from];
    chunk.ids[row] = run.ids[from];
    lastId_ = std::max(lastId_, run.ids[from]);
  }
  list_.ForEachChunk(begin, begin + kept, [&](const ParticleRows& rows) {
    ParticleChunk& chunk = list_.ChunkOf(rows.first);
    chunk.moved.store(true, std::memory_order_relaxed);
    for (int slot = 0; slot < kPropertySlots; ++slot) {
      PropertyColumn* column = chunk.column(slot);
      if (!column || !column->Any(rows.begin, rows.end)) continue;
      for (std::int32_t r = rows.begin; r < rows.end; ++r) column->Erase(r);
    }
  });
  for (const ParticleRunColumn& column : run.columns) PutColumn(column, source, begin);
  for (std::size_t n = 0; n < run.links.size();) {
    std::vector<ParticleLink> links;
    const std::int32_t row = run.links[n].row;
    for (; n < run.links.size() && run.links[n].row == row; ++n) {
      links.push_back({run.links[n].weight, run.links[n].partner});
    }
    const auto at = std::lower_bound(source.begin(), source.end(), row);
    if (at == source.end() || *at != row) continue;
    list_.SetLinks(begin + static_cast<std::int32_t>(at - source.begin()), std::move(links));
  }
  count_ = begin + kept;
}

void ParticleRefill::PutColumn(const ParticleRunColumn& column, const std::vector<std::int32_t>& source,
                               std::int32_t begin) {
  const BaseObject* owner = column.owner.empty() ? nullptr : document_.FindByPath("/" + column.owner);
  const int slot = list_.NeedSlot({column.id, owner ? owner->creationNumber() : 0}, column.type);
  if (slot < 0) return;
  for (std::size_t n = 0; n < source.size(); ++n) {
    const auto from = static_cast<std::size_t>(source[n]);
    if (!column.Has(from)) continue;
    const std::int32_t index = begin + static_cast<std::int32_t>(n), row = index & kMask;
    PropertyColumn& to = list_.ChunkOf(index).NeedColumn(slot, column.type);
    switch (column.type) {
      case PropertyType::Real:
        to.Put(row, static_cast<double>(column.reals[from]));
        break;
      case PropertyType::Vector:
        to.Put(row, column.vectors[from]);
        break;
      case PropertyType::State:
        to.Put(row, static_cast<std::uint8_t>(column.states[from] != 0));
        break;
    }
  }
}

void ParticleRefill::End() {
  if (count_ < list_.count()) list_.Resize(count_);
  if (lastId_ >= 0) list_.ClaimIds(lastId_);
  static_cast<void>(list_.TakeTally());
}

}  // namespace orlix
