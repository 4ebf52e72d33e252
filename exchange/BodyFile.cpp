#include "exchange/BodyFile.h"

#include <fmt/format.h>

#include "host/files/AtomicFile.h"

namespace orlix {

namespace {

std::string Text(const std::string& text) {
  std::string quoted = "\"";
  for (const char c : text) {
    if (c == '"' || c == '\\') {
      quoted += '\\';
      quoted += c;
    } else if (static_cast<unsigned char>(c) < 0x20) {
      quoted += fmt::format("\\u{:04x}", static_cast<unsigned>(c));
    } else {
      quoted += c;
    }
  }
  return quoted + "\"";
}

std::string Numbers(const Vec3D& v) { return fmt::format("[{},{},{}]", v.x, v.y, v.z); }

}  // namespace

Status WriteBodyFile(const std::filesystem::path& path, const std::vector<BodyTransform>& bodies, int frame,
                     const ExportSpace& space) {
  AtomicFile file;
  if (Status status = file.Open(path); !status) return status;
  for (const BodyTransform& body : bodies) {
    const LMatrix& m = body.matrix;
    // A turn has no length.
    const Vec3D spin = ExportSpace{1, space.upZ}(body.spin);
    const std::string line =
        fmt::format(R"({{"frame":{},"object":{},"volume":{},"matrix":[{},{},{},{}],"velocity":{},"spin":{},)"
                    R"("mass":{},"asleep":{}}})"
                    "\n",
                    frame, Text(body.object->Path()), Text(body.volume->Path()), Numbers(space(m.v1)),
                    Numbers(space(m.v2)), Numbers(space(m.v3)), Numbers(space(m.off)), Numbers(space(body.velocity)),
                    Numbers(spin), body.mass, body.asleep);
    file.Write(line.data(), line.size());
  }
  return file.Commit();
}

}  // namespace orlix
