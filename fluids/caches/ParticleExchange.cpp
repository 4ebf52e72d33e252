#include "fluids/caches/ParticleExchange.h"

#include <algorithm>
#include <cmath>

namespace orlix {

namespace {

// What a property is called there, how else it may be called, and what a particle without it gets.
struct ExchangedProperty {
  std::int32_t id;
  const char *name, *alias;
  Vec3D fallback;
};
constexpr ExchangedProperty kExchanged[] = {
    {PP::Radius, "radius", "", Vec3D(1)},
    {PP::Birth, "birth", "", Vec3D()},
    {PP::Age, "age", "", Vec3D(10000)},
    {PP::Density, "density", "", Vec3D(1)},
    {PP::Viscosity, "viscosity", "", Vec3D()},
    {PP::Temperature, "temperature", "temp", Vec3D()},
    {PP::Fuel, "fuel", "", Vec3D()},
    {PP::Mass, "mass", "", Vec3D(1)},
    {PP::Anisotropy, "anisotropy", "", Vec3D(1)},
    {PP::Curvature, "curvature", "", Vec3D()},
    {PP::Color, "color", "", Vec3D(1)},
    {PP::Normal, "normal", "N", {0, 1, 0}},
    {PP::OldPosition, "oldposition", "", Vec3D()},  // without one: the position
    {PP::Vorticity, "vorticity", "", Vec3D()},
    {PP::FramePosition, "oldpositionframe", "", Vec3D()},  // the old position's value
    {PP::UV, "uv", "", Vec3D()},
};

bool IsVector(std::int32_t id) { return TypeOfProperty(id) == PropertyType::Vector; }

Vec3D ValueOf(const OrlixParticle& particle, const ExchangedProperty& property) {
  if (!IsVector(property.id)) return Vec3D(particle.GetRealOr(property.id, property.fallback.x));
  const bool place = property.id == PP::OldPosition || property.id == PP::FramePosition;
  return particle.GetVectorOr(place ? PP::OldPosition : property.id,
                              place ? particle.GetPosition() : property.fallback);
}

template <class F>
void ForEachParticle(const std::vector<GroupEntry>& populations, F&& f) {
  for (const GroupEntry& population : populations) {
    const ParticleFactory& factory = population.group->factory(population.kind);
    for (std::int32_t list = 0; list < factory.listCount(); ++list) {
      for (std::int32_t i = 0; i < factory.Count(list); ++i) f(factory.At(i, list));
    }
  }
}

PointAttribute& AddColumn(PointSet& set, const char* name, bool vector) {
  return set.Add(name, vector ? PointType::Vector : PointType::Float, vector ? 3 : 1, NumberType::Float32);
}

void Fill(PointSet& set, PointAttribute& column, const std::vector<GroupEntry>& populations, auto&& value) {
  float* to = column.Data<float>();
  const int components = column.components;
  if (set.count == 0) return;
  ForEachParticle(populations, [&](const OrlixParticle& particle) {
    const Vec3D v = value(particle);
    for (int c = 0; c < components; ++c) *to++ = static_cast<float>(v[c]);
  });
}

// Null unless it has the property's type.
const PointAttribute* Column(const PointSet& set, const char* name, bool vector) {
  const PointAttribute* column = *name ? set.Find(name) : nullptr;
  return column && column->components == (vector ? 3 : 1) && IsReal(column->number) ? column : nullptr;
}

Vec3D VectorAt(const PointAttribute& column, std::uint64_t row) {
  return {column.Real(row, 0), column.Real(row, 1), column.Real(row, 2)};
}

void AddImported(ParticleRunData& run, const PointAttribute& column, std::int32_t id, std::uint64_t begin,
                 std::size_t rows) {
  std::erase_if(run.columns, [id](const ParticleRunColumn& other) { return other.id == id; });
  ParticleRunColumn& to = run.columns.emplace_back();
  to.id = id, to.type = TypeOfProperty(id);
  for (std::uint64_t r = begin; r < begin + rows; ++r) {
    if (IsVector(id)) {
      to.vectors.push_back(VectorAt(column, r));
    } else {
      to.reals.push_back(static_cast<float>(column.Real(r, 0)));
    }
  }
}

}  // namespace

PointSet ExportParticles(const std::vector<GroupEntry>& populations, const PropertyFilter& filter) {
  PointSet set;
  set.units.metresPerUnit = 1;
  ForEachParticle(populations, [&](const OrlixParticle&) { ++set.count; });
  Fill(set, AddColumn(set, "position", true), populations, [](const OrlixParticle& p) { return p.GetPosition(); });
  Fill(set, AddColumn(set, "velocity", true), populations, [](const OrlixParticle& p) { return p.GetVelocity(); });
  for (const ExchangedProperty& property : kExchanged) {
    const bool kept = std::any_of(populations.begin(), populations.end(), [&](const GroupEntry& population) {
      const OrlixParticle first = population.group->factory(population.kind).At(0);
      return first && first.Has(property.id) && filter.Lets(property.id);
    });
    if (!kept) continue;
    Fill(set, AddColumn(set, property.name, IsVector(property.id)), populations,
         [&](const OrlixParticle& p) { return ValueOf(p, property); });
  }
  PointAttribute& ids = set.Add("id", PointType::Int, 1, NumberType::Int32);
  for (std::uint64_t row = 0; row < set.count; ++row) ids.Data<std::int32_t>()[row] = static_cast<std::int32_t>(row);
  return set;
}

void DropUnheld(PointSet& set) {
  constexpr std::int32_t kAboveZero[] = {PP::Radius, PP::Mass, PP::Density, PP::Age, PP::Normal, PP::OldPosition};
  std::erase_if(set.attributes, [&](const PointAttribute& column) {
    const auto isIt = [&](const ExchangedProperty& each) {
      return std::find(std::begin(kAboveZero), std::end(kAboveZero), each.id) != std::end(kAboveZero) &&
             (column.name == each.name || column.name == each.alias);
    };
    return std::any_of(std::begin(kExchanged), std::end(kExchanged), isIt) &&
           std::all_of(column.values.begin(), column.values.end(), [](auto byte) { return byte == decltype(byte){}; });
  });
}

ParticleRunData ImportParticles(const PointSet& set, std::uint64_t begin, std::size_t rows, std::uint16_t flags) {
  ParticleRunData run;
  const PointAttribute *places = Column(set, "position", true), *velocities = Column(set, "velocity", true);
  for (std::uint64_t r = begin; places && r < begin + rows; ++r) {
    run.positions.push_back(VectorAt(*places, r));
    run.velocities.push_back(velocities ? VectorAt(*velocities, r) : Vec3D());
    run.flags.push_back(flags);
    run.ids.push_back(static_cast<std::int32_t>(r));
  }
  for (const ExchangedProperty& property : kExchanged) {
    for (const char* name : {property.name, property.alias}) {
      const PointAttribute* column = places ? Column(set, name, IsVector(property.id)) : nullptr;
      // The old position is that at the frame's start where a file has both.
      const std::int32_t id = property.id == PP::FramePosition ? PP::OldPosition : property.id;
      if (column) AddImported(run, *column, id, begin, rows);
    }
  }
  return run;
}

}  // namespace orlix
