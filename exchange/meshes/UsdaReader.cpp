#include "exchange/meshes/UsdaReader.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <map>
#include <vector>

#include "exchange/meshes/UsdaFile.h"
#include "exchange/points/PointBytes.h"

namespace orlix {

namespace {

constexpr std::size_t kMostAttributes = 1000;
constexpr std::string_view kPrimvar = "primvars:";

bool IsOfWord(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' || c == ':' ||
         c == '.' || c == '[' || c == ']';
}
bool IsBlank(char c) { return c == ' ' || c == '\n' || c == '\t' || c == '\r'; }

// Words, marks and numbers, with blanks between them. The first thing that isn't as asked for stops it.
class UsdaText {
 public:
  UsdaText(std::string_view text, std::string_view name) : text_(text), name_(name) {}

  bool Take(std::string_view mark) {
    SkipBlanks();
    if (!ok() || !text_.substr(at_).starts_with(mark)) return false;
    at_ += mark.size();
    return true;
  }
  void Need(std::string_view mark) {
    if (!Take(mark)) Refuse(fmt::format("\"{}\" is expected", mark));
  }
  // Letters, digits and _:.[], to the first of anything else.
  std::string_view Word() {
    SkipBlanks();
    const std::size_t begin = at_;
    while (at_ < text_.size() && IsOfWord(text_[at_])) ++at_;
    return text_.substr(begin, at_ - begin);
  }
  template <class T>
  T Number() {
    SkipBlanks();
    T value{};
    const auto [end, error] = std::from_chars(text_.data() + at_, text_.data() + text_.size(), value);
    if (error != std::errc()) return Fail(ErrorKind::InputFile, "a number is expected"), T{};
    if constexpr (std::is_floating_point_v<T>) {
      if (!std::isfinite(value)) Fail(ErrorKind::InputFile, "a number that isn't finite");
    }
    at_ = static_cast<std::size_t>(end - text_.data());
    return value;
  }
  // [a, b] or [(a, b, c), (d, e, f)], value after value.
  template <class T>
  void Array(int components, std::vector<T>& values) {
    Need("[");
    if (Take("]")) return;
    do {
      if (components > 1) Need("(");
      for (int c = 0; ok() && c < components; ++c) {
        if (c > 0) Need(",");
        values.push_back(Number<T>());
      }
      if (components > 1) Need(")");
    } while (ok() && Take(","));
    Need("]");
  }
  bool AtEnd() {
    SkipBlanks();
    return at_ == text_.size();
  }
  void Refuse(std::string_view what) { Fail(ErrorKind::Usage, what); }
  void Fail(ErrorKind kind, std::string_view what) {
    if (!ok()) return;
    const auto line = 1 + std::count(text_.begin(), text_.begin() + static_cast<std::ptrdiff_t>(at_), '\n');
    error_ = Error{kind, fmt::format("{}:{}: {}", name_, line, what)};
  }
  bool ok() const { return !error_; }
  const std::optional<Error>& error() const { return error_; }

 private:
  void SkipBlanks() {
    while (at_ < text_.size() && IsBlank(text_[at_])) ++at_;
  }

