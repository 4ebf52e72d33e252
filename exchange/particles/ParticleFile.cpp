#include "exchange/particles/ParticleFile.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <limits>
#include <set>

#include "fluids/helpers/PropertyIds.h"
#include "fluids/particles/SeenVelocity.h"

namespace orlix {

namespace {

using Meaning = PropertyMeaning;

struct WrittenProperty {
  PropertyKey key;
  PropertyType type;
  Meaning meaning;
  std::string name;
  bool everybody;  // has it
};

std::string Word(std::string text) {
  for (char& c : text) {
    const auto byte = static_cast<unsigned char>(c);
    c = std::isalnum(byte) ? static_cast<char>(std::tolower(byte)) : '_';
  }
  return text;
}

// Which particles are written.
struct WrittenRows {
  std::optional<DiffuseClass> only;
  bool operator()(const ParticleRows& rows, std::int32_t r) const {
    const std::uint16_t flags = rows.flags()[r];
    return (flags & ParticleFlag::Alive) != 0 && (!only || ClassOfFlags(flags) == *only);
  }
};

template <class T>
void CountHolders(const ParticleList& list, const WrittenRows& written, PropertyKey key, std::int64_t& living,
                  std::int64_t& holders) {
  list.ForEachChunk(0, list.count(), [&](const ParticleRows& rows) {
    const auto property = rows.Property<T>(key);
    for (std::int32_t r = rows.begin; r < rows.end; ++r) {
      living += written(rows, r), holders += written(rows, r) && property.Has(r);
    }
  });
}

std::vector<WrittenProperty> PropertiesOf(const ParticleList& list, const WrittenRows& written,
                                          const BaseDocument& document) {
  std::vector<WrittenProperty> found;
  std::set<std::string> names{"position", "velocity", "id", "x", "y", "z", "vx", "vy", "vz"};
  list.ForEachSlot([&](int, PropertyKey key, PropertyType type) {
    const BaseObject* owner = key.id < kFirstUserProperty ? nullptr : document.FindObject(key.owner);
    std::string name = ColumnNameOf(key.id, owner ? owner->name : std::string());
    if (name.empty()) return;
    std::int64_t living = 0, holders = 0;
    if (type == PropertyType::Real) CountHolders<double>(list, written, key, living, holders);
    if (type == PropertyType::Vector) CountHolders<Vec3D>(list, written, key, living, holders);
    if (type == PropertyType::State) CountHolders<std::uint8_t>(list, written, key, living, holders);
    if (holders == 0) return;
    while (!names.insert(name).second) name += "_2";
    found.push_back({key, type, MeaningOf(key.id), std::move(name), holders == living});
  });
  return found;
}

// Columns of floats that are filled row by row; the first value that single precision has no number for is kept.
class Filler {
 public:
  Filler(const ParticleGroup& group, std::int32_t kind, const ParticleFileOptions& options)
      : list_(*group.list(kind)),
        space_(group.factory(kind).frame),
        options_(options),
        dt_(group.GetSimulationInfo().substepDuration),
        kind_(kParticleKindLabels[kind]) {}

  // make(rows) gives what makes row r's value, a double or a Vec3D.
  template <class Make>
  void Fill(PointAttribute& column, Make&& make) {
    float* to = column.Data<float>();
    list_.ForEachChunk(0, list_.count(), [&](const ParticleRows& rows) {
      const auto value = make(rows);
      for (std::int32_t r = rows.begin; r < rows.end; ++r) {
        if (!written()(rows, r)) continue;
        to = Put(column, rows, r, value(r), to);
      }
    });
  }
  Vec3D Placed(const Vec3D& v) const { return options_.space(v * space_.hostPerSim); }
  Vec3D Turned(const Vec3D& v, Meaning meaning) const {
    if (meaning == Meaning::Place) return Placed(v);
    return meaning == Meaning::Direction ? ExportSpace{1, options_.space.upZ}(v) : v;
  }
  double LengthScale(Meaning meaning) const {
    return meaning == Meaning::Length ? space_.hostPerSim.x * options_.space.scale : 1.0;
  }
  double dt() const { return dt_; }
  const ParticleList& list() const { return list_; }
  WrittenRows written() const { return {options_.only}; }
  const Status& status() const { return status_; }

 private:
  float* Put(const PointAttribute& column, const ParticleRows& rows, std::int32_t r, double value, float* to) {
    if (!(std::abs(value) <= std::numeric_limits<float>::max()) && status_) {
      status_ = Status::Fail(ErrorKind::Diverged,
                             fmt::format("\"{}\": {} of {} particle {} is no finite number of single precision",
                                         options_.group, column.name, kind_, rows.ids()[r]));
    }
    *to = static_cast<float>(value);
    return to + 1;
  }
  float* Put(const PointAttribute& column, const ParticleRows& rows, std::int32_t r, const Vec3D& value, float* to) {
    for (int axis = 0; axis < 3; ++axis) to = Put(column, rows, r, value[axis], to);
    return to;
  }

