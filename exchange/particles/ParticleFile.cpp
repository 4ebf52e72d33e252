#include "exchange/particles/ParticleFile.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <limits>
#include <set>

#include "exchange/particles/PointFile.h"
#include "fluids/helpers/PropertyIds.h"
#include "fluids/particles/SeenVelocity.h"
#include "host/files/AtomicStream.h"

namespace orlix {

namespace {

// How the numbers of a property change on the way to the other program.
enum class Meaning { Plain, Length, Direction, Place };

struct WrittenProperty {
  PropertyKey key;
  PropertyType type;
  Meaning meaning;
  std::string name;
  bool everybody;  // has it
};

Meaning MeaningOf(std::int32_t id) {
  switch (id) {
    case PP::Radius:
      return Meaning::Length;
    case PP::OldPosition:
      return Meaning::Place;
    case PP::Normal:
    case PP::Vorticity:
    case PP::ExternalForce:
      return Meaning::Direction;
    default:
      return Meaning::Plain;
  }
}

std::string Word(std::string text) {
  for (char& c : text) {
    const auto byte = static_cast<unsigned char>(c);
    c = std::isalnum(byte) ? static_cast<char>(std::tolower(byte)) : '_';
  }
  return text;
}

// Empty for what operators keep for themselves.
std::string NameOfProperty(PropertyKey key, const BaseDocument& document) {
  if (key.id < kFirstUserProperty) {
    const PropertyInfo* info = FindProperty(key.id);
    return info ? Word(info->name) : "";
  }
  const BaseObject* owner = document.FindObject(key.owner);
  return owner && !owner->name.empty() ? Word(owner->name) : "property_" + std::to_string(key.id);
}

bool Lives(const ParticleRows& rows, std::int32_t r) { return (rows.flags()[r] & ParticleFlag::Alive) != 0; }

template <class T>
void CountHolders(const ParticleList& list, PropertyKey key, std::int64_t& living, std::int64_t& holders) {
  list.ForEachChunk(0, list.count(), [&](const ParticleRows& rows) {
    const auto property = rows.Property<T>(key);
    for (std::int32_t r = rows.begin; r < rows.end; ++r) {
      living += Lives(rows, r), holders += Lives(rows, r) && property.Has(r);
    }
  });
}

std::vector<WrittenProperty> PropertiesOf(const ParticleList& list, const BaseDocument& document) {
  std::vector<WrittenProperty> found;
  std::set<std::string> names{"x", "y", "z", "vx", "vy", "vz", "id"};
  list.ForEachSlot([&](int, PropertyKey key, PropertyType type) {
    std::string name = NameOfProperty(key, document);
    if (name.empty()) return;
    std::int64_t living = 0, holders = 0;
    if (type == PropertyType::Real) CountHolders<double>(list, key, living, holders);
    if (type == PropertyType::Vector) CountHolders<Vec3D>(list, key, living, holders);
    if (type == PropertyType::State) CountHolders<std::uint8_t>(list, key, living, holders);
    if (holders == 0) return;
    while (!names.insert(name).second) name += "_2";
    found.push_back({key, type, MeaningOf(key.id), std::move(name), holders == living});
  });
  return found;
}

void AddColumns(const WrittenProperty& property, std::vector<PointColumn>& columns) {
  static constexpr const char* kColour[] = {"red", "green", "blue"};
  static constexpr const char* kNormal[] = {"nx", "ny", "nz"};
  for (int axis = 0; axis < 3 && property.type == PropertyType::Vector; ++axis) {
    columns.push_back({property.key.id == PP::Color    ? kColour[axis]
                       : property.key.id == PP::Normal ? kNormal[axis]
                                                       : property.name + "_" + "xyz"[axis]});
  }
  if (property.type == PropertyType::Real) columns.push_back({property.name});
  if (property.type == PropertyType::State) columns.push_back({property.name, PlyType::UInt8});
  if (!property.everybody) columns.push_back({"has_" + property.name, PlyType::UInt8});
}

std::vector<PointColumn> ColumnsFor(const std::vector<WrittenProperty>& properties) {
  std::vector<PointColumn> columns = {{"x"}, {"y"}, {"z"}, {"vx"}, {"vy"}, {"vz"}, {"id", PlyType::Int32}};
  for (const WrittenProperty& property : properties) AddColumns(property, columns);
  return columns;
}

// The rows of a chunk as numbers, one for each column.
class ChunkTable {
 public:
  ChunkTable(const ParticleRows& rows, const std::vector<WrittenProperty>& properties, const GridSpace& space,
             const ExportSpace& out, double dt)
      : rows_(rows), velocities_(rows, dt), space_(space), out_(out) {
    for (const WrittenProperty& property : properties) {
      View& view = views_.emplace_back(View{property, {}, {}, {}});
      if (property.type == PropertyType::Real) view.reals = rows.Property<double>(property.key);
      if (property.type == PropertyType::Vector) view.vectors = rows.Property<Vec3D>(property.key);
      if (property.type == PropertyType::State) view.states = rows.Property<std::uint8_t>(property.key);
    }
  }

