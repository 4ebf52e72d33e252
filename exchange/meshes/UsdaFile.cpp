#include "exchange/meshes/UsdaFile.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <limits>

#include "host/files/AtomicFile.h"

namespace orlix {

namespace {

constexpr std::size_t kUsdFlush = std::size_t(1) << 16;

std::string Head(const FileUnits& units, const char* prim, const std::string& more = "") {
  return fmt::format("#usda 1.0\n(\n    defaultPrim = \"{}\"\n    metersPerUnit = {}\n    upAxis = \"{}\"\n{})\n\n",
                     prim, units.metresPerUnit > 0 ? units.metresPerUnit : 1.0, units.upZ ? 'Z' : 'Y', more);
}

// Behind the declaration of values of vertices; without it USD takes them for one value of all.
std::string Interpolation(const std::string& attribute) {
  const bool ofVertices =
      attribute.find("primvars:") != std::string::npos || attribute.find("normals") != std::string::npos;
  return ofVertices ? " (\n        interpolation = \"vertex\"\n    )" : "";
}

// Writes attributes with arrays of values.
class ArrayWriter {
 public:
  ArrayWriter(std::optional<int> frame, std::ostream& out) : frame_(frame), out_(out) {}

  // value(n, text) appends the n-th.
  template <class Value>
  void Array(const std::string& declaration, std::size_t count, Value&& value) {
    attributes.insert(declaration);
    const std::string interpolation = Interpolation(declaration);
    if (frame_ && !interpolation.empty()) text_ += "    " + declaration + interpolation + "\n";
    text_ += "    " + declaration;
    text_ += frame_ ? fmt::format(".timeSamples = {{\n        {}: [", *frame_) : " = [";
    for (std::size_t n = 0; n < count; ++n) {
      if (n > 0) text_ += ", ";  // on one line, which the simplest readers want
      value(n, text_);
      Flush(kUsdFlush);
    }
    text_ += frame_ ? "],\n    }\n" : "]" + interpolation + "\n";
  }
  void Vectors(const std::string& declaration, const std::vector<Vec3D>& values) {
    Array(declaration, values.size(), [&](std::size_t n, std::string& text) { Triple(values[n], text); });
  }
  void Line(const std::string& line) { text_ += line; }
  void Flush(std::size_t above) {
    if (text_.size() <= above) return;
    out_.write(text_.data(), static_cast<std::streamsize>(text_.size()));
    text_.clear();
  }
  static void Triple(const Vec3D& v, std::string& text) {
    fmt::format_to(std::back_inserter(text), "({}, {}, {})", static_cast<float>(v.x), static_cast<float>(v.y),
                   static_cast<float>(v.z));
  }
  static void Number(double value, std::string& text) {
    constexpr double kMost = std::numeric_limits<float>::max();
    fmt::format_to(std::back_inserter(text), "{}", static_cast<float>(std::clamp(value, -kMost, kMost)));
  }

  UsdAttributes attributes;