  const ParticleList& list_;
  const GridSpace& space_;
  const ParticleFileOptions& options_;
  const double dt_;
  const char* const kind_;
  Status status_;
};

// Whole numbers, likewise.
template <class T, class Make>
void FillWhole(const Filler& filler, PointAttribute& column, Make&& make) {
  T* to = column.Data<T>();
  const ParticleList& list = filler.list();
  list.ForEachChunk(0, list.count(), [&](const ParticleRows& rows) {
    const auto value = make(rows);
    for (std::int32_t r = rows.begin; r < rows.end; ++r) {
      if (filler.written()(rows, r)) *to++ = static_cast<T>(value(r));
    }
  });
}

template <class T>
void FillHas(const Filler& filler, PropertyKey key, PointAttribute& column) {
  FillWhole<std::uint8_t>(filler, column, [&](const ParticleRows& rows) {
    return [property = rows.Property<T>(key)](std::int32_t r) { return property.Has(r); };
  });
}

void AddProperty(const WrittenProperty& property, Filler& filler, PointSet& set) {
  const PropertyKey key = property.key;
  const Meaning meaning = property.meaning;
  const auto has = [&]() -> PointAttribute& {
    return set.Add("has_" + property.name, PointType::Int, 1, NumberType::UInt8);
  };
  if (property.type == PropertyType::Real) {
    filler.Fill(set.Add(property.name, PointType::Float, 1, NumberType::Float32), [&](const ParticleRows& rows) {
      return [values = rows.Property<double>(key), scale = filler.LengthScale(meaning)](std::int32_t r) {
        return values.Get(r, 0) * scale;
      };
    });
    if (!property.everybody) FillHas<double>(filler, key, has());
  } else if (property.type == PropertyType::Vector) {
    filler.Fill(set.Add(property.name, PointType::Vector, 3, NumberType::Float32), [&](const ParticleRows& rows) {
      return [&filler, meaning, values = rows.Property<Vec3D>(key)](std::int32_t r) {
        return filler.Turned(values.Get(r, Vec3D()), meaning);
      };
    });
    if (!property.everybody) FillHas<Vec3D>(filler, key, has());
  } else {
    FillWhole<std::uint8_t>(
        filler, set.Add(property.name, PointType::Int, 1, NumberType::UInt8), [&](const ParticleRows& rows) {
          return [values = rows.Property<std::uint8_t>(key)](std::int32_t r) { return values.Get(r, 0); };
        });
    if (!property.everybody) FillHas<std::uint8_t>(filler, key, has());
  }
}

}  // namespace

PropertyMeaning MeaningOf(std::int32_t id) {
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

std::string ColumnNameOf(std::int32_t id, const std::string& owner) {
  if (id >= kFirstUserProperty) return owner.empty() ? "property_" + std::to_string(id) : Word(owner);
  const PropertyInfo* info = FindProperty(id);
  return info ? Word(info->name) : "";
}

Result<PointSet> PointsOf(const ParticleGroup& group, std::int32_t kind, const ParticleFileOptions& options) {
  const ParticleList& list = *group.list(kind);
  Filler filler(group, kind, options);
  PointSet set;
  set.units = {options.metresPerUnit, options.space.upZ};
  list.ForEachChunk(0, list.count(), [&](const ParticleRows& rows) {
    for (std::int32_t r = rows.begin; r < rows.end; ++r) set.count += filler.written()(rows, r);
  });
  filler.Fill(set.Add("position", PointType::Vector, 3, NumberType::Float32), [&](const ParticleRows& rows) {
    return [&, at = rows.positions()](std::int32_t r) { return filler.Placed(at[r]); };
  });
  filler.Fill(set.Add("velocity", PointType::Vector, 3, NumberType::Float32), [&](const ParticleRows& rows) {
    return [&, seen = SeenVelocity(rows, filler.dt())](std::int32_t r) { return filler.Placed(seen.Of(r)); };
  });
  FillWhole<std::int32_t>(filler, set.Add("id", PointType::Int, 1, NumberType::Int32), [](const ParticleRows& rows) {
    return [ids = rows.ids()](std::int32_t r) { return ids[r]; };
  });
  for (const WrittenProperty& property : PropertiesOf(list, filler.written(), *group.handler.GetDocument())) {
    AddProperty(property, filler, set);
  }
  if (!filler.status()) return filler.status().error();
  return set;
}

}  // namespace orlix