  void Make(std::int32_t r, std::vector<double>& row) const {
    row.clear();
    Add(Placed(rows_.positions()[r]), row);
    Add(Placed(velocities_.Of(r)), row);
    row.push_back(rows_.ids()[r]);
    for (const View& view : views_) {
      bool has = false;
      if (view.property.type == PropertyType::Vector) {
        has = view.vectors.Has(r);
        Add(Turned(view.vectors.Get(r, Vec3D()), view.property.meaning), row);
      } else if (view.property.type == PropertyType::Real) {
        has = view.reals.Has(r);
        row.push_back(view.reals.Get(r, 0) * (view.property.meaning == Meaning::Length ? LengthScale() : 1));
      } else {
        has = view.states.Has(r);
        row.push_back(view.states.Get(r, 0));
      }
      if (!view.property.everybody) row.push_back(has);
    }
  }

 private:
  struct View {
    const WrittenProperty& property;
    PropertyView<double> reals;
    PropertyView<Vec3D> vectors;
    PropertyView<std::uint8_t> states;
  };
  static void Add(const Vec3D& v, std::vector<double>& row) { row.insert(row.end(), {v.x, v.y, v.z}); }
  double LengthScale() const { return space_.hostPerSim.x * out_.scale; }
  Vec3D Placed(const Vec3D& v) const { return out_(v * space_.hostPerSim); }
  Vec3D Turned(const Vec3D& v, Meaning meaning) const {
    if (meaning == Meaning::Place) return Placed(v);
    return meaning == Meaning::Direction ? ExportSpace{1, out_.upZ}(v) : v;
  }

  const ParticleRows& rows_;
  const SeenVelocity velocities_;
  const GridSpace& space_;
  const ExportSpace& out_;
  std::vector<View> views_;
};

// The first column that single precision has no number for; null when all are well.
const PointColumn* FirstUnfit(const std::vector<PointColumn>& columns, const std::vector<double>& row) {
  for (std::size_t c = 0; c < row.size(); ++c) {
    if (columns[c].type == PlyType::Float32 && !(std::abs(row[c]) <= std::numeric_limits<float>::max())) {
      return &columns[c];
    }
  }
  return nullptr;
}

Status Proof(const std::filesystem::path& path, std::uint64_t bytes) {
  std::error_code error;
  if (std::filesystem::file_size(path, error) == bytes && !error) return {};
  return Status::Fail(ErrorKind::Output, path.string() + ": not all bytes are there");
}

Status WriteRows(const ParticleGroup& group, std::int32_t kind, const ParticleFileOptions& options,
                 const std::vector<WrittenProperty>& properties, std::ostream& stream) {
  const ParticleList& list = *group.list(kind);
  const std::vector<PointColumn> columns = ColumnsFor(properties);
  std::uint64_t living = 0;
  list.ForEachChunk(0, list.count(), [&](const ParticleRows& rows) {
    for (std::int32_t r = rows.begin; r < rows.end; ++r) living += Lives(rows, r);
  });
  PointWriter writer(PointFormat::Ply, columns, living, stream);
  std::vector<double> row;
  Status status;
  list.ForEachChunk(0, list.count(), [&](const ParticleRows& rows) {
    const ChunkTable table(rows, properties, group.factory(kind).frame, options.space,
                           group.GetSimulationInfo().substepDuration);
    for (std::int32_t r = rows.begin; r < rows.end && status; ++r) {
      if (!Lives(rows, r)) continue;
      table.Make(r, row);
      if (const PointColumn* unfit = FirstUnfit(columns, row)) {
        status = Status::Fail(ErrorKind::Diverged,
                              fmt::format("\"{}\": {} of {} particle {} is no finite number of single precision",
                                          options.group, unfit->name, kParticleKindLabels[kind], rows.ids()[r]));
      }
      writer.Write(row.data());
    }
  });
  return status;
}

}  // namespace

Status WriteParticleFile(const std::filesystem::path& path, const ParticleGroup& group, std::int32_t kind,
                         const ParticleFileOptions& options) {
  AtomicStream stream;
  if (Status opened = stream.Open(path); !opened) return opened;
  const std::vector<WrittenProperty> properties = PropertiesOf(*group.list(kind), *group.handler.GetDocument());
  if (Status written = WriteRows(group, kind, options, properties, stream); !written) return written;
  const auto bytes = static_cast<std::uint64_t>(stream.tellp());
  return stream.Commit([&](const std::filesystem::path& temporary) { return Proof(temporary, bytes); });
}

}  // namespace orlix
