// Polygons from a file, or, for a deforming mesh, from numbered files: "walk.####.obj" reads walk.0012.obj at frame 12.

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>

#include "host/files/FrameFiles.h"
#include "host/geometry/GeometryTypes.h"
#include "host/geometry/MeshReader.h"
#include "host/objects/BaseDocument.h"

namespace orlix {

namespace fs = std::filesystem;

namespace {

constexpr Parameter kParameters[] = {
    FileParameter(
        kMeshFileId, "file",
        "OBJ, PLY, STL or glTF file; # signs stand for the frame number, as in walk.####.obj. A frame without a "
        "file shows the one before it"),
    IntParameter(kMeshFrameOffsetId, "frame_offset", 0, "frames", "Added to the frame number of numbered files"),
};

// A numbered file for the frame: of the greatest number that isn't above it, otherwise of the smallest. The result
// doesn't depend on which frames were shown before.
Result<fs::path> FileOfFrame(const fs::path& pattern, std::int64_t frame) {
  const std::string name = pattern.filename().string();
  const std::size_t first = name.find('#'), after = name.find_first_not_of('#', first);
  const auto fail = [&](std::string_view what) {
    return Error{ErrorKind::InputFile, fmt::format("{}: {}", pattern.string(), what)};
  };
  if (after == std::string::npos || name[after] != '.' || name.find('#', after) != std::string::npos) {
    return fail("the # signs must stand together, right before the extension");
  }
  const fs::path folder = pattern.has_parent_path() ? pattern.parent_path() : fs::path(".");
  const std::vector<FrameFile> files =
      ScanFrameFiles(folder, std::string_view(name).substr(0, first), name.substr(after + 1));
  if (files.empty()) return fail("there is no numbered file of this name");
  const auto above = std::upper_bound(files.begin(), files.end(), frame,
                                      [](std::int64_t wanted, const FrameFile& file) { return wanted < file.frame; });
  return above == files.begin() ? files.front().path : std::prev(above)->path;
}

class MeshObject : public ObjectData {
 public:
  Status Update(BaseObject& object, const BaseTime& time) override {
    Result<fs::path> path = FileNow(object, time);
    if (path.ok() && *path == loaded_) return {};
    Result<PolygonObject> mesh = !path.ok() ? path.error() : path->empty() ? PolygonObject() : ReadMesh(*path);
    if (!mesh.ok()) return Status::Fail(mesh.error().kind, fmt::format("\"{}\": {}", object.Path(), mesh.error().text));
    mesh->version = polygons_.version + 1;
    polygons_ = std::move(*mesh);
    loaded_ = *path;
    object.MarkDirty();
    return {};
  }
  const PolygonObject* Polygons() const override { return &polygons_; }

 private:
  // Empty when the object names none.
  static Result<fs::path> FileNow(const BaseObject& object, const BaseTime& time) {
    fs::path path = object.GetString(kMeshFileId);
    if (path.empty()) return path;
    if (path.is_relative()) path = fs::path(object.document().folder) / path;
    if (path.filename().string().find('#') == std::string::npos) return path;
    return FileOfFrame(path, std::int64_t(time.Frame(object.document().fps)) + object.GetInt(kMeshFrameOffsetId));
  }

  PolygonObject polygons_;
  fs::path loaded_;
};

}  // namespace

const TypeInfo kMeshType{
    .id = kMeshTypeId,
    .resource = "mesh",
    .className = "MeshObject",
    .label = "Mesh",
    .text = "Polygons from an OBJ, PLY, STL or glTF file. Numbered files give a mesh that deforms from frame to frame.",
    .role = TypeRole::Object,
    .kinds = kGeometryKinds,
    .parameters = kParameters,
    .common = GeometryParameters(),
    .createData = []() -> std::unique_ptr<ObjectData> { return std::make_unique<MeshObject>(); },
};

}  // namespace orlix
