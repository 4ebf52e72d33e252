#include "exchange/points/PointSet.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <limits>
#include <utility>

namespace orlix {

namespace {

constexpr std::size_t kNumberSizes[] = {1, 1, 2, 2, 4, 4, 4, 8, 8, 8, 2};
constexpr const char* kNumberNames[] = {"char",  "uchar",  "short", "ushort", "int", "uint",
                                        "float", "double", "int64", "uint64", "half"};

template <class T>
T Load(const std::byte* at) {
  T value;
  std::memcpy(&value, at, sizeof(T));
  return value;
}
template <class T>
void Store(std::byte* at, T value) {
  std::memcpy(at, &value, sizeof(T));
}

template <class T>
bool StoreWhole(std::byte* at, std::int64_t value) {
  if (!std::in_range<T>(value)) return false;
  Store(at, static_cast<T>(value));
  return true;
}

// IEEE 754 binary16.
double HalfValue(std::uint16_t bits) {
  const int exponent = bits >> 10 & 31, fraction = bits & 1023;
  const double size = exponent == 0 ? std::ldexp(fraction, -24) : std::ldexp(1024 + fraction, exponent - 25);
  const double value = exponent == 31 ? std::numeric_limits<double>::infinity() : size;
  return bits & 0x8000 ? -value : value;
}

std::int64_t LoadWhole(const std::byte* at, NumberType type) {
  switch (type) {
    case NumberType::Int8:
      return Load<std::int8_t>(at);
    case NumberType::UInt8:
      return Load<std::uint8_t>(at);
    case NumberType::Int16:
      return Load<std::int16_t>(at);
    case NumberType::UInt16:
      return Load<std::uint16_t>(at);
    case NumberType::Int32:
      return Load<std::int32_t>(at);
    case NumberType::UInt32:
      return Load<std::uint32_t>(at);
    default:
      return Load<std::int64_t>(at);
  }
}
double LoadReal(const std::byte* at, NumberType type) {
  if (type == NumberType::Float32) return Load<float>(at);
  if (type == NumberType::Float64) return Load<double>(at);
  if (type == NumberType::Float16) return HalfValue(Load<std::uint16_t>(at));
  return static_cast<double>(LoadWhole(at, type));
}

bool StoreWhole(std::byte* at, NumberType type, std::int64_t value);

bool StoreReal(std::byte* at, NumberType type, double value) {
  if (!std::isfinite(value)) return false;
  if (type == NumberType::Float64) return Store(at, value), true;
  if (type == NumberType::Float32) {
    if (std::fabs(value) > std::numeric_limits<float>::max()) return false;
    return Store(at, static_cast<float>(value)), true;
  }
  constexpr double kMost = 9.2e18;  // below 2^63
  if (std::fabs(value) > kMost || value != std::floor(value)) return false;
  return StoreWhole(at, type, static_cast<std::int64_t>(value));
}

bool StoreWhole(std::byte* at, NumberType type, std::int64_t value) {
  switch (type) {
    case NumberType::Int8:
      return StoreWhole<std::int8_t>(at, value);
    case NumberType::UInt8:
      return StoreWhole<std::uint8_t>(at, value);
    case NumberType::Int16:
      return StoreWhole<std::int16_t>(at, value);
    case NumberType::UInt16:
      return StoreWhole<std::uint16_t>(at, value);
    case NumberType::Int32:
      return StoreWhole<std::int32_t>(at, value);
    case NumberType::UInt32:
      return StoreWhole<std::uint32_t>(at, value);
    case NumberType::Int64:
      return StoreWhole<std::int64_t>(at, value);
    case NumberType::UInt64:
      return StoreWhole<std::uint64_t>(at, value);
    default:
      return StoreReal(at, type, static_cast<double>(value));
  }
}

// Values that no one can use: a number beyond int64, and what isn't finite.
bool Usable(const std::byte* at, NumberType type) {
  if (type == NumberType::UInt64) return Load<std::int64_t>(at) >= 0;
  return !IsReal(type) || std::isfinite(LoadReal(at, type));
}

bool Convert(const std::byte* from, NumberType fromType, std::byte* to, NumberType toType) {
  if (!Usable(from, fromType)) return false;
  if (IsReal(fromType)) return StoreReal(to, toType, LoadReal(from, fromType));
  return StoreWhole(to, toType, LoadWhole(from, fromType));
}

template <std::size_t N>
void Copy(const std::byte* from, std::byte* to, bool swapped) {
  std::byte bytes[N];
  std::memcpy(bytes, from, N);
  if (swapped) std::reverse(bytes, bytes + N);
  std::memcpy(to, bytes, N);
}
void Copy(const std::byte* from, std::byte* to, std::size_t size, bool swapped) {
  switch (size) {
    case 1:
      return Copy<1>(from, to, swapped);
    case 2:
      return Copy<2>(from, to, swapped);
    case 4:
      return Copy<4>(from, to, swapped);
    default:
      return Copy<8>(from, to, swapped);
  }
}

bool IsSwapped(FileNumber number) { return number.bigEndian != (std::endian::native == std::endian::big); }

// Whether all 32-bit floats are finite: no exponent is full.
bool AllFinite(const std::byte* from, std::size_t count) {
  std::uint32_t bad = 0;
  for (std::size_t i = 0; i < count; ++i) {
    bad |= static_cast<std::uint32_t>((Load<std::uint32_t>(from + 4 * i) & 0x7f800000u) == 0x7f800000u);
  }
  return bad == 0;
}

}  // namespace

std::size_t SizeOf(NumberType type) { return kNumberSizes[static_cast<int>(type)]; }
const char* NameOf(NumberType type) { return kNumberNames[static_cast<int>(type)]; }

double PointAttribute::Real(std::uint64_t row, int component) const {
  return LoadReal(values.data() + row * RowBytes() + static_cast<std::size_t>(component) * SizeOf(number), number);
}
std::int64_t PointAttribute::Whole(std::uint64_t row, int component) const {
  const std::byte* at = values.data() + row * RowBytes() + static_cast<std::size_t>(component) * SizeOf(number);
  return IsReal(number) ? static_cast<std::int64_t>(LoadReal(at, number)) : LoadWhole(at, number);
}
bool PointAttribute::SetReal(std::uint64_t row, int component, double value) {
  return StoreReal(values.data() + row * RowBytes() + static_cast<std::size_t>(component) * SizeOf(number), number,
                   value);
}
bool PointAttribute::SetWhole(std::uint64_t row, int component, std::int64_t value) {
  return StoreWhole(values.data() + row * RowBytes() + static_cast<std::size_t>(component) * SizeOf(number), number,
                    value);
}

PointAttribute& PointSet::Declare(std::string name, PointType type, int components, NumberType number) {
  attributes.push_back({std::move(name), type, components, number});
  return attributes.back();
}
PointAttribute& PointSet::Add(std::string name, PointType type, int components, NumberType number) {
  PointAttribute& added = Declare(std::move(name), type, components, number);
  added.values.resize(static_cast<std::size_t>(count) * added.RowBytes());
  return added;
}
const PointAttribute* PointSet::Find(std::string_view name) const {
  const auto found = std::find_if(attributes.begin(), attributes.end(), [&](const auto& a) { return a.name == name; });
  return found == attributes.end() ? nullptr : &*found;
}
PointAttribute* PointSet::Find(std::string_view name) {
  return const_cast<PointAttribute*>(std::as_const(*this).Find(name));
}
bool PointSet::HasValues() const {
  return std::all_of(attributes.begin(), attributes.end(),
                     [&](const auto& a) { return a.values.size() == count * a.RowBytes(); });
}

bool EncodeRows(const PointAttribute& from, std::uint64_t first, std::uint64_t rows, FileNumber to, char* out,
                std::size_t stride) {
  const std::size_t size = SizeOf(to.type), own = SizeOf(from.number);
  const auto components = static_cast<std::size_t>(from.components);
  const std::byte* in = from.values.data() + first * from.RowBytes();
  const bool swapped = IsSwapped(to), same = to.type == from.number;
  if (same && to.type == NumberType::Float32 && !AllFinite(in, rows * components)) return false;
  std::byte converted[8];
  for (std::uint64_t row = 0; row < rows; ++row, out += stride) {
    for (std::size_t c = 0; c < components; ++c, in += own) {
      if (!same && !Convert(in, from.number, converted, to.type)) return false;
      Copy(same ? in : converted, reinterpret_cast<std::byte*>(out) + c * size, size, swapped);
    }
  }
  return true;
}

bool DecodeRows(const char* in, std::size_t stride, FileNumber from, std::uint64_t first, std::uint64_t rows,
                PointAttribute& to) {
  const std::size_t size = SizeOf(from.type), own = SizeOf(to.number);
  const auto components = static_cast<std::size_t>(to.components);
  std::byte* out = to.values.data() + first * to.RowBytes();
  const bool swapped = IsSwapped(from), same = from.type == to.number;
  std::byte read[8];
  for (std::uint64_t row = 0; row < rows; ++row, in += stride) {
    for (std::size_t c = 0; c < components; ++c, out += own) {
      Copy(reinterpret_cast<const std::byte*>(in) + c * size, read, size, swapped);
      if (same) {
        if (!Usable(read, to.number)) return false;
        std::memcpy(out, read, size);
      } else if (!Convert(read, from.type, out, to.number)) {
        return false;
      }
    }
  }
  return true;
}

}  // namespace orlix
