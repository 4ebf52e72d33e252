#include "exchange/points/PointFormats.h"

#include <fmt/format.h>

#include <algorithm>

#include "exchange/points/Deflate.h"
#include "exchange/points/FormatList.h"
#include "host/files/AtomicStream.h"
#include "host/files/ByteSource.h"

namespace orlix {

namespace {

constexpr std::uint64_t kMaxPointFile = std::uint64_t(1) << 36;

constexpr PointFormat kFormats[] = {
    {".bgeo", "Houdini geometry, classic binary", ReadBgeo, WriteBgeo},
    {".bhclassic", "Houdini geometry, classic binary", ReadBgeo, WriteBgeo},
    {".geo", "Houdini geometry, classic text", ReadGeo, WriteGeo},
    {".hclassic", "Houdini geometry, classic text", ReadGeo, WriteGeo},
    {".pdb", "PDB particles", ReadPdbAny, WritePdb32},
    {".pdb32", "PDB particles of 32 bits", ReadPdb32, WritePdb32},
    {".pdb64", "PDB particles of 64 bits", ReadPdb64, WritePdb64},
    {".pda", "Maya particles, text", ReadPda, WritePda},
    {".mc", "Maya cache", ReadMc, WriteMc},
    {".ptc", "RenderMan point cloud", ReadPtc, WritePtc},
    {".pdc", "Maya particles", ReadPdc, WritePdc},
    {".prt", "Krakatoa particles", ReadPrt, WritePrt},
    {".bin", "RealFlow particles", ReadBin, WriteBin,
     "position velocity force vorticity normal neighbors texture "
     "infoBits age isolationTime viscosity density pressure mass temperature id"},
    {".pts", "points of a scanner", ReadPts, nullptr},
    {".ptf", "RenderMan point cloud", ReadPtc, WritePtc},
    {".xyz", "points, a line each", ReadXyz, WriteXyz, "position"},
    {".pcd", "PCL point cloud, text", ReadPcd, WritePcd},
    {".icecache", "Softimage ICE cache", ReadIcecache, WriteIcecache},
    {".itbl", "Houdini geometry, classic binary", ReadBgeo, WriteBgeo},
    {".atbl", "Houdini geometry, classic binary", ReadBgeo, WriteBgeo},
    {".ply", "PLY", ReadPly, WritePly},
    {".txt", "one a line", ReadTextPoints, WriteTextPoints},
    {".rib", "RenderMan scene", nullptr, WriteRib},
};

std::string LowerName(const std::filesystem::path& path) {
  std::string name = path.filename().string();
  std::transform(name.begin(), name.end(), name.begin(),
                 [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c; });
  return name;
}

// With the dot and without the packing's.
std::string FormatEnding(const std::filesystem::path& path) {
  std::string name = LowerName(path);
  if (name.ends_with(".gz")) name.resize(name.size() - 3);
  const std::size_t dot = name.rfind('.');
  return dot == std::string::npos ? "" : name.substr(dot);
}

Error NoFormat(const std::filesystem::path& path, const char* what) {
  std::string ending = FormatEnding(path);
  if (ending.empty()) return {ErrorKind::Usage, fmt::format("{}: No extension detected in filename", path.string())};
  return {ErrorKind::Usage, fmt::format("{}: No {} defined for extension {}", path.string(), what, ending.substr(1))};
}

Status TestSet(const PointSet& set, std::string_view name) {
  const PointAttribute* position = set.Find("position");
  if (position && position->components == 3) return {};
  return Status::Fail(ErrorKind::InputFile, fmt::format("{}: its particles have no position", name));
}

}  // namespace

std::span<const PointFormat> PointFormats() { return kFormats; }

bool EndsInGz(const std::filesystem::path& path) { return LowerName(path).ends_with(".gz"); }

const PointFormat* FindPointFormat(const std::filesystem::path& path) {
  const std::string ending = FormatEnding(path);
  const auto found = std::find_if(std::begin(kFormats), std::end(kFormats),
                                  [&](const PointFormat& format) { return ending == format.extension; });
  return found == std::end(kFormats) ? nullptr : found;
}

Result<PointSet> ParsePoints(std::string_view bytes, const PointFormat& format, std::string_view name,
                             bool headersOnly) {
  std::string unpacked;
  if (IsGzip(bytes)) {
    Result<std::string> whole = UnpackGzip(bytes, name);
    if (!whole) return whole.error();
    unpacked = std::move(*whole);
    bytes = unpacked;
  }
  Result<PointSet> set = format.read({bytes, name, headersOnly});
  if (!set) return set;
  if (Status good = TestSet(*set, name); !good) return good.error();
  return set;
}

Result<PointSet> ReadPoints(const std::filesystem::path& path, bool headersOnly) {
  const PointFormat* format = FindPointFormat(path);
  if (!format || !format->read) return NoFormat(path, "reader");
  const Result<FileBytes> content = ReadPointFile(path);
  if (!content) return content.error();
  return ParsePoints(content->Text(), *format, path.string(), headersOnly);
}

Status WritePoints(const std::filesystem::path& path, const PointSet& set, bool packed, WorkerPool* pool) {
  const PointFormat* format = FindPointFormat(path);
  if (!format || !format->write) return NoFormat(path, "writer");
  AtomicStream stream;
  if (Status opened = stream.Open(path); !opened) return opened;
  Status written;
  if (packed || EndsInGz(path)) {
    PackedBuffer buffer(stream, Packing::Gzip, pool);
    std::ostream packing(&buffer);
    written = format->write(set, {packing, pool});
    buffer.Finish();
  } else {
    written = format->write(set, {stream, pool});
  }
  if (!written) return Status::Fail(written.error().kind, path.string() + ": " + written.error().text);
  return stream.Commit();
}

Result<FileBytes> ReadPointFile(const std::filesystem::path& path) { return ReadWholeFile(path, kMaxPointFile); }

}  // namespace orlix