  std::string_view text_, name_;
  std::size_t at_ = 0;
  std::optional<Error> error_;
};

struct UsdaArray {
  int components = 1;
  std::vector<float> reals;
  std::vector<std::int64_t> wholes;
};
using UsdaArrays = std::map<std::string, UsdaArray, std::less<>>;

void ReadHead(UsdaText& text, UsdaFrame& frame) {
  text.Need("#usda 1.0");
  if (!text.Take("(")) return;
  while (text.ok() && !text.Take(")")) {
    const std::string_view key = text.Word();
    text.Need("=");
    if (key == "metersPerUnit") {
      frame.units.metresPerUnit = text.Number<double>();
      if (!(frame.units.metresPerUnit > 0)) text.Fail(ErrorKind::InputFile, "a unit of no length");
    } else if (key == "upAxis") {
      frame.units.upZ = text.Take("\"Z\"");
      if (!frame.units.upZ) text.Need("\"Y\"");
    } else if (key == "defaultPrim") {
      if (!text.Take("\"Mesh\"") && !text.Take("\"Points\"")) {
        text.Refuse("a stage of many frames; the files that it names are read, one at a time");
      }
    } else {
      text.Refuse(fmt::format("\"{}\" isn't understood", key));
    }
  }
}

void TakeInterpolation(UsdaText& text) {
  if (!text.Take("(")) return;
  text.Need("interpolation"), text.Need("="), text.Need("\"vertex\""), text.Need(")");
}

void ReadValues(UsdaText& text, std::string_view type, UsdaArray& array) {
  const auto isOne = [&](std::initializer_list<std::string_view> types) {
    return std::find(types.begin(), types.end(), type) != types.end();
  };
  array.components = isOne({"float3[]", "point3f[]", "vector3f[]", "normal3f[]", "color3f[]"}) ? 3 : 1;
  if (array.components == 3 || type == "float[]") return text.Array(array.components, array.reals);
  if (!isOne({"int[]", "int64[]"})) return text.Refuse(fmt::format("\"{}\" isn't understood", type));
  text.Array(1, array.wholes);
}

// A line that declares an attribute, or gives its values.
void ReadAttribute(UsdaText& text, UsdaFrame& frame, UsdaArrays& arrays) {
  const std::string_view type = text.Word();
  if (type == "uniform") {
    text.Need("token"), text.Need("subdivisionScheme"), text.Need("="), text.Need("\"none\"");
    return;
  }
  std::string_view name = text.Word();
  const bool timed = name.ends_with(".timeSamples");
  if (timed) name.remove_suffix(std::string_view(".timeSamples").size());
  if (type.empty() || name.empty()) return text.Refuse("an attribute is expected");
  if (!text.Take("=")) return timed ? text.Refuse("values are expected") : TakeInterpolation(text);
  const std::string own(name.substr(name.starts_with(kPrimvar) ? kPrimvar.size() : 0));
  if (UsdName(own) != own) return text.Refuse(fmt::format("the name \"{}\" isn't understood", name));
  UsdaArray& array = arrays[std::string(name)];
  if (!array.reals.empty() || !array.wholes.empty() || arrays.size() > kMostAttributes) {
    return text.Refuse(fmt::format("a second or needless \"{}\"", name));
  }
  if (!timed) {
    ReadValues(text, type, array);
    return TakeInterpolation(text);
  }
  text.Need("{");
  const int time = text.Number<int>();
  text.Need(":");
  if (frame.time && *frame.time != time) text.Refuse("values of two times");
  frame.time = time;
  ReadValues(text, type, array);
  text.Take(","), text.Need("}");
}

Status WrongCount(std::string_view name, const std::string& attribute) {
  return Status::Fail(ErrorKind::InputFile, fmt::format("{}: damaged: \"{}\" doesn't fit", name, attribute));
}

std::vector<Vec3D> VectorsOf(const UsdaArray& array) {
  std::vector<Vec3D> vectors;
  for (std::size_t n = 0; n + 2 < array.reals.size(); n += 3) {
    vectors.emplace_back(array.reals[n], array.reals[n + 1], array.reals[n + 2]);
  }
  return vectors;
}

Status TakePolygons(const UsdaArrays& arrays, std::string_view name, PolygonObject& mesh) {
  const auto counts = arrays.find("faceVertexCounts"), corners = arrays.find("faceVertexIndices");
  if (counts == arrays.end() && corners == arrays.end()) return {};
  if (counts == arrays.end() || corners == arrays.end()) return WrongCount(name, "faceVertexCounts");
  const std::vector<std::int64_t>& indices = corners->second.wholes;
  const auto points = static_cast<std::int64_t>(mesh.points.size());
  const auto inside = [&](std::int64_t corner) { return corner >= 0 && corner < points; };
  if (!std::all_of(indices.begin(), indices.end(), inside)) return WrongCount(name, "faceVertexIndices");
  std::size_t at = 0;
  for (const std::int64_t count : counts->second.wholes) {
    if ((count != 3 && count != 4) || indices.size() - at < static_cast<std::size_t>(count)) {
      return WrongCount(name, "faceVertexCounts");
    }
    const auto corner = [&](std::int64_t n) {
      return static_cast<std::int32_t>(indices[at + static_cast<std::size_t>(n)]);
    };
    mesh.polygons.push_back({corner(0), corner(1), corner(2), corner(count - 1)});
    at += static_cast<std::size_t>(count);
  }
  return at == indices.size() ? Status() : WrongCount(name, "faceVertexIndices");
}

Status TakeMesh(const UsdaArrays& arrays, std::string_view name, PolygonObject& mesh) {
  if (const auto points = arrays.find("points"); points != arrays.end()) mesh.points = VectorsOf(points->second);
  for (const auto& [key, array] : arrays) {
    if (key == "extent" || key == "points" || key.starts_with("faceVertex")) continue;
    const std::size_t wanted = mesh.points.size() * static_cast<std::size_t>(array.components);
    if (array.reals.size() != wanted || !array.wholes.empty()) return WrongCount(name, key);
    if (key == "normals" && array.components == 3) {
      mesh.normals = VectorsOf(array);
    } else if (key == "velocities" && array.components == 3) {
      mesh.velocities = VectorsOf(array);
    } else if (key.starts_with(kPrimvar)) {
      mesh.attributes.push_back(
          {key.substr(kPrimvar.size()), array.components, {array.reals.begin(), array.reals.end()}});
    } else {
      return Status::Fail(ErrorKind::Usage, fmt::format("{}: \"{}\" isn't understood", name, key));
    }
  }
  return TakePolygons(arrays, name, mesh);
}

Status TakePoints(const UsdaArrays& arrays, std::string_view name, PointSet& set) {
  static constexpr PointName kNames[] = {{"position", "points"},
                                         {"velocity", "velocities"},
                                         {"normal", "normals"},
                                         {"id", "ids"},
                                         {"color", "primvars:displayColor"}};
  const auto points = arrays.find("points");
  if (points == arrays.end()) return {};
  set.count = points->second.reals.size() / 3;
  for (const auto& [key, array] : arrays) {
    // Widths are what the radius says, too.
    if (key == "extent" || key == "widths") continue;
    const std::string ours = key.starts_with(kPrimvar) && key != "primvars:displayColor" ? key.substr(kPrimvar.size())
                                                                                         : OurName(kNames, key);
    if (ours == key) return Status::Fail(ErrorKind::Usage, fmt::format("{}: \"{}\" isn't understood", name, key));
    const bool whole = ours == "id";
    const std::size_t values = whole ? array.wholes.size() : array.reals.size(),
                      others = whole ? array.reals.size() : array.wholes.size();
    if (values != set.count * static_cast<std::size_t>(array.components) || others > 0 || !CanAdd(set, ours)) {
      return WrongCount(name, key);
    }
    PointAttribute& column = set.Add(ours,
                                     whole                   ? PointType::Int
                                     : array.components == 3 ? PointType::Vector
                                                             : PointType::Float,
                                     array.components, whole ? NumberType::Int64 : NumberType::Float32);
    if (whole) std::copy(array.wholes.begin(), array.wholes.end(), column.Data<std::int64_t>());
    if (!whole) std::copy(array.reals.begin(), array.reals.end(), column.Data<float>());
  }
  return {};
}

}  // namespace

Result<UsdaFrame> ParseUsda(std::string_view content, std::string_view name) {
  UsdaFrame frame;
  UsdaText text(content, name);
  UsdaArrays arrays;
  ReadHead(text, frame);
  text.Need("def");
  frame.points = text.Take("Points");
  if (!frame.points) text.Need("Mesh");
  text.Need(frame.points ? "\"Points\"" : "\"Mesh\"");
  text.Need("{");
  while (text.ok() && !text.Take("}")) ReadAttribute(text, frame, arrays);
  if (text.ok() && !text.AtEnd()) text.Refuse("more than one prim");
  if (text.error()) return *text.error();
  frame.set.units = frame.units;
  frame.set.encoding = "text";
  if (Status taken = frame.points ? TakePoints(arrays, name, frame.set) : TakeMesh(arrays, name, frame.mesh); !taken) {
    return taken.error();
  }
  return frame;
}

Result<UsdaFrame> ReadUsda(const std::filesystem::path& path) {
  const Result<FileBytes> content = ReadPointFile(path);
  if (!content) return content.error();
  return ParseUsda(content->Text(), path.string());
}

}  // namespace orlix
