#include "exchange/points/FlatColumns.h"

#include <algorithm>
#include <array>
#include <map>
#include <set>

namespace orlix {

namespace {

struct VectorName {
  const char* name;
  std::array<const char*, 3> parts;
};
constexpr VectorName kVectorNames[] = {{"position", {"x", "y", "z"}},
                                       {"velocity", {"vx", "vy", "vz"}},
                                       {"normal", {"nx", "ny", "nz"}},
                                       {"color", {"red", "green", "blue"}}};

std::string PartName(const PointAttribute& column, int component) {
  if (column.components == 1) return column.name;
  if (column.components == 3) {
    for (const VectorName& known : kVectorNames) {
      if (column.name == known.name) return known.parts[static_cast<std::size_t>(component)];
    }
    return column.name + "_" + "xyz"[component];
  }
  return column.name + "_" + std::to_string(component);
}

// The parts of a vector whose first part stands at `first`; null unless all three are there, of one type.
std::array<const PointAttribute*, 3> PartsOf(const PointSet& flat, const PointAttribute& first, std::string& name) {
  std::array<const PointAttribute*, 3> parts{};
  for (const VectorName& known : kVectorNames) {
    if (first.name != known.parts[0]) continue;
    name = known.name;
    for (std::size_t c = 0; c < 3; ++c) parts[c] = flat.Find(known.parts[c]);
  }
  if (name.empty() && first.name.size() > 2 && first.name.ends_with("_x")) {
    name = first.name.substr(0, first.name.size() - 2);
    for (std::size_t c = 0; c < 3; ++c) parts[c] = flat.Find(name + "_" + "xyz"[c]);
  }
  for (const PointAttribute* part : parts) {
    if (!part || part->number != first.number || part->components != 1) return {};
  }
  if (name != "color" && !IsReal(first.number)) return {};
  return parts;
}

void Join(PointSet& set, const std::string& name, const std::array<const PointAttribute*, 3>& parts) {
  const bool bytes = parts[0]->number == NumberType::UInt8;
  PointAttribute& vector = set.Declare(name, bytes || IsReal(parts[0]->number) ? PointType::Vector : PointType::Int, 3,
                                       bytes ? NumberType::Float32 : parts[0]->number);
  if (!std::all_of(parts.begin(), parts.end(), [](const auto* part) { return !part->values.empty(); })) return;
  vector.values.resize(set.count * vector.RowBytes());
  const std::size_t size = SizeOf(vector.number);
  for (std::uint64_t row = 0; row < set.count; ++row) {
    for (int c = 0; c < 3; ++c) {
      const PointAttribute& part = *parts[static_cast<std::size_t>(c)];
      std::byte* to = vector.values.data() + (row * 3 + static_cast<std::size_t>(c)) * size;
      if (bytes) {
        vector.SetReal(row, c, part.Real(row, 0) / 255);
      } else {
        std::memcpy(to, part.values.data() + row * size, size);
      }
    }
  }
}

}  // namespace

std::vector<FlatColumn> FlatColumnsOf(const PointSet& set) {
  std::vector<FlatColumn> columns;
  std::set<std::string> taken;
  for (const PointAttribute& attribute : set.attributes) {
    for (int c = 0; c < attribute.components; ++c) {
      std::string name = PartName(attribute, c);
      while (!taken.insert(name).second) name += "_2";
      columns.push_back({std::move(name), &attribute, c});
    }
  }
  return columns;
}

PointSet MergeColumns(PointSet flat) {
  using Parts = std::array<const PointAttribute*, 3>;
  std::map<const PointAttribute*, std::pair<std::string, Parts>> vectors;  // by their first parts
  std::set<const PointAttribute*> joined;
  std::set<std::string> names;
  for (const PointAttribute& column : flat.attributes) {
    std::string name;
    const Parts parts = PartsOf(flat, column, name);
    if (!parts[0] || flat.Find(name) || !names.insert(name).second) continue;
    vectors[&column] = {name, parts};
    joined.insert(parts.begin(), parts.end());
  }
  PointSet merged;
  merged.count = flat.count, merged.units = flat.units, merged.encoding = flat.encoding;
  for (PointAttribute& column : flat.attributes) {
    if (const auto vector = vectors.find(&column); vector != vectors.end()) {
      Join(merged, vector->second.first, vector->second.second);
    } else if (!joined.contains(&column)) {
      merged.attributes.push_back(std::move(column));
    }
  }
  return merged;
}

std::vector<ColumnRange> RangesOf(const PointSet& set) {
  std::vector<ColumnRange> ranges;
  for (const FlatColumn& column : FlatColumnsOf(set)) {
    ColumnRange range{column.name, NameOf(column.attribute->number)};
    for (std::uint64_t row = 0; row < set.count; ++row) {
      const double value = column.attribute->Real(row, column.component);
      range.low = row == 0 ? value : std::min(range.low, value);
      range.high = row == 0 ? value : std::max(range.high, value);
      range.mean += (value - range.mean) / static_cast<double>(row + 1);  // a mean that no sum overflows
    }
    ranges.push_back(std::move(range));
  }
  return ranges;
}

}  // namespace orlix