 private:
  const std::optional<int> frame_;
  std::ostream& out_;
  std::string text_;
};

void Extent(ArrayWriter& writer, std::size_t count, const auto& pointAt) {
  Vec3D low, high;
  for (std::size_t n = 0; n < count; ++n) {
    const Vec3D p = pointAt(n);
    for (int axis = 0; axis < 3; ++axis) {
      low[axis] = n == 0 ? p[axis] : std::min(low[axis], p[axis]);
      high[axis] = n == 0 ? p[axis] : std::max(high[axis], p[axis]);
    }
  }
  writer.Vectors("float3[] extent", {low, high});
}

Vec3D VectorAt(const PointAttribute& column, std::uint64_t row) {
  return {column.Real(row, 0), column.Real(row, 1), column.Real(row, 2)};
}

void WriteColumn(ArrayWriter& writer, const PointAttribute& column, std::uint64_t count) {
  const bool vector = column.components == 3;
  if (column.name == "position") return;
  if (column.name == "id" && !vector) {
    writer.Array("int64[] ids", count, [&](std::size_t n, std::string& text) {
      fmt::format_to(std::back_inserter(text), "{}", column.Whole(n, 0));
    });
    return;
  }
  std::string declaration;
  if (vector) {
    declaration = column.name == "velocity" ? "vector3f[] velocities"
                  : column.name == "normal" ? "normal3f[] normals"
                  : column.name == "color"  ? "color3f[] primvars:displayColor"
                                            : "vector3f[] primvars:" + UsdName(column.name);
    writer.Array(declaration, count,
                 [&](std::size_t n, std::string& text) { ArrayWriter::Triple(VectorAt(column, n), text); });
    return;
  }
  if (column.components != 1) return;
  if (column.name == "radius") {
    writer.Array("float[] widths", count,
                 [&](std::size_t n, std::string& text) { ArrayWriter::Number(2 * column.Real(n, 0), text); });
  }
  writer.Array("float[] primvars:" + UsdName(column.name), count,
               [&](std::size_t n, std::string& text) { ArrayWriter::Number(column.Real(n, 0), text); });
}

std::string Asset(const std::string& file) { return "@./" + file + "@"; }

void AddClips(const UsdaStage::Clips& clips, const std::string& manifest, std::string& text) {
  const auto end = std::back_inserter(text);
  const char* prim = clips.points ? "Points" : "Mesh";
  // Readers that know no clips show the first frame, which a reference brings.
  fmt::format_to(end,
                 "    def {0} \"{1}\" (\n        prepend references = {2}</{0}>\n"
                 "        clips = {{\n            dictionary default = {{\n",
                 prim, UsdName(clips.name), Asset(clips.files.begin()->second));
  std::string assets, active, times;
  int index = 0;
  for (const auto& [frame, file] : clips.files) {
    assets += (index > 0 ? ", " : "") + Asset(file);
    active += fmt::format("{}({}, {})", index > 0 ? ", " : "", frame, index);
    times += fmt::format("{}({}, {})", index > 0 ? ", " : "", frame, frame);
    ++index;
  }
  fmt::format_to(end,
                 "                asset[] assetPaths = [{}]\n                double2[] active = [{}]\n"
                 "                double2[] times = [{}]\n                asset manifestAssetPath = {}\n"
                 "                string primPath = \"/{}\"\n            }}\n        }}\n    )\n    {{\n",
                 assets, active, times, Asset(manifest), prim);
  if (!clips.points) text += "        uniform token subdivisionScheme = \"none\"\n";
  for (const std::string& attribute : clips.attributes)
    text += "        " + attribute + Interpolation(attribute) + "\n";
  text += "    }\n";
}

void AddVolume(const UsdaStage::Volume& volume, std::string& text) {
  const auto end = std::back_inserter(text);
  const std::string name = UsdName(volume.name);
  fmt::format_to(end, "    def Volume \"{}\"\n    {{\n", name);
  for (const std::string& field : volume.fields) {
    fmt::format_to(end, "        rel field:{0} = </World/{1}/{0}>\n", UsdName(field), name);
  }
  for (const std::string& field : volume.fields) {
    fmt::format_to(end,
                   "        def OpenVDBAsset \"{}\"\n        {{\n            token fieldName = \"{}\"\n"
                   "            asset filePath.timeSamples = {{\n",
                   UsdName(field), field);
    for (const auto& [frame, file] : volume.files) fmt::format_to(end, "                {}: {},\n", frame, Asset(file));
    text += "            }\n        }\n";
  }
  text += "    }\n";
}

}  // namespace

std::string UsdName(const std::string& name) {
  std::string plain;
  for (const char c : name) {
    const auto byte = static_cast<unsigned char>(c);
    // Letters of other languages as numbers, or many names would be one.
    if (byte >= 0x80) {
      plain += fmt::format("{:02x}", byte);
    } else {
      plain += std::isalnum(byte) ? c : '_';
    }
  }
  return plain.empty() || std::isdigit(static_cast<unsigned char>(plain[0])) ? "_" + plain : plain;
}

UsdAttributes WriteUsda(const PolygonObject& mesh, const FileUnits& units, std::optional<int> frame,
                        std::ostream& out) {
  ArrayWriter writer(frame, out);
  writer.Line(Head(units, "Mesh") + "def Mesh \"Mesh\"\n{\n    uniform token subdivisionScheme = \"none\"\n");
  const std::size_t points = mesh.points.size();
  Extent(writer, points, [&](std::size_t n) { return mesh.points[n]; });
  const auto append = [](std::int64_t value, std::string& text) {
    fmt::format_to(std::back_inserter(text), "{}", value);
  };
  writer.Array("int[] faceVertexCounts", mesh.polygons.size(),
               [&](std::size_t n, std::string& text) { append(mesh.polygons[n].IsTriangle() ? 3 : 4, text); });
  writer.Array("int[] faceVertexIndices", mesh.polygons.size(), [&](std::size_t n, std::string& text) {
    const PolygonObject::Polygon& p = mesh.polygons[n];
    fmt::format_to(std::back_inserter(text), "{}, {}, {}", p.a, p.b, p.c);
    if (!p.IsTriangle()) fmt::format_to(std::back_inserter(text), ", {}", p.d);
  });
  writer.Vectors("point3f[] points", mesh.points);
  if (points > 0 && mesh.normals.size() == points) writer.Vectors("normal3f[] normals", mesh.normals);
  if (points > 0 && mesh.velocities.size() == points) writer.Vectors("vector3f[] velocities", mesh.velocities);
  for (const PolygonObject::Attribute& attribute : mesh.attributes) {
    const std::string name = "primvars:" + UsdName(attribute.name);
    const bool vector = attribute.components == 3;
    writer.Array((vector ? "vector3f[] " : "float[] ") + name, points, [&](std::size_t n, std::string& text) {
      const double* value = attribute.values.data() + n * static_cast<std::size_t>(attribute.components);
      vector ? ArrayWriter::Triple({value[0], value[1], value[2]}, text) : ArrayWriter::Number(*value, text);
    });
  }
  writer.Line("}\n");
  writer.Flush(0);
  return writer.attributes;
}

UsdAttributes WriteUsda(const PointSet& points, const FileUnits& units, std::optional<int> frame, std::ostream& out) {
  ArrayWriter writer(frame, out);
  writer.Line(Head(units, "Points") + "def Points \"Points\"\n{\n");
  if (const PointAttribute* position = points.Find("position"); position && position->components == 3) {
    Extent(writer, points.count, [&](std::size_t n) { return VectorAt(*position, n); });
    writer.Array("point3f[] points", points.count,
                 [&](std::size_t n, std::string& text) { ArrayWriter::Triple(VectorAt(*position, n), text); });
  }
  for (const PointAttribute& column : points.attributes) WriteColumn(writer, column, points.count);
  writer.Line("}\n");
  writer.Flush(0);
  return writer.attributes;
}

Status UsdaStage::Write(const std::filesystem::path& path) const {
  int first = 0, last = 0;
  bool any = false;
  const auto span = [&](const Files& files) {
    if (files.empty()) return;
    first = any ? std::min(first, files.begin()->first) : files.begin()->first;
    last = any ? std::max(last, files.rbegin()->first) : files.rbegin()->first;
    any = true;
  };
  for (const Volume& volume : volumes) span(volume.files);
  for (const Clips& clip : clips) span(clip.files);
  std::string text = Head(units, "World",
                          fmt::format("    startTimeCode = {}\n    endTimeCode = {}\n    timeCodesPerSecond = {}\n"
                                      "    framesPerSecond = {}\n",
                                      first, last, fps, fps));
  text += "def Xform \"World\"\n{\n";
  for (const Volume& volume : volumes) AddVolume(volume, text);
  for (const Clips& clip : clips) {
    if (clip.files.empty()) continue;
    const char* prim = clip.points ? "Points" : "Mesh";
    const std::string manifest = path.stem().string() + "_" + UsdName(clip.name) + ".manifest.usda";
    std::string declared = fmt::format("#usda 1.0\n\ndef {0} \"{0}\"\n{{\n", prim);
    for (const std::string& attribute : clip.attributes) declared += "    " + attribute + "\n";
    if (Status written = WriteFileAtomically(path.parent_path() / manifest, declared + "}\n"); !written) return written;
    AddClips(clip, manifest, text);
  }
  return WriteFileAtomically(path, text + "}\n");
}

}  // namespace orlix
